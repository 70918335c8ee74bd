// Commands on interfaces: how they come, go and are set.
#include "control/nl_command.h"
#include "ifmgr/tarn_ifmgr_change.h"
#include "ifmgr/tarn_ifmgr_create.h"
#include "ifmgr/tarn_ifmgr_link.h"
#include "ifmgr/tarn_ifmgr_settings.h"
#include "kernel/log.h"
#include "kernel/netdev.h"

namespace {

constexpr u32 HWADDR_SIZE = NETDEV_ADDRESS_SIZE;

// A name of the interface manager's: cut at 16 bytes, without a terminator when it fills them.
struct _interface_name {
    char text[TARN_IF_NAME_SIZE + 1] = {};

    explicit _interface_name(const nl_command &command) {
        u32 length = command.length(TARNFWD_ATTR_IF_NAME);
        memcpy(text, command.bytes(TARNFWD_ATTR_IF_NAME),
               length < TARN_IF_NAME_SIZE ? length : TARN_IF_NAME_SIZE);
    }
};

i32 _create_port(const nl_command &command, const char *name, const u8 *mac) {
    u32 ifindex = command.ifindex();
    u8 port_kind =
        command.has(TARNFWD_ATTR_PORT_KIND) ? command.byte(TARNFWD_ATTR_PORT_KIND) : u8{0};
    if (port_kind == TARNFWD_PORT_KIND_AGG_DYNAMIC || port_kind == TARNFWD_PORT_KIND_AGG_STATIC)
        return tarn_ifmgr_aggregator_add(name, mac, port_kind, ifindex);
    u32 member =
        command.has(TARNFWD_ATTR_STACK_MEMBER) ? command.word(TARNFWD_ATTR_STACK_MEMBER) : 0;
    return tarn_ifmgr_switchport_create(name, mac, command.word(TARNFWD_ATTR_FLAGS), member,
                                        ifindex, port_kind == TARNFWD_PORT_KIND_ROUTED);
}

// A missing address is for the creators to refuse.
i32 _create(const nl_command &command) {
    u8 kind = command.byte(TARNFWD_ATTR_IF_KIND);
    if (kind == 0 || kind > TARNFWD_IF_KIND_MAX)
        return -EOPNOTSUPP;
    if (kind != TARNFWD_IF_KIND_ETHERNET && kind != TARNFWD_IF_KIND_PORT)
        return 0; // VLAN interfaces come in ranges; the other kinds need nothing from here
    const u8 *mac = command.has(TARNFWD_ATTR_MAC) ? command.mac() : nullptr;
    if (mac && command.length(TARNFWD_ATTR_MAC) < HWADDR_SIZE)
        return -EINVAL;
    _interface_name name(command);
    if (kind == TARNFWD_IF_KIND_ETHERNET)
        return tarn_ifmgr_ethernet_create(name.text, mac, command.word(TARNFWD_ATTR_FLAGS),
                                          command.ifindex(), TARN_IF_TYPE_ETHERNET);
    return _create_port(command, name.text, mac);
}

// Marked first, so that nothing finds it while its last references go.
void _delete(tarn_if *ifp) {
    tarn_ifmgr_delete_interface(ifp);
    tarn_ifmgr_if_ref_put(ifp);
}

} // namespace

NL_HANDLER(if_newlink) {
    i32 result = _create(command);
    if (result != 0)
        pr_err("Error creating interface %d ret %d\n", static_cast<int>(command.ifindex()), result);
    return result;
}

// The flags of other interfaces than ports come from their devices.
NL_HANDLER(if_update) {
    return nl_with_interface(command.ifindex(), -1, [&](tarn_if *ifp) {
        if (command.has(TARNFWD_ATTR_SPEED))
            write_once(ifp->speed, command.word(TARNFWD_ATTR_SPEED));
        if (command.has(TARNFWD_ATTR_DUPLEX))
            write_once(ifp->duplex, command.byte(TARNFWD_ATTR_DUPLEX));
        if (ifp->type != TARN_IF_TYPE_SWITCHPORT)
            return 0;
        tarn_ifmgr_change_begin();
        u32 old = read_once(ifp->flags);
        write_once(ifp->flags, command.word(TARNFWD_ATTR_FLAGS));
        tarn_ifmgr_L2_link_state_check(ifp, (old & TARN_IF_LINK) == TARN_IF_LINK);
        tarn_ifmgr_change_end();
        return 0;
    });
}

// The lookup's reference first, so that deletion drops the last one.
NL_HANDLER(if_dellink) {
    tarn_if *ifp = tarn_ifmgr_lookup_by_index(command.ifindex());
    if (!ifp)
        return 0;
    tarn_ifmgr_if_ref_put(ifp);
    tarn_ifmgr_delete_interface(ifp);
    return 0;
}

NL_HANDLER(if_delete_svi) {
    tarn_if *ifp = tarn_ifmgr_lookup_by_index(command.ifindex());
    if (!ifp)
        return -1;
    _delete(ifp);
    return 0;
}

NL_HANDLER(lacp_delete_aggregator) {
    tarn_if *ifp = tarn_ifmgr_lookup_by_index(command.word(TARNFWD_ATTR_AGG_IFINDEX));
    if (!ifp)
        return -EINVAL;
    _delete(ifp);
    return 0;
}

NL_HANDLER(if_set_hwaddr) {
    return tarn_ifmgr_set_hwaddr(command.ifindex(), HWADDR_SIZE, command.mac());
}

NL_HANDLER(if_bind_fib) {
    return tarn_ifmgr_if_bind_fib(command.ifindex(), command.word(TARNFWD_ATTR_ID));
}

NL_HANDLER(if_unbind_fib) {
    return tarn_ifmgr_if_unbind_fib(command.ifindex(), command.word(TARNFWD_ATTR_ID));
}

// Goes on after a failure, and tells of the last one only: on purpose.
NL_HANDLER(if_create_svi_range) {
    u32 options = command.word(TARNFWD_ATTR_VLAN_OPTIONS);
    u16 end = command.half(TARNFWD_ATTR_VID_END);
    i32 result = 0;
    for (u16 vid = command.half(TARNFWD_ATTR_VID_START); vid < end; vid++) {
        tarn_if *vlan = nullptr;
        result = tarn_ifmgr_vlan_create(command.mac(), HWADDR_SIZE, &vlan, vid, options);
    }
    return result;
}

NL_HANDLER(if_set_vlan_options) {
    return nl_with_interface(command.ifindex(), -1, [&](tarn_if *ifp) {
        tarn_ifmgr_set_vlan_options(ifp, command.word(TARNFWD_ATTR_VLAN_OPTIONS));
        return 0;
    });
}

NL_HANDLER(arp_mac_disparity) {
    return nl_with_interface(command.ifindex(), -1, [&](tarn_if *ifp) {
        if (command.on())
            set_bits(ifp->if_flags, TARN_IF_F_ARP_MAC_DISPARITY);
        else
            clear_bits(ifp->if_flags, TARN_IF_F_ARP_MAC_DISPARITY);
        return 0;
    });
}

NL_HANDLER(pmirror_set) {
    return tarn_ifmgr_set_portmirror(command.word(TARNFWD_ATTR_MIRROR_TARGET),
                                     command.word(TARNFWD_ATTR_MIRROR_SOURCE),
                                     command.byte(TARNFWD_ATTR_MIRROR_DIRECTION), command.vid());
}

NL_HANDLER(pmirror_unset) {
    return tarn_ifmgr_unset_portmirror(command.word(TARNFWD_ATTR_MIRROR_TARGET),
                                       command.word(TARNFWD_ATTR_MIRROR_SOURCE),
                                       command.byte(TARNFWD_ATTR_MIRROR_DIRECTION), command.vid());
}

NL_HANDLER(port_set_l3) {
    return tarn_ifmgr_l3_switchport_set(command.ifindex(), command.vid());
}
