#include "chip_home.h"

#include "claim.h"
#include "kernel/netdev.h"
#include "kernel/skb.h"
#include "kernel/types.h"
#include "port.h"
#include "ring.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <mutex>
#include <poll.h>
#include <string>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>
#include <vector>

struct chip_device {
    std::string name;
    u32 slot = 0;
    int claim = -1; // until the port is closed, whoever still has a reference
    ring packets;
    std::atomic<int> references{1};
};

namespace {

constexpr int TICK_MS = 1000;
constexpr int FRAMES_IN_A_ROW = 64; // of one device, before the others have their turn

std::mutex command_lock;
std::mutex list_lock; // covers the list
std::vector<chip_device *> devices;
int wake = -1; // the thread looks at the list anew
std::atomic<bool> stopping;
void (*other_end)(u32 slot, std::span<const u8> frame) = nullptr;
std::thread receiver;

void wake_up() {
    if (wake >= 0)
        eventfd_write(wake, 1);
}

// The list, with references.
std::vector<chip_device *> hold_devices() {
    std::lock_guard hold(list_lock);
    for (chip_device *device : devices)
        chip_port_get(device);
    return devices;
}

void let_go(const std::vector<chip_device *> &held) {
    for (chip_device *device : held)
        chip_port_put(device);
}

// True when frames may be left.
bool receive_some(chip_device *device) {
    for (int i = 0; i < FRAMES_IN_A_ROW; i++) {
        chip_work work;
        sk_buff *skb = ring_next(device->packets, work);
        if (!skb)
            return false;
        chip_receive_unfinished(device, device->slot, skb,
                                work_is_left(work.told) ? &work : nullptr);
    }
    return true;
}

// A device that went down may come back; one that has gone away does not.
void close_if_gone(chip_device *device) {
    if (!ring_is_alive(device->packets))
        chip_device_gone(device, device->slot);
}

void tick(const std::vector<chip_device *> &held) {
    chip_tick();
    for (chip_device *device : held)
        close_if_gone(device);
}

std::vector<pollfd> poll_list(const std::vector<chip_device *> &held) {
    std::vector<pollfd> list{{wake, POLLIN, 0}};
    for (const chip_device *device : held)
        list.push_back({device->packets.socket, POLLIN, 0});
    return list;
}

// Until the list changes. Devices are looked at when poll() names them, or have more frames.
void serve(const std::vector<chip_device *> &held) {
    auto next_tick = std::chrono::steady_clock::now() + std::chrono::milliseconds(TICK_MS);
    std::vector<pollfd> list = poll_list(held);
    bool more = false;
    while (!stopping) {
        poll(list.data(), list.size(), more ? 0 : TICK_MS);
        more = false;
        for (std::size_t i = 0; i < held.size(); i++) {
            if (list[i + 1].revents & (POLLERR | POLLHUP))
                close_if_gone(held[i]);
            if (list[i + 1].revents != 0)
                more |= receive_some(held[i]);
        }
        if (std::chrono::steady_clock::now() >= next_tick) {
            tick(held);
            next_tick += std::chrono::milliseconds(TICK_MS);
        }
        if (list[0].revents != 0)
            return;
    }
}

void receive() {
    while (!stopping) {
        eventfd_t count;
        eventfd_read(wake, &count);
        std::vector<chip_device *> held = hold_devices();
        serve(held);
        let_go(held);
    }
}

} // namespace

int chip_home_start() {
    wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake < 0)
        return -errno;
    stopping = false;
    chip_start();
    receiver = std::thread(receive);
    return 0;
}

void chip_home_stop() {
    chip_stop();
    stopping = true;
    wake_up();
    if (receiver.joinable())
        receiver.join();
    if (wake >= 0)
        close(wake);
    wake = -1;
}

int chip_home_holder(const char *name) {
    return claim_holder(name);
}

int chip_port_open(const char *name, u32 slot, chip_device **device) {
    auto opened = std::make_unique<chip_device>();
    opened->name = name;
    opened->slot = slot;
    int result = ring_open(opened->packets, name);
    if (result != 0)
        return result;
    result = claim_device(name, opened->claim);
    if (result != 0) {
        ring_close(opened->packets);
        return result;
    }
    *device = opened.release();
    {
        std::lock_guard hold(list_lock);
        devices.push_back(*device);
    }
    wake_up();
    return 0;
}

void chip_port_close(chip_device *device) {
    {
        std::lock_guard hold(list_lock);
        std::erase(devices, device);
    }
    wake_up();
    close(device->claim);
    chip_port_put(device);
}

void chip_port_get(chip_device *device) {
    device->references.fetch_add(1, std::memory_order_relaxed);
}

void chip_port_put(chip_device *device) {
    if (device->references.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    ring_close(device->packets);
    delete device;
}

void chip_home_send_to(void (*end)(u32 slot, std::span<const u8> frame)) {
    other_end = end;
}

namespace {

int send_with(chip_device *device, sk_buff *skb, const device_work &work) {
    int result = ring_send(device->packets, {skb_data(skb), skb_len(skb)}, work);
    if (result == 0)
        consume_skb(skb);
    else
        kfree_skb(skb);
    return result;
}

} // namespace

int chip_port_send(chip_device *device, sk_buff *skb) {
    if (other_end) [[unlikely]] {
        other_end(device->slot, {skb_data(skb), skb_len(skb)});
        consume_skb(skb);
        return 0;
    }
    return send_with(device, skb, {});
}

int chip_port_send_unfinished(chip_device *device, sk_buff *skb, const chip_work *work) {
    device_work now = work_now(*work, skb_len(skb));
    now.flags &= WORK_CHECKSUM; // what else was told of it is no work
    return send_with(device, skb, now);
}

unsigned long chip_port_lost(chip_device *device) {
    return ring_lost(device->packets);
}

int chip_port_is(const chip_device *device, const net_device *netdev) {
    return device->name == netdev_name(netdev);
}

void chip_commands_begin() {
    command_lock.lock();
}

void chip_commands_end() {
    command_lock.unlock();
}
