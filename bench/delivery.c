/* SPDX-License-Identifier: GPL-2.0 */
/*
 * How soon and how often a LACPDU that is put on one end of a cable is in the hands of a daemon at the
 * other end. Run it by bench/delivery-live.
 *
 *   delivery packet|switch SENDER RECEIVER SOCKETS FRAMES SINGLE [PROCESS]
 *
 * packet: the daemon has packet sockets on RECEIVER, each with a filter for these frames; switch: it has
 * sockets of family 46, of the kernel or, by the preload library, of a switch that has RECEIVER for a
 * port. But for socket() the daemon is the same: one process that polls SOCKETS sockets and takes one
 * frame from each that can be read.
 *
 * Sends SINGLE frames one at a time, to a daemon that waits, and prints "latency NANOSECONDS" for each,
 * until the last of the sockets was read; then FRAMES with WINDOW of them under way, and prints "rate
 * FRAMES-A-SECOND", of frames that all sockets had, and "work NANOSECONDS" of processor time for each of
 * these: the sender's, the daemon's, and that of PROCESS, a switch. Every frame has a number, and each
 * socket must have them all, in order: anything else is an error.
 */
#include <arpa/inet.h>
#include <errno.h>
#include <linux/filter.h>
#include <linux/futex.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <tarn/skaddr.h>
#include <time.h>
#include <unistd.h>

#define WINDOW 32u
#define SOCKETS_MAX 10u
#define FRAME_BYTES 124 /* of a LACPDU, header and all */
#define PATIENCE_MS 5000
#define PAUSE_NS 50000 /* until the daemon waits again */

/* What both processes see. */
static struct shared {
	_Atomic uint32_t done; /* frames that every socket had */
	_Atomic uint32_t ready;
	_Atomic int64_t done_at;
} *shared;

static void give_up(const char *what)
{
	fprintf(stderr, "delivery: %s: %s\n", what, strerror(errno));
	exit(1);
}

static int64_t now(void)
{
	struct timespec time;

	clock_gettime(CLOCK_MONOTONIC, &time);
	return (int64_t)time.tv_sec * 1000000000 + time.tv_nsec;
}

/* --- words that one process waits for and the other changes --------------------------------------- */

static void announce(_Atomic uint32_t *word, uint32_t value)
{
	atomic_store(word, value);
	syscall(SYS_futex, word, FUTEX_WAKE, 1, NULL, NULL, 0);
}

/* Until it has reached the value. */
static void await(_Atomic uint32_t *word, uint32_t value, const char *what)
{
	struct timespec patience = { .tv_sec = PATIENCE_MS / 1000 };
	uint32_t seen;

	while ((seen = atomic_load(word)) < value) {
		if (syscall(SYS_futex, word, FUTEX_WAIT, seen, &patience, NULL, 0) != 0 &&
		    errno == ETIMEDOUT)
			give_up(what);
	}
}

/* --- the daemon ------------------------------------------------------------------------------------ */

static unsigned int index_of(const char *device)
{
	unsigned int index = if_nametoindex(device);

	if (index == 0)
		give_up(device);
	return index;
}

/* 01:80:C2:00:00:02, and the type of the slow protocols. */
static const struct sock_filter lacp_code[] = {
	BPF_STMT(BPF_LD | BPF_W | BPF_ABS, 0),
	BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x0180c200, 0, 5),
	BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 4),
	BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x0002, 0, 3),
	BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 12),
	BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ETH_P_SLOW, 0, 1),
	BPF_STMT(BPF_RET | BPF_K, 0xffff),
	BPF_STMT(BPF_RET | BPF_K, 0),
};

static int open_packet_socket(const char *device)
{
	struct sock_fprog filter = { .len = sizeof(lacp_code) / sizeof(*lacp_code),
				     .filter = (struct sock_filter *)lacp_code };
	struct sockaddr_ll at = { .sll_family = AF_PACKET, .sll_protocol = htons(ETH_P_SLOW),
				  .sll_ifindex = (int)index_of(device) };
	int fd = socket(AF_PACKET, SOCK_RAW, 0);

	if (fd < 0 || setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof(filter)) != 0 ||
	    bind(fd, (struct sockaddr *)&at, sizeof(at)) != 0)
		give_up("a packet socket");
	return fd;
}

static int open_family_socket(void)
{
	int fd = socket(TARN_AF_LACP, SOCK_RAW, 0);

	if (fd < 0)
		give_up("a socket of family 46");
	return fd;
}

static struct pollfd sockets[SOCKETS_MAX];
static uint32_t had[SOCKETS_MAX];
static unsigned int socket_count;

/* The number is at the end, wherever the data of this kind of socket begins. */
static void take_one(unsigned int k)
{
	struct sockaddr_storage from;
	socklen_t from_length = sizeof(from);
	unsigned char data[2048];
	uint32_t number;
	ssize_t length = recvfrom(sockets[k].fd, data, sizeof(data), MSG_DONTWAIT,
				  (struct sockaddr *)&from, &from_length);

	if (length < (ssize_t)sizeof(number))
		give_up("reading");
	memcpy(&number, data + length - sizeof(number), sizeof(number));
	if (number != had[k]) {
		fprintf(stderr, "delivery: socket %u had frame %u in place of %u\n", k, number, had[k]);
		exit(1);
	}
	had[k]++;
}

static uint32_t had_by_all(void)
{
	uint32_t least = had[0];

	for (unsigned int k = 1; k < socket_count; k++)
		least = had[k] < least ? had[k] : least;
	return least;
}

static void listen_for(uint32_t frames)
{
	uint32_t all = 0;

	announce(&shared->ready, 1);
	while (all < frames) {
		if (poll(sockets, socket_count, PATIENCE_MS) <= 0)
			give_up("nothing arrives");
		for (unsigned int k = 0; k < socket_count; k++)
			if (sockets[k].revents != 0)
				take_one(k);
		if (had_by_all() == all)
			continue;
		all = had_by_all();
		atomic_store(&shared->done_at, now());
		announce(&shared->done, all);
	}
	/* Its time is asked for while it is there. */
	await(&shared->ready, 2, "nobody ends it");
}

static pid_t start_daemon(int is_packet, const char *device, uint32_t frames)
{
	pid_t child = fork();

	if (child < 0)
		give_up("a process for the daemon");
	if (child > 0)
		return child;
	prctl(PR_SET_PDEATHSIG, SIGKILL);
	for (unsigned int k = 0; k < socket_count; k++) {
		sockets[k].fd = is_packet ? open_packet_socket(device) : open_family_socket();
		sockets[k].events = POLLIN;
	}
	listen_for(frames);
	exit(0);
}

/* --- the other end --------------------------------------------------------------------------------- */

static unsigned char frame[FRAME_BYTES] = { 0x01, 0x80, 0xc2, 0x00, 0x00, 0x02, 0x02, 0x00, 0x00, 0x00,
					    0x00, 0x09, 0x88, 0x09, 0x01, 0x01 };
static int cable = -1;

static void open_cable(const char *device)
{
	struct sockaddr_ll at = { .sll_family = AF_PACKET, .sll_ifindex = (int)index_of(device) };

	cable = socket(AF_PACKET, SOCK_RAW, 0); /* of no protocol: it hears nothing */
	if (cable < 0 || bind(cable, (struct sockaddr *)&at, sizeof(at)) != 0)
		give_up("the sender's socket");
}

/* Past the preload library, which is the daemon's: here it would cost a look at the descriptor. */
static void send_one(uint32_t number)
{
	memcpy(frame + FRAME_BYTES - sizeof(number), &number, sizeof(number));
	if (syscall(SYS_sendto, cable, frame, FRAME_BYTES, 0, NULL, 0) != FRAME_BYTES)
		give_up("sending");
}

static void one_at_a_time(uint32_t frames)
{
	struct timespec pause = { .tv_nsec = PAUSE_NS };

	for (uint32_t i = 0; i < frames; i++) {
		int64_t sent_at;

		nanosleep(&pause, NULL);
		sent_at = now();
		send_one(i);
		await(&shared->done, i + 1, "a frame is lost");
		printf("latency %lld\n", (long long)(atomic_load(&shared->done_at) - sent_at));
	}
}

/* Processor time of all its threads. */
static int64_t time_of(pid_t process)
{
	struct timespec time;
	clockid_t clock;

	if (process == 0)
		return 0;
	errno = clock_getcpuclockid(process, &clock);
	if (errno != 0 || clock_gettime(clock, &time) != 0)
		give_up("the time of a process");
	return (int64_t)time.tv_sec * 1000000000 + time.tv_nsec;
}

static void with_a_window(uint32_t from, uint32_t frames, pid_t daemon, pid_t process)
{
	int64_t work = time_of(getpid()) + time_of(daemon) + time_of(process);
	int64_t begin = now(), took;

	for (uint32_t i = from; i < from + frames; i++) {
		if (i >= from + WINDOW)
			await(&shared->done, i - WINDOW + 1, "frames are lost");
		send_one(i);
	}
	await(&shared->done, from + frames, "frames are lost");
	took = atomic_load(&shared->done_at) - begin;
	work = time_of(getpid()) + time_of(daemon) + time_of(process) - work;
	printf("rate %.0f\nwork %.0f\n", frames * 1e9 / (double)took, (double)work / frames);
}

static uint32_t number_of(const char *text)
{
	char *end;
	unsigned long number = strtoul(text, &end, 10);

	if (*text == '\0' || *end != '\0' || number == 0 || number > 100000000) {
		fprintf(stderr, "delivery: '%s' is no number\n", text);
		exit(2);
	}
	return (uint32_t)number;
}

int main(int argc, char **argv)
{
	int is_packet = argc > 1 && strcmp(argv[1], "packet") == 0, status;
	uint32_t frames, single;
	pid_t child, process;

	if (argc < 7 || argc > 8 || (!is_packet && strcmp(argv[1], "switch") != 0)) {
		fprintf(stderr, "usage: delivery packet|switch SENDER RECEIVER SOCKETS FRAMES SINGLE "
				"[PROCESS]\n");
		return 2;
	}
	socket_count = number_of(argv[4]);
	frames = number_of(argv[5]);
	single = number_of(argv[6]);
	process = argc == 8 ? (pid_t)number_of(argv[7]) : 0;
	if (socket_count > SOCKETS_MAX) {
		fprintf(stderr, "delivery: %u sockets at most\n", SOCKETS_MAX);
		return 2;
	}
	shared = mmap(NULL, sizeof(*shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
	if (shared == MAP_FAILED)
		give_up("shared memory");
	child = start_daemon(is_packet, argv[3], single + frames);
	open_cable(argv[2]);
	await(&shared->ready, 1, "the daemon does not start");
	one_at_a_time(single);
	with_a_window(single, frames, child, process);
	announce(&shared->ready, 2);
	if (waitpid(child, &status, 0) != child || status != 0) {
		fprintf(stderr, "delivery: the daemon failed\n");
		return 1;
	}
	return 0;
}
