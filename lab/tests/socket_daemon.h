/*
 * A daemon for the cases of socket_cases.h: the system calls as any program makes them. The same source
 * runs in the lab, on a kernel's sockets, and in a process that has those of tarn-switch by a preloaded
 * library. The cases that only such a program can have stand here too.
 */
#ifndef LAB_TESTS_SOCKET_DAEMON_H
#define LAB_TESTS_SOCKET_DAEMON_H

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include "socket_cases.h"

/* --- the calls ------------------------------------------------------------------------------------ */

static int daemon_open(int family, int type, int protocol)
{
	int fd = socket(family, type, protocol);

	return fd < 0 ? -errno : fd;
}

static void daemon_close(int fd)
{
	close(fd);
}

/* A page that is not there, for data that is nowhere. */
#define NOWHERE ((void *)16)

static long daemon_send(int fd, const void *name, unsigned namelen, const void *data, unsigned length)
{
	struct iovec buffer = { data ? (void *)data : NOWHERE, length };
	struct msghdr msg = { .msg_name = (void *)name, .msg_namelen = namelen, .msg_iov = &buffer,
			      .msg_iovlen = 1 };
	long result = sendmsg(fd, &msg, MSG_DONTWAIT);

	return result < 0 ? -errno : result;
}

static long daemon_receive(int fd, void *name, unsigned *namelen, void *data, unsigned size, int *flags)
{
	struct iovec buffer = { data, size };
	struct msghdr msg = { .msg_name = name, .msg_namelen = namelen ? *namelen : 0,
			      .msg_iov = &buffer, .msg_iovlen = 1 };
	long result = recvmsg(fd, &msg, *flags);

	*flags = msg.msg_flags;
	if (namelen)
		*namelen = msg.msg_namelen;
	return result < 0 ? -errno : result;
}

static int daemon_readable(int fd, int milliseconds)
{
	struct pollfd one = { .fd = fd, .events = POLLIN };

	return poll(&one, 1, milliseconds) == 1 && (one.revents & POLLIN);
}

/* --- what only a program has ---------------------------------------------------------------------- */

static unsigned char daemon_data[2048];

static void case_a_reader_is_woken(const struct socket_home *home)
{
	int fd = home->open(TARN_AF_LACP, SOCK_RAW, 0), status = -1;
	pid_t child = fork();

	if (child == 0) {
		alarm(20);
		_exit(recv(fd, daemon_data, sizeof(daemon_data), 0) == 46 ? 0 : 1);
	}
	usleep(200000);
	case_deliver(home, LACPDU);
	waitpid(child, &status, 0);
	home->check(WIFEXITED(status) && WEXITSTATUS(status) == 0, "a reader that waits is woken", "");
	home->check(!home->readable(fd, 0), "it has taken the frame from who opened the socket", "");
	close(fd);
}

static void case_reads_without_a_name(const struct socket_home *home)
{
	unsigned char front[10];
	struct iovec buffers[2] = { { front, sizeof(front) }, { daemon_data, sizeof(daemon_data) } };
	int fd = home->open(TARN_AF_LACP, SOCK_RAW, 0);

	for (int i = 0; i < 3; i++)
		case_deliver(home, LACPDU);
	home->check(read(fd, daemon_data, sizeof(daemon_data)) == 46, "read() will do", "");
	home->check(readv(fd, buffers, 2) == 46 && front[0] == 1 && front[1] == 2 && daemon_data[0] == 0x5a,
		    "and readv()", "");
	home->check(recv(fd, NULL, 0, 0) == 0, "a read of no bytes takes a frame", "");
	home->check(recv(fd, daemon_data, 1, MSG_DONTWAIT) < 0 && errno == EINVAL, "there were three", "");
	close(fd);
}

static void case_socket_from(const struct socket_home *home)
{
	struct l2_skaddr name = { .ifindex = 0 };
	socklen_t length = sizeof(name);
	int fd = home->open(TARN_AF_LACP, SOCK_RAW, 0);

	case_deliver(home, LACPDU);
	home->check(recvfrom(fd, daemon_data, sizeof(daemon_data), 0, (void *)&name, &length) == 46 &&
			    length == sizeof(name) && name.ifindex == CASE_PORT,
		    "recvfrom() tells the port", "");
	home->check(sendto(fd, daemon_data, 46, 0, (void *)&name, sizeof(name)) == 60, "sendto() sends there",
		    "");
	home->check(send(fd, daemon_data, 46, 0) < 0 && errno == EINVAL, "send() does not know where", "");
	home->check(write(fd, daemon_data, 46) < 0 && errno == EINVAL, "nor does write()", "");
	close(fd);
}

static void case_several_messages(const struct socket_home *home)
{
	struct l2_skaddr names[3];
	unsigned char data[3][64];
	struct iovec buffers[3];
	struct mmsghdr msgs[3];
	int fd = home->open(TARN_AF_LACP, SOCK_RAW, 0);

	memset(msgs, 0, sizeof(msgs));
	for (int i = 0; i < 3; i++) {
		buffers[i] = (struct iovec){ data[i], sizeof(data[i]) };
		msgs[i].msg_hdr = (struct msghdr){ .msg_name = &names[i], .msg_namelen = sizeof(names[i]),
						   .msg_iov = &buffers[i], .msg_iovlen = 1 };
	}
	case_deliver(home, LACPDU);
	case_deliver(home, LACPDU);
	home->check(recvmmsg(fd, msgs, 3, MSG_DONTWAIT, NULL) == 2 && msgs[1].msg_len == 46 &&
			    names[1].ifindex == CASE_PORT,
		    "recvmmsg() takes what is there", "");
	home->check(recvmmsg(fd, msgs, 3, MSG_DONTWAIT, NULL) < 0 && errno == EINVAL, "and then none", "");
	for (int i = 0; i < 2; i++)
		msgs[i].msg_hdr.msg_namelen = sizeof(names[i]);
	home->check(sendmmsg(fd, msgs, 2, 0) == 2 && msgs[0].msg_len == 78, "sendmmsg() sends them", "");
	close(fd);
}

static int case_select(int fd)
{
	struct timeval now = { 0, 0 };
	fd_set set;

	FD_ZERO(&set);
	FD_SET(fd, &set);
	return select(fd + 1, &set, NULL, NULL, &now) == 1;
}

static void case_waits(const struct socket_home *home)
{
	int fd = home->open(TARN_AF_LACP, SOCK_RAW, 0), all = epoll_create1(0);
	struct pollfd writable = { .fd = fd, .events = POLLIN | POLLOUT };
	struct epoll_event event = { .events = EPOLLIN };

	home->check(epoll_ctl(all, EPOLL_CTL_ADD, fd, &event) == 0, "epoll takes it", "");
	home->check(poll(&writable, 1, 0) == 1 && writable.revents == POLLOUT, "it can be written", "");
	home->check(epoll_wait(all, &event, 1, 0) == 0 && !case_select(fd), "not read", "");
	for (int i = 0; i < 3; i++) {
		case_deliver(home, LACPDU);
		case_deliver(home, LACPDU);
		home->check(epoll_wait(all, &event, 1, 0) == 1 && case_select(fd), "two frames wake both", "");
		home->check(case_read(home, fd, daemon_data, MSG_PEEK) == 46 && case_select(fd),
			    "a look leaves it so", "");
		home->check(case_read(home, fd, daemon_data, 0) == 46 && case_select(fd),
			    "one read leaves it so", "");
		home->check(case_read(home, fd, daemon_data, 0) == 46 && !case_select(fd) &&
				    epoll_wait(all, &event, 1, 0) == 0,
			    "the next does not", "");
	}
	close(fd);
	close(all);
}

static void case_patience(const struct socket_home *home)
{
	struct timeval limit = { 0, 50000 };
	int fd = home->open(TARN_AF_LACP, SOCK_RAW | SOCK_NONBLOCK, 0);

	home->check(recv(fd, daemon_data, 100, 0) < 0 && errno == EINVAL, "SOCK_NONBLOCK does not wait", "");
	home->check(fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK) == 0 &&
			    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit)) == 0 &&
			    recv(fd, daemon_data, 100, 0) < 0 && errno == EINVAL,
		    "nor longer than SO_RCVTIMEO", "");
	home->check(fcntl(fd, F_SETFL, O_NONBLOCK) == 0 && recv(fd, daemon_data, 100, 0) < 0 &&
			    errno == EINVAL,
		    "nor after O_NONBLOCK", "");
	close(fd);
}

static void case_on_signal(int number)
{
	(void)number;
}

static void case_interrupted(const struct socket_home *home)
{
	struct sigaction action = { .sa_handler = case_on_signal, .sa_flags = SA_RESTART }, old;
	struct itimerval timer = { .it_value = { 0, 50000 } }, off = { .it_value = { 0, 0 } };
	int fd = home->open(TARN_AF_LACP, SOCK_RAW, 0);

	sigaction(SIGALRM, &action, &old);
	setitimer(ITIMER_REAL, &timer, NULL);
	home->check(recv(fd, daemon_data, 100, 0) < 0 && errno == EINVAL, "a signal ends a wait with EINVAL",
		    "");
	setitimer(ITIMER_REAL, &off, NULL);
	sigaction(SIGALRM, &old, NULL);
	close(fd);
}

static void case_descriptors(const struct socket_home *home)
{
	int fd = home->open(TARN_AF_LACP, SOCK_RAW | SOCK_CLOEXEC, 0), again = dup(fd), third;

	home->check(fcntl(fd, F_GETFD) & FD_CLOEXEC, "SOCK_CLOEXEC is taken", "");
	case_deliver(home, LACPDU);
	home->check(case_read(home, again, daemon_data, 0) == 46, "a second descriptor reads", "");
	close(fd);
	case_deliver(home, LACPDU);
	home->check(case_read(home, again, daemon_data, 0) == 46, "and is left by a close of the first", "");
	third = fcntl(again, F_DUPFD, 50);
	home->check(third >= 50 && case_read(home, third, daemon_data, 0) == -EINVAL, "a third one, too", "");
	close(again);
	close(third);
}

static void case_options(const struct socket_home *home)
{
	int fd = home->open(TARN_AF_LACP, SOCK_RAW, 0x1234), value = 0;
	socklen_t length = sizeof(value);
	static const struct {
		int name, value;
		const char *what;
	} rows[] = {
		{ SO_DOMAIN, 46, "SO_DOMAIN" },
		{ SO_TYPE, SOCK_RAW, "SO_TYPE" },
		{ SO_PROTOCOL, 0x1234, "SO_PROTOCOL" },
		{ SO_ERROR, 0, "SO_ERROR" },
		{ SO_RCVBUF, 40000, "SO_RCVBUF, twice what was asked" },
	};

	value = 20000;
	home->check(setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &value, sizeof(value)) == 0, "SO_RCVBUF is set",
		    "");
	for (unsigned i = 0; i < sizeof(rows) / sizeof(rows[0]); i++) {
		int wide[2] = { -1, -1 }; /* more room than it takes, then less */

		length = sizeof(wide);
		home->check(getsockopt(fd, SOL_SOCKET, rows[i].name, wide, &length) == 0 &&
				    wide[0] == rows[i].value && wide[1] == -1 && length == sizeof(value),
			    "an option reads as a kernel's", rows[i].what);
		length = 2;
		home->check(getsockopt(fd, SOL_SOCKET, rows[i].name, &wide[1], &length) == 0 &&
				    memcmp(&wide[1], wide, 2) == 0 && length == 2,
			    "and is cut like a kernel's", rows[i].what);
	}
	value = 6;
	home->check(setsockopt(fd, SOL_SOCKET, SO_PRIORITY, &value, sizeof(value)) == 0, "SO_PRIORITY", "");
	close(fd);
}

static void case_what_no_family_has(const struct socket_home *home)
{
	struct vlan_skaddr name = { .ifindex = CASE_PORT };
	int fd = home->open(TARN_AF_LACP, SOCK_RAW, 0), value = 1, pair[2];
	socklen_t length = sizeof(value), room = sizeof(name);

	home->check(bind(fd, (void *)&name, sizeof(name)) < 0 && errno == EOPNOTSUPP, "no bind", "");
	home->check(connect(fd, (void *)&name, sizeof(name)) < 0 && errno == EOPNOTSUPP, "no connect", "");
	home->check(listen(fd, 1) < 0 && errno == EOPNOTSUPP, "no listen", "");
	home->check(accept(fd, NULL, NULL) < 0 && errno == EOPNOTSUPP, "no accept", "");
	home->check(shutdown(fd, SHUT_RD) < 0 && errno == EOPNOTSUPP, "no shutdown", "");
	home->check(getsockname(fd, (void *)&name, &room) < 0 && errno == EOPNOTSUPP, "no name", "");
	home->check(getpeername(fd, (void *)&name, &room) < 0 && errno == EOPNOTSUPP, "no peer", "");
	home->check(ioctl(fd, FIONREAD, &value) < 0 && errno == EOPNOTSUPP, "no ioctl", "");
	home->check(socketpair(TARN_AF_LACP, SOCK_RAW, 0, pair) < 0 && errno == EOPNOTSUPP, "no pair", "");
	home->check(setsockopt(fd, TARN_AF_LACP, 1, &value, sizeof(value)) < 0 && errno == EOPNOTSUPP,
		    "no options of its own", "");
	home->check(getsockopt(fd, TARN_AF_LACP, 1, &value, &length) < 0 && errno == EOPNOTSUPP,
		    "nor any to ask for", "");
	close(fd);
}

/* A close ends the socket, also when a process does without one. */
static void case_ends(const struct socket_home *home)
{
	int fd = home->open(TARN_AF_LACP, SOCK_RAW, 0), status = -1, numbers[4];
	pid_t child = fork();

	if (child == 0) {
		for (int i = 0; i < 20; i++)
			home->open(TARN_AF_GARP, SOCK_RAW, 0);
		_exit(0);
	}
	waitpid(child, &status, 0);
	for (int i = 0; i < 200 && case_listed(home, "GARP", numbers); i++)
		usleep(10000);
	home->check(!case_listed(home, "GARP", numbers), "the child's sockets are closed with it", "");
	case_deliver(home, LACPDU);
	home->check(case_read(home, fd, daemon_data, 0) == 46, "the parent's socket stays", "");
	close(fd);
}

static const struct socket_case daemon_cases[] = {
	{ "a_reader_is_woken", case_a_reader_is_woken },
	{ "reads_without_a_name", case_reads_without_a_name },
	{ "from_and_to", case_socket_from },
	{ "several_messages", case_several_messages },
	{ "waits", case_waits },
	{ "patience", case_patience },
	{ "interrupted", case_interrupted },
	{ "descriptors", case_descriptors },
	{ "options", case_options },
	{ "what_no_family_has", case_what_no_family_has },
	{ "ends", case_ends },
};

#define DAEMON_CASES (sizeof(daemon_cases) / sizeof(daemon_cases[0]))

#endif
