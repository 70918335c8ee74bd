/* Two hosts, each in a network namespace of its own, on two ports of the switching chip in the kernel. */
#include "switch.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <sys/wait.h>
#include <unistd.h>

#define DATA (1 << 20)
#define SERVICE 7

static unsigned char data[DATA], got[DATA];

static int all(int peer, unsigned char *bytes, int sending)
{
	int at = 0;

	while (at < DATA) {
		ssize_t part = sending ? write(peer, bytes + at, DATA - at) :
					 read(peer, bytes + at, DATA - at);

		if (part <= 0)
			return -1;
		at += part;
	}
	return 0;
}

static struct sockaddr_in service(void)
{
	return (struct sockaddr_in){ .sin_family = AF_INET, .sin_port = htons(SERVICE),
				     .sin_addr.s_addr = htonl(0x0A000002) };
}

static int listen_on(int where)
{
	int listener = net_socket(where, AF_INET, SOCK_STREAM, 0);
	struct sockaddr_in at = service();

	if (bind(listener, (struct sockaddr *)&at, sizeof(at)) != 0 || listen(listener, 1) != 0)
		return -1;
	return listener;
}

static int answer(int listener)
{
	int peer = accept(listener, NULL, NULL);

	if (all(peer, got, 0))
		return 3;
	return memcmp(got, data, DATA) ? 4 : all(peer, got, 1) ? 5 : 0;
}

static int ask(int where)
{
	int peer = net_socket(where, AF_INET, SOCK_STREAM, 0);
	struct sockaddr_in to = service();
	int result = 0;

	if (connect(peer, (struct sockaddr *)&to, sizeof(to)) != 0)
		result = 2;
	else if (all(peer, data, 1) || all(peer, got, 0))
		result = 3;
	else if (memcmp(got, data, DATA) != 0)
		result = 4;
	close(peer);
	return result;
}

/* Host k behind port 100 + k, with address 10.0.0.k. */
static int make_host(int k)
{
	char near[8], far[8], address[16], words[128];
	int where = net_namespace();

	snprintf(near, sizeof(near), "q%d", k);
	snprintf(far, sizeof(far), "g%d", k);
	snprintf(address, sizeof(address), "10.0.0.%d", k);
	CHECK(where >= 0 && net_pair(near, far, where) == 0 && net_up(NET_HERE, near, 1) == 0 &&
		      net_up(where, far, 1) == 0 && net_address(where, far, address, 24) == 0,
	      "host %d has a device and an address", k);
	snprintf(words, sizeof(words), "port %d %s\nvlan %d 1 untagged\npvid %d 1\n", 100 + k, near,
		 100 + k, 100 + k);
	CHECK(chip(words) == 0, "%s is port %d", near, 100 + k);
	return where;
}

static int no_ports_are_left(void)
{
	for (int tries = 0; tries < 50; tries++) {
		if (chip("show ports") == 0 && chip_reply[0] == '\0')
			return 1;
		usleep(100000);
	}
	return 0;
}

static void a_megabyte_goes_over_tcp_and_back(int first, int second)
{
	int listener = listen_on(second), status = 0;
	pid_t child = fork();

	if (child == 0) {
		alarm(90);
		_exit(answer(listener));
	}
	alarm(90);
	CHECK(ask(first) == 0, "a megabyte goes over TCP and back");
	CHECK(waitpid(child, &status, 0) == child && status == 0,
	      "and was right on the other side (0x%x)", status);
	alarm(0);
	close(listener);
}

int main(void)
{
	long arp, own;
	int first, second;

	lab_load("tarn_chip");
	for (int i = 0; i < DATA; i++)
		data[i] = i * 2654435761u >> 24;

	CHECK(chip("port 5 nothing\n") == -ENODEV && strstr(chip_reply, "cannot open 'nothing'"),
	      "what is wrong is told: %.*s", (int)strcspn(chip_reply, "\n"), chip_reply);
	CHECK(chip("port 5 lo\n") == -EINVAL, "the loopback is no port");

	first = make_host(1);
	second = make_host(2);
	arp = chip_hits("arp");
	own = chip_hits("own-ipv4");
	a_megabyte_goes_over_tcp_and_back(first, second);
	CHECK(chip_hits("arp") > arp, "ARP was copied to the core");
	CHECK(chip_hits("own-ipv4") == own, "and no data was");
	CHECK(chip("") == 0 && strstr(chip_reply, "age 300\n"), "the whole state can be read");

	CHECK(net_delete(NET_HERE, "q1") == 0, "a device that is a port can be deleted");
	/* The other goes with its peer, as that does with its namespace. */
	close(second);
	close(first);
	CHECK(no_ports_are_left(), "ports close with their devices");
	return lab_result();
}
