// A packet socket on one device, with a ring of received frames that the kernel shares with us.
//
//   in     the device's name
//   does   promiscuous, frames that others sent only, any 802.1Q tag at offset 12 again
//   out    frames as socket buffers, with what their sender left to hardware
#pragma once

#include "kernel/types.h"
#include "work.h"

#include <atomic>
#include <span>

struct sk_buff;

struct ring {
    int socket = -1;
    u8 *memory = nullptr;
    u32 next = 0; // frame of the ring that the kernel fills next
    std::atomic<unsigned long> lost{0};
};

int ring_open(ring &ring, const char *name); // 0 or -errno
void ring_close(ring &ring);

// Takes the error that poll() told of: false when the device is gone for good.
bool ring_is_alive(const ring &ring);

// Frames that did not fit into the ring, or for which there was no memory, or that are too long.
// From any thread.
unsigned long ring_lost(ring &ring);

// The next frame, and the work that is left on it; null when there is none yet.
sk_buff *ring_next(ring &ring, chip_work &work);

int ring_send(const ring &ring, std::span<const u8> frame, const device_work &work); // 0 or -errno
