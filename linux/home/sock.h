#pragma once

#include "home/field.h"
#include "sock_glue.h"

inline i32 sock_register(const net_proto_family *family) {
    return tarn_k_sock_register(family);
}
inline bool net_is_init(const net *space) {
    return tarn_k_net_is_init(space) != 0;
}
inline i32 socket_type(const struct socket *socket) {
    return home::field<i16>(socket, TARN_SOCKET_TYPE);
}
inline void socket_set_state(struct socket *socket, i32 state) {
    home::field<i32>(socket, TARN_SOCKET_STATE) = state;
}
inline void socket_set_ops(struct socket *socket, const proto_ops *ops) {
    tarn_k_socket_set_ops(socket, ops->family);
}
inline sock *socket_sk(const struct socket *socket) {
    return home::field<sock *>(socket, TARN_SOCKET_SK);
}
inline void socket_set_sk(struct socket *socket, sock *sk) {
    home::field<sock *>(socket, TARN_SOCKET_SK) = sk;
}

inline int sk_rmem_alloc(const sock *sk) {
    return __atomic_load_n(&home::field<int>(sk, TARN_SOCK_RMEM_ALLOC), __ATOMIC_RELAXED);
}
inline u32 sk_queue_length(const sock *sk) {
    return __atomic_load_n(&home::field<u32>(sk, TARN_SOCK_QUEUE_LENGTH), __ATOMIC_RELAXED);
}
inline int sk_drops(const sock *sk) {
    return __atomic_load_n(&home::field<int>(sk, TARN_SOCK_DROPS), __ATOMIC_RELAXED);
}
inline void sk_drops_inc(sock *sk) {
    __atomic_fetch_add(&home::field<int>(sk, TARN_SOCK_DROPS), 1, __ATOMIC_RELAXED);
}
inline int sk_process(const sock *) {
    return 0;
}
inline unsigned long sk_inode(const sock *sk) {
    return tarn_k_sk_inode(const_cast<sock *>(sk));
}
inline int sk_rcvbuf(const sock *sk) {
    return __atomic_load_n(&home::field<int>(sk, TARN_SOCK_RCVBUF), __ATOMIC_RELAXED);
}
inline u16 sk_protocol(const sock *sk) {
    return home::field<u16>(sk, TARN_SOCK_PROTOCOL);
}
inline void sk_set_protocol(sock *sk, u16 protocol) {
    home::field<u16>(sk, TARN_SOCK_PROTOCOL) = protocol;
}
inline void sk_set_family(sock *sk, u16 family) {
    home::field<u16>(sk, TARN_SOCK_FAMILY) = family;
}
inline void sk_set_destruct(sock *sk, void (*destruct)(sock *sk)) {
    home::field<void (*)(sock *)>(sk, TARN_SOCK_DESTRUCT) = destruct;
}
inline refcount_t *sk_refcnt(sock *sk) {
    return &home::field<refcount_t>(sk, TARN_SOCK_REFCNT);
}

// Sockets of a family are linked by their bind node, laid out as the kernel's hlist_node.
inline sock *sk_of_node(void *node) {
    return node ? reinterpret_cast<sock *>(static_cast<char *>(node) - TARN_SOCK_BIND_NODE)
                : nullptr;
}
inline sock *sk_list_first(const sk_list *list) {
    return sk_of_node(list->first);
}
inline sock *sk_list_next(const sock *sk) {
    return sk_of_node(home::field<void *>(sk, TARN_SOCK_BIND_NODE));
}
inline void sk_add_bind_node(sock *sk, sk_list *list) {
    tarn_k_sk_add_bind_node(sk, list);
}
inline bool sk_del_bind_node(sock *sk) {
    return tarn_k_sk_del_bind_node(sk) != 0;
}

inline void *msg_name(const msghdr *msg) {
    return home::field<void *>(msg, TARN_MSG_NAME);
}
inline i32 msg_namelen(const msghdr *msg) {
    return home::field<i32>(msg, TARN_MSG_NAMELEN);
}
inline void msg_set_namelen(msghdr *msg, i32 length) {
    home::field<i32>(msg, TARN_MSG_NAMELEN) = length;
}
inline u32 msg_flags(const msghdr *msg) {
    return home::field<u32>(msg, TARN_MSG_FLAGS);
}
inline void msg_set_flags(msghdr *msg, u32 flags) {
    home::field<u32>(msg, TARN_MSG_FLAGS) = flags;
}
inline iov_iter *msg_iter(msghdr *msg) {
    return reinterpret_cast<iov_iter *>(&home::field<char>(msg, TARN_MSG_ITER));
}

inline sock *sk_alloc(net *space, i32 family, gfp_t flags, const struct proto *, i32 kern) {
    return tarn_k_sk_alloc(space, family, flags, kern);
}
inline void sock_orphan(sock *sk) {
    tarn_k_sock_orphan(sk);
}
inline void skb_set_owner_r(sk_buff *skb, sock *sk) {
    tarn_k_skb_set_owner_r(skb, sk);
}
inline void sk_queue_tail(sock *sk, sk_buff *skb) {
    tarn_k_sk_queue_tail(sk, skb);
}
inline void sk_queue_purge(sock *sk) {
    tarn_k_sk_queue_purge(sk);
}
inline void sk_data_ready(sock *sk) {
    tarn_k_sk_data_ready(sk);
}
inline sk_buff *sock_alloc_send_skb(sock *sk, unsigned long size, bool noblock, int *error) {
    return tarn_k_sock_alloc_send_skb(sk, size, noblock, error);
}
