// The state of the chip, as its source units share it.
//
// `chip.lock` covers everything here but the counters; the address table has a lock of its own
// (chip_fdb.h), taken inside. Frames are sent and delivered with no lock held.
#pragma once

#include "kernel/locks.h"
#include "kernel/once.h"
#include "kernel/types.h"

struct chip_device;

inline constexpr u32 CHIP_PORTS = 64; // a set of ports is a u64
inline constexpr u32 CHIP_VLANS = 4096;
inline constexpr u32 CHIP_VID_LAST = 4094;
inline constexpr u32 CHIP_INSTANCES = 64; // of spanning tree
inline constexpr u32 CHIP_TRAPS = 40;     // room; chip_trap.cc has the rows
inline constexpr u32 CHIP_NAME = 16;
inline constexpr u32 CHIP_LABEL = 17;
inline constexpr u32 CHIP_FILTER_TYPES = 4;

// Why a frame of a port ended without leaving and without reaching the CPU, or why a copy was lost.
enum chip_drop : u32 {
    CHIP_DROP_RUNT,     // no whole Ethernet header, or no whole tag
    CHIP_DROP_LINK,     // the port is administratively down
    CHIP_DROP_SOURCE,   // the source is a group address
    CHIP_DROP_UNTAGGED, // untagged, and the port has no PVID
    CHIP_DROP_VLAN,     // the port is no member of the VLAN, or VID 4095
    CHIP_DROP_STP,      // spanning tree does not let it in
    CHIP_DROP_OWN,      // to the switch itself, and its trap is off
    CHIP_DROP_RESERVED, // an address that bridges never forward, and its trap is off
    CHIP_DROP_NOWHERE,  // no port to leave by
    CHIP_DROP_MEMORY,
    CHIP_DROP_SEND, // the device refused the frame
    CHIP_DROP_CPU,  // the core left the frame with us
    CHIP_DROPS
};

struct chip_counters {
    unsigned long rx, tx, learned, moved;
    unsigned long dropped[CHIP_DROPS];
};

struct chip_port {
    chip_device *device; // null: the slot is free
    u32 ifindex;
    u32 pvid;               // 0: untagged frames are dropped
    char name[CHIP_NAME];   // of the device
    char label[CHIP_LABEL]; // what the core calls the port; "": it does not know it
    u32 aggregator;         // its ifindex; 0: none
    u64 group;              // all ports of that aggregator, or this port alone
    u32 routed_vid;         // of a routed port
    u64 own;                // its MAC; 0: none
    u32 mirror;             // ifindex of who has a copy of what leaves here; 0: nobody
    chip_counters count;
};

// What the core says of a VLAN.
struct chip_vlan {
    u64 own;     // the switch's MAC in it; 0: none
    u8 instance; // of spanning tree
    bool exists;
    bool open; // takes in frames of ports that are no members
};

// What a row of the trap table does; CHIP_TRAP_DEFAULT is what the table says.
enum chip_trap_mode : u8 { CHIP_TRAP_OFF, CHIP_TRAP_ONLY, CHIP_TRAP_COPY };

struct chip_state {
    rwlock_t lock;
    chip_port ports[CHIP_PORTS];
    // Sets of slots.
    u64 present, up, learning, trusted, authenticating;
    u64 members[CHIP_VLANS], untagged[CHIP_VLANS];
    // What only the core says (chip_follow.h): empty, or full, for ports that it does not know.
    u64 known;   // ports that it knows
    u64 running; // not down, and of an aggregator only members that may carry frames
    u64 open;    // take in frames of VLANs that they are no members of
    u64 routed;
    u64 mirrored; // somebody has a copy of what leaves there
    u64 disabled[CHIP_VLANS];
    u64 learns[CHIP_INSTANCES], forwards[CHIP_INSTANCES];
    chip_vlan vlans[CHIP_VLANS];
    bool unknown_multicast_flood;
    bool software_flood;
    u32 age_seconds;                     // 0: for ever
    u32 sample_rate;                     // 1 frame in so many; 0: none
    u32 filter_types[CHIP_FILTER_TYPES]; // Ethernet types of the row "filter"; 0: none
    chip_trap_mode traps[CHIP_TRAPS];

    // Counters, not under the lock.
    unsigned long trap_hits[CHIP_TRAPS];
    u32 sample_turn;
};

extern constinit chip_state chip;

constexpr u64 chip_bit(u32 slot) {
    return u64{1} << slot;
}

// The lowest slot of a set that is not empty.
inline u32 chip_first(u64 set) {
    return static_cast<u32>(__builtin_ctzll(set));
}

// Slot of the port, CHIP_PORTS for none. Under the lock.
u32 chip_slot_of(u32 ifindex);

inline void chip_count_drop(u32 slot, chip_drop why) {
    count_in(chip.ports[slot].count.dropped[why], 1);
}

// The port as one that was just opened, whoever said what of it before. Under the lock.
void chip_reset_port(u32 slot);
// Takes the port out of the tables and closes it. Inside chip_commands_begin().
void chip_remove_port(u32 slot);

// (Re-)registers the callbacks. No lock held.
void chip_register();
