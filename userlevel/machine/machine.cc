#include "machine/machine.h"

#include "control.h"
#include "kernel/errno.h"
#include "kernel/log.h"
#include "kernel/once.h"
#include "kernel/preempt.h"
#include "kernel/skb.h"
#include "machine/interface.h"
#include "machine/neighbours.h"
#include "netdev.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <map>
#include <mutex>
#include <sys/epoll.h>
#include <thread>
#include <unistd.h>

namespace machine {

namespace {

constexpr std::size_t FRAME_MAX = 65536;
constexpr u32 LINK = IFF_UP | IFF_RUNNING;
constexpr int ADDRESSES_IPV4 = 2, ADDRESSES_IPV6 = 10; // AF_INET, AF_INET6

// What stands at the back of a device: a TAP device, or packet sockets on a device of the machine.
struct back {
    int fd; // to send by
    net_device *device;
    bool is_tap;
    std::vector<int> ears = {}; // for each type that is listened for
    std::vector<userlevel::ipv4_address> ipv4 = {};
    std::vector<userlevel::ipv6_prefix> ipv6 = {};
};

// Covers the table, and is held while a frame is handed to the module, so that its device does not
// go meanwhile. Taken before the RTNL lock, never under it.
std::recursive_mutex table_mutex;
std::map<unsigned, back *> table; // by the number of the interface
std::vector<u16> listened_for;    // types, network order
int poller = -1;
std::function<void(const std::string &, bool)> link_told;

back *of(const net_device *device) {
    return static_cast<back *>(device->back);
}

std::string name_of(const net_device *device) {
    return device->name;
}

void poll_for_frames(const net_device *device, int fd) {
    epoll_event event{.events = EPOLLIN,
                      .data = {.u64 = u64{device->ifindex} << 32 | static_cast<u32>(fd)}};
    epoll_ctl(poller, EPOLL_CTL_ADD, fd, &event);
}

// Without a socket its frames are not heard.
void open_ear(back *one, u16 ethertype) {
    int fd = interface_open(one->device->ifindex, ethertype);
    if (fd < 0)
        return;
    one->ears.push_back(fd);
    poll_for_frames(one->device, fd);
}

// --- what the module asks of a device's back -----------------------------------------------------

int tap_add(net_device *device) {
    std::string why;
    int fd = tap_open(name_of(device), device->ifindex, &why);
    if (fd < 0) {
        pr_warn("Cannot make %s\n", why.c_str());
        return -EPERM;
    }
    interface_set_address(name_of(device), device->dev_addr);
    interface_set_mtu(name_of(device), device->mtu);
    tap_set_carrier(fd, device->carrier);

    std::lock_guard guard(table_mutex);
    device->back = new back{fd, device, true};
    table[device->ifindex] = of(device);
    neighbours_device(device->ifindex, true);
    poll_for_frames(device, fd);
    return 0;
}

void remove(net_device *device) {
    std::lock_guard guard(table_mutex);
    back *old = of(device);
    device->back = nullptr;
    table.erase(device->ifindex);
    neighbours_device(device->ifindex, false);
    close(old->fd); // a TAP device goes with it
    for (int ear : old->ears)
        close(ear);
    delete old;
}

void set_flags(net_device *device, u32 flags) {
    if (of(device)->is_tap)
        interface_set_up(name_of(device), flags & IFF_UP);
}

void set_carrier(net_device *device, bool on) {
    if (of(device)->is_tap)
        tap_set_carrier(of(device)->fd, on);
}

void set_address(net_device *device) {
    if (of(device)->is_tap)
        interface_set_address(name_of(device), device->dev_addr);
}

// Consumes the frame: whether the machine took it. One that it has no room for is lost, as one is
// on a full queue; so is one of a device that has just gone.
bool hand_to_machine(net_device *device, sk_buff *skb) {
    std::lock_guard guard(table_mutex);
    if (of(device) && of(device)->is_tap)
        neighbours_learn(device->ifindex, skb);
    bool taken = of(device) && write(of(device)->fd, skb_data(skb), skb_len(skb)) ==
                                   static_cast<ssize_t>(skb_len(skb));
    if (taken)
        consume_skb(skb);
    else
        kfree_skb(skb);
    return taken;
}

void receive(net_device *device, sk_buff *skb) {
    hand_to_machine(device, skb);
}

int transmit(net_device *device, sk_buff *skb) {
    constexpr int dropped = 1; // NET_XMIT_DROP
    return hand_to_machine(device, skb) ? 0 : dropped;
}

void take_state(net_device *device, const link_state &state) {
    device->mtu = state.mtu;
    device->flags = state.flags & 0xFFFF & ~IFF_RUNNING;
    device->carrier = (state.flags & IFF_RUNNING) != 0;
    if (state.has_address)
        dev_addr_set(device, state.address.data());
}

net_device *find(const char *name) {
    link_state state = interface_state(name);
    int fd = state.ifindex != 0 ? interface_open(state.ifindex, 0) : -1;
    if (fd < 0)
        return nullptr;
    net_device *device = alloc_etherdev_mqs(0, 1, 1);
    if (!device) {
        close(fd);
        return nullptr;
    }
    netdev_set_name(device, name);
    device->ifindex = state.ifindex;
    take_state(device, state);
    if (register_netdev(device) != 0) {
        close(fd);
        free_netdev(device);
        return nullptr;
    }
    std::lock_guard guard(table_mutex);
    device->back = new back{fd, device, false};
    table[state.ifindex] = of(device);
    for (u16 ethertype : listened_for)
        open_ear(of(device), ethertype);
    return device;
}

void listen_for(u16 ethertype) {
    std::lock_guard guard(table_mutex);
    listened_for.push_back(ethertype);
    for (auto &[ifindex, one] : table)
        if (!one->is_tap)
            open_ear(one, ethertype);
}

constexpr userlevel::netdev_back the_back{.add = tap_add,
                                          .remove = remove,
                                          .flags = set_flags,
                                          .carrier = set_carrier,
                                          .address = set_address,
                                          .receive = receive,
                                          .transmit = transmit,
                                          .find = find,
                                          .listen = listen_for,
                                          .forget = neighbours_forget};

// --- what the IP stack sends, and what comes in on the machine's devices -------------------------

// Whether it is still the device's.
bool is_read(const back *one, int fd) {
    return one->is_tap ? fd == one->fd : std::ranges::find(one->ears, fd) != one->ears.end();
}

void hand_over(unsigned ifindex, int fd, std::array<u8, FRAME_MAX> &buffer) {
    std::lock_guard guard(table_mutex);
    auto found = table.find(ifindex);
    if (found == table.end() || !is_read(found->second, fd))
        return;
    ssize_t length = read(fd, buffer.data(), buffer.size());
    if (length <= 0)
        return;
    std::span frame(buffer.data(), static_cast<std::size_t>(length));
    if (found->second->is_tap)
        userlevel::netdev_transmit(found->second->device, frame);
    else
        userlevel::netdev_receive(found->second->device, frame);
}

void read_frames() {
    static std::array<u8, FRAME_MAX> buffer;
    std::array<epoll_event, 64> events;
    for (;;) {
        int ready = epoll_wait(poller, events.data(), events.size(), -1);
        for (int i = 0; i < ready; i++) {
            u64 which = events[static_cast<std::size_t>(i)].data.u64;
            hand_over(static_cast<unsigned>(which >> 32), static_cast<int>(which), buffer);
        }
    }
}

// --- what others change on the machine's devices -------------------------------------------------

void follow_mtu(net_device *device, unsigned mtu) {
    if (mtu == device->mtu || device->ops->change_mtu(device, static_cast<int>(mtu)) == 0)
        return;
    pr_warn("%s: an MTU of %u is out of range; it stays %u\n", device->name, mtu, device->mtu);
    interface_set_mtu(name_of(device), device->mtu);
}

void follow_address(net_device *device, const link_state &state) {
    if (!state.has_address ||
        std::memcmp(state.address.data(), device->dev_addr, state.address.size()) == 0)
        return;
    netdev_address wanted{.family = device->type, .data = {}};
    std::memcpy(wanted.data, state.address.data(), state.address.size());
    if (device->ops->set_mac_address(device, &wanted) != 0)
        interface_set_address(name_of(device), device->dev_addr);
}

// A message may be old: what counts is how the interface is now.
void follow(net_device *device, bool is_tap, const link_state &now) {
    if (now.ifindex != device->ifindex)
        return;
    if (is_tap) {
        follow_mtu(device, now.mtu);
        follow_address(device, now);
    } else {
        write_once(device->carrier, (now.flags & IFF_RUNNING) != 0);
    }
    if ((now.flags ^ read_once(device->flags)) & IFF_UP)
        userlevel::netdev_flags_changed(device, now.flags & 0xFFFF);
}

struct held {
    net_device *device; // with a reference, or null
    bool is_tap;
};

held hold(unsigned ifindex) {
    std::lock_guard guard(table_mutex);
    auto found = table.find(ifindex);
    if (found == table.end())
        return {};
    dev_hold(found->second->device);
    return {found->second->device, found->second->is_tap};
}

// Without the lock, for which those wait who have RTNL or bottom halves off.
void on_link(const link_state &said) {
    auto [device, is_tap] = hold(said.ifindex);
    if (device && !said.gone)
        follow(device, is_tap, interface_state(said.name));
    if (device)
        dev_put(device);
    if (device && said.gone && !is_tap)
        unregister_netdev(device); // its record lets go of it
    link_state now = said.gone ? link_state{.name = said.name} : interface_state(said.name);
    link_told(said.name, (now.flags & LINK) == LINK);
}

u32 mask_of(unsigned prefix) {
    return prefix == 0 ? 0 : cpu_to_be32(~u32{0} << (32 - prefix));
}

void on_ipv4(back *one, const address_state &said) {
    userlevel::ipv4_address address{.address = 0, .mask = mask_of(said.prefix)};
    std::memcpy(&address.address, said.bytes.data(), sizeof(address.address));
    std::erase_if(one->ipv4, [&](const auto &old) {
        return old.address == address.address && old.mask == address.mask;
    });
    if (!said.gone)
        one->ipv4.push_back(address);
}

void on_ipv6(back *one, const address_state &said) {
    userlevel::ipv6_prefix prefix{.address = said.bytes, .length = said.prefix};
    std::erase_if(one->ipv6, [&](const auto &old) {
        return old.address == prefix.address && old.length == prefix.length;
    });
    if (!said.gone)
        one->ipv6.push_back(prefix);
}

void on_address(const address_state &said) {
    std::lock_guard guard(table_mutex);
    auto found = table.find(said.ifindex);
    if (found == table.end())
        return;
    back *one = found->second;
    if (said.family == ADDRESSES_IPV4)
        on_ipv4(one, said);
    else if (said.family == ADDRESSES_IPV6)
        on_ipv6(one, said);
    userlevel::netdev_set_addresses(one->device, one->ipv4, true, one->ipv6);
}

} // namespace

std::string lacking() {
    std::string why;
    int fd = tap_open("", 0, &why);
    if (fd < 0)
        return why;
    close(fd);
    return "";
}

std::string watch(std::function<void(const std::string &name, bool has_link)> link) {
    link_told = std::move(link);
    return watch_interfaces(on_link, on_address);
}

void make_devices() {
    poller = epoll_create1(EPOLL_CLOEXEC);
    userlevel::netdev_use_back(&the_back);
    std::thread(read_frames).detach();
}

} // namespace machine
