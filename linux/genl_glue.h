/* SPDX-License-Identifier: GPL-2.0 */
/* The functions of genl_glue.c, as both sides see them. */
#ifndef TARN_LINUX_GENL_GLUE_H
#define TARN_LINUX_GENL_GLUE_H

#ifdef __cplusplus
struct genl_family_record;
struct sk_buff;
struct sock;
#define TARN_K_FAMILY genl_family_record
extern "C" {
#else
struct sk_buff;
struct sock;
struct nlattr;

/* The core's records: src/kernel/genl.h. */
struct tarn_k_policy_row {
	u8 type;
	u16 length;
};

struct tarn_k_family {
	const char *name;
	u8 version;
	u8 maxattr;
	const struct tarn_k_policy_row *policy;
	const u8 *commands;
	u8 command_count;
	const char *group;
	s32 (*doit)(u8 command, const struct nlattr *const *attributes);
};
#define TARN_K_FAMILY struct tarn_k_family
#endif

int tarn_k_genl_register_family(const TARN_K_FAMILY *family);
void *tarn_k_genlmsg_put(struct sk_buff *skb, unsigned int portid, unsigned int sequence, int flags,
			 unsigned char command);
void tarn_k_genlmsg_end(struct sk_buff *skb, void *header);
int tarn_k_genlmsg_multicast_allns(struct sk_buff *skb, unsigned int portid, unsigned int group);
struct sock *tarn_k_netlink_kernel_create(int protocol, unsigned int groups);
int tarn_k_netlink_broadcast(struct sock *from, struct sk_buff *skb, unsigned int portid,
			     unsigned int group, unsigned int flags);

#ifdef __cplusplus
}
#endif

#endif
