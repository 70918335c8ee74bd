#pragma once

#include <pthread.h>

// A socket record. userlevel/sock.cc keeps its queue and wakes who waits.
struct sock {
    int rmem_alloc;
    int rcvbuf;
    void *next;   // on the family's list
    void **pprev; // null: on none
    refcount_t refs;
    int wmem_alloc; // of frames being sent, and 1 for the record itself
    int sndbuf;
    u16 family, protocol;
    bool dead;
    struct socket *socket;
    void (*destruct)(sock *sk);
    void (*ready)(void *argument); // null: nobody asked to be told
    void *ready_argument;
    int owner;              // a process; 0: this one
    pthread_mutex_t lock;   // covers the queue
    pthread_cond_t changed; // by a frame more in the queue, or room to send
    u32 waiting;            // for that, threads
    sk_buff *first, *last;
    u32 queued; // frames
    int drops;
};

// What user space holds.
struct socket {
    i32 state, type;
    sock *sk;
    const proto_ops *ops;
    bool nonblocking;
};

// A process has one network namespace, and one that a test may say it is in.
struct net {
    bool initial;
};

inline bool net_is_init(const net *space) {
    return space->initial;
}
inline i32 socket_type(const struct socket *socket) {
    return socket->type;
}
inline void socket_set_state(struct socket *socket, i32 state) {
    socket->state = state;
}
inline void socket_set_ops(struct socket *socket, const proto_ops *ops) {
    socket->ops = ops;
}
inline sock *socket_sk(const struct socket *socket) {
    return socket->sk;
}
inline void socket_set_sk(struct socket *socket, sock *sk) {
    socket->sk = sk;
}

inline int sk_rmem_alloc(const sock *sk) {
    return __atomic_load_n(&sk->rmem_alloc, __ATOMIC_RELAXED);
}
inline u32 sk_queue_length(const sock *sk) {
    return __atomic_load_n(&sk->queued, __ATOMIC_RELAXED);
}
inline int sk_drops(const sock *sk) {
    return __atomic_load_n(&sk->drops, __ATOMIC_RELAXED);
}
inline void sk_drops_inc(sock *sk) {
    __atomic_fetch_add(&sk->drops, 1, __ATOMIC_RELAXED);
}
inline int sk_process(const sock *sk) {
    return __atomic_load_n(&sk->owner, __ATOMIC_RELAXED);
}
inline unsigned long sk_inode(const sock *) {
    return 0;
}
inline int sk_rcvbuf(const sock *sk) {
    return __atomic_load_n(&sk->rcvbuf, __ATOMIC_RELAXED);
}
inline u16 sk_protocol(const sock *sk) {
    return sk->protocol;
}
inline void sk_set_protocol(sock *sk, u16 protocol) {
    sk->protocol = protocol;
}
inline void sk_set_family(sock *sk, u16 family) {
    sk->family = family;
}
inline void sk_set_destruct(sock *sk, void (*destruct)(sock *sk)) {
    sk->destruct = destruct;
}
inline refcount_t *sk_refcnt(sock *sk) {
    return &sk->refs;
}

inline sock *sk_list_first(const sk_list *list) {
    return static_cast<sock *>(list->first);
}
inline sock *sk_list_next(const sock *sk) {
    return static_cast<sock *>(sk->next);
}
inline void sk_add_bind_node(sock *sk, sk_list *list) {
    if (sock *first = sk_list_first(list))
        first->pprev = &sk->next;
    sk->next = list->first;
    sk->pprev = &list->first;
    list->first = sk;
}
inline bool sk_del_bind_node(sock *sk) {
    if (!sk->pprev)
        return false;
    *sk->pprev = sk->next;
    if (sock *next = sk_list_next(sk))
        next->pprev = sk->pprev;
    sk->next = nullptr;
    sk->pprev = nullptr;
    return true;
}
