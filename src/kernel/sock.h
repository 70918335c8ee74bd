// Sockets of the protocol families, as the packet path sees them.
//
//   sk_rmem_alloc(sk)   bytes charged for what waits to be read
//   sk_rcvbuf(sk)       the most that may be charged
//   sk_list_first(list), sk_list_next(sk)
//                       the sockets of a family's list, newest first; under the family's lock
#pragma once

#include "kernel/types.h"

struct sock;

// The kernel's hash list head: a pointer to the first node.
struct sk_list {
    void *first;
};

int sk_rmem_alloc(const sock *sk);
int sk_rcvbuf(const sock *sk);
sock *sk_list_first(const sk_list *list);
sock *sk_list_next(const sock *sk);

#include "home/sock.h"
