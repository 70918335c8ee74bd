// Sending a frame out of a set of ports, each with or without a tag as it wants it.
#pragma once

#include "chip_state.h"

struct chip_work;
struct sk_buff;

// Ports to send to, with references: gathered under the chip's lock, used without it.
struct chip_egress {
    u64 ports;
    u64 tagged;                      // of them, those that send with a tag
    u32 tag_tci;                     // of a tag that is added
    chip_device *device[CHIP_PORTS]; // of the slots in `ports`, and of the copies
    u32 copies;                      // to ports that watch others, one for each that is watched
    u8 copy_slot[CHIP_PORTS];
    u64 copies_tagged;
    const chip_work *work; // left on the frame; null: none
};

// Of these ports, those that are up, tagged as members of the VLAN; and of mirrored ones a copy to
// who watches. Under the lock.
void egress_gather(chip_egress &egress, u64 ports, u32 vid, u32 cos);
// The same whatever the VLAN, of a port that the core itself named: it makes copies itself, too.
void egress_gather_ports(chip_egress &egress, u64 ports, bool tagged, u32 vid, u32 cos);

// Sends the frame, which is gone afterwards, and gives the references back. `has_tag`: the frame
// has a tag now, which is the one to take off for ports that send untagged. No lock held.
void egress_send(chip_egress &egress, sk_buff *skb, bool has_tag);
