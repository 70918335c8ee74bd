/*
 * Devices, namespaces, packets and pings for the programs inside.
 *
 * A host is a network namespace, known by a descriptor; NET_HERE is the program's own, where the switch
 * is. Results are 0 or a negative errno unless said otherwise.
 */
#ifndef LAB_TESTS_NET_H
#define LAB_TESTS_NET_H

#include <linux/if_link.h>
#include <net/if.h>
#include <stddef.h>
#include <sys/types.h>

#define NET_HERE (-1)

/* A new namespace with its loopback up. A socket of one stays there. */
int net_namespace(void);
int net_socket(int where, int family, int type, int protocol);

void net_pause(int milliseconds);

/* --- devices: made, changed and asked over netlink, as `ip` does ----------------------------------- */

/* A pair of devices, the far one with its own name elsewhere. */
int net_pair(const char *near, const char *far, int where);
int net_delete(int where, const char *name);
int net_up(int where, const char *name, int up);
int net_mtu(int where, const char *name, unsigned int mtu);
int net_hardware_address(int where, const char *name, const unsigned char *address);
/* IPv4 or IPv6, the latter without waiting for another's claim on it. */
int net_address(int where, const char *name, const char *address, int prefix);

struct net_link {
	int index;
	unsigned int flags; /* IFF_* */
	unsigned int mtu, min_mtu, max_mtu;
	int carrier;
	unsigned char address[6];
	struct rtnl_link_stats64 stats;
};
int net_link(int where, const char *name, struct net_link *link);

/* Devices of that namespace. */
int net_count(int where);

/* What the devices and the IP stack of that namespace have dropped and counted. */
long net_lost(int where);

/* An interface request (SIOC...), as older programs make them. */
int net_request(unsigned long command, struct ifreq *request);

/* --- frames ---------------------------------------------------------------------------------------- */

/* A packet socket on the device, for frames of that type; it never blocks. -1: an error was said. */
int net_tap(int where, const char *name, unsigned short type);
/* Takes what has arrived: how many frames. */
int net_take(int tap);
/* One frame as it was on the cable, with its tag: its length, cut at `size` - 4, or -1. */
long net_read(int tap, unsigned char *frame, size_t size);

/* --- pings ----------------------------------------------------------------------------------------- */

struct net_ping {
	int socket, is_v6;
	unsigned short id;
	unsigned int size; /* of the data */
	unsigned char to[28];
	unsigned int to_length;
	unsigned int sent, received, wrong; /* wrong: other data than was sent */
};

/* To an address, IPv4 or IPv6, with that many bytes of data, never in fragments. */
int net_ping_open(struct net_ping *ping, int where, const char *to, unsigned int size);
int net_ping_send(struct net_ping *ping);
/* Takes the replies that are there: how many. */
int net_ping_take(struct net_ping *ping);
void net_ping_close(struct net_ping *ping);

/* Whether three of them come back whole, the first of them perhaps after a few tries. */
int net_reaches(int where, const char *to, unsigned int size);
/* Whether three of them stay without a reply for a second. */
int net_is_silent(int where, const char *to);

#endif
