/* The devices of layer 3 interfaces, as the kernel and its programs see them. */
#include "lab.h"
#include "net.h"

#include <errno.h>
#include <linux/ethtool.h>
#include <linux/net_tstamp.h>
#include <linux/sockios.h>

#define VLAN 30
#define IFINDEX (300 + VLAN)
#define PORT 5201
#define ADDRESS "02:00:00:00:30:01"
static const unsigned char address[6] = { 2, 0, 0, 0, 0x30, 1 };

static struct net_link device_of(const char *name)
{
	struct net_link link;

	if (net_link(NET_HERE, name, &link) != 0)
		memset(&link, 0, sizeof(link));
	return link;
}

static int is_there(const char *name)
{
	return device_of(name).index != 0;
}

static int request_of(const char *name, unsigned long command, void *data)
{
	struct ifreq request = { .ifr_data = data };

	strncpy(request.ifr_name, name, IFNAMSIZ - 1);
	return net_request(command, &request);
}

/* --- what they are --------------------------------------------------------------------------------- */

static void a_vlan_has_a_device(void)
{
	struct net_link link;

	CHECK(lab_command("vlan %d " ADDRESS, VLAN) == 0, "VLAN %d is declared", VLAN);
	link = device_of("vlan30");
	CHECK(link.index == IFINDEX, "vlan30 has ifindex %d", link.index);
	CHECK(memcmp(link.address, address, 6) == 0, "its MAC address is that of the declaration");
	CHECK(link.mtu == 1500 && link.min_mtu == 64 && link.max_mtu == 9216,
	      "its MTU is %u, of %u to %u", link.mtu, link.min_mtu, link.max_mtu);
	CHECK(link.carrier == 0, "it has no carrier yet");
}

static void the_mtu_stays_in_its_bounds(void)
{
	CHECK(net_mtu(NET_HERE, "vlan30", 63) == -EINVAL, "an MTU of 63 is refused");
	CHECK(net_mtu(NET_HERE, "vlan30", 64) == 0 && device_of("vlan30").mtu == 64, "64 is taken");
	CHECK(net_mtu(NET_HERE, "vlan30", 9216) == 0 && device_of("vlan30").mtu == 9216, "and 9216");
	CHECK(net_mtu(NET_HERE, "vlan30", 9217) == -EINVAL && device_of("vlan30").mtu == 9216,
	      "9217 is refused");
}

static int permanent_is(const char *name, const unsigned char *wanted)
{
	union {
		struct ethtool_perm_addr header;
		unsigned char room[64];
	} got = { .header = { .cmd = ETHTOOL_GPERMADDR, .size = 6 } };

	return request_of(name, SIOCETHTOOL, &got) == 0 && got.header.size == 6 &&
	       memcmp(got.header.data, wanted, 6) == 0;
}

static void the_address_can_be_changed(void)
{
	static const unsigned char other[6] = { 2, 0, 0, 0, 0x30, 2 }, group[6] = { 3, 0, 0, 0, 0, 1 },
				   none[6] = { 0 }, virtual[6] = { 0, 0, 0x5E, 0, 1, 7 };

	CHECK(net_hardware_address(NET_HERE, "vlan30", other) == 0 &&
		      memcmp(device_of("vlan30").address, other, 6) == 0,
	      "its MAC address can be changed");
	CHECK(permanent_is("vlan30", other), "and is its permanent one");
	CHECK(net_hardware_address(NET_HERE, "vlan30", virtual) == 0 &&
		      memcmp(device_of("vlan30").address, virtual, 6) == 0,
	      "one of a virtual router too");
	CHECK(permanent_is("vlan30", other), "which it has beside its own");
	CHECK(net_hardware_address(NET_HERE, "vlan30", group) == -EADDRNOTAVAIL, "a group's is refused");
	CHECK(net_hardware_address(NET_HERE, "vlan30", none) == -EADDRNOTAVAIL, "and none at all");
	CHECK(memcmp(device_of("vlan30").address, virtual, 6) == 0, "it stays as it was");
}

/* A work item tells the device. */
static int carrier_becomes(const char *name, int carrier)
{
	for (int tries = 0; tries < 50 && device_of(name).carrier != carrier; tries++)
		net_pause(100);
	return device_of(name).carrier == carrier;
}

static void the_carrier_is_that_of_its_ports(void)
{
	CHECK(lab_command("port %d xe1 02:00:00:00:52:01 routed", PORT) == 0,
	      "port xe1 is declared, with a device");
	CHECK(device_of("xe1").index == PORT, "xe1 has ifindex %d", device_of("xe1").index);
	CHECK((device_of("xe1").flags & IFF_UP) && !device_of("xe1").carrier, "it is up, without carrier");
	CHECK(lab_command("member %d %d tagged", VLAN, PORT) == 0, "VLAN %d has that port", VLAN);
	CHECK(lab_command("link %d up", PORT) == 0 && device_of("xe1").carrier, "its link comes");
	CHECK(carrier_becomes("vlan30", 1), "and with it the carrier of vlan30");
	CHECK(lab_command("link %d down", PORT) == 0 && !device_of("xe1").carrier, "its link goes");
	CHECK(carrier_becomes("vlan30", 0), "and with it the carrier of vlan30");
}

static void it_is_also_that_of_an_aggregator(void)
{
	CHECK(lab_command("aggregator 5210 ag1 02:00:00:00:52:10 3") == 0 &&
		      lab_command("port 5211 xe11 02:00:00:00:52:11") == 0 &&
		      lab_command("attach 5210 5211") == 0,
	      "a static aggregator has port xe11");
	CHECK(lab_command("member %d 5210 tagged", VLAN) == 0, "VLAN %d has the aggregator", VLAN);
	CHECK(lab_command("link 5211 up") == 0 && carrier_becomes("vlan30", 1),
	      "the link of xe11 is the carrier of vlan30");
	CHECK(lab_command("link 5211 down") == 0 && carrier_becomes("vlan30", 0), "as long as it lasts");
	CHECK(lab_command("delete 5211") == 0 && lab_command("delete 5210") == 0, "both go");
}

/* --- ethtool and time stamps ----------------------------------------------------------------------- */

static void ethtool_is_answered(void)
{
	struct {
		struct ethtool_link_settings base;
		__u32 masks[3 * 127];
	} link = { .base = { .cmd = ETHTOOL_GLINKSETTINGS } };
	struct ethtool_ts_info stamps = { .cmd = ETHTOOL_GET_TS_INFO };

	/* The first question asks how long the masks are. */
	CHECK(request_of("xe1", SIOCETHTOOL, &link) == 0 && link.base.link_mode_masks_nwords < 0,
	      "ethtool asks xe1 for its link");
	link.base.link_mode_masks_nwords = -link.base.link_mode_masks_nwords;
	CHECK(request_of("xe1", SIOCETHTOOL, &link) == 0 && link.base.speed == 10000,
	      "a port without a speed has %u", link.base.speed);
	CHECK(link.base.duplex == DUPLEX_HALF && link.base.port == PORT_TP &&
		      link.base.autoneg == AUTONEG_DISABLE,
	      "and duplex %u, port %u, autonegotiation %u", link.base.duplex, link.base.port,
	      link.base.autoneg);
	link.base.link_mode_masks_nwords = 0;
	CHECK(request_of("vlan30", SIOCETHTOOL, &link) == -EOPNOTSUPP, "vlan30 has no answer");

	CHECK(request_of("xe1", SIOCETHTOOL, &stamps) == 0 && stamps.so_timestamping == 0x5F,
	      "xe1 has time stamps 0x%x", stamps.so_timestamping);
	CHECK(stamps.phc_index == -1, "and clock %d", stamps.phc_index);
}

static void time_stamps_are_answered(void)
{
	struct hwtstamp_config config = { .tx_type = HWTSTAMP_TX_ON, .rx_filter = HWTSTAMP_FILTER_ALL };

	CHECK(request_of("xe1", SIOCSHWTSTAMP, &config) == 0 &&
		      config.rx_filter == HWTSTAMP_FILTER_PTP_V2_EVENT,
	      "any filter becomes that of all PTP events (%d)", config.rx_filter);
	config.tx_type = HWTSTAMP_TX_OFF;
	config.rx_filter = HWTSTAMP_FILTER_NONE;
	CHECK(request_of("xe1", SIOCSHWTSTAMP, &config) == 0 && config.rx_filter == 0, "none stays none");
	config.tx_type = HWTSTAMP_TX_ONESTEP_SYNC;
	CHECK(request_of("xe1", SIOCSHWTSTAMP, &config) == -ERANGE, "one-step stamps are refused");
	config.tx_type = HWTSTAMP_TX_ON;
	config.rx_filter = HWTSTAMP_FILTER_NTP_ALL;
	CHECK(request_of("xe1", SIOCSHWTSTAMP, &config) == -ERANGE, "and those of NTP");
	config.rx_filter = 99;
	CHECK(request_of("xe1", SIOCSHWTSTAMP, &config) == -ERANGE, "and unknown ones");
	CHECK(request_of("xe1", SIOCSHWTSTAMP, NULL) == -EFAULT, "and no request at all");
	config.flags = 0;
	CHECK(request_of("xe1", SIOCGHWTSTAMP, &config) == 0, "it can be asked");
	config.flags = 1;
	CHECK(request_of("xe1", SIOCGHWTSTAMP, &config) == -EOPNOTSUPP, "without flags");
	config = (struct hwtstamp_config){ 0 };
	CHECK(request_of("vlan30", SIOCSHWTSTAMP, &config) == -EOPNOTSUPP, "vlan30 has none");
}

/* --- whose they are -------------------------------------------------------------------------------- */

static void a_device_of_somebody_else_is_left_alone(void)
{
	struct net_link before, after;
	struct lab_if port;

	CHECK(net_pair("vlan40", "w40", NET_HERE) == 0, "somebody makes a device called vlan40");
	before = device_of("vlan40");
	CHECK(lab_command("vlan 40 02:00:00:00:40:01") == -210, "VLAN 40 is refused");
	CHECK(lab_command("port 5202 w40 02:00:00:00:52:02 routed") == -210, "and a port w40");
	CHECK(lab_show(340, &port) == -203 && lab_show(5202, &port) == -203, "the core has neither");
	after = device_of("vlan40");
	CHECK(after.index == before.index && memcmp(after.address, before.address, 6) == 0,
	      "and the device is as it was");
	CHECK(net_delete(NET_HERE, "vlan40") == 0, "and can go");
	CHECK(lab_command("vlan 40 02:00:00:00:40:01") == 0 && device_of("vlan40").index == 340,
	      "then VLAN 40 can come");
	CHECK(lab_command("delete 340") == 0 && !is_there("vlan40"), "and go");
	CHECK(lab_command("port 5202 xe2 02:00:00:00:52:02 routed") == 0 && is_there("xe2"),
	      "and the port under another name");
	CHECK(lab_command("delete 5202") == 0 && !is_there("xe2"), "which goes too");
}

static void its_own_device_is_taken_over(void)
{
	static const unsigned char other[6] = { 2, 0, 0, 0, 0x30, 9 };
	int before = net_count(NET_HERE);

	CHECK(lab_command("vlan %d 02:00:00:00:30:09", VLAN) == 0, "VLAN %d is declared again", VLAN);
	CHECK(net_count(NET_HERE) == before, "no device comes");
	CHECK(device_of("vlan30").index == IFINDEX &&
		      memcmp(device_of("vlan30").address, other, 6) == 0,
	      "vlan30 has the new address");
}

/* The kernel looks at a link a little later. */
static int has_flags_of_device(int ifindex, const char *name, unsigned int running)
{
	struct lab_if interface;

	for (int tries = 0; tries < 50; tries++) {
		unsigned int flags = device_of(name).flags;

		if (lab_show(ifindex, &interface) == 0 && interface.flags == flags &&
		    (flags & IFF_UP) && (flags & IFF_RUNNING) == running)
			return 1;
		net_pause(100);
	}
	return 0;
}

/* Unregistration waits until nobody holds the device, and the kernel says so after ten seconds. */
static void an_ethernet_interface_lets_its_device_go(void)
{
	struct lab_if eth;
	int number;

	CHECK(net_pair("eth9", "far9", NET_HERE) == 0, "there is a device eth9");
	number = device_of("eth9").index;
	CHECK(lab_command("ethernet %d eth9 02:00:00:00:09:09", number) == 0, "it is declared");
	CHECK(lab_show(number, &eth) == 0 && eth.has_device, "its interface has the device");
	CHECK(net_up(NET_HERE, "eth9", 1) == 0 && has_flags_of_device(number, "eth9", 0),
	      "its flags are those of the device");
	CHECK(net_up(NET_HERE, "far9", 1) == 0 && has_flags_of_device(number, "eth9", IFF_RUNNING),
	      "also when the link comes");
	CHECK(net_delete(NET_HERE, "eth9") == 0 && !is_there("eth9"), "the device goes");
	CHECK(lab_show(number, &eth) == 0 && !eth.has_device, "and the interface lives without");
	CHECK(lab_command("delete %d", number) == 0, "until it is deleted");
}

static void also_under_another_number(void)
{
	struct lab_if eth;

	CHECK(net_pair("eth8", "far8", NET_HERE) == 0 &&
		      lab_command("ethernet 5301 eth8 02:00:00:00:08:08") == 0,
	      "eth8 is declared, under a number of its own");
	CHECK(lab_show(5301, &eth) == 0 && eth.has_device, "its interface has the device");
	CHECK(net_delete(NET_HERE, "eth8") == 0 && !is_there("eth8"), "the device goes");
	CHECK(lab_show(5301, &eth) == 0 && !eth.has_device, "and the interface lives without");
	CHECK(lab_command("delete 5301") == 0, "until it is deleted");
}

static void a_device_goes_with_its_interface(void)
{
	CHECK(lab_command("delete %d", PORT) == 0 && !is_there("xe1"), "xe1 goes");
	CHECK(lab_command("delete %d", IFINDEX) == 0 && !is_there("vlan30"), "and vlan30");
}

int main(void)
{
	lab_load("tarn_lab");
	a_vlan_has_a_device();
	the_mtu_stays_in_its_bounds();
	the_address_can_be_changed();
	the_carrier_is_that_of_its_ports();
	it_is_also_that_of_an_aggregator();
	ethtool_is_answered();
	time_stamps_are_answered();
	a_device_of_somebody_else_is_left_alone();
	its_own_device_is_taken_over();
	an_ethernet_interface_lets_its_device_go();
	also_under_another_number();
	a_device_goes_with_its_interface();
	return lab_result();
}
