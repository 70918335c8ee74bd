/* Whatever becomes of a frame, its memory comes back. */
#include "lab.h"

#include <unistd.h>

/*
 * Frames that stay take 13 MB. The bound is half of that, since some may be on their way back yet:
 * those dropped by __dev_kfree_skb_irq wait for a soft interrupt.
 */
#define FRAMES 20000
#define MOST_KB 7168

#define TO "020000000001"
#define FROM "020000000099"
#define REST "88b5" "00000000000000000000000000000000000000000000000000000000000000000000"

static const struct {
	const char *fate;
	const char *frame; /* IFINDEX VID LOCAL HEX */
} fates[] = {
	{ "stopped by a redirect", "5001 1 0 " TO "ffffffffffff" REST },
	{ "stopped after its tag was taken off", "5001 1 0 " TO "ffffffffffff" "81000001" REST },
	{ "claimed by nobody", "5001 1 0 " TO FROM REST },
	{ "flooded by its address and claimed by nobody", "5001 1 0 " "ffffffffffff" FROM REST },
	{ "of a VLAN that its port is no member of", "5001 2 0 " TO FROM REST },
	{ "of a VLAN out of range", "5001 5000 0 " TO FROM REST },
	{ "from an interface that is not there", "4999 1 0 " TO FROM REST },
	{ "local", "0 1 1 " TO FROM REST },
	{ "local, of a VLAN without an interface", "0 2 1 " TO FROM REST },
	{ "of no bytes", "5001 1 0 -" },
};

/* Pages on their way back are counted once they are there. */
static long free_kb(void)
{
	usleep(100000);
	return lab_meminfo("MemFree");
}

static int deliver(const char *frame)
{
	return lab_command("frames %d %s", FRAMES, frame);
}

int main(void)
{
	lab_setup();
	deliver(fates[0].frame); /* warms the caches */
	for (size_t i = 0; i < sizeof(fates) / sizeof(fates[0]); i++) {
		long before = free_kb();
		int result = deliver(fates[i].frame);
		long lost = before - free_kb();

		CHECK(result == 0, "%d frames %s", FRAMES, fates[i].fate);
		CHECK(lost < MOST_KB, "  %ld kB less are free", lost);
	}
	return lab_result();
}
