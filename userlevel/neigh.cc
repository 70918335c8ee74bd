#include "kernel/neigh.h"

#include "control.h"
#include "netdev.h"

#include <mutex>
#include <utility>

// A process has no neighbour tables: those of the machine stand above its devices, where they have
// such a back. What was asked for is also kept, up to a bound, for a test to look at.
namespace {

constexpr std::size_t KEPT = 10000;

std::mutex flushes_mutex;
std::vector<userlevel::neigh_flush> flushes;

void forget(const userlevel::neigh_flush &flush) {
    userlevel::netdev_forget_neighbours(flush);
    std::lock_guard guard(flushes_mutex);
    if (flushes.size() < KEPT)
        flushes.push_back(flush);
}

} // namespace

void arp_flush_dev_and_port(i32 vid, net_device *device, u32 ifindex) {
    forget({"arp", vid, device, ifindex, {}});
}

void ndisc_flush_dev_and_port(i32 vid, net_device *device, u32 ifindex) {
    forget({"ndisc", vid, device, ifindex, {}});
}

i32 arp_flush_vlan_and_mac(i32 vid, net_device *device, const u8 *mac) {
    forget({"arp", vid, device, 0, {mac, mac + 6}});
    return 0;
}

void neigh_moved(net_device *device, const u8 *mac) {
    if (device)
        forget({"moved", -1, device, 0, {mac, mac + 6}});
}

std::vector<userlevel::neigh_flush> userlevel::neigh_flushes_take() {
    std::lock_guard guard(flushes_mutex);
    return std::exchange(flushes, {});
}
