/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What every command of the control family does, as one list of steps for both homes: the test in a
 * process (nl_steps_test.cc) and the one in a kernel (lab/tests/commands.c) each say how a command
 * is sent, a file read, a frame delivered; what has to hold stands here.
 *
 * A step is a command with its attributes in words, "ifindex 5201 tagged 1 vid 20": integers as C
 * writes them, bytes in hexadecimal. Behind it stand its answer and what can be seen of it from
 * outside: in the files of /proc/tarn, by where a frame ends, by what leaves the switch. The steps
 * are made in order; what one makes the later ones have.
 *
 * What can be seen only inside a process are the functions of the core that the command calls, in
 * order, each with its arguments: "tarn_x 1 vid @ifindex; tarn_y". A word that is an attribute's
 * name stands for the value it was sent with, "none" when it was not; before it "@" stands for an
 * interface of that number, "!" for 1 where it is 0 and "!!" for 1 where it is not; "/12" behind it
 * for the number of records of that size. A "= " at the start says that the last call's result is
 * the answer, "..." at the end that what follows is not looked at. The deletion of an interface is
 * told with the references that are left.
 *
 * Plain C that is C++ as well.
 */
#ifndef TARN_TESTS_NL_STEPS_H
#define TARN_TESTS_NL_STEPS_H

#include "nl_cases.h"

/*
 * A look from outside. `what`:
 *   up DEVICE              an administrator brings it up; shows nothing
 *   device DEVICE          its address and what ethtool says: "02:00:00:00:00:01 speed 10 duplex 1"
 *   chip                   what it was told of unknown multicast: "unknown-multicast on"
 *   frame PORT VID HEX     which counters of redirects move when that frame arrives, and for which
 *                          reason it stops: "arp_kernel arp:12 "; with "subnet" before HEX the chip
 *                          says that it has looked for a VLAN of its subnet
 *   sends PORT VID         where a frame goes that a daemon sends out of the port: "5201-tagged "
 *   stack DEVICE           whether one leaves that the IP stack sends: "leaves"
 *   meets DEVICE PORT VID  192.0.2.99 asks the IP stack for its address; shows nothing
 *   knows DEVICE           the IPv4 neighbours that the IP stack has there: "192.0.2.99 "
 *   anything else          the text of that file of /proc/tarn, "" where there is none
 * What is shown has `text` in it, or must not; with "" the look itself is all. A blank of `text` is
 * any number of blanks there, "*" any number of others.
 */
struct nl_sight {
    const char *what;
    const char *text;
    int absent;
};
// clang-format off
#define SEES(what, text) {what, text, 0}
#define LACKS(what, text) {what, text, 1}
// clang-format on
#define NL_SIGHTS 4

struct nl_step {
    uint8_t command;
    const char *with;
    int answer;
    const char *calls; /* null: what the command's case says */
    struct nl_sight sights[NL_SIGHTS];
};

// clang-format off

/* --- frames ----------------------------------------------------------------------------------- */

#define NL_HOST "020000000099"
#define NL_ALL "ffffffffffff"
#define NL_ARP_OF(source, sender)                                                                  \
    NL_ALL source "0806" "0001080006040001" sender "c0000263" "000000000000" "c0000201"
#define NL_ARP NL_ARP_OF(NL_HOST, NL_HOST)
#define NL_IPV4(to, protocol, destination)                                                         \
    to NL_HOST "0800" "4500002800000000" "40" protocol "0000" "c0000263" destination
#define NL_UNICAST NL_IPV4("020000000055", "11", "c6336407")
#define NL_MULTICAST NL_IPV4("01005e010203", "11", "ef010203")
#define NL_WEB NL_IPV4("020000000055", "06", "c6336407") "30390050"
#define NL_UDLD "01000ccccccc" NL_HOST "0020" "aaaa0300000c0111"

/* --- a neighbour ------------------------------------------------------------------------------ */

#define NL_KNOWS SEES("knows vlan20", "192.0.2.99 ")
#define NL_FORGOT LACKS("knows vlan20", "192.0.2.99 ")
#define NL_MEETS SEES("meets vlan20 5201 20", ""), NL_KNOWS

/* --- the steps -------------------------------------------------------------------------------- */

#define NL_PORT_CREATE "= tarn_ifmgr_switchport_create if_name mac flags stack_member ifindex "
#define NL_LAG_CREATE "= tarn_ifmgr_aggregator_add if_name mac port_kind ifindex"
#define NL_ETHERNET_CREATE "= tarn_ifmgr_ethernet_create if_name mac flags ifindex 2"
#define NL_DELETED(references) "tarn_ifmgr_delete_interface @ifindex " references "; ..."
#define NL_VXLAN_ADD "tarn_vxlan_add vid vxlan_local_addr vxlan_remote_addr vxlan_vni"
#define NL_RULE "0000000220000000000000000000000a0a0a0a0a000000000000000000500006" /* 32 bytes */

static const struct nl_step nl_steps[] = {
    /* --- interfaces come: ports, one of them routed, aggregators, a device of the machine ----- */
    {0, "ifindex 5201 if_name cmd1 if_kind 3 flags 0x1043 mac 020000005201 stack_member 7", 0,
     NL_PORT_CREATE "0", {SEES("ifdb", "\ncmd1 5201 1043 1 1 1000\n")}},
    {0, "ifindex 5202 if_name cmd2 if_kind 3 flags 0x1003 mac 020000005202 stack_member 0", 0,
     NL_PORT_CREATE "0", {SEES("ifdb", "\ncmd2 5202 1003 0 1 1000\n")}},
    {0, "ifindex 5203 if_name cmd3 if_kind 3 flags 0x1003 mac 020000005203 stack_member 4294967295 "
        "port_kind 1", 0,
     NL_PORT_CREATE "1",
     {SEES("device cmd3", "02:00:00:00:52:03"), SEES("ifdb", "\ncmd3 5203 1003 0 1 1000\n")}},
    {0, "ifindex 5204 if_name cmd4 if_kind 3 flags 0 mac 020000005204 port_kind 255", 0,
     "= tarn_ifmgr_switchport_create if_name mac flags 0 ifindex 0",
     {SEES("ifdb", "\ncmd4 5204 0 0 1 1000\n"), LACKS("device cmd4", ":")}},
    {0, "ifindex 5205 if_name a-name-of-more-than-16 if_kind 3 flags 0 mac 020000005205", 0,
     "= tarn_ifmgr_switchport_create a-name-of-more-t mac flags 0 ifindex 0",
     {SEES("ifdb", "\na-name-of-more-t 5205 ")}},
    {0, "ifindex 6201 if_name cmdlag if_kind 3 flags 0x1043 mac 020000006201 port_kind 3", 0,
     NL_LAG_CREATE, {SEES("ifdb", "\ncmdlag 6201 0 0 1 1008\n")}},
    {0, "ifindex 6202 if_name cmddyn if_kind 3 flags 0x1043 mac 020000006202 port_kind 2", 0,
     NL_LAG_CREATE, {SEES("ifdb", "\ncmddyn 6202 0 0 1 1010\n")}},
    {0, "ifindex 7201 if_name cmdeth if_kind 2 flags 0x1003 mac 020000007201", 0,
     NL_ETHERNET_CREATE, {SEES("ifdb", "\ncmdeth 7201 1003 0 1 1000\n")}},
    {0, "ifindex 5201 if_name other if_kind 3 flags 0 mac 020000005299", 0,
     "= tarn_ifmgr_switchport_create if_name mac flags 0 ifindex 0",
     {SEES("ifdb", "\ncmd1 5201 1043 ")}},
    {0, "ifindex 7202 if_name cmdnew if_kind 2 flags 0", -201, NL_ETHERNET_CREATE,
     {LACKS("ifdb", " 7202 ")}},
    {0, "ifindex 7202 if_name cmdnew if_kind 3 flags 0", -201,
     "= tarn_ifmgr_switchport_create if_name none flags 0 ifindex 0", {LACKS("ifdb", " 7202 ")}},
    {0, "ifindex 7202 if_name cmdnew if_kind 3 flags 0 port_kind 2", -201, NL_LAG_CREATE,
     {LACKS("ifdb", " 7202 ")}},
    {0, "ifindex 7202 if_name cmdnew if_kind 3 flags 0 mac 0200000072", -EINVAL, "",
     {LACKS("ifdb", " 7202 ")}},
    {0, "ifindex 7202 if_name cmdnew if_kind 8 flags 0 mac 0200000072", 0, "",
     {LACKS("ifdb", " 7202 ")}},
    {0, "ifindex 7202 if_name cmdnew if_kind 1 flags 0 mac 020000007202", 0, "",
     {LACKS("ifdb", " 7202 ")}},
    {0, "ifindex 7202 if_name cmdnew if_kind 4 flags 0 mac 020000007202", 0, "",
     {LACKS("ifdb", " 7202 ")}},
    {0, "ifindex 7202 if_name cmdnew if_kind 9 flags 0 mac 020000007202", 0, "",
     {LACKS("ifdb", " 7202 ")}},
    {0, "ifindex 7202 if_name cmdnew if_kind 0 flags 0 mac 020000007202", -EOPNOTSUPP, "",
     {LACKS("ifdb", " 7202 ")}},
    {0, "ifindex 7202 if_name cmdnew if_kind 10 flags 0 mac 020000007202", -EOPNOTSUPP, "",
     {LACKS("ifdb", " 7202 ")}},
    {0, "ifindex 7202 if_name cmdnew if_kind 255 flags 0 mac 020000007202", -EOPNOTSUPP, "",
     {LACKS("ifdb", " 7202 ")}},

    /* --- and VLANs ---------------------------------------------------------------------------- */
    {7, "vid_start 20 vid_end 22 vlan_options 0 mac 020000002000", 0,
     "= tarn_ifmgr_vlan_create mac 6 20 vlan_options; tarn_ifmgr_vlan_create mac 6 21 vlan_options",
     {SEES("up vlan20", ""), SEES("device vlan20", "02:00:00:00:20:00"),
      SEES("ifdb", "\nvlan21 321 * 0 1 1000\n"), LACKS("ifdb", "vlan22")}},
    {7, "vid_start 22 vid_end 22 vlan_options 0 mac 020000002000", 0, "",
     {LACKS("ifdb", "vlan22")}},
    {7, "vid_start 65535 vid_end 22 vlan_options 0 mac 020000002000", 0, "",
     {LACKS("ifdb", "vlan22")}},
    {7, "vid_start 23 vid_end 24 vlan_options 0x7 mac 020000002300", 0,
     "= tarn_ifmgr_vlan_create mac 6 23 vlan_options",
     {SEES("ifdb", "\nvlan23 323 * 0 1 5001\n"),
      SEES("frame 5201 23 " NL_ARP, "remote-mirror:1 ")}},
    {6, "ifindex 323", 0, NL_DELETED("2"), {LACKS("ifdb", "vlan23")}},
    {7, "vid_start 23 vid_end 24 vlan_options 0 mac 020000002300", 0,
     "= tarn_ifmgr_vlan_create mac 6 23 vlan_options",
     {SEES("ifdb", "\nvlan23 323 * 0 1 1000\n"), LACKS("frame 5201 23 " NL_ARP, "remote-mirror")}},

    /* --- what the daemon says of them --------------------------------------------------------- */
    {1, "ifindex 5202 flags 0x1043 speed 1000 duplex 1", 0,
     "tarn_ifmgr_L2_link_state_check @ifindex 0", {SEES("ifdb", "\ncmd2 5202 1043 1 1 1000\n")}},
    {1, "ifindex 5202 flags 0", 0, "tarn_ifmgr_L2_link_state_check @ifindex 1",
     {SEES("ifdb", "\ncmd2 5202 0 0 1 1000\n")}},
    {1, "ifindex 5202 flags 0x1043", 0, "tarn_ifmgr_L2_link_state_check @ifindex 0",
     {SEES("ifdb", "\ncmd2 5202 1043 1 1 1000\n")}},
    {1, "ifindex 5203 flags 0x1003 speed 100 duplex 1", 0,
     "tarn_ifmgr_L2_link_state_check @ifindex 0", {SEES("device cmd3", "speed 100 duplex 1")}},
    {1, "ifindex 5203 flags 0xffffffff speed 4294967295 duplex 255", 0,
     "tarn_ifmgr_L2_link_state_check @ifindex 0",
     {SEES("device cmd3", "speed 4294967295 duplex 255"),
      SEES("ifdb", "\ncmd3 5203 ffffffff 1 1 1000\n")}},
    {1, "ifindex 5203 flags 0x1003", 0, "tarn_ifmgr_L2_link_state_check @ifindex 1",
     {SEES("device cmd3", "speed 4294967295 duplex 255"),
      SEES("ifdb", "\ncmd3 5203 1003 0 1 1000\n")}},
    {1, "ifindex 320 flags 0 speed 10 duplex 1", 0, "",
     {SEES("ifdb", "\nvlan20 320 1*3 ")}},
    {3, "ifindex 320 mac 0200000020aa", 0, NULL,
     {SEES("device vlan20", "02:00:00:00:20:aa"),
      SEES("frame 5201 20 " NL_ARP_OF("0200000020aa", NL_HOST), "arp:2 ")}},
    {3, "ifindex 5201 mac 0200000052aa", 0, NULL, {LACKS("device vlan20", "52:aa")}},

    /* --- spanning tree, and the VLANs of ports ------------------------------------------------ */
    {19, "ifindex 5201 tagged 0 vid 20", 0, NULL,
     {SEES("ifdb", "\nvlan20 320 * 1 1 1000\n Children: cmd1 \n"),
      SEES("frame 5201 20 " NL_ARP, "arp:11 "), LACKS("sends 5201 20", "5201")}},
    {16, "ifindex 5201 stp_instance 0 stp_state 3", 0, NULL,
     {SEES("cmd1/bridge", "00: Forwarding\n01: Blocking\n"),
      SEES("frame 5201 20 " NL_ARP, "arp:12 "), SEES("sends 5201 20", "5201-untagged ")}},
    {16, "ifindex 5201 stp_instance 3 stp_state 2", 0, NULL,
     {SEES("cmd1/bridge", "02: Blocking\n03: Learning\n04: Blocking\n")}},
    {16, "ifindex 5201 stp_instance 63 stp_state 0", 0, NULL,
     {SEES("cmd1/bridge", "62: Blocking\n63: Disabled\n")}},
    {16, "ifindex 5201 stp_instance 63 stp_state 255", 0, NULL,
     {SEES("cmd1/bridge", "62: Blocking\n63: Unknown\n")}},
    {16, "ifindex 5201 stp_instance 64 stp_state 3", -EINVAL, NULL, {LACKS("cmd1/bridge", "64")}},
    {16, "ifindex 5202 stp_instance 0 stp_state 3", 0, NULL,
     {SEES("cmd2/bridge", "00: Forwarding\n")}},
    {16, "ifindex 320 stp_instance 0 stp_state 3", -EINVAL, NULL, {LACKS("ifdb", "Forwarding")}},
    {14, "vid 20 stp_instance 3", 0, NULL, {SEES("frame 5201 20 " NL_ARP, "arp:11 ")}},
    {15, "vid 20", 0, NULL, {SEES("frame 5201 20 " NL_ARP, "arp:12 ")}},
    {14, "vid 20 stp_instance 63", 0, NULL, {SEES("frame 5201 20 " NL_ARP, "arp:11 ")}},
    {14, "vid 20 stp_instance 0", 0, NULL, {SEES("frame 5201 20 " NL_ARP, "arp:12 ")}},
    {14, "vid 20 stp_instance 64", -EINVAL, NULL, {SEES("frame 5201 20 " NL_ARP, "arp:12 ")}},
    {15, "vid 4000", -EINVAL, NULL, {LACKS("ifdb", "vlan4000")}},
    {17, "ifindex 5201 state 2", 0, NULL, {SEES("frame 5201 21 " NL_ARP, "arp:2 ")}},
    {17, "ifindex 5201 state 0", 0, NULL, {SEES("frame 5201 21 " NL_ARP, "arp:7 ")}},
    {18, "ifindex 5201 vid 21", 0, NULL, {SEES("frame 5201 20 subnet " NL_UNICAST, "ipv4:4 ")}},
    {18, "ifindex 5201 vid 22", 0, NULL, {SEES("frame 5201 20 subnet " NL_UNICAST, "ipv4:5 ")}},
    {20, "ifindex 5202 tagged 1 vid_bitmap 000030", 0, NULL,
     {SEES("ifdb", "\nvlan20 320 * 2 1 1000\n Children: cmd2 cmd1 \n"),
      SEES("ifdb", "\nvlan21 321 * 1 1 1000\n Children: cmd2 \n"),
      SEES("sends 5202 20", "5202-tagged ")}},
    {22, "ifindex 5202 vid_bitmap 000020", 0, NULL,
     {LACKS("ifdb", "\nvlan21 321 * 0 1 1000\n Children"), SEES("ifdb", "Children: cmd2 cmd1 ")}},
    {21, "ifindex 5202 vid 20", 0, NULL,
     {SEES("ifdb", "\nvlan20 320 * 1 1 1000\n Children: cmd1 \n")}},
    {19, "ifindex 5202 tagged 1 vid 20", 0, NULL,
     {SEES("ifdb", "Children: cmd2 cmd1 "), SEES("sends 5202 20", "5202-tagged ")}},
    {59, "ifindex 5201 vid 20 state 0", 0, NULL, {SEES("frame 5201 20 " NL_ARP, "arp:2 ")}},
    {59, "ifindex 5201 vid 20 state 255", 0, NULL, {SEES("frame 5201 20 " NL_ARP, "arp:12 ")}},
    {60, "ifindex 5201 vid_bitmap 00001000 state 0", 0, NULL,
     {SEES("frame 5201 20 " NL_ARP, "arp:2 ")}},
    {60, "ifindex 5201 vid_bitmap 00001000 state 1", 0, NULL,
     {SEES("frame 5201 20 " NL_ARP, "arp:12 ")}},
    {8, "ifindex 320 vlan_options 0x20", 0, NULL, {SEES("ifdb", "\nvlan20 320 * 2 1 21000\n")}},
    {8, "ifindex 320 vlan_options 0x4", 0, NULL, {SEES("ifdb", "\nvlan20 320 * 2 1 5000\n")}},
    {8, "ifindex 320 vlan_options 0", 0, NULL, {SEES("ifdb", "\nvlan20 320 * 2 1 1000\n")}},
    {8, "ifindex 5201 vlan_options 0x20", 0, NULL, {SEES("ifdb", "\ncmd1 5201 1043 1 1 1000\n")}},
    {12, "ifindex 320 state 0", 0, "",
     {SEES("frame 5201 20 " NL_ARP_OF(NL_HOST, "030000000009"), "arp:10 ")}},
    {12, "ifindex 320 state 2", 0, "",
     {SEES("frame 5201 20 " NL_ARP_OF(NL_HOST, "030000000009"), "arp:12 "),
      SEES("ifdb", "\nvlan20 320 * 2 1 3000\n")}},
    {12, "ifindex 320 state 0", 0, "", {SEES("ifdb", "\nvlan20 320 * 2 1 1000\n")}},
    {81, "ifindex 5203 vid 20", 0, NULL, {SEES("ifdb", "\ncmd3 5203 1003 0 1 81000\n")}},
    {81, "ifindex 5203 vid 0", 0, NULL, {SEES("ifdb", "\ncmd3 5203 1003 0 1 1000\n")}},

    /* --- aggregators -------------------------------------------------------------------------- */
    {42, "ifindex 5202 agg_ifindex 6201", 0, NULL,
     {SEES("cmdlag/members", "cmd2\n"), SEES("ifdb", "Children: cmdlag cmd1 "),
      SEES("ifdb", "\ncmdlag 6201 1043 1 1 1008\n Children: cmd2 \n")}},
    {42, "ifindex 5202 agg_ifindex 320", -EINVAL, NULL, {SEES("cmdlag/members", "cmd2\n")}},
    {43, "ifindex 5202 agg_ifindex 320", -218, NULL, {SEES("cmdlag/members", "cmd2\n")}},
    {43, "ifindex 5202 agg_ifindex 6201", 0, NULL,
     {LACKS("cmdlag/members", "cmd2"), LACKS("ifdb", "Children: cmdlag")}},

    /* --- mirrors ------------------------------------------------------------------------------ */
    {61, "mirror_target 5202 mirror_source 5201 vid 0 mirror_direction 1", 0, NULL,
     {LACKS("sends 5201 20", "5202")}},
    {61, "mirror_target 5202 mirror_source 5201 vid 20 mirror_direction 2", 0, NULL,
     {LACKS("sends 5201 20", "5202")}},
    {61, "mirror_target 5202 mirror_source 5201 vid 0 mirror_direction 2", 0, NULL,
     {SEES("sends 5201 20", "5202-tagged "), SEES("sends 5201 20", "5201-untagged "),
      LACKS("sends 5202 20", "5201")}},
    {61, "mirror_target 5201 mirror_source 5202 vid 0 mirror_direction 255", -EINVAL, NULL,
     {LACKS("sends 5202 20", "5201")}},
    {62, "mirror_target 5202 mirror_source 5201 vid 1 mirror_direction 2", 0, NULL,
     {SEES("sends 5201 20", "5202-tagged ")}},
    {62, "mirror_target 5202 mirror_source 5201 vid 0 mirror_direction 253", 0, NULL,
     {SEES("sends 5201 20", "5202-tagged ")}},
    {62, "mirror_target 9999 mirror_source 5201 vid 0 mirror_direction 2", 0, NULL,
     {LACKS("sends 5201 20", "5202")}},
    {62, "mirror_target 5202 mirror_source 9999 vid 0 mirror_direction 2", -EINVAL, NULL,
     {SEES("sends 5201 20", "5201-untagged ")}},

    /* --- multicast ---------------------------------------------------------------------------- */
    {36, "id 5 vid 20 ipv4_addr ef010203", 0, NULL,
     {LACKS("frame 5201 20 " NL_MULTICAST, "mcdrop:2 ")}},
    {4, "ifindex 320 id 5", 0, NULL, {SEES("frame 5201 20 " NL_MULTICAST, "mcdrop:2 ")}},
    {4, "ifindex 5201 id 5", -204, NULL, {SEES("frame 5201 20 " NL_MULTICAST, "mcdrop:2 ")}},
    {5, "ifindex 320 id 6", -204, NULL, {SEES("frame 5201 20 " NL_MULTICAST, "mcdrop:2 ")}},
    {5, "ifindex 320 id 5", 0, NULL, {LACKS("frame 5201 20 " NL_MULTICAST, "mcdrop:2 ")}},
    {4, "ifindex 320 id 0xffffffff", 0, NULL, {LACKS("frame 5201 20 " NL_MULTICAST, "mcdrop:2 ")}},
    {36, "id 0xffffffff vid 20 ipv4_addr ef010203", 0, NULL,
     {SEES("frame 5201 20 " NL_MULTICAST, "mcdrop:2 ")}},
    {37, "id 0xffffffff vid 20 ipv4_addr ef010204", -1, NULL,
     {SEES("frame 5201 20 " NL_MULTICAST, "mcdrop:2 ")}},
    {37, "id 0xffffffff vid 20 ipv4_addr ef010203", 0, NULL,
     {LACKS("frame 5201 20 " NL_MULTICAST, "mcdrop:2 ")}},
    {5, "ifindex 320 id 0xffffffff", 0, NULL, {}},
    {36, "id 0 vid 20 ipv4_addr ef010203", 0, NULL,
     {SEES("frame 5201 20 " NL_MULTICAST, "mcdrop:2 ")}},
    {38, "", 0, NULL, {LACKS("frame 5201 20 " NL_MULTICAST, "mcdrop:2 ")}},
    {33, "mc_rate_limit 5", 0, NULL,
     {SEES("frame 5201 20 " NL_MULTICAST, ""), SEES("frame 5201 20 " NL_MULTICAST, "mcdrop:3 ")}},
    {33, "mc_rate_limit 0", 0, NULL, {LACKS("frame 5201 20 " NL_MULTICAST, "mcdrop:3 ")}},
    {33, "mc_rate_limit 10", 0, NULL,
     {SEES("frame 5201 20 " NL_MULTICAST, ""), SEES("frame 5201 20 " NL_MULTICAST, "mcdrop:3 ")}},
    {32, "state 1", 0, NULL, {SEES("chip", "unknown-multicast off")}},
    {32, "state 0", 0, NULL, {SEES("chip", "unknown-multicast on")}},
    {32, "state 255", 0, NULL, {SEES("chip", "unknown-multicast off")}},
    {32, "state 0", 0, NULL, {SEES("chip", "unknown-multicast on")}},

    /* --- protocols ---------------------------------------------------------------------------- */
    {69, "ifindex 5201 state 2", 0, NULL, {LACKS("frame 5201 20 " NL_UDLD, "udld_userspace ")}},
    {68, "state 2", 0, NULL,
     {SEES("frame 5201 20 " NL_UDLD, "udld_userspace "),
      LACKS("frame 5202 20 " NL_UDLD, "udld_userspace ")}},
    {69, "ifindex 5201 state 0", 0, NULL,
     {LACKS("frame 5201 20 " NL_UDLD, "udld_userspace "),
      SEES("frame 5201 20 " NL_UDLD, "udld:3 ")}},
    {69, "ifindex 5201 state 1", 0, NULL, {SEES("frame 5201 20 " NL_UDLD, "udld_userspace ")}},
    {68, "state 0", 0, NULL,
     {LACKS("frame 5201 20 " NL_UDLD, "udld_userspace "),
      SEES("frame 5201 20 " NL_UDLD, "udld:3 ")}},
    {58, "vid 20 state 2", 0, NULL, {LACKS("stack vlan20", "leaves")}},
    {58, "vid 20 state 0", 0, NULL, {SEES("stack vlan20", "leaves")}},
    {58, "vid 4095 state 1", -EINVAL, NULL, {SEES("stack vlan20", "leaves")}},
    {70, "ipv4_addr c0000264", 0, NULL, {LACKS("frame 5201 20 " NL_WEB, "vornappsd:1 ")}},
    {70, "ipv4_addr c0000263", 0, NULL, {SEES("frame 5201 20 " NL_WEB, "vornappsd:1 ")}},
    {71, "ipv4_addr c0000264", 0, NULL, {SEES("frame 5201 20 " NL_WEB, "vornappsd:1 ")}},
    {71, "ipv4_addr c0000263", 0, NULL, {LACKS("frame 5201 20 " NL_WEB, "vornappsd:1 ")}},
    {71, "ipv4_addr ffffffff", 0, NULL, {}},

    /* --- what is kept by features that are not there yet -------------------------------------- */
    {9, "state 1 vid 20 vxlan_vni 5000 vxlan_remote_addr 0a000002 vxlan_local_addr 0a000001", 0,
     NL_VXLAN_ADD, {}},
    {9, "state 255 vid 65535 vxlan_vni 0xffffffff vxlan_remote_addr ffffffff "
        "vxlan_local_addr 00000000", 0, NL_VXLAN_ADD, {}},
    {9, "state 0 vid 21 vxlan_vni 5001 vxlan_remote_addr 0a000004 vxlan_local_addr 0a000003", 0,
     "tarn_vxlan_del vid vxlan_local_addr vxlan_remote_addr vxlan_vni", {}},
    {23, "ifindex 5201 vid 20 ipv4_addr c0000200 prefix_len 24", 0, NULL,
     {SEES("subnetvlan", "Interfaces are skipped")}},
    {24, "ifindex 5201 vid 20 ipv4_addr c0000200 prefix_len 24", 0, NULL, {}},
    {25, "ifindex 5201 xlate_vid 20 xlate_new_vid 21", 0, NULL, {}},
    {26, "ifindex 5201 xlate_vid 20 xlate_new_vid 21", 0, NULL, {}},
    {27, "ifindex 5201 xlate_miss_action 1", 0, NULL, {}},
    {28, "ifindex 5201 xlate_miss_action 3 stack_rule_vid_a 20 stack_rule_vid_b 21", 0, NULL, {}},
    {29, "ifindex 5201 xlate_miss_action 3 stack_rule_vid_a 20 stack_rule_vid_b 21", 0, NULL, {}},
    {30, "id 1 mc_router_op 2 mc_router_value 3 ipv4_addr 04000000", 0, NULL, {}},
    {31, "id 1 state 1", 0, NULL, {}},
    {34, "ifindex 320", 0, NULL, {}},
    {35, "ifindex 320", 0, NULL, {}},
    {39, "state 1", 0, NULL, {}},
    {39, "state 0", 0, NULL, {}},
    {40, "state 1", 0, NULL, {}},
    {40, "state 0", 0, NULL, {}},
    {44, "vid 20 pvlan_type 3", 0, NULL, {}},
    {45, "pvlan_primary_vid 20 pvlan_secondary_vid 21", 0, NULL, {}},
    {46, "pvlan_primary_vid 20 pvlan_secondary_vid 21", 0, NULL, {}},
    {47, "ifindex 5201 pvlan_primary_vid 20 pvlan_secondary_vid 21", 0, NULL, {}},
    {48, "ifindex 5201 pvlan_primary_vid 20 pvlan_secondary_vid 21", 0, NULL, {}},
    {49, "ifindex 5201 pvlan_port_mode 2", 0, NULL, {}},
    {49, "ifindex 5201 pvlan_port_mode 0", 0, NULL, {}},
    {50, "vid 20 pvlan_forwarding 1", 0, NULL, {}},
    {51, "pvlan_upstream_list 010000001400000051140000" "000000001400000052140000", 0, NULL, {}},
    {51, "pvlan_upstream_list 0100000014000000511400", 0,
     "= tarn_pvlan_set_upstream_interface_forwarding 0 -", {}},
    {51, "pvlan_upstream_list -", 0, "= tarn_pvlan_set_upstream_interface_forwarding 0 -", {}},
    {52, "ifindex 5201 auth_port_state 3 auth_method 0", 0, NULL,
     {SEES("cmd1/auth", "state=Uncontrolled\nmethod=None\n")}},
    {53, "ipv4_addr 0a000001 auth_web_port 80 auth_web_port2 443 state 0 auth_http_ports 5000901f "
         "auth_https_ports bb01", 0, NULL, {}},
    {54, "ifindex 5201 vid 21 state 1 "
         "auth_guest_fwd_rules " NL_RULE " auth_fwd_rules " NL_RULE NL_RULE, 0, NULL, {}},
    {54, "ifindex 5201 vid 0 state 0 auth_guest_fwd_rules - auth_fwd_rules 0a0a", 0,
     "tarn_auth_set_fwd_config_guest_vlan @ifindex 0 - 0; tarn_auth_set_fwd_config @ifindex 0 - 0",
     {}},
    {55, "ifindex 5201 vid 20 state 1 mac 020000000099", -EINVAL, NULL,
     {LACKS("cmd1/authsupp", ":")}},
    {56, "ifindex 5201 mac 020000000099", 0, NULL, {LACKS("cmd1/authsupp", ":")}},
    {57, "ifindex 5201 state 1 mac 020000000099", -1, "tarn_auth_find_supp @ifindex mac", {}},
    {63, "ifindex 5201 vid 20 dhcpsn_lease_op 0 ipv4_addr 0a000001 mac 020000000099", 0,
     "= dhcpsn_db_lease_add ipv4_addr mac vid ifindex", {}},
    {63, "ifindex 5201 vid 20 dhcpsn_lease_op 1 ipv4_addr 0a000001 mac 020000000099", 0,
     "= dhcpsn_db_lease_delete ipv4_addr", {}},
    {63, "ifindex 5201 vid 20 dhcpsn_lease_op 2 ipv4_addr 0a000001 mac 020000000099", 0,
     "= dhcpsn_db_lease_flush_all", {SEES("arpsecdb", "Port(ifindex)\n")}},
    {63, "ifindex 5201 vid 20 dhcpsn_lease_op 3 ipv4_addr 0a000001 mac 020000000099", -1, "", {}},
    {63, "ifindex 5201 vid 20 dhcpsn_lease_op 255 ipv4_addr 0a000001 mac 020000000099", -1, "", {}},
    {64, "vid 20 dhcpsn_kind 0 state 1 dhcpsn_global 0", 0,
     "dhcpsn_snooping_per_vlan_set !!state vid", {}},
    {64, "vid 20 dhcpsn_kind 0 state 2 dhcpsn_global 0", 0,
     "dhcpsn_snooping_per_vlan_set !!state vid", {}},
    {64, "vid 65535 dhcpsn_kind 0 state 0 dhcpsn_global 0", 0,
     "dhcpsn_snooping_per_vlan_set !!state vid", {}},
    {64, "vid 20 dhcpsn_kind 0 state 1 dhcpsn_global 255", 0,
     "= dhcpsn_snooping_set dhcpsn_kind !!state vid", {}},
    {64, "vid 20 dhcpsn_kind 1 state 0 dhcpsn_global 0", 0,
     "= dhcpsn_snooping_set dhcpsn_kind !!state vid", {}},
    {64, "vid 0 dhcpsn_kind 255 state 255 dhcpsn_global 0", 0,
     "= dhcpsn_snooping_set dhcpsn_kind !!state vid", {}},
    {65, "ifindex 5201 state 0", 0, NULL, {}},
    {66, "ifindex 5201 arpsec_action 0", 0, NULL, {}},
    {67, "vid 20 state 0", 0, NULL, {}},
    {73, "", -EINVAL, NULL, {}},
    {73, "ifindex 5201 vid 20 mac 020000000099 state 1", -EINVAL, NULL, {}},
    {76, "vid 4094 mac 020000004094", -1, NULL, {}},
    {77, "", -1, NULL, {}},
    {78, "state 1", -1, NULL, {}},
    {79, "ifindex 320", 0, NULL, {}},
    {80, "ifindex 320", 0, NULL, {NL_MEETS}},

    /* --- neighbours --------------------------------------------------------------------------- */
    {10, "family 10 id 0xffffffff port_ifindex 5201 ifindex 320", 0,
     "ndisc_flush_dev_and_port -1 vlan20 5201", {NL_KNOWS}},
    {10, "family 10 id 0 port_ifindex 0xffffffff ifindex 9999", 0,
     "ndisc_flush_dev_and_port 0 none 4294967295", {NL_KNOWS}},
    {10, "family 2 id 20 port_ifindex 5202 ifindex 320", 0,
     "arp_flush_dev_and_port 20 vlan20 5202", {NL_KNOWS}},
    {10, "family 2 id 0xffffffff port_ifindex 5201 ifindex 321", 0,
     "arp_flush_dev_and_port -1 vlan21 5201", {NL_KNOWS}},
    {10, "family 2 id 21 port_ifindex 5201 ifindex 320", 0,
     "arp_flush_dev_and_port 21 vlan20 5201", {NL_KNOWS}},
    {10, "family 7 id 20 port_ifindex 5201 ifindex 320", -1, "", {NL_KNOWS}},
    {10, "family 255 id 20 port_ifindex 5201 ifindex 320", -1, "", {NL_KNOWS}},
    {10, "family 2 id 20 port_ifindex 5201 ifindex 320", 0,
     "arp_flush_dev_and_port 20 vlan20 5201", {NL_FORGOT, NL_MEETS}},
    {10, "family 0 id 0xffffffff port_ifindex 5201 ifindex 0", 0,
     "arp_flush_dev_and_port -1 none 5201; ndisc_flush_dev_and_port -1 none 5201",
     {NL_FORGOT, NL_MEETS}},
    {11, "ifindex 321 mac " NL_HOST, 0, "neigh_moved vlan21 mac", {NL_KNOWS}},
    {11, "ifindex 320 mac " NL_ALL, 0, "neigh_moved vlan20 mac", {NL_KNOWS}},
    {11, "ifindex 5201 mac " NL_HOST, 0, "neigh_moved none mac", {NL_KNOWS}},
    {11, "ifindex 320 mac " NL_HOST, 0, "neigh_moved vlan20 mac", {NL_FORGOT, NL_MEETS}},
    {13, "ifindex 320 id 0xffffffff mac " NL_HOST, 0, "= arp_flush_vlan_and_mac 65535 vlan20 mac",
     {NL_KNOWS}},
    {13, "ifindex 5201 id 20 mac " NL_HOST, -1, "", {NL_KNOWS}},
    {13, "ifindex 0 id 20 mac " NL_ALL, 0, "= arp_flush_vlan_and_mac 20 none mac", {NL_KNOWS}},
    {13, "ifindex 0 id 0x50014 mac " NL_HOST, 0, "= arp_flush_vlan_and_mac 20 none mac",
     {NL_FORGOT, NL_MEETS}},
    {13, "ifindex 320 id 20 mac " NL_HOST, 0, "= arp_flush_vlan_and_mac 20 vlan20 mac",
     {NL_FORGOT}},

    /* --- and go ------------------------------------------------------------------------------- */
    {2, "ifindex 5204", 0, NL_DELETED("1"),
     {LACKS("ifdb", "cmd4"), LACKS("cmd4/bridge", "Blocking")}},
    {2, "ifindex 5204", 0, "", {LACKS("ifdb", "cmd4")}},
    {2, "ifindex 5205", 0, NL_DELETED("1"), {LACKS("ifdb", " 5205 ")}},
    {2, "ifindex 7201", 0, NL_DELETED("1"), {LACKS("ifdb", "cmdeth")}},
    {2, "ifindex 5203", 0, NL_DELETED("1"), {LACKS("ifdb", "cmd3"), LACKS("device cmd3", ":")}},
    {6, "ifindex 320", 0, NL_DELETED("2"), {LACKS("ifdb", "vlan20"), LACKS("device vlan20", ":")}},
    {6, "ifindex 320", -1, "", {LACKS("ifdb", "vlan20")}},
    {6, "ifindex 321", 0, NL_DELETED("2"), {LACKS("ifdb", "vlan21")}},
    {6, "ifindex 323", 0, NL_DELETED("2"), {LACKS("ifdb", "vlan23")}},
    {41, "agg_ifindex 6201", 0, "tarn_ifmgr_delete_interface @agg_ifindex 2; ...",
     {LACKS("ifdb", "cmdlag"), SEES("ifdb", "cmddyn")}},
    {41, "agg_ifindex 6202", 0, "tarn_ifmgr_delete_interface @agg_ifindex 2; ...",
     {LACKS("ifdb", "cmddyn")}},
    {41, "agg_ifindex 6202", -EINVAL, "", {LACKS("ifdb", "cmddyn")}},
    {2, "ifindex 5202", 0, NL_DELETED("1"), {LACKS("ifdb", "cmd2")}},
    {2, "ifindex 5201", 0, NL_DELETED("1"), {LACKS("ifdb", "cmd1")}},
};
// clang-format on
#define NL_STEPS (sizeof(nl_steps) / sizeof(nl_steps[0]))

#endif
