/* SPDX-License-Identifier: GPL-2.0 */
/* The functions of sock_glue.c, as both sides see them. */
#ifndef TARN_LINUX_SOCK_GLUE_H
#define TARN_LINUX_SOCK_GLUE_H

struct net;
struct sk_buff;
struct sock;
struct socket;

#ifdef __cplusplus
struct net_proto_family;
struct sk_list;
#define TARN_K_FAMILY net_proto_family
#define TARN_K_LIST sk_list
extern "C" {
#else
struct msghdr;

/* The core's tables: src/kernel/sock.h. */
struct tarn_k_proto {
	const char *name;
};

struct tarn_k_proto_ops {
	int family;
	int (*release)(struct socket *sock);
	int (*sendmsg)(struct socket *sock, struct msghdr *msg, size_t length);
	int (*recvmsg)(struct socket *sock, struct msghdr *msg, size_t size, int flags);
};

struct tarn_k_family {
	int family;
	int (*create)(struct net *net, struct socket *sock, int protocol, int kern);
	const struct tarn_k_proto *proto;
	const struct tarn_k_proto_ops *ops;
};

#define TARN_K_FAMILY struct tarn_k_family
#define TARN_K_LIST struct hlist_head
#endif

int tarn_k_sock_register(const TARN_K_FAMILY *from);
int tarn_k_net_is_init(const struct net *net);
void tarn_k_socket_set_ops(struct socket *sock, int family);
struct sock *tarn_k_sk_alloc(struct net *net, int family, unsigned int flags, int kern);
void tarn_k_sk_add_bind_node(struct sock *sk, TARN_K_LIST *list);
int tarn_k_sk_del_bind_node(struct sock *sk);
unsigned long tarn_k_sk_inode(struct sock *sk);
void tarn_k_sock_orphan(struct sock *sk);
void tarn_k_skb_set_owner_r(struct sk_buff *skb, struct sock *sk);
void tarn_k_sk_queue_tail(struct sock *sk, struct sk_buff *skb);
void tarn_k_sk_queue_purge(struct sock *sk);
void tarn_k_sk_data_ready(struct sock *sk);
struct sk_buff *tarn_k_sock_alloc_send_skb(struct sock *sk, unsigned long size, int noblock,
					   int *error);

#ifdef __cplusplus
}
#endif

#endif
