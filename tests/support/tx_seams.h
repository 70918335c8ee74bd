// What the packet path asks of the features above it and of user memory, answered by a test.
//
// Each is the core's own until a test says something here.
#pragma once

#include "support/frame_builder.h"

#include <functional>
#include <map>
#include <optional>

struct net_device;
struct sk_buff;
struct sock;

namespace tx_seams {

struct StackSent {
    Bytes bytes;
    u32 reserved;
};

struct Answers {
    std::optional<u32> management_vlan; // the stack has one; what is sent on it is kept:
    std::vector<StackSent> stack_sent;  // and taken
    std::map<u32, u32> outer_vlans;     // not empty: the VLANs that are carried in others
    std::function<i32(sock *, sk_buff *)> socket_post;
    std::function<void(net_device *)> counters_asked; // before the counters of a device are given
    bool user_memory_read_only = false;
};

Answers &answers();

} // namespace tx_seams
