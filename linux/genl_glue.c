// SPDX-License-Identifier: GPL-2.0
/*
 * The generic netlink family of the core, made of its record, and the raw netlink socket.
 */
#include <linux/netlink.h>
#include <linux/skbuff.h>
#include <net/genetlink.h>
#include <net/netlink.h>
#include <net/sock.h>

#include "genl_glue.h"

/* The kernel keeps pointers to them: they stand here for ever. */
static const struct tarn_k_family *core_family;
static struct nla_policy policy[U8_MAX + 1];
static struct genl_small_ops ops[U8_MAX];
static struct genl_multicast_group group;

static struct genl_family family = {
	.module = THIS_MODULE,
	.netnsok = true,
	.policy = policy,
	.small_ops = ops,
	.mcgrps = &group,
	.n_mcgrps = 1,
};

static int doit(struct sk_buff *skb, struct genl_info *info)
{
	return core_family->doit(info->genlhdr->cmd, (const struct nlattr *const *)info->attrs);
}

int tarn_k_genl_register_family(const struct tarn_k_family *from)
{
	u8 last = 0;
	int i;

	core_family = from;
	strscpy(family.name, from->name, sizeof(family.name));
	strscpy(group.name, from->group, sizeof(group.name));
	family.version = from->version;
	family.maxattr = from->maxattr;
	for (i = 0; i <= from->maxattr; i++) {
		policy[i].type = from->policy[i].type;
		policy[i].len = from->policy[i].length;
	}
	for (i = 0; i < from->command_count; i++) {
		ops[i].cmd = from->commands[i];
		ops[i].doit = doit;
		last = max(last, from->commands[i]);
	}
	family.n_small_ops = from->command_count;
	/* Daemons may set bits of the headers that nobody looks at, as they always could. */
	family.resv_start_op = last + 1;
	return genl_register_family(&family);
}

void *tarn_k_genlmsg_put(struct sk_buff *skb, unsigned int portid, unsigned int sequence, int flags,
			 unsigned char command)
{
	return genlmsg_put(skb, portid, sequence, &family, flags, command);
}

void tarn_k_genlmsg_end(struct sk_buff *skb, void *header)
{
	genlmsg_end(skb, header);
}

/* This kernel's takes the locks that it needs, and allocates without sleeping. */
int tarn_k_genlmsg_multicast_allns(struct sk_buff *skb, unsigned int portid, unsigned int to_group)
{
	return genlmsg_multicast_allns(&family, skb, portid, to_group);
}

struct sock *tarn_k_netlink_kernel_create(int protocol, unsigned int groups)
{
	struct netlink_kernel_cfg cfg = { .groups = groups };

	return netlink_kernel_create(&init_net, protocol, &cfg);
}

/* The buffer was a frame: what its control block held means something else to netlink. */
int tarn_k_netlink_broadcast(struct sock *from, struct sk_buff *skb, unsigned int portid,
			     unsigned int to_group, unsigned int flags)
{
	skb_orphan(skb);
	memset(skb->cb, 0, sizeof(skb->cb));
	NETLINK_CB(skb).portid = portid;
	NETLINK_CB(skb).dst_group = to_group;
	return netlink_broadcast(from, skb, portid, to_group, (__force gfp_t)flags);
}
