/*
 * Two hosts, each in a network namespace of its own, on two ports of the switching chip in the kernel.
 */
#define _GNU_SOURCE
#include "lab.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#define DATA (1 << 20)

static char reply[1 << 20];
static unsigned char data[DATA], got[DATA];

/* --- the chip's words ----------------------------------------------------------------------------- */

/* Writes the lines, then reads the reply: 0 or -errno. */
static int chip(const char *lines)
{
	int file = open("/proc/tarn_chip", O_RDWR), result = 0;
	ssize_t length = 0, part;

	if (file < 0)
		return -errno;
	if (*lines && write(file, lines, strlen(lines)) < 0)
		result = -errno;
	while ((part = read(file, reply + length, sizeof(reply) - 1 - length)) > 0)
		length += part;
	reply[length] = '\0';
	close(file);
	return result;
}

static long hits(const char *trap)
{
	char start[64];
	const char *line;

	snprintf(start, sizeof(start), "trap %s ", trap);
	if (chip("show traps") != 0 || !(line = strstr(reply, start)) || !(line = strstr(line, "hits ")))
		return -1;
	return atol(line + 5);
}

/* --- devices -------------------------------------------------------------------------------------- */

struct request {
	struct nlmsghdr header;
	struct ifinfomsg link;
	char attributes[512];
};

static void *end_of(struct request *request)
{
	return (char *)request + NLMSG_ALIGN(request->header.nlmsg_len);
}

static struct rtattr *put(struct request *request, int type, const void *value, int length)
{
	struct rtattr *attribute = end_of(request);

	attribute->rta_type = type;
	attribute->rta_len = RTA_LENGTH(length);
	if (length)
		memcpy(RTA_DATA(attribute), value, length);
	request->header.nlmsg_len = NLMSG_ALIGN(request->header.nlmsg_len) + RTA_ALIGN(attribute->rta_len);
	return attribute;
}

static void close_nest(struct request *request, struct rtattr *nest)
{
	nest->rta_len = (char *)end_of(request) - (char *)nest;
}

static int ask(struct request *request)
{
	int socket_fd = socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE), result = -1;
	struct { struct nlmsghdr header; struct nlmsgerr error; char rest[1024]; } answer;

	request->header.nlmsg_flags |= NLM_F_REQUEST | NLM_F_ACK;
	if (send(socket_fd, request, request->header.nlmsg_len, 0) > 0 &&
	    recv(socket_fd, &answer, sizeof(answer), 0) > 0)
		result = answer.error.error;
	close(socket_fd);
	return result;
}

/* A pair of devices, the far one in the namespace of that process. */
static int make_pair(const char *near, const char *far, int process)
{
	struct request request = { .header = { .nlmsg_len = NLMSG_LENGTH(sizeof(struct ifinfomsg)),
					       .nlmsg_type = RTM_NEWLINK,
					       .nlmsg_flags = NLM_F_CREATE | NLM_F_EXCL } };
	struct rtattr *info, *kind_data, *peer;
	struct ifinfomsg peer_link = { 0 };

	put(&request, IFLA_IFNAME, near, strlen(near) + 1);
	info = put(&request, IFLA_LINKINFO, NULL, 0);
	put(&request, IFLA_INFO_KIND, "veth", 5);
	kind_data = put(&request, IFLA_INFO_DATA, NULL, 0);
	peer = put(&request, VETH_INFO_PEER, &peer_link, sizeof(peer_link));
	put(&request, IFLA_IFNAME, far, strlen(far) + 1);
	put(&request, IFLA_NET_NS_PID, &process, sizeof(process));
	close_nest(&request, peer);
	close_nest(&request, kind_data);
	close_nest(&request, info);
	return ask(&request);
}

static int delete_device(const char *name)
{
	struct request request = { .header = { .nlmsg_len = NLMSG_LENGTH(sizeof(struct ifinfomsg)),
					       .nlmsg_type = RTM_DELLINK } };

	put(&request, IFLA_IFNAME, name, strlen(name) + 1);
	return ask(&request);
}

static struct sockaddr_in address(int host, int port)
{
	return (struct sockaddr_in){ .sin_family = AF_INET, .sin_port = htons(port),
				     .sin_addr.s_addr = htonl(0x0A000000 + host) };
}

static int set_up(const char *name, int host)
{
	struct ifreq request = { 0 };
	struct sockaddr_in at = address(host, 0), mask = { .sin_family = AF_INET,
							   .sin_addr.s_addr = htonl(0xFFFFFF00) };
	int socket_fd = socket(AF_INET, SOCK_DGRAM, 0), result = 0;

	strncpy(request.ifr_name, name, IFNAMSIZ - 1);
	if (host) {
		memcpy(&request.ifr_addr, &at, sizeof(at));
		result |= ioctl(socket_fd, SIOCSIFADDR, &request);
		memcpy(&request.ifr_netmask, &mask, sizeof(mask));
		result |= ioctl(socket_fd, SIOCSIFNETMASK, &request);
	}
	request.ifr_flags = IFF_UP;
	result |= ioctl(socket_fd, SIOCSIFFLAGS, &request);
	close(socket_fd);
	return result;
}

/* --- hosts ---------------------------------------------------------------------------------------- */

static int all(int socket_fd, unsigned char *bytes, int sending)
{
	int at = 0;

	while (at < DATA) {
		ssize_t part = sending ? write(socket_fd, bytes + at, DATA - at) :
					 read(socket_fd, bytes + at, DATA - at);

		if (part <= 0)
			return -1;
		at += part;
	}
	return 0;
}

static int answer(void)
{
	int listener = socket(AF_INET, SOCK_STREAM, 0), peer;
	struct sockaddr_in self = address(2, 7);

	if (bind(listener, (struct sockaddr *)&self, sizeof(self)) || listen(listener, 1))
		return 2;
	peer = accept(listener, NULL, NULL);
	if (all(peer, got, 0))
		return 3;
	return memcmp(got, data, DATA) ? 4 : all(peer, got, 1) ? 5 : 0;
}

static int question(void)
{
	struct sockaddr_in far = address(2, 7);
	int peer = -1, i;

	for (i = 0; i < 50; i++) { /* until the other listens */
		peer = socket(AF_INET, SOCK_STREAM, 0);
		if (connect(peer, (struct sockaddr *)&far, sizeof(far)) == 0)
			break;
		close(peer);
		usleep(100000);
	}
	if (i == 50)
		return 2;
	if (all(peer, data, 1) || all(peer, got, 0))
		return 3;
	return memcmp(got, data, DATA) ? 4 : 0;
}

/* A host behind port 100 + number; its device arrives when it says that it is apart. */
static pid_t host(int number, int (*life)(void))
{
	char near[8], far[8], lines[128], byte = 0;
	int apart[2], go[2];
	pid_t child;

	snprintf(near, sizeof(near), "p%d", number);
	snprintf(far, sizeof(far), "h%d", number);
	if (pipe(apart) || pipe(go))
		return -1;
	child = fork();
	if (child == 0) {
		alarm(90);
		if (unshare(CLONE_NEWNET) || write(apart[1], &byte, 1) != 1 || read(go[0], &byte, 1) != 1)
			_exit(90);
		_exit(set_up("lo", 0) || set_up(far, number) ? 91 : life());
	}
	CHECK(read(apart[0], &byte, 1) == 1, "host %d has a namespace", number);
	CHECK(make_pair(near, far, child) == 0, "host %d has a device", number);
	CHECK(set_up(near, 0) == 0, "%s is up", near);
	snprintf(lines, sizeof(lines), "port %d %s\nvlan %d 1 untagged\npvid %d 1\n", 100 + number, near,
		 100 + number, 100 + number);
	CHECK(chip(lines) == 0, "%s is port %d: %s", near, 100 + number, reply);
	if (write(go[1], &byte, 1) != 1)
		return -1;
	return child;
}

static int result_of(pid_t child)
{
	int status = 0;

	waitpid(child, &status, 0);
	return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int main(void)
{
	int file = open("/lab/tarn_chip.ko", O_RDONLY | O_CLOEXEC), i, result;
	pid_t answering, asking;

	CHECK(syscall(SYS_finit_module, file, "", 0) == 0 || errno == EEXIST, "tarn_chip loads (%d)",
	      errno);
	for (i = 0; i < DATA; i++)
		data[i] = i * 2654435761u >> 24;

	result = chip("port 5 nothing\n");
	CHECK(result == -ENODEV && strstr(reply, "cannot open 'nothing'"), "what is wrong is told: %s",
	      reply);
	CHECK(chip("port 5 lo\n") == -EINVAL, "the loopback is no port");

	answering = host(2, answer);
	asking = host(1, question);
	result = result_of(asking);
	CHECK(result == 0, "a megabyte goes over TCP and back (%d)", result);
	result = result_of(answering);
	CHECK(result == 0, "and was right on the other side (%d)", result);
	CHECK(hits("arp") > 0, "ARP was copied to the core: %ld", hits("arp"));
	CHECK(hits("own-ipv4") == 0, "and no data was");

	/* The devices of a process that ended go with its namespace; p1 with its peer. */
	CHECK(chip("") == 0 && strstr(reply, "age 300\n"), "the whole state can be read");
	delete_device("p1");
	delete_device("p2");
	for (i = 0; i < 50; i++) {
		chip("show ports");
		if (reply[0] == '\0')
			break;
		usleep(100000);
	}
	CHECK(reply[0] == '\0', "ports close with their devices: %s", reply);
	chip("show traps");
	return lab_result();
}
