// Network devices of the process, by the rules of Linux 6.1 (net/core/dev.c there) as far as the
// module can see them.
#include "kernel/netdev.h"

#include "control.h"
#include "kernel/bytes.h"
#include "kernel/errno.h"
#include "kernel/log.h"
#include "kernel/memory.h"
#include "kernel/once.h"
#include "kernel/preempt.h"
#include "kernel/skb.h"
#include "kernel/time.h"
#include "kernel/work.h"
#include "memory.h"
#include "netdev.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <unordered_set>

namespace userlevel {

namespace {

constexpr u16 ARPHRD_ETHER = 1;
constexpr u32 IFF_LOWER_UP = 0x10000;
constexpr u32 ETHERNET_MTU = 1500;
constexpr u16 ETHERNET_HEADER = 14;
constexpr u8 IF_OPER_UNKNOWN = 0, IF_OPER_DOWN = 2;
constexpr unsigned long NETDEV_REGISTER = 5;

std::recursive_mutex rtnl;
thread_local u32 rtnl_depth = 0;

std::mutex list_mutex; // covers what follows; never held across a call to a device or the chain
std::vector<net_device *> devices;
std::unordered_map<std::string, net_device *> by_name;
std::unordered_set<u32> numbers;
std::unordered_set<const net_device *> present;
u32 next_ifindex = 1;
std::map<const net_device *, netdev_record> records;
std::atomic<bool> recording = false;

std::mutex chain_mutex;
notifier_block *chain = nullptr;

// What a thread is sending on devices of the module, the innermost first.
struct transmit {
    const net_device *device;
    const transmit *outer;
};
thread_local const transmit *under_way = nullptr;

const netdev_back *the_back = nullptr;

std::atomic<packet_type *> packet_types = nullptr; // grows at its head, and only grows

// The kernel tells of a changed carrier from a work item of its own.
std::mutex changed_mutex;
std::vector<net_device *> changed; // in the order in which they did
std::unordered_set<const net_device *> among_changed;
work_item link_watch{};

struct event_info {
    net_device *device;
};

void notify(net_device *device, unsigned long event) {
    event_info info{device};
    for (notifier_block *block = chain; block; block = block->next)
        block->notifier_call(block, event, &info);
}

std::string name_of(const char *name) {
    return {name, strnlen(name, NETDEV_NAME_SIZE)};
}

net_device *find_locked(const char *name) {
    auto found = by_name.find(name_of(name));
    return found == by_name.end() ? nullptr : found->second;
}

// 0, -EEXIST for the name, -EBUSY for the number.
int enter(net_device *device) {
    constexpr int busy = 16;
    std::lock_guard guard(list_mutex);
    if (find_locked(device->name))
        return -EEXIST;
    if (device->ifindex == 0) {
        while (numbers.contains(next_ifindex))
            next_ifindex++;
        device->ifindex = next_ifindex++;
    } else if (numbers.contains(device->ifindex)) {
        return -busy;
    }
    devices.push_back(device);
    by_name.emplace(name_of(device->name), device);
    numbers.insert(device->ifindex);
    present.insert(device);
    return 0;
}

void leave(net_device *device) {
    std::lock_guard guard(list_mutex);
    if (present.erase(device) == 0)
        return;
    std::erase(devices, device);
    by_name.erase(name_of(device->name));
    numbers.erase(device->ifindex);
}

void watch_link(work_item *) {
    std::vector<net_device *> all;
    {
        std::lock_guard guard(changed_mutex);
        among_changed.clear();
        all.swap(changed);
    }
    std::lock_guard guard(rtnl);
    for (net_device *device : all) {
        {
            std::lock_guard list(list_mutex);
            if (!present.contains(device))
                continue;
        }
        write_once(device->operstate,
                   static_cast<u8>(netif_carrier_ok(device) ? IF_OPER_UP : IF_OPER_DOWN));
        if (read_once(device->flags) & IFF_UP)
            notify(device, NETDEV_CHANGE);
    }
}

void carrier(net_device *device, bool on) {
    if (__atomic_exchange_n(&device->carrier, on, __ATOMIC_RELAXED) == on || !device->registered)
        return;
    if (the_back && device->back)
        the_back->carrier(device, on);
    std::lock_guard guard(changed_mutex);
    if (among_changed.insert(device).second)
        changed.push_back(device);
    if (!link_watch.run)
        work_init(&link_watch, watch_link);
    schedule_work_unbound(&link_watch);
}

int open_or_stop(net_device *device, bool up) {
    if (!device->ops)
        return 0;
    int result = up ? device->ops->open(device) : device->ops->stop(device);
    if (result == 0)
        device->opened = up;
    return result;
}

// In network order; 0 where the frame does not have both bytes.
u16 word_at(const sk_buff *skb, u32 offset) {
    u16 word = 0;
    if (skb->len >= offset + sizeof(word))
        std::memcpy(&word, skb->data + offset, sizeof(word));
    return word;
}

// Each gets a hold of its own on the frame.
void offer_to_packet_types(sk_buff *skb) {
    for (packet_type *type = packet_types; type; type = type->next) {
        if (type->ethertype != skb->protocol)
            continue;
        __atomic_fetch_add(&skb->users, 1, __ATOMIC_RELAXED);
        local_bh_disable();
        type->handler(skb, skb->dev, type, skb->dev);
        local_bh_enable();
    }
}

int start_transmit(net_device *device, sk_buff *skb) {
    const transmit innermost{device, under_way};
    under_way = &innermost;
    local_bh_disable();
    int result = device->ops->start_xmit(skb, device);
    local_bh_enable();
    under_way = innermost.outer;
    return result;
}

// On its way out of a device the frame is to leave by it again, or by more devices than a kernel
// follows.
bool is_dead_loop(const net_device *device) {
    constexpr u32 limit = 8;
    u32 depth = 0;
    for (const transmit *one = under_way; one; one = one->outer)
        if (one->device == device || ++depth > limit)
            return true;
    return false;
}

// By a device of the module, which has no queue. One that is inactive answers as the kernel's does:
// that it is congested, which is no error.
int transmit_by_own(net_device *device, sk_buff *skb) {
    constexpr int congested = 2; // NET_XMIT_CN
    bool active = (read_once(device->flags) & IFF_UP) && netif_carrier_ok(device);
    if (active && is_dead_loop(device))
        pr_crit("Dead loop on virtual device %s, fix it urgently!\n", device->name);
    else if (active && __atomic_load_n(&device->stopped, __ATOMIC_RELAXED))
        pr_crit("Virtual device %s asks to queue packet!\n", device->name);
    else if (active)
        return start_transmit(device, skb);
    kfree_skb(skb);
    return active ? -ENETDOWN : congested;
}

// Whoever forgets one holds its end up for ever, and is told of.
void wait_for_references(const net_device *device) {
    constexpr unsigned long told_every = 1000; // jiffies
    unsigned long told = get_jiffies();
    while (i32 count = __atomic_load_n(&device->references, __ATOMIC_ACQUIRE)) {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
        if (get_jiffies() - told < told_every)
            continue;
        pr_crit("unregister_netdevice: waiting for %.16s to become free. Usage count = %d\n",
                device->name, count);
        told = get_jiffies();
    }
}

int change_flags(net_device *device, u32 flags, bool tell_back) {
    constexpr u32 settable = 0xFFFF & ~IFF_RUNNING;
    u32 old = device->flags;
    u32 now = flags & settable;
    if ((old ^ now) & IFF_UP) {
        int result = open_or_stop(device, now & IFF_UP);
        if (result != 0)
            return result;
    }
    write_once(device->flags, now); // written under the lock, read without it
    if (tell_back && the_back && device->back)
        the_back->flags(device, now);
    if ((old ^ now) & IFF_UP)
        notify(device, now & IFF_UP ? NETDEV_UP : NETDEV_DOWN);
    else if (old != now)
        notify(device, NETDEV_CHANGE);
    return 0;
}

} // namespace

void netdev_use_back(const netdev_back *back) {
    the_back = back;
}

void netdev_flags_changed(net_device *device, u32 flags) {
    std::lock_guard guard(rtnl);
    change_flags(device, flags, false);
}

void netdev_set_addresses(const net_device *device, std::vector<ipv4_address> ipv4, bool ipv6,
                          std::vector<ipv6_prefix> prefixes) {
    std::lock_guard guard(list_mutex);
    netdev_record &record = records[device];
    record.ipv4 = std::move(ipv4);
    record.ipv6 = ipv6;
    record.prefixes = std::move(prefixes);
}

std::vector<net_device *> netdevs() {
    std::lock_guard guard(list_mutex);
    return devices;
}

net_device *netdev_create(const char *name) {
    net_device *device = alloc_etherdev_mqs(0, 1, 1);
    if (!device)
        BUG();
    netdev_set_name(device, name);
    device->operstate = IF_OPER_UP;
    device->carrier = true;
    if (register_netdev(device) != 0)
        BUG();
    return device;
}

netdev_record &netdev_recorded(const net_device *device) {
    std::lock_guard guard(list_mutex);
    recording = true;
    return records[device];
}

void netdev_transmit(net_device *device, std::span<const u8> bytes, u32 priority) {
    sk_buff *skb = frame_make(bytes, 64);
    if (!skb)
        return;
    skb->priority = priority;
    start_transmit(device, skb);
}

void netdev_receive(net_device *device, std::span<const u8> bytes) {
    sk_buff *skb = frame_make(bytes, 64);
    if (!skb)
        return;
    skb->protocol = eth_type_trans(skb, device);
    offer_to_packet_types(skb);
    consume_skb(skb);
}

void netdev_send_event(net_device *device, unsigned long event) {
    std::lock_guard guard(rtnl);
    notify(device, event);
}

} // namespace userlevel

using namespace userlevel;

void rtnl_lock(void) {
    if (preempt_count() != 0 || rtnl_depth != 0)
        BUG();
    rtnl.lock();
    rtnl_depth++;
}

void rtnl_unlock(void) {
    rtnl_depth--;
    rtnl.unlock();
}

void synchronize_net(void) {
    wait_for_bottom_halves();
}

net_device *alloc_etherdev_mqs(int private_size, unsigned, unsigned) {
    auto *device = static_cast<net_device *>(
        allocate("net_device", sizeof(net_device) + static_cast<std::size_t>(private_size),
                 GFP_KERNEL | __GFP_ZERO, __builtin_return_address(0)));
    if (!device)
        return nullptr;
    device->type = ARPHRD_ETHER;
    device->addr_len = NETDEV_ADDRESS_SIZE;
    device->mtu = ETHERNET_MTU;
    device->min_mtu = 68;
    device->max_mtu = ETHERNET_MTU;
    device->hard_header_len = ETHERNET_HEADER;
    device->flags = IFF_BROADCAST | IFF_MULTICAST;
    device->carrier = true;
    return device;
}

void free_netdev(net_device *device) {
    release(device);
}

void netdev_set_name(net_device *device, const char *name) {
    std::strncpy(device->name, name, NETDEV_NAME_SIZE - 1);
}

int register_netdev(net_device *device) {
    if (int result = enter(device); result != 0)
        return result;
    if (the_back && device->ops) {
        if (int result = the_back->add(device); result != 0) {
            leave(device);
            return result;
        }
    }
    std::lock_guard guard(rtnl);
    device->registered = true;
    device->operstate = device->carrier ? IF_OPER_UNKNOWN : IF_OPER_DOWN;
    notify(device, NETDEV_REGISTER);
    return 0;
}

void unregister_netdev(net_device *device) {
    {
        std::lock_guard guard(rtnl);
        if (device->flags & IFF_UP) {
            open_or_stop(device, false);
            write_once(device->flags, device->flags & ~u32{IFF_UP});
            notify(device, NETDEV_DOWN);
        }
        notify(device, NETDEV_UNREGISTER);
        leave(device);
        device->registered = false;
    }
    if (the_back && device->back)
        the_back->remove(device);
    wait_for_bottom_halves();
    wait_for_references(device);
    std::lock_guard guard(list_mutex);
    records.erase(device);
}

net_device *dev_get_by_name(const char *name) {
    bool known;
    {
        std::lock_guard guard(list_mutex);
        known = find_locked(name) != nullptr;
    }
    if (!known && the_back)
        the_back->find(name);
    std::lock_guard guard(list_mutex);
    net_device *device = find_locked(name);
    if (device)
        dev_hold(device);
    return device;
}

void dev_hold(net_device *device) {
    __atomic_fetch_add(&device->references, 1, __ATOMIC_RELAXED);
}

void dev_put(net_device *device) {
    if (__atomic_fetch_sub(&device->references, 1, __ATOMIC_RELEASE) <= 0)
        BUG(); // one reference too many dropped
}

unsigned dev_get_flags(const net_device *device) {
    u32 flags = read_once(device->flags);
    if (flags & IFF_UP) {
        u8 state = read_once(device->operstate);
        if (state == IF_OPER_UP || state == IF_OPER_UNKNOWN)
            flags |= IFF_RUNNING;
        if (netif_carrier_ok(device))
            flags |= IFF_LOWER_UP;
    }
    return flags;
}

int dev_change_flags(net_device *device, u32 flags) {
    return change_flags(device, flags, true);
}

int netdev_set_flags_by_name(const char *name, u32 flags) {
    std::lock_guard guard(rtnl);
    net_device *device;
    {
        std::lock_guard list(list_mutex);
        device = find_locked(name);
    }
    return device ? change_flags(device, flags, true) : -ENODEV;
}

int dev_set_mac_address(net_device *device, const netdev_address *address) {
    if (!netdev_has_set_mac_address(device))
        return -EOPNOTSUPP;
    if (address->family != device->type)
        return -EINVAL;
    int result = device->ops ? device->ops->set_mac_address(device, address) : 0;
    if (!device->ops)
        dev_addr_set(device, address->data);
    if (result == 0 && the_back && device->back)
        the_back->address(device);
    return result;
}

void dev_addr_set(net_device *device, const u8 *address) {
    std::memcpy(device->dev_addr, address, device->addr_len);
}

void netdev_set_operstate(net_device *device, u8 state) {
    write_once(device->operstate, state); // beside the watch of the link: the later counts
}

void netif_carrier_on(net_device *device) {
    carrier(device, true);
}

void netif_carrier_off(net_device *device) {
    carrier(device, false);
}

void netif_addr_lock_bh(net_device *device) {
    local_bh_disable();
    pthread_mutex_lock(&device->address_lock);
}

void netif_addr_unlock_bh(net_device *device) {
    pthread_mutex_unlock(&device->address_lock);
    local_bh_enable();
}

unsigned long copy_from_user(void *to, const void *from, unsigned long count) {
    if (!from)
        return count;
    std::memcpy(to, from, count);
    return 0;
}

unsigned long copy_to_user(const void *to, const void *from, unsigned long count) {
    if (!to)
        return count;
    std::memcpy(const_cast<void *>(to), from, count);
    return 0;
}

// A number below 0x600 is a length (IEEE 802.3): an LLC header follows, or NetWare's, which has
// none.
u16 eth_type_trans(sk_buff *skb, net_device *device) {
    constexpr u16 first_type = 0x600, eth_p_802_3 = 0x0001, eth_p_802_2 = 0x0004, netware = 0xFFFF;
    skb->dev = device;
    skb->mac_header = static_cast<u16>(skb_headroom(skb));
    u16 type = word_at(skb, ETHERNET_HEADER - sizeof(type));
    skb_pull(skb, ETHERNET_HEADER);
    if (be16_to_cpu(type) >= first_type)
        return type;
    return cpu_to_be16(word_at(skb, 0) == netware ? eth_p_802_3 : eth_p_802_2);
}

void dev_add_pack(packet_type *type) {
    type->next = packet_types;
    while (!packet_types.compare_exchange_weak(type->next, type)) {
    }
    if (the_back)
        the_back->listen(type->ethertype);
}

namespace {

void record(net_device *device, const sk_buff *skb) {
    std::lock_guard guard(list_mutex);
    if (auto found = records.find(device); found != records.end())
        found->second.received.push_back(
            {{skb->data, skb->data + skb->len}, skb->mark, skb->protocol});
}

} // namespace

int netif_rx_ni(sk_buff *skb) {
    net_device *device = skb->dev;
    offer_to_packet_types(skb);
    skb_push(skb, skb_headroom(skb) - skb->mac_header);
    if (the_back && device->back) {
        the_back->receive(device, skb);
        return 0;
    }
    if (recording)
        record(device, skb);
    consume_skb(skb);
    return 0;
}

void userlevel::netdev_forget_neighbours(const neigh_flush &flush) {
    if (the_back)
        the_back->forget(flush);
}

// Whatever the result, the frame is gone.
int dev_queue_xmit(sk_buff *skb) {
    if (skb->dev->ops)
        return transmit_by_own(skb->dev, skb);
    if (the_back && skb->dev->back)
        return the_back->transmit(skb->dev, skb);
    int result = 0;
    {
        std::lock_guard guard(list_mutex);
        netdev_record &record = records[skb->dev];
        if (recording)
            record.sent.push_back({{skb->data, skb->data + skb->len}, skb->mark, 0});
        result = record.queue_result;
    }
    if (result == 0)
        consume_skb(skb);
    else
        kfree_skb(skb);
    return result;
}

// The highest priority comes first, of equals who came first.
int register_netdevice_notifier(notifier_block *block) {
    std::lock_guard guard(chain_mutex);
    notifier_block **place = &chain;
    for (; *place && (*place)->priority >= block->priority; place = &(*place)->next) {
        if (*place == block)
            return -EEXIST;
    }
    block->next = *place;
    *place = block;
    return 0;
}

bool inet_any_address(const net_device *device, bool (*test)(u32 address, u32 mask, u32 wanted),
                      u32 wanted) {
    std::lock_guard guard(list_mutex);
    auto found = records.find(device);
    return found != records.end() &&
           std::any_of(
               found->second.ipv4.begin(), found->second.ipv4.end(),
               [&](const ipv4_address &one) { return test(one.address, one.mask, wanted); });
}

bool inet6_has_record(const net_device *device) {
    std::lock_guard guard(list_mutex);
    auto found = records.find(device);
    return found != records.end() && found->second.ipv6;
}

int ipv6_chk_prefix(const u8 *address, net_device *device) {
    std::lock_guard guard(list_mutex);
    auto found = records.find(device);
    if (found == records.end())
        return 0;
    for (const ipv6_prefix &prefix : found->second.prefixes) {
        u32 whole = prefix.length / 8, rest = prefix.length % 8;
        if (std::memcmp(address, prefix.address.data(), whole) == 0 &&
            (rest == 0 || ((address[whole] ^ prefix.address[whole]) >> (8 - rest)) == 0))
            return 1;
    }
    return 0;
}
