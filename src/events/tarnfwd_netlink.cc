#include "events/tarnfwd_netlink.h"

#include "kernel/errno.h"
#include "kernel/genl.h"
#include "kernel/log.h"
#include "kernel/memory.h"
#include "kernel/work.h"

namespace {

constexpr u32 GROUPS = 32;

// The mutex covers both; the socket does not change once it is there.
constinit mutex _mutex{};
constinit sock *_socket = nullptr;
constinit u32 _reserved = 0;

i32 _reserve(u32 mask) {
    if (!_socket)
        _socket = netlink_kernel_create(NETLINK_USERSOCK, GROUPS);
    if (!_socket) {
        pr_err("Netlink user socket creation failed\n");
        pr_err("Error creating netlink resources groups: 0x%x\n", mask);
        return -EINVAL;
    }
    if (_reserved & mask) {
        pr_err("Error reserving netlink groups: 0x%x\n", mask);
        return -EBUSY;
    }
    _reserved |= mask;
    return 0;
}

} // namespace

void tarnfwd_netlink_init() {
    mutex_init(&_mutex, "tarnfwd_netlink_mutex");
}

i32 tarnfwd_netlink_reserve(u32 mask) {
    mutex_lock(&_mutex);
    i32 result = _reserve(mask);
    mutex_unlock(&_mutex);
    return result;
}

i32 tarnfwd_netlink_broadcast(sk_buff *skb, u32 group) {
    if (!_socket) {
        kfree_skb(skb);
        return -EINVAL;
    }
    return netlink_broadcast(_socket, skb, 0, group, GFP_ATOMIC);
}
