// Sockets of the protocol families: what a family offers to user space, and what it needs for that.
//
// A family is three constant tables, registered by one call; each home turns them into what its
// kernel wants. What a table leaves out is refused as the kernel refuses it: bind, connect and
// their like, socket options, a send or receive that is null; poll is that of any datagram socket.
//
//   sock_register(family)     0, -EEXIST, or -ENOBUFS where the kernel has no room for the number
//   sk_alloc(net, family, flags, proto, kern)
//                             a zeroed socket record of a registered family, or null;
//                             sock_init_data makes it ready, with one reference
//   sock_hold(sk)             one reference more; __sock_put(sk) one less, which is not the last
//   sock_put(sk)              one less; at zero sk_free
//   sock_orphan(sk)           nobody behind the socket any more: nobody is woken
//   sk_add_bind_node(sk, list), sk_del_bind_node(sk)
//                             on the family's list, at its head; false when it was on none
//   sk_rmem_alloc(sk)         bytes charged for what waits to be read
//   sk_rcvbuf(sk)             the most that may be charged
//   sk_queue_length(sk)       frames that wait to be read
//   sk_drops(sk)              frames that were not offered to it; sk_drops_inc(sk) one more
//   sk_process(sk), sk_inode(sk)
//                             who holds it, as far as the home knows; else 0
//   sk_list_first(list), sk_list_next(sk)
//                             the sockets of a family's list, newest first; under its lock
//   skb_set_owner_r(skb, sk)  charges the frame to the socket, until it is freed
//   sk_queue_tail, sk_queue_purge, sk_data_ready
//                             the receive queue: append, drop all, wake who waits
//   skb_recv_datagram(sk, flags, &error)
//                             the first frame of the queue, waiting for one unless told not to; it
//                             stays queued with MSG_PEEK. skb_free_datagram ends it
//   sock_alloc_send_skb(sk, size, noblock, &error)
//                             an empty buffer charged to the socket; waits for room
//   skb_copy_datagram_iter    from a frame to the caller's buffers: 0 or -EFAULT
//   _copy_from_iter           the other way: bytes copied
#pragma once

#include "kernel/memory.h"
#include "kernel/refcount.h"
#include "kernel/types.h"

struct iov_iter;
struct msghdr;
struct net;
struct sk_buff;
struct sock;
struct socket;

// The kernel's numbers, under names of our own: the C library has the others as macros.
inline constexpr i32 SOCKET_TYPE_RAW = 3;
inline constexpr i32 SOCKET_UNCONNECTED = 1;
inline constexpr u32 SOCKET_MSG_TRUNC = 0x20;
inline constexpr u32 SOCKET_MSG_DONTWAIT = 0x40;
inline constexpr i32 SOCKET_CAP_NET_RAW = 13;

struct proto {
    const char *name; // upper case; the object is the kernel's plain socket record
};

struct proto_ops {
    i32 family;
    i32 (*release)(struct socket *socket);
    i32 (*sendmsg)(struct socket *socket, msghdr *msg, std::size_t length);          // null: none
    i32 (*recvmsg)(struct socket *socket, msghdr *msg, std::size_t size, i32 flags); // null: none
};

struct net_proto_family {
    i32 family;
    i32 (*create)(net *space, struct socket *socket, i32 protocol, i32 kern);
    const struct proto *proto;
    const proto_ops *ops;
};

i32 sock_register(const net_proto_family *family);

// The kernel's hash list head: a pointer to the first node.
struct sk_list {
    void *first;
};

// --- fields ------------------------------------------------------------------------------------

bool net_is_init(const net *space);
i32 socket_type(const struct socket *socket);
void socket_set_state(struct socket *socket, i32 state);
void socket_set_ops(struct socket *socket, const proto_ops *ops);
sock *socket_sk(const struct socket *socket);
void socket_set_sk(struct socket *socket, sock *sk);

int sk_rmem_alloc(const sock *sk);
u32 sk_queue_length(const sock *sk);
int sk_drops(const sock *sk);
void sk_drops_inc(sock *sk);
int sk_process(const sock *sk);
unsigned long sk_inode(const sock *sk);
int sk_rcvbuf(const sock *sk);
u16 sk_protocol(const sock *sk);
void sk_set_protocol(sock *sk, u16 protocol);
void sk_set_family(sock *sk, u16 family);
void sk_set_destruct(sock *sk, void (*destruct)(sock *sk));
refcount_t *sk_refcnt(sock *sk);
sock *sk_list_first(const sk_list *list);
sock *sk_list_next(const sock *sk);
void sk_add_bind_node(sock *sk, sk_list *list);
bool sk_del_bind_node(sock *sk);

void *msg_name(const msghdr *msg);
i32 msg_namelen(const msghdr *msg);
void msg_set_namelen(msghdr *msg, i32 length);
u32 msg_flags(const msghdr *msg);
void msg_set_flags(msghdr *msg, u32 flags);
iov_iter *msg_iter(msghdr *msg);

// --- operations --------------------------------------------------------------------------------

sock *sk_alloc(net *space, i32 family, gfp_t flags, const struct proto *proto, i32 kern);
void sock_orphan(sock *sk);
void skb_set_owner_r(sk_buff *skb, sock *sk);
void sk_queue_tail(sock *sk, sk_buff *skb);
void sk_queue_purge(sock *sk);
void sk_data_ready(sock *sk);
sk_buff *sock_alloc_send_skb(sock *sk, unsigned long size, bool noblock, int *error);

extern "C" {
bool capable(int capability);
void sock_init_data(struct socket *socket, sock *sk);
void sk_free(sock *sk);
sk_buff *skb_recv_datagram(sock *sk, unsigned flags, int *error);
void skb_free_datagram(sock *sk, sk_buff *skb);
int skb_copy_datagram_iter(const sk_buff *skb, int offset, iov_iter *to, int length);
std::size_t _copy_from_iter(void *to, std::size_t length, iov_iter *from);
}

#include "home/sock.h"

inline void sock_hold(sock *sk) {
    refcount_inc(sk_refcnt(sk));
}

inline void __sock_put(sock *sk) {
    if (refcount_dec(sk_refcnt(sk)) <= 1)
        refcount_warn_saturate(sk_refcnt(sk), REFCOUNT_DEC_LEAK);
}

inline void sock_put(sock *sk) {
    i32 before = refcount_dec(sk_refcnt(sk));
    if (before == 1)
        sk_free(sk);
    else if (before < 1)
        refcount_warn_saturate(sk_refcnt(sk), REFCOUNT_SUB_UAF);
}
