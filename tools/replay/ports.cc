// The chip's ports, where there is no machine: a device is a name, and what leaves is noted.
#include "explain/one_frame.h"
#include "kernel/netdev.h"
#include "kernel/skb.h"
#include "port.h"

#include <string>

struct chip_device {
    std::string name;
    u32 slot;
    int references;
};

int chip_port_open(const char *name, u32 slot, chip_device **device) {
    *device = new chip_device{name, slot, 1};
    return 0;
}

void chip_port_close(chip_device *device) {
    chip_port_put(device);
}

void chip_port_get(chip_device *device) {
    device->references++;
}

void chip_port_put(chip_device *device) {
    if (--device->references == 0)
        delete device;
}

int chip_port_send(chip_device *device, sk_buff *skb) {
    explain::note_sent(device->slot, {skb_data(skb), skb_len(skb)});
    consume_skb(skb);
    return 0;
}

int chip_port_send_unfinished(chip_device *device, sk_buff *skb, const chip_work *) {
    return chip_port_send(device, skb);
}

void chip_port_finish(sk_buff *skb, const chip_work *, void (*take)(void *context, sk_buff *skb),
                      void *context) {
    take(context, skb);
}

unsigned long chip_port_lost(chip_device *) {
    return 0;
}

int chip_port_is(const chip_device *device, const net_device *netdev) {
    return device->name == netdev_name(netdev);
}

void chip_commands_begin() {}
void chip_commands_end() {}
