// The core on top of the chip, in one process: frames on ports, frames of the IP stack, and words
// for the chip, one after another. The input is a row of steps: what, where, length, bytes.
#include "chip.h"
#include "chip_ports.h"
#include "control.h"
#include "ifmgr/tarn_ifmgr_create.h"
#include "kernel/netdev.h"
#include "module/tarn_module.h"
#include "plain_switch/plain_switch.h"
#include "vlan/vlan_member.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

std::vector<char> reply(CHIP_REPLY);

void tell(const std::string &line) {
    chip_command(line.c_str(), reply.data(), reply.size());
}

void load() {
    init_module();
    chip_start();
    for (u32 vid : {1u, 2u})
        plain_switch::add_vlan(vid);
    for (u32 k = 1; k <= 4; k++) {
        tarn_if *port = plain_switch::add_port(k);
        tell("port " + std::to_string(port->ifindex) + " p" + std::to_string(k));
        for (u32 vid : {1u, 2u})
            plain_switch::add_member(port, vid);
        tarn_vlan_add_vlan_to_port(port->ifindex, 2, 1); // tagged
        tarn_vlan_set_default_pvid(port->ifindex, 1);
    }
    tell("filter 806 800 86dd");
    tell("trap filter on");
}

void frame_on_port(u32 where, std::span<const u8> bytes) {
    chip_ports_receive(where % 4, bytes);
}

void frame_of_stack(u32 where, std::span<const u8> bytes) {
    net_device *device = dev_get_by_name(where & 1 ? "vlan1" : "vlan2");
    if (!device)
        return;
    userlevel::netdev_transmit(device, bytes, where >> 1);
    dev_put(device);
}

void step(u32 what, u32 where, std::span<const u8> bytes) {
    switch (what % 4) {
    case 0:
    case 1:
        return frame_on_port(where, bytes);
    case 2:
        return frame_of_stack(where, bytes);
    default:
        return tell(std::string(bytes.begin(), bytes.end()));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, std::size_t size) {
    static const bool loaded = (load(), true);
    static const userlevel::snapshot before = userlevel::take_snapshot();
    (void)loaded;
    while (size > 3) {
        std::size_t length = std::min<std::size_t>(data[2], size - 3);
        step(data[0], data[1], {data + 3, length});
        data += 3 + length;
        size -= 3 + length;
    }
    userlevel::log_take();
    std::string lost = userlevel::describe(userlevel::leaked_since(before));
    if (!lost.empty()) {
        std::fprintf(stderr, "lost: %s", lost.c_str());
        std::abort();
    }
    return 0;
}
