/*
 * What a daemon sees of the protocol sockets, as one list of cases for both homes: the test in a process
 * (tests/sockets/socket_cases_test.cc) and the one in a kernel (sockets.c) each say how a socket is opened,
 * a frame delivered, the log read; what has to hold stands here.
 *
 * The switch has ports 5001 and 5002, up and running, members of VLAN 1, and VLAN 1 with its interface.
 * Plain C that is C++ as well.
 */
#ifndef TESTS_SOCKETS_SOCKET_CASES_H
#define TESTS_SOCKETS_SOCKET_CASES_H

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "../../include/tarn/skaddr.h"

/* What the chip says of a frame. */
struct case_meta {
	unsigned flags, code;
	unsigned local; /* the frame has no port */
};

/* Results are those of the calls, or a negative errno. */
struct socket_home {
	int (*open)(int family, int type, int protocol);
	void (*close)(int fd);
	/* name may be null; so may data be, with a length: an address that is nowhere */
	long (*send)(int fd, const void *name, unsigned namelen, const void *data, unsigned length);
	/* *namelen: in its room, out its length; *flags: in those of the call, out those of the message */
	long (*receive)(int fd, void *name, unsigned *namelen, void *data, unsigned size, int *flags);
	int (*readable)(int fd, int milliseconds);
	void (*deliver)(unsigned ifindex, unsigned vid, const struct case_meta *meta,
			const unsigned char *frame, unsigned length);
	/* the last frame that has left by that port since the last question: its length, or -1 after
	 * that time */
	long (*sent)(unsigned port, unsigned char *frame, unsigned size, int milliseconds);
	/* how many frames a redirect has stopped for a reason */
	long (*stops)(const char *redirect, int reason);
	/*
	 * A setting. Of port 5001: "flags", its IFF_UP and IFF_RUNNING; "stp", its state in all
	 * instances; "filter", frames of VLANs that it is no member of are refused; "shut", it is closed
	 * for VLAN 1. "aggregator": makes one of that ifindex, with link and without ports. Any other: the
	 * redirect of that name is on.
	 */
	void (*set)(const char *what, unsigned value);
	/* the settings of UDLD: on, and what becomes of the frames of port 5001 */
	void (*udld)(int on, int filter);
	/* the newest line of the log since the last question, "<level> text", or "" */
	const char *(*said)(void);
	void (*rights)(int net_raw); /* of the caller */
	/* the list of open sockets, as administrators read it */
	const char *(*list)(void);
	void (*check)(int holds, const char *what, const char *detail);
};

/* Frames that the cases send come from 02:00:00:00:00:07. */
#define CASE_PORT 5001u
#define CASE_OTHER_PORT 5002u
#define CASE_AGGREGATOR 4502u
#define CASE_VLAN_INTERFACE 301u
#define CASE_NOBODY 9999u

enum { CASE_L2 = 16, CASE_VLAN = 36 };

/* --- the families ------------------------------------------------------------------------------- */

struct family_case {
	int family;
	const char *name;
	unsigned min_name;
	const char *null_line;   /* "<level> text" of a send without an address */
	const char *short_line;  /* of one whose address is a byte short */
	int length_first;        /* too long a payload is found before anything else */
	int header;              /* bytes that a send adds to what it was given */
	int receives;
	int sends;
	unsigned up;             /* flags that a port needs to be sent on */
};

static const struct family_case family_cases[] = {
	{ 46, "lacp", 16, "4 l2_skaddr is null", "4 _lacp_sock_sendmsg namelen 15", 0, 14, 1, 1, 0x41 },
	{ 47, "eapol", 0, "", "", 0, 0, 1, 0, 0x0 },
	{ 48, "stp", 16, "4 l2_skaddr is null", "4 _stp_sock_sendmsg namelen 15", 0, 14, 1, 1, 0x41 },
	{ 50, "garp", 36, "4 l2_skaddr is null", "4 _garp_sock_sendmsg namelen 35", 0, 14, 1, 1, 0x41 },
	{ 51, "igmp_snoop", 0, "", "", 0, 0, 1, 0, 0x0 },
	{ 52, "mld_snoop", 0, "", "", 0, 0, 1, 0, 0x0 },
	{ 53, "lldp", 36, "4 vlan_skaddr is null", "4 _lldp_sock_sendmsg namelen 35", 0, 14, 1, 1, 0x41 },
	{ 54, "ryke", 36, "6 vlan_skaddr is null", "6 _ryke_sock_sendmsg namelen 35", 0, 0, 1, 1, 0x41 },
	{ 55, "testd", 36, "4 vlan_skaddr is null", "4 _testd_sock_sendmsg namelen 35", 0, 0, 1, 1, 0x1 },
	{ 56, "frame", 36, "4 _frame_sock_sendmsg namelen 0", "4 _frame_sock_sendmsg namelen 35", 0, 0, 0, 1, 0x1 },
	{ 57, "ldf", 36, "4 vlan_skaddr is null", "4 _ldf_sock_sendmsg namelen 35", 1, 0, 1, 1, 0x41 },
	{ 60, "dhcpsn", 0, "", "", 0, 0, 1, 0, 0x0 },
	{ 61, "udld", 36, "4 _udld_sock_sendmsg vlan_skaddr is null", "4 _udld_sock_sendmsg namelen 35",
	  0, 0, 1, 1, 0x1 },
	{ 62, "kelm", 0, "", "", 0, 0, 1, 0, 0x0 },
	{ 63, "openflowd", 0, "", "", 0, 0, 1, 0, 0x0 },
	{ 65, "kelm_agent", 36, "4 vlan_skaddr is null", "4 _kelm_agent_sock_sendmsg namelen 35", 0, 14, 1, 1, 0x41 },
	{ 66, "cfm", 36, "6 vlan_skaddr is null", "6 tarn_sock_get_L2_xmit_port namelen 35", 1, 14, 1, 1, 0x1 },
	{ 67, "befd", 16, "6 l2_skaddr is null", "6 tarn_sock_get_L2_xmit_port namelen 15", 1, 14, 1, 1, 0x1 },
	{ 68, "isis", 16, "", "", 0, 17, 1, 1, 0x41 },
	{ 69, "mrp", 36, "4 vlan_skaddr is null", "4 _mrp_sock_sendmsg namelen 35", 0, 0, 1, 1, 0x1 },
	{ 70, "profinet", 36, "", "", 0, 0, 1, 1, 0x1 },
};

#define FAMILY_CASES (sizeof(family_cases) / sizeof(family_cases[0]))

/* An address that names an interface, where the family looks for it. VLAN 1, but for cfm, where that
 * would be a tag. */
static inline void case_address(const struct family_case *family, unsigned ifindex,
				unsigned char address[CASE_VLAN])
{
	static const unsigned char macs[12] = { 1, 0x80, 0xc2, 0, 0, 2, 2, 0, 0, 0, 0, 7 };
	unsigned short vid = family->family == TARN_AF_CFM ? 0 : 1;
	int is_l2 = family->family == TARN_AF_LACP || family->family == TARN_AF_BEFD ||
		    family->family == TARN_AF_ISIS;

	memset(address, 0, CASE_VLAN);
	memcpy(address, macs, sizeof(macs));
	memcpy(address + (is_l2 ? 12 : 16), &ifindex, sizeof(ifindex));
	if (!is_l2)
		memcpy(address + 20, &vid, sizeof(vid));
}

/* Data that begins with the header and a tag of VLAN 1, in place of `pull`. */
#define CASE_TAGGED 1000u

/* --- received frames ---------------------------------------------------------------------------- */

struct receive_case {
	int family;
	const char *what;
	const char *frame;   /* hexadecimal; blanks are for the eye. Filled up to 60 bytes with 0x5a */
	const char *address; /* as it is received, little-endian words; ".." for a byte that may be any */
	unsigned pull;       /* bytes of the frame that the data leaves out */
	unsigned length;     /* of the data */
};

#define SRC "020000000099"
#define SRCEND "0000"  /* of its bytes, those that cfm does not clear */
#define CLEAR16 "0000"
#define PORT "89130000" /* 5001 */
#define FILTERED 8u     /* the chip has picked the frame out */

static const struct receive_case receive_cases[] = {
	{ 46, "an LACPDU", "0180c2000002" SRC "8809 0102", "0180c2000002" SRC PORT, 14, 46 },
	{ 48, "a BPDU, trimmed to its length", "0180c2000000" SRC "0007 424203 01020304",
	  "0180c2000000" SRC "0007" CLEAR16 PORT "0000" "0180c2000000" "0000" "0000" "00000000", 14, 7 },
	{ 48, "a BPDU whose length lies", "0180c2000000" SRC "0100 424203",
	  "0180c2000000" SRC "0100" CLEAR16 PORT "0000" "0180c2000000" "0000" "0000" "00000000", 14, 46 },
	{ 50, "GVRP", "0180c2000021" SRC "0007 424203",
	  "0180c2000021" SRC "0007" CLEAR16 PORT "0100" "0180c2000021" SRC "0007", 14, 46 },
	{ 53, "LLDP to the nearest bridge", "0180c200000e" SRC "88cc 0207",
	  "0180c200000e" SRC "88cc" CLEAR16 PORT "0100" "0000000000000000000000000000", 0, 60 },
	{ 53, "LLDP to the nearest non-TPMR bridge", "0180c2000003" SRC "88cc 0207",
	  "0180c2000003" SRC "88cc" CLEAR16 PORT "0100" "0000000000000000000000000000", 0, 60 },
	{ 53, "LLDP to the nearest customer bridge", "0180c2000000" SRC "88cc 0207",
	  "0180c2000000" SRC "88cc" CLEAR16 PORT "0100" "0000000000000000000000000000", 0, 60 },
	{ 53, "LLDP in SNAP", "0180c200000e" SRC "002e aaaa0300000088cc",
	  "0180c200000e" SRC "002e" CLEAR16 PORT "0100" "0000000000000000000000000000", 0, 60 },
	{ 54, "ring protection, with a tag of its VLAN", "00e02b000004" SRC "8899 0102",
	  "00e02b000004" SRC "8100" CLEAR16 PORT "0100" "0000000000000000000000000000",
	  CASE_TAGGED, 64 },
	{ 55, "a loop test frame", "020000000001" SRC "9000 01",
	  "020000000001" SRC "9000" CLEAR16 PORT "0100" "020000000001" SRC "9000", 14, 46 },
	{ 57, "our own loop detection frame", "0000f4277101" "@own@" "8899 01",
	  "0000f4277101" "@own@" "8899" CLEAR16 PORT "0100" "0000f4277101" "@own@" "8899", 14, 46 },
	{ 61, "UDLD", "01000ccccccc" SRC "0020 aaaa0300000c0111",
	  "01000ccccccc" SRC "0020" CLEAR16 PORT "0100" "01000ccccccc" SRC "0020", 14, 46 },
	{ 65, "a frame of the agents", "0180c200002f" SRC "fbaf 01",
	  "0180c200002f" SRC "fbaf" CLEAR16 PORT "0100" "0000000000000000000000000000", 0, 60 },
	{ 66, "an untagged continuity check", "0180c2000030" SRC "8902 6001",
	  "0180c2000030" SRC "8902" CLEAR16 PORT "0100" "0180" "000000000000" SRCEND "00000000", 14, 46 },
	{ 66, "a tagged one", "0180c2000030" SRC "8100e001 8902 6001",
	  "0180c2000030" SRC "8902" CLEAR16 PORT "01f0" "0180" "000000000000" SRCEND "00000000", 18, 42 },
	{ 66, "a tagged ring frame", "0180c2000030" SRC "8100e001 8902 6028",
	  "0180c2000030" SRC "8902" CLEAR16 PORT "01f0" "0180" "000000000000" SRCEND "00000000", 18, 42 },
	{ 67, "fault detection", "000c250a8c01" SRC "aaaa 01", "000c250a8c01" SRC PORT, 14, 46 },
	{ 69, "MRP", "01154e000001" SRC "88e3 01",
	  "01154e000001" SRC "88e3" CLEAR16 PORT "0100" "01154e000001" SRC "88e3", 14, 46 },
	{ 70, "PROFINET", "010ecf000000" SRC "8892 01",
	  "010ecf000000" SRC "8892" CLEAR16 PORT "0100" "010ecf000000" SRC "8892", 14, 46 },
	{ 70, "PROFINET behind a tag", "010ecf000000" SRC "8100e001 8892 01",
	  "010ecf000000" SRC "8892" CLEAR16 PORT "0100" "010ecf000000" SRC "8892", 18, 42 },
};

#define RECEIVE_CASES (sizeof(receive_cases) / sizeof(receive_cases[0]))

static inline int case_nibble(char digit)
{
	return digit <= '9' ? digit - '0' : digit - 'a' + 10;
}

/* How many bytes; "@own@" is the address of the VLAN's interface. */
static inline unsigned case_bytes(const char *hex, unsigned char *bytes)
{
	static const unsigned char own[6] = { 2, 0, 0, 0, 0, 1 };
	unsigned count = 0;

	while (*hex) {
		if (*hex == ' ') {
			hex++;
		} else if (*hex == '@') {
			memcpy(bytes + count, own, sizeof(own));
			count += sizeof(own);
			hex += 5;
		} else {
			bytes[count++] = (unsigned char)(case_nibble(hex[0]) << 4 | case_nibble(hex[1]));
			hex += 2;
		}
	}
	return count;
}

static inline unsigned case_frame(const char *hex, unsigned char frame[256])
{
	unsigned length;

	memset(frame, 0x5a, 256);
	length = case_bytes(hex, frame);
	return length < 60 ? 60 : length;
}

static inline void case_deliver_so(const struct socket_home *home, const char *hex, unsigned vid,
				   const struct case_meta *meta)
{
	unsigned char frame[256];
	unsigned length = case_frame(hex, frame);

	home->deliver(CASE_PORT, vid, meta, frame, length);
}

static inline void case_deliver(const struct socket_home *home, const char *hex)
{
	static const struct case_meta none = { 0, 0, 0 };

	case_deliver_so(home, hex, 1, &none);
}

/* One read, of a name and data with enough room. */
static inline long case_read(const struct socket_home *home, int fd, unsigned char *data, int flags)
{
	unsigned char name[64];
	unsigned namelen = sizeof(name);

	flags |= MSG_DONTWAIT;
	return home->receive(fd, name, &namelen, data, 2048, &flags);
}

#define LACPDU "0180c2000002" SRC "8809 0102"

/* --- opening ------------------------------------------------------------------------------------ */

static inline void case_opening(const struct socket_home *home)
{
	static const int nobodys[] = { 49, 58, 59, 64 };
	unsigned char data[2048];

	for (unsigned i = 0; i < FAMILY_CASES; i++) {
		const struct family_case *one = &family_cases[i];
		int fd = home->open(one->family, SOCK_RAW, 0x1234);

		home->check(fd >= 0, "a raw socket opens", one->name);
		home->check(fd >= 0 && !home->readable(fd, 0), "with nothing to read", one->name);
		home->check(case_read(home, fd, data, 0) == (one->receives ? -EINVAL : -EOPNOTSUPP),
			    "which is this error", one->name);
		if (fd >= 0)
			home->close(fd);
		home->check(home->open(one->family, SOCK_DGRAM, 0) == -ESOCKTNOSUPPORT,
			    "a datagram socket does not", one->name);
		home->check(home->open(one->family, SOCK_STREAM, 0) == -ESOCKTNOSUPPORT,
			    "nor a stream", one->name);
		home->rights(0);
		home->check(home->open(one->family, SOCK_RAW, 0) == -EPERM, "nor without rights", one->name);
		home->check(home->open(one->family, SOCK_DGRAM, 0) == -EPERM,
			    "rights come before the type", one->name);
		home->rights(1);
	}
	for (unsigned i = 0; i < sizeof(nobodys) / sizeof(nobodys[0]); i++)
		home->check(home->open(nobodys[i], SOCK_RAW, 0) == -EAFNOSUPPORT, "49, 58, 59, 64 are nobody's",
			    "");
	home->check(home->open(71, SOCK_RAW, 0) == -EAFNOSUPPORT, "71 is beyond", "");
}

/* --- receiving ---------------------------------------------------------------------------------- */

/* What the data of the frame has to be. */
static inline unsigned case_data(const struct receive_case *one, unsigned char data[300])
{
	static const unsigned char tag[4] = { 0x81, 0x00, 0x00, 0x01 };
	unsigned char frame[256];

	case_frame(one->frame, frame);
	if (one->pull != CASE_TAGGED) {
		memcpy(data, frame + one->pull, one->length);
		return one->length;
	}
	memcpy(data, frame, 12);
	memcpy(data + 12, tag, sizeof(tag));
	memcpy(data + 16, frame + 12, one->length - 16);
	return one->length;
}

static inline void case_addresses(const struct socket_home *home)
{
	static const struct case_meta picked = { FILTERED, 0, 0 };

	home->udld(1, 1);
	for (unsigned i = 0; i < RECEIVE_CASES; i++) {
		const struct receive_case *one = &receive_cases[i];
		unsigned char expected[64], name[64], data[256], expected_data[300];
		unsigned namelen = sizeof(name), size = case_bytes(one->address, expected);
		unsigned length = case_data(one, expected_data);
		int flags = MSG_DONTWAIT, fd = home->open(one->family, SOCK_RAW, 0);
		long result;

		memset(name, 0xee, sizeof(name));
		case_deliver_so(home, one->frame, 1, &picked);
		home->check(home->readable(fd, 0), "a frame wakes the socket", one->what);
		result = home->receive(fd, name, &namelen, data, sizeof(data), &flags);
		home->check(result == (long)length, "the data is as long", one->what);
		home->check(result > 0 && memcmp(data, expected_data, (size_t)result) == 0,
			    "the data is the frame's", one->what);
		home->check(namelen == size, "the address is as long", one->what);
		home->check(memcmp(name, expected, size) == 0, "the address is this", one->what);
		home->check(!home->readable(fd, 0), "and that was all", one->what);
		home->close(fd);
	}
	home->udld(0, 0);
}

static inline void case_reading(const struct socket_home *home)
{
	unsigned char data[2048], name[64];
	unsigned namelen = sizeof(name);
	int flags = MSG_DONTWAIT, fd = home->open(TARN_AF_LACP, SOCK_RAW, 0);

	home->check(case_read(home, fd, data, 0) == -EINVAL, "an empty queue is EINVAL", "");
	home->check(!home->readable(fd, 20), "nothing to read after a while", "");

	case_deliver(home, LACPDU);
	case_deliver(home, "0180c2000002" SRC "8809 0304");
	home->check(case_read(home, fd, data, MSG_PEEK) == 46 && data[0] == 1, "a look is whole", "");
	home->check(case_read(home, fd, data, MSG_PEEK) == 46 && data[0] == 1, "and so the next", "");
	home->check(home->receive(fd, name, &namelen, data, 10, &flags) == 10, "a small buffer is filled",
		    "");
	home->check(flags & MSG_TRUNC, "and says that there was more", "");
	home->check(namelen == CASE_L2, "with the whole address", "");
	home->check(case_read(home, fd, data, 0) == 46 && data[0] == 3, "the next is the next frame", "");

	case_deliver(home, LACPDU);
	flags = MSG_DONTWAIT;
	namelen = 6;
	memset(name, 0xee, sizeof(name));
	home->check(home->receive(fd, name, &namelen, data, sizeof(data), &flags) == 46,
		    "a short name is no error", "");
	home->check(namelen == CASE_L2 && name[5] == 2 && name[6] == 0xee, "it gets what fits", "");
	home->check(!(flags & MSG_TRUNC), "and nothing was cut", "");

	case_deliver(home, LACPDU);
	flags = MSG_DONTWAIT;
	home->check(home->receive(fd, NULL, NULL, data, sizeof(data), &flags) == 46,
		    "the data comes without a name too", "");
	home->close(fd);
}

static inline void case_two_sockets(const struct socket_home *home)
{
	unsigned char data[2048];
	int a = home->open(TARN_AF_LACP, SOCK_RAW, 0), b = home->open(TARN_AF_LACP, SOCK_RAW, 0);
	int other = home->open(TARN_AF_LLDP, SOCK_RAW, 0);

	case_deliver(home, LACPDU);
	home->check(case_read(home, a, data, 0) == 46, "the one gets its copy", "");
	home->check(case_read(home, b, data, 0) == 46, "so does the other", "");
	home->check(case_read(home, other, data, 0) == -EINVAL, "another family does not", "");
	home->close(a);
	case_deliver(home, LACPDU);
	home->check(case_read(home, b, data, 0) == 46, "closing one leaves the other", "");
	home->close(b);
	home->close(other);
	case_deliver(home, LACPDU); /* nobody there: dropped */
}

static inline void case_a_slow_daemon(const struct socket_home *home)
{
	unsigned char data[2048];
	int slow = home->open(TARN_AF_LACP, SOCK_RAW, 0), quick = home->open(TARN_AF_LACP, SOCK_RAW, 0);
	long kept = 0, got = 0;

	for (int i = 0; i < 1000; i++) {
		case_deliver(home, LACPDU);
		got += case_read(home, quick, data, 0) == 46;
	}
	home->check(got == 1000, "who reads gets all", "");
	while (case_read(home, slow, data, 0) == 46)
		kept++;
	home->check(kept > 0 && kept < 1000, "who does not, gets what there was room for", "");
	case_deliver(home, LACPDU);
	home->check(case_read(home, slow, data, 0) == 46, "and goes on when there is room again", "");
	home->check(strcmp(home->said(), "") == 0, "silently", home->said());
	home->close(slow);
	home->close(quick);
}

/* The numbers of the newest socket of the family: frames, bytes, limit, lost. 0: none is listed. */
static inline int case_listed(const struct socket_home *home, const char *name, int numbers[4])
{
	const char *line = home->list();
	char found[16], start[96];

	snprintf(start, sizeof(start), "%-7s %-10s %7s %7s %7s %8s %8s %8s\n", "Family", "Name", "Process",
		 "Inode", "Frames", "Bytes", "Limit", "Lost");
	home->check(strncmp(line, start, strlen(start)) == 0, "the list has a head", line);
	for (; line; line = strchr(line, '\n')) {
		line += *line == '\n';
		if (sscanf(line, "%*d %15s %*d %*d %d %d %d %d", found, &numbers[0], &numbers[1],
			   &numbers[2], &numbers[3]) == 5 &&
		    strcmp(found, name) == 0)
			return 1;
	}
	return 0;
}

static inline void case_list(const struct socket_home *home)
{
	unsigned char data[2048];
	int numbers[4], fd, each;

	home->check(!case_listed(home, "MRP", numbers), "none is open", "");
	fd = home->open(TARN_AF_MRP, SOCK_RAW, 0);
	home->check(case_listed(home, "MRP", numbers) && numbers[0] == 0 && numbers[1] == 0 &&
			    numbers[2] > 0 && numbers[3] == 0,
		    "one that is new", "");
	case_deliver(home, "01154e000001" SRC "88e3 01");
	home->check(case_listed(home, "MRP", numbers) && numbers[0] == 1 && numbers[1] > 0, "a frame waits",
		    "");
	each = numbers[1];
	for (int i = 0; i < 1000; i++)
		case_deliver(home, "01154e000001" SRC "88e3 01");
	home->check(case_listed(home, "MRP", numbers) && numbers[0] + numbers[3] == 1001 && numbers[3] > 0 &&
			    numbers[1] == numbers[0] * each && numbers[1] + each >= numbers[2],
		    "others are lost when it is full", "");
	home->check(case_read(home, fd, data, 0) == 46 && case_listed(home, "MRP", numbers) &&
			    numbers[1] == numbers[0] * each && numbers[0] + numbers[3] == 1000,
		    "a read makes room", "");
	home->close(fd);
	for (int i = 0; i < 200 && case_listed(home, "MRP", numbers); i++)
		usleep(10000);
	home->check(!case_listed(home, "MRP", numbers), "a closed one is listed no more", "");
}

static inline void case_not_taken(const struct socket_home *home)
{
	static const struct {
		int family;
		const char *what, *frame;
	} rows[] = {
		{ 53, "LLDP in SNAP to 03", "0180c2000003" SRC "002e aaaa0300000088cc" },
		{ 53, "SNAP with a type for a length", "0180c200000e" SRC "05dd aaaa0300000088cc" },
		{ 53, "LLDP to 01", "0180c2000001" SRC "88cc 02" },
		{ 66, "CFM with opcode 6", "0180c2000030" SRC "8902 6006" },
		{ 66, "CFM that nobody filtered", "0180c2000030" SRC "8902 6001" },
		{ 67, "fault detection of another type", "000c250a8c01" SRC "aaab 01" },
		{ 67, "fault detection behind a tag", "000c250a8c01" SRC "8100e001 aaaa 01" },
		{ 57, "a loop detection frame of another switch", "0000f4277101" SRC "8899 01" },
		{ 61, "UDLD while it is off", "01000ccccccc" SRC "0020 aaaa0300000c0111" },
	};

	for (unsigned i = 0; i < sizeof(rows) / sizeof(rows[0]); i++) {
		int fd = home->open(rows[i].family, SOCK_RAW, 0);

		case_deliver(home, rows[i].frame);
		home->check(!home->readable(fd, 0), "is not for the daemon", rows[i].what);
		home->close(fd);
	}
}

/* --- deciding ----------------------------------------------------------------------------------- */

struct decision_case {
	const char *redirect;
	int reason; /* for which it stops the frame */
	const char *what, *frame;
	unsigned vid;
	struct case_meta meta;
	const char *set; /* a setting that is on meanwhile */
};

#define RYKE "00e02b000004" SRC "8899 01"
#define AGENT "0180c200002f"
#define LDF "0000f4277101" SRC "8899 01"
#define CDP "01000ccccccc" SRC "0020 aaaa0300000c2000"
#define CFM(opcode) "0180c2000030" SRC "8902 60" opcode
#define RING_CFM "0180c2000030" SRC "8100e001 8902 6028"

static const struct decision_case decision_cases[] = {
	{ "lacp", 3, "with a port", LACPDU, 1, { 0, 0, 0 }, NULL },
	{ "lacp", 2, "without", LACPDU, 1, { 0, 0, 1 }, NULL },
	{ "lldp", 3, "with a port", "0180c200000e" SRC "88cc 02", 1, { 0, 0, 0 }, NULL },
	{ "lldp", 2, "without", "0180c200000e" SRC "88cc 02", 1, { 0, 0, 1 }, NULL },
	{ "stp", 2, "a BPDU", "0180c2000000" SRC "0007 424203", 1, { 0, 0, 0 }, NULL },
	{ "stp", 2, "without a port", "0180c2000000" SRC "0007 424203", 1, { 0, 0, 1 }, NULL },
	{ "garp", 2, "GVRP", "0180c2000021" SRC "0007 424203", 1, { 0, 0, 0 }, NULL },
	{ "mrp", 1, "MRP", "01154e000077" SRC "88e3 01", 1, { 0, 0, 0 }, NULL },
	{ "profinet", 1, "PROFINET", "010ecf000000" SRC "8892 01", 1, { 0, 0, 0 }, NULL },
	{ "testd", 1, "a loop test frame", "020000000001" SRC "9000 01", 1, { 0, 0, 0 }, NULL },
	{ "isis", 3, "to all level 1", "0180c2000014" SRC "0003 fefe03", 1, { 0, 0, 0 }, NULL },
	{ "isis", 3, "to all end systems", "09002b000004" SRC "0003 fefe03", 1, { 0, 0, 0 }, NULL },
	{ "isis", 2, "without a port", "0180c2000015" SRC "0003 fefe03", 1, { 0, 0, 1 }, NULL },
	{ "ryke", 4, "a frame", RYKE, 1, { 0, 0, 0 }, NULL },
	{ "ryke", 3, "trapped with code 1", RYKE, 1, { 0, 1, 0 }, NULL },
	{ "ryke", 1, "of another VLAN", RYKE, 2, { 0, 1, 0 }, "filter" },
	{ "ryke", 4, "of another VLAN, not filtered", RYKE, 2, { 0, 0, 0 }, NULL },
	{ "kelm_agent", 3, "with a port", AGENT SRC "fbaf", 1, { 0, 0, 0 }, NULL },
	{ "kelm_agent", 2, "without", AGENT SRC "fbaf", 1, { 0, 0, 1 }, NULL },
	{ "kelm_agent", 1, "from ourselves", AGENT "@own@" "fbaf", 1, { 0, 0, 0 }, NULL },
	{ "cfm", 4, "picked out", CFM("05"), 1, { FILTERED, 0, 0 }, NULL },
	{ "cfm", 2, "not picked out", CFM("05"), 1, { 0, 0, 0 }, NULL },
	{ "cfm", 4, "the ring's, tagged", RING_CFM, 1, { FILTERED, 0, 0 }, NULL },
	{ "cfm", 3, "the ring's, untagged", CFM("28"), 1, { FILTERED, 0, 0 }, NULL },
	{ "cfm", 1, "the ring's, of another VLAN", CFM("28"), 2, { 0, 0, 0 }, "filter" },
	{ "cfm", 4, "another, of another VLAN", CFM("01"), 2, { FILTERED, 0, 0 }, "filter" },
	{ "befd", 2, "untagged", "000c250a8c01" SRC "aaaa 01", 1, { 0, 0, 0 }, NULL },
	{ "befd", 1, "tagged", "000c250a8c01" SRC "8100e001 aaaa 01", 1, { 0, 0, 0 }, NULL },
	{ "befd", 3, "of another type", "000c250a8c01" SRC "aaab 01", 1, { 0, 0, 0 }, NULL },
	{ "ldf", 2, "of another switch", LDF, 1, { 0, 0, 0 }, NULL },
	{ "ldf", 1, "of a VLAN that is shut", LDF, 1, { 0, 0, 0 }, "shut" },
	{ "ldf", 1, "of another VLAN", LDF, 2, { 0, 0, 0 }, "filter" },
	{ "udld", 3, "UDLD", "01000ccccccc" SRC "0020 aaaa0300000c0111", 1, { 0, 0, 0 }, NULL },
	{ "udld", 3, "UDLD of a VLAN that is shut", "01000ccccccc" SRC "0020 aaaa0300000c0111", 1,
	  { 0, 0, 0 }, "shut" },
	{ "udld", 3, "another to its address", CDP, 1, { 0, 0, 0 }, NULL },
	{ "udld", 2, "that, of a VLAN that is shut", CDP, 1, { 0, 0, 0 }, "shut" },
	{ "udld", 2, "that, of another VLAN", CDP, 2, { 0, 0, 0 }, "filter" },
};

static inline void case_decisions(const struct socket_home *home)
{
	home->set("vlan_local", 0); /* it would stop what has no port */
	home->set("isis", 1);
	home->udld(1, 0);
	for (unsigned i = 0; i < sizeof(decision_cases) / sizeof(decision_cases[0]); i++) {
		const struct decision_case *one = &decision_cases[i];
		long before = home->stops(one->redirect, one->reason);

		if (one->set)
			home->set(one->set, 1);
		case_deliver_so(home, one->frame, one->vid, &one->meta);
		if (one->set)
			home->set(one->set, 0);
		home->check(home->stops(one->redirect, one->reason) == before + 1, one->redirect, one->what);
	}
	home->udld(0, 0);
	home->set("isis", 0);
	home->set("vlan_local", 1);
}

/* A loop test frame that the chain does not know comes back by the IP stack: here by another protocol's
 * way to it. */
static inline void case_loop_by_the_ip_stack(const struct socket_home *home)
{
	static const char frame[] = "0180c2000014" SRC "9000 01";
	struct vlan_skaddr name;
	unsigned char data[256];
	unsigned namelen = sizeof(name);
	int flags = MSG_DONTWAIT, fd = home->open(TARN_AF_TESTD, SOCK_RAW, 0);
	int other = home->open(TARN_AF_TESTD, SOCK_RAW, 0);

	home->set("testd", 0);
	home->set("isis", 1);
	case_deliver(home, frame);
	home->check(home->readable(fd, 2000), "it comes", "");
	home->check(home->receive(fd, &name, &namelen, data, sizeof(data), &flags) == 46 && data[0] == 1,
		    "what follows the header is its data", "");
	home->check(namelen == CASE_VLAN && memcmp(&name, "\x01\x80\xc2\0\0\x14\2\0\0\0\0\x99\x90\0", 12) == 0,
		    "its address has the frame's", "");
	home->check(name.ifindex == CASE_VLAN_INTERFACE && name.vid == 0, "and the VLAN's interface alone", "");
	home->check(case_read(home, other, data, 0) == 46, "a second socket has its copy", "");
	home->set("isis", 0);
	home->set("testd", 1);
	home->close(other);
	home->close(fd);
}

/* --- sending ------------------------------------------------------------------------------------ */

static inline void case_send_checks(const struct socket_home *home)
{
	static unsigned char data[3000];

	for (unsigned i = 0; i < FAMILY_CASES; i++) {
		const struct family_case *one = &family_cases[i];
		unsigned char address[CASE_VLAN];
		int fd = home->open(one->family, SOCK_RAW, 0);
		long too_long = one->length_first ? -EMSGSIZE : -EINVAL;

		if (!one->sends) {
			home->check(home->send(fd, NULL, 0, data, 60) == -EOPNOTSUPP, "it does not send",
				    one->name);
			home->close(fd);
			continue;
		}
		case_address(one, CASE_PORT, address);
		home->said();
		home->check(home->send(fd, NULL, 0, data, 60) == -EINVAL, "no address", one->name);
		home->check(strcmp(home->said(), one->null_line) == 0, "is said so", one->null_line);
		home->check(home->send(fd, address, one->min_name - 1, data, 60) == -EINVAL,
			    "a short address", one->name);
		home->check(strcmp(home->said(), one->short_line) == 0, "is said so", one->short_line);
		home->check(home->send(fd, NULL, 0, data, 1501) == too_long,
			    "no address, and too long", one->name);
		home->said();

		home->check(home->send(fd, address, CASE_VLAN, data, 1501) == -EMSGSIZE,
			    "1501 bytes are too many", one->name);
		home->check(home->send(fd, address, CASE_VLAN, data, 1500) == 1500 + one->header,
			    "1500 are not", one->name);
		home->said(); /* that there is no driver, where there is none */
		home->check(home->send(fd, address, CASE_VLAN, data, 60) == 60 + one->header,
			    "the frame's length is the answer", one->name);
		home->check(home->send(fd, address, CASE_VLAN, NULL, 60) == -EFAULT,
			    "data that is nowhere", one->name);
		if (one->family != TARN_AF_STP)
			home->check(home->send(fd, address, one->min_name, data, 60) == 60 + one->header,
				    "the least address will do", one->name);
		else
			home->check(home->send(fd, address, one->min_name, data, 60) == -EINVAL,
				    "the least address names no port", one->name);

		case_address(one, CASE_NOBODY, address);
		home->check(home->send(fd, address, CASE_VLAN, data, 60) == -EINVAL, "an unknown port",
			    one->name);
		home->check(home->send(fd, address, CASE_VLAN, data, 1501) == too_long,
			    "too long for an unknown port", one->name);
		case_address(one, CASE_VLAN_INTERFACE, address);
		if (one->family != TARN_AF_TESTD && one->family != TARN_AF_PROFINET)
			home->check(home->send(fd, address, CASE_VLAN, data, 60) == -EINVAL,
				    "a VLAN is no port", one->name);
		home->check(strcmp(home->said(), "") == 0, "nothing is said of that", one->name);
		home->close(fd);
	}
}

/* The state of what the address names. */
static inline void case_send_states(const struct socket_home *home)
{
	static const unsigned char data[60] = { 0 };

	home->set("aggregator", CASE_AGGREGATOR);
	for (unsigned i = 0; i < FAMILY_CASES; i++) {
		const struct family_case *one = &family_cases[i];
		unsigned char address[CASE_VLAN];
		int fd = home->open(one->family, SOCK_RAW, 0);

		if (one->sends) {
			case_address(one, CASE_PORT, address);
			home->set("flags", 0x40);
			home->check(home->send(fd, address, CASE_VLAN, data, 60) == -ENETDOWN,
				    "a port that is not up", one->name);
			home->set("flags", 0x1);
			home->check(home->send(fd, address, CASE_VLAN, data, 60) ==
					    (one->up == 0x1 ? 60 + one->header : -ENETDOWN),
				    "a port without link", one->name);
			home->set("flags", 0x41);
			case_address(one, CASE_AGGREGATOR, address);
		}
		/* those two look for no member */
		if (one->sends && one->family != TARN_AF_UDLD && one->family != TARN_AF_PROFINET)
			home->check(home->send(fd, address, CASE_VLAN, data, 60) == -EINVAL,
				    "an aggregator without a port", one->name);
		home->close(fd);
	}
}

struct send_case {
	int family;
	const char *what;
	const char *address; /* hexadecimal */
	const char *payload;
	const char *frame; /* that leaves by the port; null: none does */
	long result;
	const char *elsewhere; /* the same of the other port */
};

#define TO "0180c2000002"
#define FROM "020000000007"
#define IFINDEX(vid) TO FROM "00000000" PORT vid "0000" "00000000" "0000" "00" "00" "00000000"
#define WHOLE "0180c2000009" FROM "8899 0102"

static const struct send_case send_cases[] = {
	{ 46, "an LACPDU", TO FROM PORT, "0102", TO FROM "8809 0102", 16, NULL },
	{ 46, "with room behind its address", TO FROM PORT "ffff", "0102", TO FROM "8809 0102", 16, NULL },
	{ 46, "of no data", TO FROM PORT, "", TO FROM "8809", 14, NULL },
	{ 48, "a BPDU", IFINDEX("0000"), "424203", TO FROM "0003 424203", 17, NULL },
	{ 50, "GVRP", IFINDEX("0000"), "424203", TO FROM "0003 424203", 17, NULL },
	{ 50, "GVRP to all but this port", "81" "80c2000021" FROM "00000000" PORT "0100" "0000"
	  "00000000" "0000" "00" "00" "00000000", "424203", NULL, 17, "0180c2000021" FROM "0003 424203" },
	{ 53, "LLDP", IFINDEX("0000"), "0207", TO FROM "88cc 0207", 16, NULL },
	{ 54, "ring protection", IFINDEX("0100"), WHOLE, WHOLE, 16, NULL },
	{ 55, "a loop test frame", IFINDEX("0000"), WHOLE, WHOLE, 16, NULL },
	{ 56, "any frame", IFINDEX("0100"), WHOLE, WHOLE, 16, NULL },
	{ 57, "loop detection", IFINDEX("0100"), WHOLE, WHOLE, 16, NULL },
	{ 61, "UDLD", IFINDEX("0000"), WHOLE, WHOLE, 16, NULL },
	{ 65, "a frame of the agents", IFINDEX("0000"), "0102", TO FROM "fbaf 0102", 16, NULL },
	{ 66, "a continuity check", IFINDEX("0000"), "6001", TO FROM "8902 6001", 16, NULL },
	{ 66, "with a priority alone", IFINDEX("00e0"), "6001", TO FROM "8902 6001", 16, NULL },
	{ 66, "with a tag", IFINDEX("05a0"), "6001", TO FROM "8100a005 8902 6001", 20, NULL },
	{ 67, "fault detection", TO FROM PORT, "01", TO FROM "aaaa 01", 15, NULL },
	{ 68, "IS-IS, whose length is short of its LLC", TO FROM PORT, "83", TO FROM "0001 fefe03 83", 18, NULL },
	{ 69, "MRP", IFINDEX("0000"), WHOLE, WHOLE, 16, NULL },
	{ 70, "PROFINET", IFINDEX("0000"), WHOLE, WHOLE, 16, NULL },
};

static inline void case_leaves(const struct socket_home *home, unsigned port, const char *hex,
			       const char *what)
{
	unsigned char expected[64], frame[2048];
	unsigned length = hex ? case_bytes(hex, expected) : 0;
	long size = home->sent(port, frame, sizeof(frame), hex ? 2000 : 20);

	home->check(size == (hex ? (long)length : -1), "a frame leaves, where one has to", what);
	home->check(size < 0 || memcmp(frame, expected, length) == 0, "it is this", what);
}

static inline void case_sent_frames(const struct socket_home *home)
{
	unsigned char late[2048];

	while (home->sent(CASE_PORT, late, sizeof(late), 100) >= 0 ||
	       home->sent(CASE_OTHER_PORT, late, sizeof(late), 100) >= 0) {
		/* of the cases before, still on its way */
	}
	for (unsigned i = 0; i < sizeof(send_cases) / sizeof(send_cases[0]); i++) {
		const struct send_case *one = &send_cases[i];
		unsigned char address[64], payload[64];
		unsigned namelen = case_bytes(one->address, address);
		unsigned length = case_bytes(one->payload, payload);
		int fd = home->open(one->family, SOCK_RAW, 0);

		home->check(home->send(fd, address, namelen, payload, length) == one->result,
			    "the frame's length is the answer", one->what);
		case_leaves(home, CASE_PORT, one->frame, one->what);
		case_leaves(home, CASE_OTHER_PORT, one->elsewhere, one->what);
		home->close(fd);
	}
}

static inline void case_frame_reads_nothing(const struct socket_home *home)
{
	unsigned char data[64], address[CASE_VLAN] = { 0 };
	int fd = home->open(TARN_AF_FRAME, SOCK_RAW, 0);
	unsigned port = CASE_PORT;
	unsigned short vid = 4000;

	home->check(case_read(home, fd, data, 0) == -EOPNOTSUPP, "a frame socket cannot be read", "");
	memcpy(address + 16, &port, sizeof(port));
	memcpy(address + 20, &vid, sizeof(vid));
	home->check(home->send(fd, address, CASE_VLAN, data, 60) == -EINVAL,
		    "a VLAN without interface is refused", "");
	home->close(fd);
}

struct socket_case {
	const char *name;
	void (*run)(const struct socket_home *home);
};

static const struct socket_case socket_cases[] = {
	{ "opening", case_opening },
	{ "addresses", case_addresses },
	{ "reading", case_reading },
	{ "two_sockets", case_two_sockets },
	{ "a_slow_daemon", case_a_slow_daemon },
	{ "list", case_list },
	{ "frames_that_are_not_taken", case_not_taken },
	{ "decisions", case_decisions },
	{ "loop_by_the_ip_stack", case_loop_by_the_ip_stack },
	{ "send_checks", case_send_checks },
	{ "send_states", case_send_states },
	{ "sent_frames", case_sent_frames },
	{ "frame_reads_nothing", case_frame_reads_nothing },
};

#define SOCKET_CASES (sizeof(socket_cases) / sizeof(socket_cases[0]))

#endif
