// The chip between a home and a core that are both made of lists: devices take what is sent
// (fake_home.cc), the core takes what is trapped (fake_core.cc).
#pragma once

#include "support/frame_builder.h"

#include "tarn/rxtx_follow.h"
#include "tarn/rxtx_hw.h"

#include <functional>
#include <map>
#include <mutex>
#include <set>

struct chip_work;
struct net_device;

struct chip_device {
    std::string name;
    u32 slot;
    int references;
};

struct Trapped {
    Bytes bytes;
    u32 ifindex, vid;
    tarn_rx_meta meta;
};

// What the fake core says to who follows it. A VLAN is named here by its word of 32.
struct FakeFacts {
    std::map<u32, rxtx_follow_port> ports;
    std::map<std::pair<u32, u32>, rxtx_follow_vlans> port_vlans;
    std::map<std::pair<u32, u32>, i32> stp; // forwarding unless said otherwise
    std::map<u32, rxtx_follow_vlan> vlans;
};

// Everything under one lock: some tests run threads.
struct FakeHome {
    std::mutex lock, commands;
    std::map<std::string, std::vector<Bytes>> sent; // by device
    std::vector<Trapped> trapped;
    std::map<std::string, chip_device *> open;
    std::set<std::string> missing;  // devices that cannot be opened
    std::set<std::string> refusing; // devices that take no frame
    std::map<std::string, unsigned long> lost;
    std::vector<const chip_work *> unfinished; // work that was left on what was sent
    u32 core_result = 0;
    int alive = 0; // devices with a reference
    rxtx_hw_callbacks callbacks{};
    rxtx_follow_callbacks follower{};
    FakeFacts facts;
    std::function<void(sk_buff *)> at_delivery; // sees the buffer itself
};

extern FakeHome home;
