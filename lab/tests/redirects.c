/* A frame handed to rxtx_hw_packet_recv is counted by the redirect that stopped it. */
#include "lab.h"

#define TO "020000000001"
#define REST "88b5" "00000000000000000000000000000000000000000000000000000000000000000000"
#define PLAIN TO "020000000099" REST

static void each_source_is_counted(void)
{
	static const struct {
		const char *source;
		int reason;
	} rows[] = { { "ffffffffffff", 1 }, { "030000000001", 2 }, { "000000000000", 3 } };

	for (int i = 0; i < 3; i++) {
		long before = lab_stops("l2drop", rows[i].reason);

		CHECK(lab_command("frames 1 5001 1 0 " TO "%s" REST, rows[i].source) == 0,
		      "a frame from %s is taken", rows[i].source);
		CHECK(lab_stops("l2drop", rows[i].reason) == before + 1,
		      "l2drop counts it for reason %d", rows[i].reason);
	}
}

static void a_frame_without_port_stops_first(void)
{
	long local = lab_stops("vlan_local", 1);
	long dos = lab_counter("dos_inspects");

	CHECK(lab_command("frames 1 0 1 1 " PLAIN) == 0, "a local frame is taken");
	CHECK(lab_stops("vlan_local", 1) == local + 1, "vlan_local counts it");
	CHECK(lab_counter("dos_inspects") == dos, "and nobody else sees it");
}

static void unclaimed_frames_vanish(void)
{
	long asked = lab_counter("pppoe_inspects");
	long stops = lab_counter("l2drop_stops");

	CHECK(lab_command("frames 1 5001 1 0 " PLAIN) == 0, "a plain frame is taken");
	CHECK(lab_counter("pppoe_inspects") == asked + 1, "it walks the whole chain");
	CHECK(lab_counter("l2drop_stops") == stops, "and nobody stops it");
	CHECK(lab_command("frames 1 4999 1 0 " PLAIN) == 0, "a frame for nobody is taken");
	CHECK(lab_counter("pppoe_inspects") == asked + 1, "and nobody sees it");
}

static void a_redirect_can_be_turned_off_and_on(void)
{
	long stops = lab_counter("l2drop_stops");

	CHECK(lab_command("disable l2drop") == 0, "l2drop is turned off");
	CHECK(lab_command("frames 1 5001 1 0 " TO "ffffffffffff" REST) == 0, "a frame is taken");
	CHECK(lab_command("enable l2drop") == 0, "l2drop is turned on");
	CHECK(lab_counter("l2drop_stops") == stops, "it was not stopped");
	CHECK(lab_command("enable nobody") < 0, "an unknown name is refused");
}

int main(void)
{
	lab_setup();
	each_source_is_counted();
	a_frame_without_port_stops_first();
	unclaimed_frames_vanish();
	a_redirect_can_be_turned_off_and_on();
	return lab_result();
}
