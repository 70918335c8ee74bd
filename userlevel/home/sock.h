#pragma once

// A socket, as far as the packet path looks at it.
struct sock {
    int rmem_alloc;
    int rcvbuf;
    sock *next;
};

inline int sk_rmem_alloc(const sock *sk) {
    return __atomic_load_n(&sk->rmem_alloc, __ATOMIC_RELAXED);
}
inline int sk_rcvbuf(const sock *sk) {
    return __atomic_load_n(&sk->rcvbuf, __ATOMIC_RELAXED);
}
inline sock *sk_list_first(const sk_list *list) {
    return static_cast<sock *>(list->first);
}
inline sock *sk_list_next(const sock *sk) {
    return sk->next;
}
