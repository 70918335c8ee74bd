// The life of a protocol socket, apart from what its family does with frames.
//
// In: what the socket layer hands to a family's operations. Out: 0 or a negative errno.
//
// A socket is made with three references: its own, one that is never dropped, and its list's. Close
// drops the first and the last, so a closed socket leaves its record behind with one reference: on
// purpose, it makes a late look at it harmless.
#pragma once

#include "kernel/locks.h"
#include "kernel/sock.h"

// A socket record for a privileged caller in the initial namespace, on no list yet: -EAFNOSUPPORT,
// -EPERM, -ESOCKTNOSUPPORT, -ENOBUFS. *sk_out is null on failure.
i32 tarn_socket_create(net *space, struct socket *socket, const proto *proto, i32 kern, i32 family,
                       const proto_ops *ops, sock **sk_out);
// -EINVAL without a lock. A socket without a record is closed already: 0.
i32 tarn_socket_release(struct socket *socket, rwlock_t *list_lock);
// What is left to do when a record ends that was never closed; null is ignored.
void tarn_socket_destruct(sock *sk, rwlock_t *list_lock);
