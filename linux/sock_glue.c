// SPDX-License-Identifier: GPL-2.0
/*
 * Sockets for the core: its tables of families turned into the kernel's, and what the kernel has as
 * inline functions. This is also the file that knows where Linux 6.1 differs from older names: socket
 * options that a family does not have are empty slots.
 */
#include <linux/kmemleak.h>
#include <linux/module.h>
#include <linux/net.h>
#include <linux/skbuff.h>
#include <linux/socket.h>
#include <net/net_namespace.h>
#include <net/sock.h>

#include "sock_glue.h"

/* --- tables -------------------------------------------------------------------------------------- */

/* The kernel keeps pointers to them: they stand here for ever. Written while the module loads. */
static struct {
	struct proto proto;
	struct proto_ops ops;
	struct net_proto_family family;
} families[NPROTO];

int tarn_k_sock_register(const struct tarn_k_family *from)
{
	if (from->family >= NPROTO)
		return -ENOBUFS;
	if (families[from->family].family.create)
		return -EEXIST;
	families[from->family].proto = (struct proto){
		.owner = THIS_MODULE,
		.obj_size = sizeof(struct sock),
	};
	strscpy(families[from->family].proto.name, from->proto->name, sizeof(((struct proto *)0)->name));
	families[from->family].ops = (struct proto_ops){
		.family = from->family,
		.release = from->ops->release,
		.bind = sock_no_bind,
		.connect = sock_no_connect,
		.socketpair = sock_no_socketpair,
		.accept = sock_no_accept,
		.getname = sock_no_getname,
		.poll = datagram_poll,
		.ioctl = sock_no_ioctl,
		.listen = sock_no_listen,
		.shutdown = sock_no_shutdown,
		.sendmsg = from->ops->sendmsg ? from->ops->sendmsg : sock_no_sendmsg,
		.recvmsg = from->ops->recvmsg ? from->ops->recvmsg : sock_no_recvmsg,
		.mmap = sock_no_mmap,
		.sendpage = sock_no_sendpage,
	};
	families[from->family].family = (struct net_proto_family){
		.family = from->family,
		.create = from->create,
		.owner = THIS_MODULE,
	};
	return sock_register(&families[from->family].family);
}

void tarn_k_socket_set_ops(struct socket *sock, int family)
{
	sock->ops = &families[family].ops;
}

struct sock *tarn_k_sk_alloc(struct net *net, int family, unsigned int flags, int kern)
{
	struct sock *sk = sk_alloc(net, family, (__force gfp_t)flags, &families[family].proto, kern);

	/* A closed socket leaves its record behind on purpose: who looks for lost memory is told. */
	if (sk)
		kmemleak_not_leak(sk);
	return sk;
}

/* --- fields and operations ----------------------------------------------------------------------- */

int tarn_k_net_is_init(const struct net *net)
{
	return net_eq(net, &init_net);
}

void tarn_k_sk_add_bind_node(struct sock *sk, struct hlist_head *list)
{
	hlist_add_head(&sk->sk_bind_node, list);
}

int tarn_k_sk_del_bind_node(struct sock *sk)
{
	if (hlist_unhashed(&sk->sk_bind_node))
		return 0;
	hlist_del_init(&sk->sk_bind_node);
	return 1;
}

unsigned long tarn_k_sk_inode(struct sock *sk)
{
	return sock_i_ino(sk);
}

void tarn_k_sock_orphan(struct sock *sk)
{
	sock_orphan(sk);
}

void tarn_k_skb_set_owner_r(struct sk_buff *skb, struct sock *sk)
{
	skb_set_owner_r(skb, sk);
}

void tarn_k_sk_queue_tail(struct sock *sk, struct sk_buff *skb)
{
	skb_queue_tail(&sk->sk_receive_queue, skb);
}

void tarn_k_sk_queue_purge(struct sock *sk)
{
	skb_queue_purge(&sk->sk_receive_queue);
}

void tarn_k_sk_data_ready(struct sock *sk)
{
	sk->sk_data_ready(sk);
}

struct sk_buff *tarn_k_sock_alloc_send_skb(struct sock *sk, unsigned long size, int noblock,
					   int *error)
{
	return sock_alloc_send_skb(sk, size, noblock, error);
}
