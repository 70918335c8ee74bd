// What each CPU has for itself on the way of a frame (kernel/percpu.h), beside what each redirect
// counts.
#pragma once

#include "pkt/pkt_redirect.h"

inline constexpr u32 MODIFY_TX_PLACES = 5; // of process_packet_modify_tx, without its end

struct pkt_cpu_words {
    u64 low_mem;                    // pkt_low_mem.cc
    u32 passed[FRAME_ROWS];         // received frames that no redirect stopped
    u32 sent[MODIFY_TX_PLACES + 1]; // frames of the IP stack, by the place of the hook that took
                                    // it; the last: nobody did
};

// Null until the first redirect is registered: whose registration fails without it.
extern pkt_cpu_words *pkt_cpu;

// Whether it is there.
bool pkt_cpu_make();
