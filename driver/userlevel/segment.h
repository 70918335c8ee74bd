// Cuts a frame that a sending device may leave to its hardware to cut (TCP and UDP segmentation)
// into frames as they would stand on a wire.
#pragma once

#include "kernel/types.h"

#include <span>

struct large_frame {
    std::span<const u8>
        bytes;  // Ethernet, IP and TCP or UDP headers, and the payload of all segments
    u32 l4 = 0; // offset of the TCP or UDP header; the IP header stands right after the
                // Ethernet header and any tags, which `l3` tells
    u32 l3 = 0;
    u32 segment_bytes = 0; // payload of one
    bool udp = false;
    u32 done = 0; // payload bytes cut off so far
    u32 count = 0;
};

// False, and nothing to cut: its headers are not what they should be.
bool large_frame_begin(large_frame &large, u32 l4, u32 segment_bytes, bool udp);

// The next segment: its length, 0 when all are cut. `to` has room for l4 + 60 + segment_bytes.
u32 large_frame_next(large_frame &large, std::span<u8> to);
