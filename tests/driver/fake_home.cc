#include "fake_home.h"

#include "kernel/memory.h"
#include "kernel/netdev.h"
#include "kernel/skb.h"
#include "port.h"

FakeHome home;

namespace {

Bytes bytes_of(const sk_buff *skb) {
    return Bytes(skb_data(skb), skb_data(skb) + skb_len(skb));
}

} // namespace

int chip_port_open(const char *name, u32 slot, chip_device **device) {
    std::lock_guard hold(home.lock);
    if (home.missing.contains(name))
        return -19;
    *device = new chip_device{name, slot, 1};
    home.open[name] = *device;
    home.alive++;
    return 0;
}

void chip_port_close(chip_device *device) {
    {
        std::lock_guard hold(home.lock);
        home.open.erase(device->name);
    }
    chip_port_put(device);
}

void chip_port_get(chip_device *device) {
    std::lock_guard hold(home.lock);
    device->references++;
}

void chip_port_put(chip_device *device) {
    std::lock_guard hold(home.lock);
    if (--device->references != 0)
        return;
    home.alive--;
    delete device;
}

int chip_port_send_unfinished(chip_device *device, sk_buff *skb, const chip_work *work) {
    {
        std::lock_guard hold(home.lock);
        home.unfinished.push_back(work);
    }
    return chip_port_send(device, skb);
}

// Two pieces for each.
void chip_port_finish(sk_buff *skb, const chip_work *, void (*take)(void *context, sk_buff *skb),
                      void *context) {
    take(context, skb_copy(skb, GFP_ATOMIC));
    take(context, skb);
}

int chip_port_send(chip_device *device, sk_buff *skb) {
    std::lock_guard hold(home.lock);
    bool refuses = home.refusing.contains(device->name);
    if (!refuses)
        home.sent[device->name].push_back(bytes_of(skb));
    consume_skb(skb);
    return refuses ? -100 : 0;
}

unsigned long chip_port_lost(chip_device *device) {
    std::lock_guard hold(home.lock);
    return home.lost[device->name];
}

int chip_port_is(const chip_device *device, const net_device *netdev) {
    return device->name == netdev_name(netdev);
}

void chip_commands_begin() {
    home.commands.lock();
}
void chip_commands_end() {
    home.commands.unlock();
}
