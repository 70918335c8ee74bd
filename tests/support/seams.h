// What the receive path hands to the layers below and above it, recorded.
//
// The linker leads the calls of flood, transmit, post, replication and events here, so that a test
// sees each with its arguments and steers its result; or passes them on to the core's own.
#pragma once

#include "support/frame_builder.h"

#include "ifmgr/tarn_if.h"

#include <optional>

namespace seams {

struct Flood {
    tarn_if *port;
    u32 vid;
    std::optional<std::array<u32, 2>> except;
    Bytes bytes;
    u32 cos, queue;
    u8 tx_enable;
    u32 mask;
};

struct Xmit {
    tarn_if *port, *vlan_if;
    Bytes bytes;
    u32 cos, queue;
    u8 tx_enable;
    bool discard_bypass, tx_option;
};

struct KernelPost {
    tarn_if *rx_port, *l2_port, *l3_if;
    Bytes bytes;
    u32 vid;
};

struct Replication {
    tarn_if *rx_port;
    Bytes bytes;
    u32 vid, tag, code, flags, extra, repl_type;
    u8 replicated;
};

struct StackManagement {
    Bytes bytes;
    u32 vid, queue;
};

struct DosMatch {
    u32 ifindex, reason;
    u16 ethertype;
    Bytes header;
};

struct Record {
    std::vector<Flood> floods;
    std::vector<Xmit> sent;
    std::vector<KernelPost> kernel;
    std::vector<Replication> replicated;
    std::vector<DosMatch> dos;
    std::optional<StackManagement> stack; // the last frame offered; every one is, first of all
    const u8 *replicated_at = nullptr;    // where the last replication may tell that it was made

    bool pass_on = false; // record nothing: the core's own calls are made

    i32 flood_result = 0; // 0: the frame is taken
    u32 xmit_result = 0;
    u32 kernel_result = 0;
    u32 stack_takes = 0; // result of the stack management path
    u8 stack_slave = 0;

    // In the order in which they were made: "flood", "replicate", "kernel", "xmit", "dos", and what
    // a test adds.
    std::vector<std::string> order;
};

Record &record();

} // namespace seams
