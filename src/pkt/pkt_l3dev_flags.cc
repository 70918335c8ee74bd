// The flags of layer 3 interfaces. RUNNING of a device is no flag that can be set: it follows from
// the carrier and the operational state.
//
// An interface that is always up runs while it is up, whether or not any port below it does.
#include "kernel/bytes.h"
#include "kernel/errno.h"
#include "kernel/once.h"
#include "pkt/pkt_l3dev.h"

namespace {

struct _wanted {
    u32 bits; // to set, or to clear
    bool carrier_changes;
};

bool _has(const tarn_if *ifp, u32 flags) {
    return read_once(ifp->flags) & flags;
}

bool _always_up(const tarn_if *ifp) {
    return read_once(ifp->if_flags) & TARN_IF_F_ALWAYS_UP;
}

_wanted _to_set(const tarn_if *ifp, u32 flags) {
    if (!_always_up(ifp))
        return {flags, (flags & IFF_RUNNING) || ((flags & IFF_UP) && _has(ifp, IFF_RUNNING))};
    bool up = (flags & IFF_UP) || _has(ifp, IFF_UP);
    return {up ? flags | IFF_RUNNING : flags, up || (flags & IFF_RUNNING)};
}

_wanted _to_clear(const tarn_if *ifp, u32 flags) {
    if (!_always_up(ifp))
        return {flags, (flags & IFF_RUNNING) != 0};
    if (flags & IFF_UP)
        return {flags | IFF_RUNNING, true};
    if (_has(ifp, IFF_UP))
        return {flags & ~IFF_RUNNING, false};
    return {flags, (flags & IFF_RUNNING) != 0};
}

} // namespace

i32 tarn_os_l3_if_flags_set(tarn_if *ifp, u32 flags) {
    return tarn_os_l3_with_device(ifp, [=](net_device *device) {
        if (ifp->type == TARN_IF_TYPE_VLAN)
            netdev_set_vlan_feature(device);

        _wanted wanted = _to_set(ifp, flags);
        if (wanted.carrier_changes) {
            netif_carrier_on(device);
            netdev_set_operstate(device, IF_OPER_UP);
        }
        u32 changed = dev_get_flags(device) | wanted.bits;
        set_bits(ifp->flags, wanted.bits);
        dev_change_flags(device, changed);
        return 0;
    });
}

i32 tarn_os_l3_if_flags_unset(tarn_if *ifp, u32 flags) {
    char name[NETDEV_NAME_SIZE];
    u32 changed = 0;
    i32 result = tarn_os_l3_with_device(ifp, [&](net_device *device) {
        _wanted wanted = _to_clear(ifp, flags);
        if (wanted.carrier_changes)
            netif_carrier_off(device);
        changed = dev_get_flags(device) & ~wanted.bits;
        clear_bits(ifp->flags, wanted.bits);
        memcpy(name, netdev_name(device), sizeof(name));
        return 0;
    });
    return result == 0 ? netdev_set_flags_by_name(name, changed) : result;
}
