// A driver of the switching chip that keeps what it is asked and answers as a test says.
//
//   fake_driver::attach();
//   tarn_start_xmit(port, vlan, skb, 3, 1, 1, false);
//   EXPECT_EQ(driver().sent.at(0).cos, 3u);
//
// A frame that it takes (result 0) it frees at once, or holds until release().
#pragma once

#include "support/frame_builder.h"

#include "tarn/rxtx_hw.h"

#include <functional>
#include <utility>

struct net_device;
struct sk_buff;

namespace fake_driver {

struct Sent {
    u32 ifindex, vid, tagged, tx_option;
    Bytes bytes;
    u32 cos;
    u8 queue, tx_enable;
    bool owned; // the frame still named a socket
};

struct Flooded {
    u32 ifindex, vid, except0, except1;
    Bytes bytes;
    u32 cos;
    u8 queue;
    u32 mask, reserved;
    u8 tagged;
};

using Three = std::array<unsigned long, 3>;

struct Record {
    std::vector<Sent> sent;
    std::vector<Flooded> flooded;
    std::vector<std::pair<net_device *, u32>> auth;
    std::vector<u32> unknown_multicast;
    std::vector<Three> counters, cache;

    u32 xmit_result = 0;
    i32 flood_result = 0;
    u32 auth_result = 0, unknown_multicast_result = 0, counters_result = 0;
    i32 cache_result = 0;
    std::function<u32(const Sent &)> answer; // instead of xmit_result, when set

    bool keep = true;  // off: nothing is recorded, for long runs
    bool hold = false; // hold frames that are taken
    std::vector<sk_buff *> held;
};

Record &record();

rxtx_hw_callbacks callbacks(); // all six
void attach();                 // registers all six
void attach_without_flood();   // the core floods in software
void detach();                 // registers none
void release();                // frees what is held

} // namespace fake_driver
