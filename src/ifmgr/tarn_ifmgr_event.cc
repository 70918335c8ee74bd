#include "ifmgr/tarn_ifmgr_event.h"

#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_destroy.h"
#include "kernel/errno.h"
#include "kernel/log.h"
#include "kernel/once.h"

constinit notifier_block tarn_ifmgr_device_notifier{
    .notifier_call = tarn_ifmgr_device_event, .next = nullptr, .priority = 0};

namespace {

constexpr u32 SUBSCRIBERS = 1;
using _subscriber = void (*)(u32 vid);
constinit _subscriber subscribers[SUBSCRIBERS] = {};
constinit u32 _subscriber_count = 0;

// The device goes, and with it the references that would hold it up: those of Ethernet interfaces,
// which are found by name and may have any ifindex.
void _let_go(const net_device *device) {
    if (!p_tarn_if_db)
        return;
    read_lock_bh(&tarn_if_db_lock);
    for (tarn_avl_node *node = tarn_avl_top(p_tarn_if_db->tree); node; node = tarn_avl_next(node)) {
        auto *ifp = static_cast<tarn_if *>(node->info);
        if (ifp->type == TARN_IF_TYPE_ETHERNET && read_once(ifp->netdev) == device)
            tarn_ifmgr_eth_device_put(ifp);
    }
    read_unlock_bh(&tarn_if_db_lock);
}

} // namespace

// Link state is what the daemon says: the flags of a switch port do not follow its device, and
// nothing here is counted.
int tarn_ifmgr_device_event(notifier_block *, unsigned long event, void *info) {
    if (event != NETDEV_UP && event != NETDEV_DOWN && event != NETDEV_CHANGE &&
        event != NETDEV_UNREGISTER)
        return NOTIFY_DONE;
    net_device *device = netdev_notifier_info_to_dev(info);
    if (!netdev_in_init_net(device))
        return NOTIFY_DONE;
    if (event == NETDEV_UNREGISTER) {
        _let_go(device);
        return NOTIFY_DONE;
    }
    tarn_if *ifp = tarn_ifmgr_lookup_by_index(netdev_ifindex(device));
    if (!ifp)
        return NOTIFY_DONE;
    if (ifp->type != TARN_IF_TYPE_SWITCHPORT)
        write_once(ifp->flags, dev_get_flags(device));
    tarn_ifmgr_if_ref_put_later(ifp);
    return NOTIFY_DONE;
}

i32 tarn_ifmgr_notifications_register(void (*subscriber)(u32 vid)) {
    if (_subscriber_count >= SUBSCRIBERS) {
        pr_err("Too many interface manager subscribers\n");
        return -EINVAL;
    }
    subscribers[_subscriber_count++] = subscriber;
    return 0;
}

void tarn_ifmgr_notify_vlan_created(u32 vid) {
    if (_subscriber_count > 0)
        subscribers[0](vid);
}
