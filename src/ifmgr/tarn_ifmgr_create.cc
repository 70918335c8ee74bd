#include "ifmgr/tarn_ifmgr_create.h"

#include "ifmgr/tarn_if_device.h"
#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_calls.h"
#include "ifmgr/tarn_ifmgr_change.h"
#include "ifmgr/tarn_ifmgr_event.h"
#include "ifmgr/tarn_ifmgr_link.h"
#include "kernel/bytes.h"
#include "kernel/log.h"
#include "kernel/memory.h"
#include "kernel/netdev.h"
#include "kernel/once.h"

namespace {

constexpr u32 ADDRESS_SIZE = 6;

// Cut at 16 bytes, and then without a terminator.
void _copy_name(tarn_if *record, const char *name) {
    u32 at = 0;
    for (; at < TARN_IF_NAME_SIZE && name[at]; at++)
        record->name[at] = name[at];
}

bool _exists(u32 ifindex) {
    tarn_if *found = tarn_ifmgr_lookup_by_index(ifindex);
    tarn_ifmgr_if_ref_put(found);
    return found != nullptr;
}

tarn_if *_template(const char *name, u32 ifindex, u32 type) {
    tarn_if *record = _tarn_ifmgr_if_alloc();
    if (!record)
        return nullptr;
    _copy_name(record, name);
    record->ifindex = ifindex;
    record->type = type;
    return record;
}

// Installs a copy and frees the template.
i32 _install_copy_of(tarn_if *record, tarn_if **out) {
    i32 result = _tarn_ifmgr_if_install(record, out, false);
    kfree(record);
    return result;
}

i32 _add_device(tarn_if *ifp, u32 flags) {
    net_device *device =
        tarn_os_l3_if_configure(ifp, ifp->port_hwaddr, sizeof(ifp->port_hwaddr), nullptr);
    if (!device) {
        pr_warn("%s Adding interface for %.16s FAILED. (failure to create netdev)\n",
                "tarn_ifmgr_switchport_create", ifp->name);
        // It stays in the tree; nobody finds it, and a later creation uses its memory.
        tarn_ifmgr_delete_interface(ifp);
        return TARN_ERR_NETDEV;
    }
    write_once(ifp->netdev, device);
    if (tarn_os_l3_if_flags_set(ifp, flags) != 0)
        pr_warn("%s Failed to set flags for %.16s\n", "tarn_ifmgr_switchport_create", ifp->name);
    return 0;
}

void _failed(const char *function, const char *name) {
    pr_warn("%s Interface adding interface for %.16s FAILED.\n", function, name);
}

void _apply_options(tarn_if *vlan, u32 options) {
    tarn_rmirror_set_mirror_vlan(vlan->vid, (options & TARN_VLAN_OPTION_MIRROR) != 0);
    if (options & TARN_VLAN_OPTION_LOCAL)
        set_bits(vlan->if_flags, TARN_IF_F_VLAN_LOCAL);
    if (options & TARN_VLAN_OPTION_ALWAYS_UP) {
        set_bits(vlan->if_flags, TARN_IF_F_ALWAYS_UP);
        _tarn_ifmgr_flags_set(vlan, read_once(vlan->flags));
    }
}

tarn_if *_new_vlan(u16 vid) {
    tarn_if *record = _tarn_ifmgr_if_alloc();
    if (!record)
        return nullptr;
    snprintf(record->name, sizeof(record->name), "vlan%hu", vid);
    record->type = TARN_IF_TYPE_VLAN;
    record->flags = IFF_UP | IFF_BROADCAST | IFF_MULTICAST;
    record->vid = vid;
    return record;
}

// With its device. On failure the record stays with the caller, and the device goes.
i32 _install_vlan(tarn_if *record, const u8 *hwaddr, u32 hwaddr_len, tarn_if **out) {
    u32 ifindex = 0;
    net_device *device = tarn_os_l3_if_configure(record, hwaddr, hwaddr_len, &ifindex);
    if (!device)
        return TARN_ERR_NETDEV;
    record->netdev = device;
    record->ifindex = ifindex;
    if (hwaddr)
        memcpy(record->hwaddr, hwaddr,
               hwaddr_len < sizeof(record->hwaddr) ? hwaddr_len : sizeof(record->hwaddr));
    i32 result = _tarn_ifmgr_if_install(record, out, true);
    if (result != 0)
        tarn_os_l3_if_unconfigure(record);
    return result;
}

i32 _create_ethernet(const char *name, const u8 *hwaddr, u32 flags, u32 ifindex, u32 type) {
    if (_exists(ifindex))
        return 0;
    tarn_if *record = _template(name, ifindex, type);
    if (!record)
        return TARN_ERR_NO_MEMORY;
    record->flags = flags;
    memcpy(record->hwaddr, hwaddr, ADDRESS_SIZE);

    tarn_if *ifp = nullptr;
    i32 result = _install_copy_of(record, &ifp);
    if (result != 0) {
        _failed("tarn_ifmgr_ethernet_create", name);
        return result;
    }
    // Need not be there. One that goes tells those who have it by then.
    rtnl_lock();
    write_once(ifp->netdev, tarn_if_device_get(ifp));
    rtnl_unlock();
    return 0;
}

// The test for an existing one comes before that of the address here, on purpose.
i32 _create_switchport(const char *name, const u8 *hwaddr, u32 flags, u32 stack_member, u32 ifindex,
                       u8 with_netdev) {
    if (_exists(ifindex))
        return 0;
    if (!hwaddr)
        return TARN_ERR_BAD_ARG;
    tarn_if *record = _template(name, ifindex, TARN_IF_TYPE_SWITCHPORT);
    if (!record)
        return TARN_ERR_NO_MEMORY;
    record->flags = flags;
    record->stack_member = stack_member;
    memcpy(record->port_hwaddr, hwaddr, ADDRESS_SIZE);

    tarn_if *ifp = nullptr;
    i32 result = _install_copy_of(record, &ifp);
    if (result != 0)
        _failed("tarn_ifmgr_switchport_create", name);
    else if (with_netdev)
        result = _add_device(ifp, flags);
    if (result != 0)
        return result;
    if ((read_once(ifp->flags) & TARN_IF_LINK) == TARN_IF_LINK)
        tarn_ifmgr_L2_link_up(ifp);
    return 0;
}

i32 _create_aggregator(const char *name, const u8 *hwaddr, u32 agg_type, u32 ifindex) {
    if (_exists(ifindex))
        return 0;
    if (agg_type != TARN_AGG_TYPE_STATIC && agg_type != TARN_AGG_TYPE_DYNAMIC)
        return TARN_ERR_BAD_ARG;
    if (_exists(ifindex))
        return TARN_ERR_EXISTS;
    tarn_if *record = _template(name, ifindex, TARN_IF_TYPE_SWITCHPORT);
    if (!record)
        return TARN_ERR_NO_MEMORY;
    record->if_flags =
        agg_type == TARN_AGG_TYPE_STATIC ? TARN_IF_F_AGG_STATIC : TARN_IF_F_AGG_DYNAMIC;
    memcpy(record->port_hwaddr, hwaddr, ADDRESS_SIZE);

    tarn_if *ifp = nullptr;
    i32 result = _install_copy_of(record, &ifp);
    return result < 0 ? result : 0;
}

i32 _create_vlan(const u8 *hwaddr, u32 hwaddr_len, tarn_if **out, u16 vid, u32 options) {
    tarn_if *record = _new_vlan(vid);
    if (!record)
        return TARN_ERR_NO_MEMORY;
    i32 result = _install_vlan(record, hwaddr, hwaddr_len, out);
    if (result != 0) {
        kfree(record);
        return result;
    }
    _apply_options(record, options);
    tarn_ifmgr_notify_vlan_created(vid);
    return 0;
}

} // namespace

i32 tarn_ifmgr_ethernet_create(const char *name, const u8 *hwaddr, u32 flags, u32 ifindex,
                               u32 type) {
    if (!hwaddr)
        return TARN_ERR_BAD_ARG;
    tarn_ifmgr_change_begin();
    i32 result = _create_ethernet(name, hwaddr, flags, ifindex, type);
    tarn_ifmgr_change_end();
    return result;
}

i32 tarn_ifmgr_switchport_create(const char *name, const u8 *hwaddr, u32 flags, u32 stack_member,
                                 u32 ifindex, u8 with_netdev) {
    tarn_ifmgr_change_begin();
    i32 result = _create_switchport(name, hwaddr, flags, stack_member, ifindex, with_netdev);
    tarn_ifmgr_change_end();
    return result;
}

i32 tarn_ifmgr_aggregator_add(const char *name, const u8 *hwaddr, u32 agg_type, u32 ifindex) {
    if (!name || !hwaddr)
        return TARN_ERR_BAD_ARG;
    tarn_ifmgr_change_begin();
    i32 result = _create_aggregator(name, hwaddr, agg_type, ifindex);
    tarn_ifmgr_change_end();
    return result;
}

// An existing VLAN is not asked for: its device is taken over, and its record replaced.
i32 tarn_ifmgr_vlan_create(const u8 *hwaddr, u32 hwaddr_len, tarn_if **out, u16 vid, u32 options) {
    if (!out)
        return TARN_ERR_BAD_ARG;
    tarn_ifmgr_change_begin();
    i32 result = _create_vlan(hwaddr, hwaddr_len, out, vid, options);
    tarn_ifmgr_change_end();
    return result;
}

void tarn_ifmgr_delete_interface(tarn_if *ifp) {
    set_bits(ifp->if_flags, TARN_IF_F_DELETED);
    tarn_follow(ifp);
    _tarn_ifmgr_if_put(ifp);
}
