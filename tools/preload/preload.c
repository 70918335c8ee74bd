/*
 * libtarn_preload.so: the protocol sockets of a running tarn-switch, for programs that were written for
 * those of a kernel.
 *
 *     tarn-switch --sockets PATH ... &
 *     TARN_SOCKETS=PATH LD_PRELOAD=libtarn_preload.so lldpd-of-yours
 *
 * socket() of a family of the switch connects to it; what is done with such a descriptor is asked of the
 * switch, and answered with the same results and errnos. The descriptor is a Unix socket that can be
 * read when the protocol socket can, so that poll, select, epoll, fcntl, dup, fork and close are left to
 * the kernel. Calls on other descriptors go their way.
 *
 * Without a switch the families do not exist (EAFNOSUPPORT); whom the Unix socket is closed to has not
 * the right to open raw sockets (EPERM). When the switch ends, calls fail with ENETDOWN.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include "tarn/socket_carrier.h"

#define EXPORT __attribute__((visibility("default")))
#define FAMILY_FIRST 46
#define FAMILY_LAST 70

/* The function that would have been called without this library. */
#define NEXT(name)                                                                                           \
	({                                                                                                   \
		static _Atomic(void *) found;                                                                \
		void *next_ = atomic_load_explicit(&found, memory_order_relaxed);                            \
		if (!next_) {                                                                                \
			next_ = dlsym(RTLD_NEXT, #name);                                                     \
			atomic_store_explicit(&found, next_, memory_order_relaxed);                          \
		}                                                                                            \
		(__typeof__(&name))next_;                                                                    \
	})

/* A result as a system call gives it. */
static long answer(long result)
{
	if (result >= 0)
		return result;
	errno = (int)-result;
	return -1;
}

/* By the name of its own end, which lives as long as the socket, wherever it is passed on to. */
static bool is_carried(int fd)
{
	struct sockaddr_un name;
	socklen_t length = sizeof(name);
	int before = errno;
	bool carried = NEXT(getsockname)(fd, (struct sockaddr *)&name, &length) == 0 &&
		       name.sun_family == AF_UNIX &&
		       length > offsetof(struct sockaddr_un, sun_path) + sizeof(TARN_CARRIER_NAME) &&
		       memcmp(name.sun_path + 1, TARN_CARRIER_NAME, sizeof(TARN_CARRIER_NAME) - 1) == 0;

	errno = before;
	return carried;
}

/* --- one call ------------------------------------------------------------------------------------- */

/* As many buffers as the kernel takes, and those of the call itself. */
#define PARTS_MAX (IOV_MAX + 2)

static size_t size_of(const struct iovec *buffers, size_t count)
{
	size_t size = 0;

	for (size_t i = 0; i < count; i++)
		size += buffers[i].iov_len;
	return size;
}

/* 0 or -errno: -ENETDOWN when nobody is there to take it. */
static int post(int fd, const struct tarn_carrier_request *request, const void *name,
		const struct iovec *data, size_t count, int back)
{
	char control[CMSG_SPACE(sizeof(int))] __attribute__((aligned(__alignof__(struct cmsghdr)))) = { 0 };
	struct iovec parts[PARTS_MAX] = {
		{ (void *)request, sizeof(*request) },
		{ (void *)name, request->name_length },
	};
	struct msghdr msg = { .msg_iov = parts, .msg_iovlen = 2, .msg_control = control,
			      .msg_controllen = sizeof(control) };
	struct cmsghdr *beside = CMSG_FIRSTHDR(&msg);

	for (size_t i = 0; i < count; i++)
		parts[msg.msg_iovlen++] = data[i];
	beside->cmsg_level = SOL_SOCKET;
	beside->cmsg_type = SCM_RIGHTS;
	beside->cmsg_len = CMSG_LEN(sizeof(int));
	memcpy(CMSG_DATA(beside), &back, sizeof(back));
	for (;;) {
		struct pollfd room = { .fd = fd, .events = POLLOUT };

		if (NEXT(sendmsg)(fd, &msg, MSG_NOSIGNAL | MSG_DONTWAIT) >= 0)
			return 0;
		if (errno != EAGAIN && errno != EINTR)
			return errno == EFAULT || errno == EMFILE || errno == ENOMEM ? -errno : -ENETDOWN;
		poll(&room, 1, 1000);
	}
}

/* The reply, with its bytes in those buffers: the result of the call. */
static long take(int back, struct tarn_carrier_reply *reply, const struct iovec *buffers, size_t count)
{
	struct iovec parts[PARTS_MAX] = { { reply, sizeof(*reply) } };
	struct msghdr msg = { .msg_iov = parts, .msg_iovlen = 1 };
	ssize_t length;

	for (size_t i = 0; i < count; i++)
		parts[msg.msg_iovlen++] = buffers[i];
	do {
		length = NEXT(recvmsg)(back, &msg, 0);
	} while (length < 0 && errno == EINTR);
	if (length < 0)
		return -errno;
	return length < (ssize_t)sizeof(*reply) ? -ENETDOWN : reply->result;
}

struct carried_call {
	struct tarn_carrier_request request;
	struct tarn_carrier_reply reply;
	const void *name;
	const struct iovec *data; /* of the request */
	size_t data_count;
	const struct iovec *room; /* for that of the reply */
	size_t room_count;
};

/* The result, or a negative errno. */
static long carry(int fd, struct carried_call *call)
{
	int pair[2];
	long result;

	if (NEXT(socketpair)(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair) != 0)
		return -errno;
	result = post(fd, &call->request, call->name, call->data, call->data_count, pair[1]);
	close(pair[1]);
	if (result == 0)
		result = take(pair[0], &call->reply, call->room, call->room_count);
	close(pair[0]);
	return result;
}

/* --- opening -------------------------------------------------------------------------------------- */

static void set_address(struct sockaddr_un *address)
{
	const char *path = getenv(TARN_SOCKETS_VARIABLE);

	memset(address, 0, sizeof(*address));
	address->sun_family = AF_UNIX;
	snprintf(address->sun_path, sizeof(address->sun_path), "%s",
		 path && *path ? path : TARN_SOCKETS_PATH);
}

static bool set_own_name(int fd)
{
	static atomic_uint number;
	struct sockaddr_un name = { .sun_family = AF_UNIX };

	for (int tries = 0; tries < 1000; tries++) {
		int length = snprintf(name.sun_path + 1, sizeof(name.sun_path) - 1,
				      TARN_CARRIER_NAME "%ld/%u", (long)getpid(),
				      atomic_fetch_add(&number, 1));
		socklen_t size = (socklen_t)(offsetof(struct sockaddr_un, sun_path) + 1 + (size_t)length);

		if (NEXT(bind)(fd, (struct sockaddr *)&name, size) == 0)
			return true;
		if (errno != EADDRINUSE)
			return false;
	}
	return false;
}

/* A descriptor, or a negative errno. */
static int reach_switch(int flags)
{
	struct sockaddr_un address;
	int fd = NEXT(socket)(AF_UNIX, SOCK_SEQPACKET | flags, 0);
	int result;

	if (fd < 0)
		return -errno;
	set_address(&address);
	if (set_own_name(fd) && NEXT(connect)(fd, (struct sockaddr *)&address, sizeof(address)) == 0)
		return fd;
	result = errno == EACCES || errno == EPERM ? -EPERM : -EAFNOSUPPORT;
	close(fd);
	return result;
}

static int open_carried(int family, int type, int protocol)
{
	int flags = type & (SOCK_CLOEXEC | SOCK_NONBLOCK), fd = reach_switch(flags & SOCK_CLOEXEC);
	struct carried_call call = { .request = { .call = TARN_CARRIER_OPEN, .a = family,
						  .b = type & ~flags, .c = protocol } };
	long result;

	if (fd < 0)
		return fd;
	result = carry(fd, &call);
	if (result == 0 && (flags & SOCK_NONBLOCK))
		fcntl(fd, F_SETFL, O_NONBLOCK);
	if (result == 0)
		return fd;
	close(fd);
	return (int)result;
}

/* --- sending -------------------------------------------------------------------------------------- */

static bool may_wait(int fd, int flags)
{
	return !(flags & MSG_DONTWAIT) && !(fcntl(fd, F_GETFL) & O_NONBLOCK);
}

static long send_once(int fd, const struct msghdr *msg, int flags)
{
	size_t size = size_of(msg->msg_iov, msg->msg_iovlen);
	socklen_t name_length = msg->msg_name ? msg->msg_namelen : 0;
	struct carried_call call = { .request = { .call = TARN_CARRIER_SEND, .a = flags, .size = size } };
	long result;

	if (name_length > TARN_CARRIER_NAME_MAX)
		name_length = TARN_CARRIER_NAME_MAX;
	call.request.name_length = name_length;
	call.name = msg->msg_name;
	call.data = msg->msg_iov;
	call.data_count = msg->msg_iovlen;
	call.request.nowhere = size > TARN_CARRIER_DATA_MAX - TARN_CARRIER_NAME_MAX;
	result = call.request.nowhere ? -EFAULT : carry(fd, &call);
	if (result != -EFAULT || name_length == 0)
		return result;
	/* Something else may be wrong with the call, which is found before that. */
	call.request.nowhere = 1;
	call.data_count = 0;
	return carry(fd, &call);
}

static long send_carried(int fd, const struct msghdr *msg, int flags)
{
	long result;

	if ((int)msg->msg_namelen < 0)
		return -EINVAL;
	if (msg->msg_iovlen > IOV_MAX)
		return -EMSGSIZE;
	while ((result = send_once(fd, msg, flags)) == -EAGAIN && may_wait(fd, flags))
		nanosleep(&(struct timespec){ .tv_nsec = 1000000 }, NULL);
	return result;
}

static long send_buffer(int fd, const void *data, size_t size, int flags, const void *name,
			socklen_t name_length)
{
	struct iovec buffer = { (void *)data, size };
	struct msghdr msg = { .msg_name = (void *)name, .msg_namelen = name_length, .msg_iov = &buffer,
			      .msg_iovlen = 1 };

	return send_carried(fd, &msg, flags);
}

/* --- receiving ------------------------------------------------------------------------------------ */

/* 0 when there is something to read; whatever ends the wait before is EINVAL, as it is for a kernel's. */
static int wait_to_read(int fd)
{
	struct pollfd one = { .fd = fd, .events = POLLIN };
	struct timeval limit = { 0 };
	socklen_t size = sizeof(limit);
	int milliseconds = -1;

	if (NEXT(getsockopt)(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, &size) == 0 &&
	    (limit.tv_sec || limit.tv_usec))
		milliseconds = (int)(limit.tv_sec * 1000 + (limit.tv_usec + 999) / 1000);
	if (poll(&one, 1, milliseconds) <= 0)
		return -EINVAL;
	return one.revents & POLLIN ? 0 : -ENETDOWN;
}

static void take_mark(int fd)
{
	char mark;

	while (NEXT(recv)(fd, &mark, sizeof(mark), MSG_DONTWAIT) < 0 && errno == EINTR) {
	}
}

static long receive_carried(int fd, struct msghdr *msg, int flags)
{
	size_t size = size_of(msg->msg_iov, msg->msg_iovlen);
	struct carried_call call = { .request = { .call = TARN_CARRIER_RECEIVE, .a = flags, .size = size },
				     .room = msg->msg_iov, .room_count = msg->msg_iovlen };
	long result;

	if (msg->msg_iovlen > IOV_MAX)
		return -EMSGSIZE;
	for (;;) {
		result = carry(fd, &call);
		if (call.reply.takes_mark)
			take_mark(fd);
		if (result >= 0 || !call.reply.empty || result != -EINVAL || !may_wait(fd, flags))
			break;
		result = wait_to_read(fd);
		if (result != 0)
			return result;
	}
	if (result < 0)
		return result;
	if (msg->msg_name) {
		socklen_t room = msg->msg_namelen;

		memcpy(msg->msg_name, call.reply.name,
		       room < call.reply.name_length ? room : call.reply.name_length);
		msg->msg_namelen = call.reply.name_length;
	}
	msg->msg_controllen = 0;
	msg->msg_flags = (int)call.reply.msg_flags;
	return result;
}

static long receive_buffer(int fd, void *data, size_t size, int flags, struct sockaddr *name,
			   socklen_t *name_length)
{
	struct iovec buffer = { data, size };
	struct msghdr msg = { .msg_name = name, .msg_namelen = name && name_length ? *name_length : 0,
			      .msg_iov = &buffer, .msg_iovlen = 1 };
	long result = receive_carried(fd, &msg, flags);

	if (result >= 0 && name && name_length)
		*name_length = msg.msg_namelen;
	return result;
}

static long receive_buffers(int fd, const struct iovec *buffers, int count)
{
	struct msghdr msg = { .msg_iov = (struct iovec *)buffers, .msg_iovlen = (size_t)count };

	return count < 0 || count > IOV_MAX ? -EINVAL : receive_carried(fd, &msg, 0);
}

static long send_buffers(int fd, const struct iovec *buffers, int count)
{
	struct msghdr msg = { .msg_iov = (struct iovec *)buffers, .msg_iovlen = (size_t)count };

	return count < 0 || count > IOV_MAX ? -EINVAL : send_carried(fd, &msg, 0);
}

/* --- options -------------------------------------------------------------------------------------- */

/* Those of SOL_SOCKET that are a protocol socket's own; the others a Unix socket has alike. */
static bool is_for_switch(int level, int name)
{
	return level != SOL_SOCKET || name == SO_RCVBUF || name == SO_SNDBUF || name == SO_RCVBUFFORCE ||
	       name == SO_SNDBUFFORCE || name == SO_DOMAIN || name == SO_TYPE || name == SO_PROTOCOL;
}

/* No protocol socket asks its filter, and the one of the Unix socket must not be in the way. */
static bool is_filter(int level, int name)
{
	return level == SOL_SOCKET && (name == SO_ATTACH_FILTER || name == SO_ATTACH_BPF);
}

static long set_carried(int fd, int level, int name, const void *value, socklen_t length)
{
	struct iovec data = { (void *)value, length };
	struct carried_call call = { .request = { .call = TARN_CARRIER_SETOPT, .a = level, .b = name },
				     .data = &data, .data_count = 1 };

	if ((int)length < 0)
		return -EINVAL;
	return length > TARN_CARRIER_DATA_MAX ? -EINVAL : carry(fd, &call);
}

static long get_carried(int fd, int level, int name, void *value, socklen_t *length)
{
	struct iovec room = { value, *length };
	struct carried_call call = { .request = { .call = TARN_CARRIER_GETOPT, .a = level, .b = name,
						  .size = *length },
				     .room = &room, .room_count = 1 };
	long result;

	if ((int)*length < 0)
		return -EINVAL;
	result = carry(fd, &call);
	if (result >= 0)
		*length = (socklen_t)result;
	return result < 0 ? result : 0;
}

static long refuse(int fd)
{
	struct carried_call call = { .request = { .call = TARN_CARRIER_OTHER } };

	return carry(fd, &call);
}

/* --- the calls of the C library ------------------------------------------------------------------- */

EXPORT int socket(int family, int type, int protocol)
{
	if (family < FAMILY_FIRST || family > FAMILY_LAST)
		return NEXT(socket)(family, type, protocol);
	return (int)answer(open_carried(family, type, protocol));
}

EXPORT int socketpair(int family, int type, int protocol, int pair[2])
{
	int fd;

	if (family < FAMILY_FIRST || family > FAMILY_LAST)
		return NEXT(socketpair)(family, type, protocol, pair);
	fd = open_carried(family, type, protocol);
	if (fd >= 0)
		close(fd);
	return (int)answer(fd < 0 ? fd : -EOPNOTSUPP);
}

EXPORT ssize_t sendmsg(int fd, const struct msghdr *msg, int flags)
{
	return is_carried(fd) ? answer(send_carried(fd, msg, flags)) : NEXT(sendmsg)(fd, msg, flags);
}

EXPORT ssize_t sendto(int fd, const void *data, size_t size, int flags, const struct sockaddr *name,
		      socklen_t length)
{
	if (!is_carried(fd))
		return NEXT(sendto)(fd, data, size, flags, name, length);
	if (name && length > sizeof(struct sockaddr_storage))
		return answer(-EINVAL);
	return answer(send_buffer(fd, data, size, flags, name, length));
}

EXPORT ssize_t send(int fd, const void *data, size_t size, int flags)
{
	return is_carried(fd) ? answer(send_buffer(fd, data, size, flags, NULL, 0)) :
				NEXT(send)(fd, data, size, flags);
}

EXPORT ssize_t write(int fd, const void *data, size_t size)
{
	return is_carried(fd) ? answer(send_buffer(fd, data, size, 0, NULL, 0)) :
				NEXT(write)(fd, data, size);
}

EXPORT ssize_t writev(int fd, const struct iovec *buffers, int count)
{
	return is_carried(fd) ? answer(send_buffers(fd, buffers, count)) :
				NEXT(writev)(fd, buffers, count);
}

EXPORT int sendmmsg(int fd, struct mmsghdr *msgs, unsigned count, int flags)
{
	unsigned done = 0;
	long result = 0;

	if (!is_carried(fd))
		return NEXT(sendmmsg)(fd, msgs, count, flags);
	while (done < count && (result = send_carried(fd, &msgs[done].msg_hdr, flags)) >= 0)
		msgs[done++].msg_len = (unsigned)result;
	return (int)answer(done ? (long)done : result);
}

EXPORT ssize_t recvmsg(int fd, struct msghdr *msg, int flags)
{
	return is_carried(fd) ? answer(receive_carried(fd, msg, flags)) : NEXT(recvmsg)(fd, msg, flags);
}

EXPORT ssize_t recvfrom(int fd, void *data, size_t size, int flags, struct sockaddr *name,
			socklen_t *length)
{
	return is_carried(fd) ? answer(receive_buffer(fd, data, size, flags, name, length)) :
				NEXT(recvfrom)(fd, data, size, flags, name, length);
}

EXPORT ssize_t recv(int fd, void *data, size_t size, int flags)
{
	return is_carried(fd) ? answer(receive_buffer(fd, data, size, flags, NULL, NULL)) :
				NEXT(recv)(fd, data, size, flags);
}

EXPORT ssize_t read(int fd, void *data, size_t size)
{
	return is_carried(fd) ? answer(receive_buffer(fd, data, size, 0, NULL, NULL)) :
				NEXT(read)(fd, data, size);
}

EXPORT ssize_t readv(int fd, const struct iovec *buffers, int count)
{
	return is_carried(fd) ? answer(receive_buffers(fd, buffers, count)) :
				NEXT(readv)(fd, buffers, count);
}

EXPORT int recvmmsg(int fd, struct mmsghdr *msgs, unsigned count, int flags, struct timespec *limit)
{
	unsigned done = 0;
	long result = 0;

	if (!is_carried(fd))
		return NEXT(recvmmsg)(fd, msgs, count, flags, limit);
	while (done < count && (result = receive_carried(fd, &msgs[done].msg_hdr, flags)) >= 0) {
		msgs[done++].msg_len = (unsigned)result;
		if (flags & MSG_WAITFORONE)
			flags |= MSG_DONTWAIT;
	}
	return (int)answer(done ? (long)done : result);
}

EXPORT int setsockopt(int fd, int level, int name, const void *value, socklen_t length)
{
	if (!is_carried(fd))
		return NEXT(setsockopt)(fd, level, name, value, length);
	if (is_filter(level, name))
		return 0;
	return is_for_switch(level, name) ? (int)answer(set_carried(fd, level, name, value, length)) :
					    NEXT(setsockopt)(fd, level, name, value, length);
}

EXPORT int getsockopt(int fd, int level, int name, void *value, socklen_t *length)
{
	return is_for_switch(level, name) && is_carried(fd) ?
		       (int)answer(get_carried(fd, level, name, value, length)) :
		       NEXT(getsockopt)(fd, level, name, value, length);
}

EXPORT int bind(int fd, const struct sockaddr *name, socklen_t length)
{
	return is_carried(fd) ? (int)answer(refuse(fd)) : NEXT(bind)(fd, name, length);
}

EXPORT int connect(int fd, const struct sockaddr *name, socklen_t length)
{
	return is_carried(fd) ? (int)answer(refuse(fd)) : NEXT(connect)(fd, name, length);
}

EXPORT int listen(int fd, int backlog)
{
	return is_carried(fd) ? (int)answer(refuse(fd)) : NEXT(listen)(fd, backlog);
}

EXPORT int accept(int fd, struct sockaddr *name, socklen_t *length)
{
	return is_carried(fd) ? (int)answer(refuse(fd)) : NEXT(accept)(fd, name, length);
}

EXPORT int accept4(int fd, struct sockaddr *name, socklen_t *length, int flags)
{
	return is_carried(fd) ? (int)answer(refuse(fd)) : NEXT(accept4)(fd, name, length, flags);
}

EXPORT int shutdown(int fd, int how)
{
	return is_carried(fd) ? (int)answer(refuse(fd)) : NEXT(shutdown)(fd, how);
}

EXPORT int getsockname(int fd, struct sockaddr *name, socklen_t *length)
{
	return is_carried(fd) ? (int)answer(refuse(fd)) : NEXT(getsockname)(fd, name, length);
}

EXPORT int getpeername(int fd, struct sockaddr *name, socklen_t *length)
{
	return is_carried(fd) ? (int)answer(refuse(fd)) : NEXT(getpeername)(fd, name, length);
}

/* What is asked of any file is the kernel's to answer. */
static bool is_of_files(unsigned long request)
{
	return request == FIONBIO || request == FIOASYNC || request == FIOCLEX || request == FIONCLEX;
}

EXPORT int ioctl(int fd, unsigned long request, ...)
{
	va_list arguments;
	void *argument;

	va_start(arguments, request);
	argument = va_arg(arguments, void *);
	va_end(arguments);
	return !is_of_files(request) && is_carried(fd) ? (int)answer(refuse(fd)) :
							 NEXT(ioctl)(fd, request, argument);
}

/* What programs call that were built with checks of their buffers. */
void __chk_fail(void) __attribute__((noreturn));

EXPORT ssize_t __read_chk(int fd, void *data, size_t size, size_t room);
ssize_t __read_chk(int fd, void *data, size_t size, size_t room)
{
	if (size > room)
		__chk_fail();
	return read(fd, data, size);
}

EXPORT ssize_t __recv_chk(int fd, void *data, size_t size, size_t room, int flags);
ssize_t __recv_chk(int fd, void *data, size_t size, size_t room, int flags)
{
	if (size > room)
		__chk_fail();
	return recv(fd, data, size, flags);
}

EXPORT ssize_t __recvfrom_chk(int fd, void *data, size_t size, size_t room, int flags,
			      struct sockaddr *name, socklen_t *length);
ssize_t __recvfrom_chk(int fd, void *data, size_t size, size_t room, int flags, struct sockaddr *name,
		       socklen_t *length)
{
	if (size > room)
		__chk_fail();
	return recvfrom(fd, data, size, flags, name, length);
}
