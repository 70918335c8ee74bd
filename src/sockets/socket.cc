#include "sockets/socket.h"

#include "kernel/errno.h"
#include "kernel/skb.h"
#include "pkt/pkt_calls.h"

namespace {

// On the list, or not any more: a list's reference is never the last.
void _leave_list(sock *sk, rwlock_t *list_lock) {
    write_lock_bh(list_lock);
    if (sk_del_bind_node(sk))
        __sock_put(sk);
    write_unlock_bh(list_lock);
}

i32 _permitted(const net *space, const struct socket *socket) {
    if (!net_is_init(space))
        return -EAFNOSUPPORT;
    if (!capable(SOCKET_CAP_NET_RAW))
        return -EPERM;
    return socket_type(socket) == SOCKET_TYPE_RAW ? 0 : -ESOCKTNOSUPPORT;
}

} // namespace

i32 tarn_socket_create(net *space, struct socket *socket, const proto *proto, i32 kern, i32 family,
                       const proto_ops *ops, sock **sk_out) {
    *sk_out = nullptr;
    if (i32 result = _permitted(space, socket); result != 0)
        return result;
    socket_set_state(socket, SOCKET_UNCONNECTED);
    sock *sk = sk_alloc(space, family, GFP_KERNEL, proto, kern);
    if (!sk)
        return -ENOBUFS;
    socket_set_ops(socket, ops);
    sock_init_data(socket, sk);
    *sk_out = sk;
    return 0;
}

i32 tarn_socket_release(struct socket *socket, rwlock_t *list_lock) {
    if (!list_lock)
        return -EINVAL;
    sock *sk = socket_sk(socket);
    if (!sk)
        return 0;
    _leave_list(sk, list_lock);
    sock_orphan(sk);
    socket_set_sk(socket, nullptr);
    sk_queue_purge(sk);
    sock_put(sk);
    return 0;
}

// Called when the last reference is gone, or by whoever holds one to drop.
void tarn_socket_destruct(sock *sk, rwlock_t *list_lock) {
    if (!sk || !list_lock)
        return;
    _leave_list(sk, list_lock);
    sock_orphan(sk);
    sk_queue_purge(sk);
    if (refcount_read(sk_refcnt(sk)) > 0)
        sock_put(sk);
}

// The limit is tested again, with the size of the clone: several frames may have passed the first
// test at once.
i32 tarn_socket_post_skb(sock *sk, sk_buff *skb) {
    u32 charged = static_cast<u32>(sk_rmem_alloc(sk)) + skb_truesize(skb);
    if (charged >= static_cast<u32>(sk_rcvbuf(sk)))
        return -1;
    skb_set_owner_r(skb, sk); // and takes it from its owner before
    skb_set_dev(skb, nullptr);
    sk_queue_tail(sk, skb);
    sk_data_ready(sk);
    return 0;
}
