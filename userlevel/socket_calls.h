// What a process does with the sockets of the switch, as calls: a test is a daemon by them, and so
// is whoever carries the calls of other processes here.
//
// Results are those of the system calls: a number, or a negative errno. Every call may be made from
// any thread; a socket is closed when nobody is in a call on it any more.
#pragma once

#include "kernel/types.h"

#include <sys/socket.h>

struct socket;

namespace userlevel {

// 0 with *out set, or a negative errno: -EAFNOSUPPORT for a family that nobody registered.
int socket_open(int family, int type, int protocol, struct socket **out);
int socket_close(struct socket *socket);
void socket_set_nonblocking(struct socket *socket, bool on); // O_NONBLOCK

// The address is cut at 128 bytes; one without length is none.
i64 socket_sendmsg(struct socket *socket, const msghdr *msg, int flags);
// msg_name may be null; msg_flags and, with a name, msg_namelen are set.
i64 socket_recvmsg(struct socket *socket, msghdr *msg, int flags);
// The events that hold, after at most that time; -1: however long it takes.
short socket_poll(struct socket *socket, short events, int milliseconds);
// Of SOL_SOCKET what is a protocol socket's own: its buffers, its family, type and protocol; of
// other levels what the family says.
int socket_setsockopt(struct socket *socket, int level, int name, const void *value,
                      socklen_t length);
int socket_getsockopt(struct socket *socket, int level, int name, void *value, socklen_t *length);
// bind, connect, accept and their like: no family has them.
int socket_other(struct socket *socket);

// Calls whenever a frame has been queued, from whatever thread did it, until the socket is closed;
// and at once, if one is queued already. What is called may ask the socket whether it can be read,
// and must not close it.
void socket_on_ready(struct socket *socket, void (*ready)(void *argument), void *argument);
// The process that holds it, for who lists the sockets.
void socket_set_owner(struct socket *socket, int process);

// Who the callers are: privileged, and in the initial network namespace, unless said otherwise.
void socket_caller(bool net_raw, bool initial_namespace);

} // namespace userlevel
