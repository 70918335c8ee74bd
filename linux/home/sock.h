#pragma once

#include "home/field.h"

inline int sk_rmem_alloc(const sock *sk) {
    return __atomic_load_n(&home::field<int>(sk, TARN_SOCK_RMEM_ALLOC), __ATOMIC_RELAXED);
}
inline int sk_rcvbuf(const sock *sk) {
    return __atomic_load_n(&home::field<int>(sk, TARN_SOCK_RCVBUF), __ATOMIC_RELAXED);
}

// Sockets of a family are linked by their bind node.
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
