// Frames, callbacks and commands at once.
#include "chip_test.h"

#include "kernel/netdev.h"
#include "kernel/skb.h"
#include "port.h"

#include <atomic>
#include <cstring>
#include <thread>

using ChipThreads = ChipTest;

namespace {

constexpr int ROUNDS = 3000;

// The ports come and go: as a home does, whoever delivers holds the device.
void deliver(u32 ifindex, const Bytes &frame) {
    chip_device *device = nullptr;
    {
        std::lock_guard hold(home.lock);
        auto at = home.open.find(device_of(ifindex));
        if (at == home.open.end())
            return;
        device = at->second;
        device->references++;
    }
    chip_receive(device, device->slot, userlevel::frame_make(frame));
    chip_port_put(device);
}

std::string host(int number) {
    char text[18];
    std::snprintf(text, sizeof(text), "02:00:00:00:02:%02x", number % 200);
    return text;
}

} // namespace

TEST_F(ChipThreads, may_do_everything_at_once) {
    tell("mac 02:00:00:00:00:aa 1");
    tell("vlan 104 1 tagged");
    tell("trap new-address on");
    tell("sflow 7");
    std::atomic<u32> stray{0};
    std::vector<std::thread> threads;
    for (u32 ifindex = 101; ifindex <= 102; ifindex++)
        threads.emplace_back([ifindex] {
            for (int i = 0; i < ROUNDS; i++) {
                deliver(ifindex, Frame().from(host(i)).to(host(i * 7)).padded());
                deliver(ifindex, Frame().from(host(i)).to("ff:ff:ff:ff:ff:ff").type(0x0806));
                deliver(ifindex, Frame().from(host(i)).to("02:00:00:00:00:aa").padded());
            }
        });
    threads.emplace_back([&] {
        net_device device{};
        std::strcpy(device.name, "p2");
        for (int i = 0; i < ROUNDS; i++) {
            u32 result = transmit(103, 1, i % 2, Frame().padded());
            stray += result != 0 && result != static_cast<u32>(-19);
            stray += flood(102, 1, Frame().padded()) != 0;
            transmit(0, 1, false, Frame().to(host(i)).padded());
            home.callbacks.auth_set(&device, i % 2);
            home.callbacks.unknown_multicast_flood_set(i % 2);
            home.callbacks.sdma_counters(0, 2, 0);
        }
    });
    threads.emplace_back([] {
        char reply[10000];
        const char *lines[] = {"noport 103",
                               "port 103 p3",
                               "vlan 103 1 untagged",
                               "link 103 down",
                               "learn 101 off",
                               "show",
                               "fdb flush",
                               "age 1",
                               "link 103 up",
                               "trap arp only",
                               "learn 101 on",
                               "age 300",
                               "trap arp on",
                               "novlan 104 1",
                               "vlan 104 1 tagged",
                               "trusted 104 on",
                               "pvid 101 0",
                               "pvid 101 1",

                               "sflow 5",
                               "static 02:00:00:00:03:01 1 101",
                               "nostatic 02:00:00:00:03:01 1"};
        for (int i = 0; i < ROUNDS / 10; i++) {
            for (const char *line : lines)
                chip_command(line, reply, sizeof(reply));
            chip_tick();
        }
    });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(stray, 0u);
    EXPECT_GT(hits("own-other"), 0u);
    home.sent.clear();
    home.trapped.clear();
}

TEST_F(ChipThreads, are_counted_to_the_last_frame) {
    constexpr u32 CPUS = 4, EACH = 20000;
    const Bytes known = Frame().from("02:00:00:00:02:01").to("02:00:00:00:02:02").padded();
    receive(102, Frame().from("02:00:00:00:02:02").padded());
    receive(101, known);
    home.sent.clear();
    u32 received = home.callbacks.sdma_counters(101, 0, 0);
    u32 sent = home.callbacks.sdma_counters(102, 1, 0);
    std::vector<std::thread> cpus;
    for (u32 t = 0; t < CPUS; t++)
        cpus.emplace_back([&] {
            for (u32 i = 0; i < EACH; i++)
                deliver(101, known);
        });
    for (std::thread &cpu : cpus)
        cpu.join();
    EXPECT_EQ(home.callbacks.sdma_counters(101, 0, 0) - received, CPUS * EACH);
    EXPECT_EQ(home.callbacks.sdma_counters(102, 1, 0) - sent, CPUS * EACH);
    home.sent.clear();
    home.trapped.clear();
}
