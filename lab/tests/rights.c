/*
 * Who may do what with a switch in a kernel: somebody without any right, somebody with one, and those in
 * another network namespace. docs/security.md names what is printed here.
 *
 * It sends every command, as the test "netlink" does, and stands behind it in the list for that: what is
 * set then stays set.
 */
#define _GNU_SOURCE
#include "lab.h"

#include <errno.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "genl.h"
#include "proc_run.h"
#include "tarn/skaddr.h"

#define STRANGER 4242
#define ROOT "/proc/tarn"
#define TRACE "/sys/kernel/tracing"
#define CANNOT 99 /* a step of the test itself did not work */

static const int families[] = { 46, 47, 48, 50, 51, 52, 53, 54, 55, 56, 57, 60, 61, 62, 63, 65, 66, 67, 68, 69, 70 };
#define FAMILIES (sizeof(families) / sizeof(families[0]))

/* --- who ----------------------------------------------------------------------------------------- */

static int nobody(void)
{
	return setresgid(STRANGER, STRANGER, STRANGER) != 0 || setresuid(STRANGER, STRANGER, STRANGER) != 0;
}

static int nobody_with(unsigned int capability)
{
	struct __user_cap_header_struct header = { .version = _LINUX_CAPABILITY_VERSION_3 };
	struct __user_cap_data_struct data[2] = { { .effective = 1u << capability,
						    .permitted = 1u << capability } };

	return prctl(PR_SET_KEEPCAPS, 1) != 0 || nobody() || syscall(SYS_capset, &header, data) != 0;
}

static int nobody_with_raw_sockets(void)
{
	return nobody_with(CAP_NET_RAW);
}

static int nobody_with_administration(void)
{
	return nobody_with(CAP_NET_ADMIN);
}

/* All rights, of that namespace. */
static int root_elsewhere(void)
{
	return unshare(CLONE_NEWNET);
}

/* All rights, of a user namespace. */
static int root_of_a_user_namespace(void)
{
	return nobody() || unshare(CLONE_NEWUSER);
}

static int root_of_both(void)
{
	return nobody() || unshare(CLONE_NEWUSER | CLONE_NEWNET);
}

static int root(void)
{
	return 0;
}

/* What the function answers to who became that; up to 255. */
static int as(int (*become)(void), int (*do_it)(void))
{
	int status = -1;
	pid_t child = fork();

	if (child == 0)
		_exit(become() == 0 ? do_it() : CANNOT);
	waitpid(child, &status, 0);
	return WIFEXITED(status) ? WEXITSTATUS(status) : CANNOT;
}

/* --- what ---------------------------------------------------------------------------------------- */

/* The one error of all families, or 0. */
static int open_sockets(void)
{
	int error = 0;

	for (size_t i = 0; i < FAMILIES; i++) {
		int fd = socket(families[i], SOCK_RAW, 0), said = fd < 0 ? errno : 0;

		if (i > 0 && said != error)
			return CANNOT;
		error = said;
		close(fd);
	}
	return error;
}

static int opened = -1;

static int use_an_open_one(void)
{
	struct vlan_skaddr to = { .ifindex = 9999 };
	char byte;

	/* It got as far as the interface, or the queue. */
	if (sendto(opened, "", 1, 0, (struct sockaddr *)&to, sizeof(to)) >= 0 || errno == EPERM ||
	    errno == EACCES)
		return errno;
	if (recv(opened, &byte, 1, MSG_DONTWAIT) >= 0 || errno != EINVAL)
		return errno;
	return 0;
}

static int command(const struct nl_case *one)
{
	struct nl_message message;

	nl_case_build(&message, one, NL_COMPLETE, 0, genl_family, 7);
	return genl_ask(&message);
}

/* How many of the commands answer as they answer root: up to 200. */
static int commands(void)
{
	int answered = 0;

	for (size_t i = 0; i < NL_CASES; i++)
		answered += command(&nl_cases[i]) == nl_cases[i].answer;
	return answered;
}

static int join(int protocol, uint32_t number)
{
	struct sockaddr_nl address = { .nl_family = AF_NETLINK };
	int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, protocol);

	if (bind(fd, (struct sockaddr *)&address, sizeof(address)) == 0 &&
	    setsockopt(fd, SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &number, sizeof(number)) == 0)
		return 0;
	return errno;
}

static int join_events(void)
{
	return join(NETLINK_GENERIC, genl_group);
}

static int join_frames(void)
{
	return join(NETLINK_USERSOCK, 1);
}

/* How many of the files can be opened as their modes say, and in no other way. */
static int files(void)
{
	int good = 0;

	for (size_t i = 0; i < sizeof(proc_modes) / sizeof(proc_modes[0]); i++) {
		char path[64];
		int to_read, to_write;

		snprintf(path, sizeof(path), ROOT "/%s", proc_modes[i].file);
		to_read = open(path, O_RDONLY | O_CLOEXEC);
		to_write = open(path, O_WRONLY | O_CLOEXEC);
		good += (to_read >= 0) == ((proc_modes[i].mode & 0004) != 0) &&
			(to_write >= 0) == ((proc_modes[i].mode & 0002) != 0);
		close(to_read);
		close(to_write);
	}
	return good;
}

static int write_a_file(void)
{
	char text[16];

	return proc_write_file(ROOT "/pktdebugvlan", "7\n") == 2 &&
			       proc_read_file(ROOT "/pktdebugvlan", text, sizeof(text)) == 0 &&
			       strcmp(text, "7\n") == 0 &&
			       proc_write_file(ROOT "/pktdebugvlan", "0\n") == 2 ?
		       0 :
		       1;
}

static int make_a_file(void)
{
	return open(ROOT "/new", O_WRONLY | O_CREAT | O_CLOEXEC, 0666) < 0 ? errno : 0;
}

static int list_sockets(void)
{
	int fd = open("/proc/net/tarn_sockets", O_RDONLY | O_CLOEXEC);

	return fd < 0 ? errno : 0;
}

static int write_chip(void)
{
	return open("/proc/tarn_chip", O_WRONLY | O_CLOEXEC) < 0 ? errno : 0;
}

static int read_chip(void)
{
	return open("/proc/tarn_chip", O_RDONLY | O_CLOEXEC) < 0 ? errno : 0;
}

static int watch(void)
{
	return open(TRACE "/events/tarn/redirect/enable", O_WRONLY | O_CLOEXEC) < 0 ? errno : 0;
}

/* --- lines --------------------------------------------------------------------------------------- */

static void sockets(void)
{
	CHECK(as(root, open_sockets) == 0, "root opens sockets of all %d families", (int)FAMILIES);
	CHECK(as(nobody, open_sockets) == EPERM, "nobody does without CAP_NET_RAW");
	CHECK(as(nobody_with_raw_sockets, open_sockets) == 0, "who has CAP_NET_RAW alone does");
	CHECK(as(nobody_with_administration, open_sockets) == EPERM, "CAP_NET_ADMIN does not count");
	CHECK(as(root_elsewhere, open_sockets) == EAFNOSUPPORT,
	      "in another network namespace there are none, for root neither");
	CHECK(as(root_of_a_user_namespace, open_sockets) == EPERM,
	      "the rights of a user namespace do not count");
	CHECK(as(root_of_both, open_sockets) == EAFNOSUPPORT, "nor those of both");
	opened = socket(TARN_AF_TESTD, SOCK_RAW, 0);
	CHECK(as(nobody, use_an_open_one) == 0, "who was given an open one uses it without rights");
	close(opened);
}

static void control(void)
{
	genl_find();
	CHECK(genl_family != 0 && genl_group != 0, "the family has id %u and group %u", genl_family,
	      genl_group);
	CHECK(as(nobody, commands) == (int)NL_CASES, "who has no right sends all %d commands, on purpose",
	      (int)NL_CASES);
	CHECK(as(root_of_both, commands) == (int)NL_CASES, "from any namespace");
	CHECK(as(nobody, join_events) == 0, "who has no right hears of events");
	CHECK(as(nobody, join_frames) == EPERM, "who has no right joins no group of whole frames");
	CHECK(as(nobody_with_administration, join_frames) == 0, "who has CAP_NET_ADMIN does");
}

static void proc(void)
{
	int all = (int)(sizeof(proc_modes) / sizeof(proc_modes[0]));

	CHECK(as(nobody, files) == all, "who has no right opens all %d files as their modes say", all);
	CHECK(as(nobody, write_a_file) == 0, "and what it writes is taken, on purpose");
	CHECK(as(root_of_both, write_a_file) == 0, "from any namespace");
	CHECK(as(nobody, make_a_file) != 0, "it makes none");
	CHECK(as(nobody, list_sockets) == 0, "who has no right reads the list of sockets");
	CHECK(as(root_elsewhere, list_sockets) == ENOENT, "which is not there in another namespace");
	CHECK(as(nobody, write_chip) == EACCES && as(nobody, read_chip) == EACCES,
	      "the words to the chip are root's");
	CHECK(as(root, write_chip) == 0, "who says them");
	mount("tracefs", TRACE, "tracefs", 0, NULL);
	CHECK(as(nobody, watch) == EACCES, "nobody without rights watches the redirects");
	CHECK(as(root, watch) == 0, "root does");
}

int main(void)
{
	lab_setup();
	lab_load("tarn_chip");
	CHECK(lab_command("port 5011 if5011 02:00:00:00:01:0b") == 0, "a port is declared");
	sockets();
	control();
	proc();
	CHECK(lab_command("delete 5011") == 0, "and is gone");
	return lab_result();
}
