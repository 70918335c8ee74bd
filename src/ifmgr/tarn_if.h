// The interface record: one for each port, aggregator, VLAN and Ethernet interface that the control
// daemon has declared. The database of them is ifmgr/tarn_ifmgr.h.
//
// Fields of a record have no lock: they are plain words, written from process context and read on
// the packet paths through read_once. Which of them are changed how: docs/architecture.md. A
// reference keeps a record alive.
#pragma once

#include "containers/tarn_avl.h"
#include "kernel/bytes.h"
#include "kernel/once.h"
#include "kernel/proc.h"
#include "kernel/refcount.h"
#include "kernel/types.h"

struct net_device;
struct tarn_auth_fwd_rule;   // security/auth_state.h
struct tarn_auth_supp_table; // security/auth_state.h
struct tarn_if;

enum tarn_if_type : u32 {
    TARN_IF_TYPE_ETHERNET = 2,   // a device of the kernel, found by name; layer 3
    TARN_IF_TYPE_SWITCHPORT = 3, // a port or an aggregator; layer 3 only when routed
    TARN_IF_TYPE_VLAN = 4,       // a VLAN interface with a device of its own; layer 3
};

// Bits of tarn_if.if_flags.
inline constexpr u32 TARN_IF_F_VLAN_LOCAL = 0x1;   // the VLAN exists on one stack member only
inline constexpr u32 TARN_IF_F_DELETED = 0x2;      // lookups refuse it
inline constexpr u32 TARN_IF_F_AGG_STATIC = 0x8;   // aggregator that runs while a member runs
inline constexpr u32 TARN_IF_F_AGG_DYNAMIC = 0x10; // aggregator that runs when told so
inline constexpr u32 TARN_IF_F_AGG = TARN_IF_F_AGG_STATIC | TARN_IF_F_AGG_DYNAMIC;
inline constexpr u32 TARN_IF_F_DHCPSN = 0x20;
inline constexpr u32 TARN_IF_F_DHCPSN_TRUSTED = 0x40;
inline constexpr u32 TARN_IF_F_ARPSEC = 0x80;
inline constexpr u32 TARN_IF_F_ARPSEC_ACTION = 0xF00; // four action bits
inline constexpr u32 TARN_IF_F_VALID = 0x1000;        // the record is live
inline constexpr u32 TARN_IF_F_ARP_MAC_DISPARITY = 0x2000;
inline constexpr u32 TARN_IF_F_ALWAYS_UP = 0x4000; // runs without running ports
inline constexpr u32 TARN_IF_F_IPV4_L3_MC = 0x8000;
inline constexpr u32 TARN_IF_F_DHCPSN_NO_FLOOD = 0x10000;
inline constexpr u32 TARN_IF_F_NO_VLAN_MEMBER_CHECK = 0x20000;
inline constexpr u32 TARN_IF_F_IPV6_L3_MC = 0x40000;
inline constexpr u32 TARN_IF_F_L3_SWITCHPORT = 0x80000; // the port is routed

inline constexpr u32 TARN_IF_NAME_SIZE = 16;

// An interface has link when its flags have both (IFF_UP and IFF_RUNNING).
inline constexpr u32 TARN_IF_LINK = 0x41;

// A VLAN interface has ifindex vid + TARN_IF_VLAN_BASE.
inline constexpr u32 TARN_IF_VLAN_BASE = 300;
inline constexpr u32 TARN_VLAN_COUNT = 4096;

inline constexpr unsigned TARN_STP_INSTANCES = 64;

// Files that a port has under /proc.
inline constexpr unsigned TARN_IF_PROC_FILES = 7;
enum tarn_stp_state : u32 {
    TARN_STP_DISABLED = 0,
    TARN_STP_LISTENING = 1,
    TARN_STP_LEARNING = 2,
    TARN_STP_FORWARDING = 3,
    TARN_STP_BLOCKING = 4,
};

inline constexpr u32 TARN_AUTH_UNCONTROLLED = 3;

// The error numbers of the interface manager; they reach user space unchanged.
enum tarn_ifmgr_error : i32 {
    TARN_ERR_BAD_ARG = -201,
    TARN_ERR_NO_INTERFACE = -203,
    TARN_ERR_WRONG_TYPE = -204,
    TARN_ERR_NO_MEMORY = -205,
    TARN_ERR_TREE_INSERT = -206,
    TARN_ERR_NETDEV = -210,
    TARN_ERR_INIT = -215,
    TARN_ERR_TYPE_MISMATCH = -218,
    TARN_ERR_EXISTS = -226,
};

// One entry of a list of interfaces. New entries go to the head; null ends the list. Entries hold
// no reference.
struct tarn_ifmgr_list_node {
    tarn_if *ifp;
    tarn_ifmgr_list_node *next;
};

struct tarn_if {
    u32 ifindex; // key of the database, so first
    u32 type;    // tarn_if_type
    u32 fib_id;
    refcount_t refcnt;
    char name[TARN_IF_NAME_SIZE]; // not terminated when the name fills it: print with %.16s
    u8 openflow;
    u8 oper_count; // running ports below this interface
    u32 flags;     // IFF_*, as the module knows them
    u32 if_flags;  // TARN_IF_F_*
    u32 auth_state;
    u32 disable_vlans;
    alignas(u32) u8 hwaddr[6]; // read as tarn_if_address
    u16 vid;
    unsigned long last_tx_failure; // jiffies
    void (*tx_failure_cb)(tarn_if *ifp, u32 kind, i32 error);
    u32 pvlan_type;
    tarn_avl_tree *pvlan_tree;
    u16 pvlan_primary_vid;
    tarn_ifmgr_list_node *upstream_ifs;
    alignas(u32) u8 port_hwaddr[6];
    u32 stack_member;
    u8 ingress_filter;
    u32 pvlan_mode;
    // Bit vid & 31 of 32-bit word vid >> 5.
    u32 vlan_member_bmp[TARN_VLAN_COUNT / 32];
    u32 vlan_tagged_bmp[TARN_VLAN_COUNT / 32];
    u32 vlan_disabled_bmp[TARN_VLAN_COUNT / 32];
    u16 default_pvid;
    u32 speed;
    u8 duplex;
    net_device *netdev;            // who may use it: ifmgr/tarn_if_device.h
    tarn_ifmgr_list_node *parents; // who may walk them: ifmgr/tarn_ifmgr_change.h
    tarn_ifmgr_list_node *children;
    tarn_avl_tree *subnet_tree;
    tarn_avl_tree *xlate_tree;
    u32 xlate_default_action;
    u32 stp_state[TARN_STP_INSTANCES]; // tarn_stp_state
    u8 stp_instance;                   // of a VLAN: index into the ports' stp_state
    u32 auth_method;
    tarn_auth_supp_table *auth_supp_table;
    u16 auth_guest_vlan;
    u32 guest_fwd_count;
    tarn_auth_fwd_rule *guest_fwd_rules;
    u8 auth_arp_forward;
    i32 auth_fwd_count;
    tarn_auth_fwd_rule *auth_fwd_rules;
    unsigned long auth_rate_time; // jiffies
    i32 auth_rate_count;
    u8 kelm_mode;
    u32 mirror_ifindex;
    u8 udld_hw_filter;
    i32 (*destructor)(tarn_if *ifp);
    unsigned long last_rx; // jiffies
    // Of the interface manager's own:
    tarn_if *aggregator;    // the first parent when that is one, for readers without the lock
    tarn_if *retired_next;  // in the queue of records whose destructor waits for process context
    tarn_if *replaced_next; // among the records out of the tree that somebody may still hold
    tarn_if *walk_next;     // of ifmgr/tarn_ifmgr_walk.h, inside a change: the order,
    u32 walk_waits;         // bindings that lead here and have not been followed yet,
    u32 walk_ways;          // ways that lead here from the beginning,
    u32 walk_level;         // and how many bindings the longest of them has
    // Of control/tarn_proc_if.cc: what has been made of "tarn/<name>", and the list of all records
    // that have a directory.
    proc_dir_entry *proc_directory;
    proc_dir_entry *proc_members;
    proc_file proc_files[TARN_IF_PROC_FILES];
    tarn_if *proc_next;
};

// An address as it is now: a command may set it while frames look at it. It is read and written in
// two words.
struct tarn_if_address {
    u8 bytes[6];

    explicit tarn_if_address(const u8 *of) {
        u32 first = read_once(*reinterpret_cast<const word *>(of));
        u16 last = read_once(*reinterpret_cast<const half *>(of + sizeof(first)));
        memcpy(bytes, &first, sizeof(first));
        memcpy(bytes + sizeof(first), &last, sizeof(last));
    }
    void store(u8 *to) const {
        u32 first;
        u16 last;
        memcpy(&first, bytes, sizeof(first));
        memcpy(&last, bytes + sizeof(first), sizeof(last));
        write_once(*reinterpret_cast<word *>(to), first);
        write_once(*reinterpret_cast<half *>(to + sizeof(first)), last);
    }

private:
    using word [[gnu::may_alias]] = u32;
    using half [[gnu::may_alias]] = u16;
};

// The one test of what is a layer 3 interface.
inline bool tarn_if_is_l3(const tarn_if *ifp) {
    return ifp->type == TARN_IF_TYPE_ETHERNET || ifp->type == TARN_IF_TYPE_VLAN ||
           (read_once(ifp->if_flags) & TARN_IF_F_L3_SWITCHPORT);
}
