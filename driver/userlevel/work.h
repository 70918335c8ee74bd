// What the sender of a frame left to its hardware, as the kernel tells it and takes it again
// (struct virtio_net_hdr, whose header is not C++).
#pragma once

#include "kernel/types.h"
#include "port.h"

struct sk_buff;

struct device_work {
    u8 flags, gso_type;
    u16 header_length, gso_size, csum_start, csum_offset;
};

inline constexpr u8 WORK_CHECKSUM = 1; // flags

struct chip_work {
    device_work told; // offsets as the frame came
    u32 length;       // of the frame then
};

inline bool work_is_left(const device_work &work) {
    return work.gso_type != 0 || (work.flags & WORK_CHECKSUM) != 0;
}

// Whether it is work that we could do ourselves.
bool work_is_sound(const sk_buff *skb, const chip_work &work);

// As it stands for the frame now: a tag that came or went has moved what is behind it.
device_work work_now(const chip_work &work, u32 length);
