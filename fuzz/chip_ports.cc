#include "chip_ports.h"

#include "chip.h"
#include "control.h"
#include "kernel/skb.h"
#include "port.h"

#include <array>
#include <atomic>

struct chip_device {
    u32 slot;
    std::atomic<int> references;
};

namespace {

std::array<chip_device *, 64> open_devices{};

} // namespace

void chip_ports_receive(u32 slot, std::span<const u8> bytes) {
    chip_device *device = open_devices[slot % open_devices.size()];
    sk_buff *skb = device ? userlevel::frame_make(bytes) : nullptr;
    if (skb)
        chip_receive(device, device->slot, skb);
}

int chip_port_open(const char *, u32 slot, chip_device **device) {
    *device = open_devices[slot] = new chip_device{slot, {1}};
    return 0;
}

void chip_port_close(chip_device *device) {
    open_devices[device->slot] = nullptr;
    chip_port_put(device);
}

void chip_port_get(chip_device *device) {
    device->references++;
}

void chip_port_put(chip_device *device) {
    if (--device->references == 0)
        delete device;
}

unsigned long chip_port_lost(chip_device *) {
    return 0;
}

int chip_port_send_unfinished(chip_device *device, sk_buff *skb, const chip_work *) {
    return chip_port_send(device, skb);
}

void chip_port_finish(sk_buff *skb, const chip_work *, void (*take)(void *context, sk_buff *skb),
                      void *context) {
    take(context, skb);
}

int chip_port_send(chip_device *, sk_buff *skb) {
    consume_skb(skb);
    return 0;
}

int chip_port_is(const chip_device *, const net_device *) {
    return 0;
}

void chip_commands_begin(void) {}
void chip_commands_end(void) {}
