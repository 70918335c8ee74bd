/* Frames that end anywhere are taken like any others, and the kernel log stays clean. */
#include "lab.h"

/* Each is cut after every byte. */
static const struct {
	const char *name;
	const char *hex;
} whole[] = {
	{ "MLD, tagged twice, with a hop-by-hop header longer than the frame",
	  "333300000016" "020000000099" "81000001" "81000002" "86dd"
	  "6000000000080001" "fe800000000000000000000000000001" "ff020000000000000000000000000016"
	  "3affffff05020000" "8f00000000000000" },
	{ "DHCP over IPv4 with options in its header",
	  "ffffffffffff" "020000000099" "81000001" "0800"
	  "4f0001000000000040110000" "00000000" "ffffffff"
	  "0101010101010101010101010101010101010101010101010101010101010101" "0101010101010101"
	  "0044004300ec0000" "0101060012345678" },
	{ "IGMP with a router alert",
	  "01005e000016" "020000000099" "0800"
	  "46c00020000000000102000001020304e0000016" "94040000" "2200f9fb00000001" },
	{ "ARP", "ffffffffffff" "020000000099" "0806"
	  "00010800060400010200000000990102030400000000000001020305" },
	{ "a slow protocol", "0180c2000002" "020000000099" "8809" "010101148000020000000099" },
	{ "a spanning tree frame in LLC", "0180c2000000" "020000000099" "0026" "424203" "0000000000" },
	{ "PPPoE discovery", "ffffffffffff" "020000000099" "8863" "110900000004" "01010000" },
	{ "CDP-like SNAP", "01000ccccccc" "020000000099" "0020" "aaaa03" "00000c2000" "02b40000" },
};

static long asked(void)
{
	return lab_counter("l2drop_inspects");
}

static void cut_after_every_byte(const char *name, const char *hex)
{
	char shorter[512];
	size_t bytes = strlen(hex) / 2;
	long before = asked();

	for (size_t length = 0; length <= bytes; length++) {
		snprintf(shorter, sizeof(shorter), "%.*s", (int)(2 * length), hex);
		if (lab_command("frames 1 5001 1 0 %s", length ? shorter : "-") != 0)
			CHECK(0, "%zu bytes are taken", length);
	}
	CHECK(asked() == before + (long)bytes + 1, "every length from 0 to %zu met the chain: %s",
	      bytes, name);
}

int main(void)
{
	long before;

	lab_setup();
	for (size_t i = 0; i < sizeof(whole) / sizeof(whole[0]); i++)
		cut_after_every_byte(whole[i].name, whole[i].hex);

	/* 9216 bytes: the longest frame that the switch carries. */
	static char jumbo[2 * 9216 + 1];

	before = asked();
	memset(jumbo, '0', sizeof(jumbo) - 1);
	memcpy(jumbo, whole[0].hex, 2 * 12);
	CHECK(lab_command("frames 1 5001 1 0 %s", jumbo) == 0, "a jumbo frame is taken");
	CHECK(asked() == before + 1, "and met the chain");
	return lab_result();
}
