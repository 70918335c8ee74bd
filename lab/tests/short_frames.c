/* Frames that end anywhere are taken like any others, and the kernel log stays clean. */
#include "lab.h"

/* Tagged twice, IPv6 with a hop-by-hop header that claims more than there is. */
static const char longest[] = "333300000016" "020000000099" "81000001" "81000002" "86dd"
	"6000000000080001" "fe800000000000000000000000000001" "ff020000000000000000000000000016"
	"3affffff05020000" "8f00000000000000";

static long asked(void)
{
	return lab_counter("l2drop_inspects");
}

int main(void)
{
	char hex[sizeof(longest)];
	size_t bytes = strlen(longest) / 2;
	long before;

	lab_setup();
	before = asked();
	for (size_t length = 1; length <= bytes; length++) {
		memcpy(hex, longest, 2 * length);
		hex[2 * length] = '\0';
		if (lab_command("frames 1 5001 1 0 %s", hex) != 0)
			CHECK(0, "a frame of %zu bytes is taken", length);
	}
	CHECK(asked() == before + (long)bytes, "every length from 1 to %zu met the chain", bytes);

	/* 9216 bytes: the longest frame that the switch carries. */
	static char jumbo[2 * 9216 + 1];

	memset(jumbo, '0', sizeof(jumbo) - 1);
	memcpy(jumbo, longest, 2 * 12);
	CHECK(lab_command("frames 1 5001 1 0 %s", jumbo) == 0, "a jumbo frame is taken");
	CHECK(asked() == before + (long)bytes + 1, "and met the chain");
	return lab_result();
}
