// Who listens: a list of the open protocol sockets for administrators, /proc/net/tarn_sockets.
//
//   Family  Name       Process   Inode  Frames    Bytes    Limit     Lost
//   46      LACP             0   10412       2     1536   212992        0
//
// A daemon that is too slow loses frames without being told; here it can be seen. Each home knows
// one of Process and Inode (of the socket, as /proc/PID/fd shows it), and prints 0 for the other.
#pragma once

#include "kernel/locks.h"
#include "kernel/seq.h"
#include "kernel/sock.h"

// From now on sockets of that family are listed; at the first of all the file is made.
void socket_list_family(i32 number, const char *name, const sk_list *list, rwlock_t *lock);
