#include "pkt/pkt_follow.h"

#include "ifmgr/tarn_ifmgr.h"
#include "kernel/bytes.h"
#include "kernel/errno.h"
#include "kernel/netdev.h"
#include "kernel/once.h"

namespace {

// Read-held over a call, so that whoever takes the follower away waits for its end.
constinit rwlock_t _lock{};
constinit rxtx_follow_callbacks _follower{};

constexpr u32 LAST_VID = 4094;

static_assert(RXTX_FOLLOW_STP_INSTANCES == TARN_STP_INSTANCES);
static_assert(sizeof(rxtx_follow_port::name) > sizeof(tarn_if::name));
static_assert(u32{RXTX_FOLLOW_STP_LEARNING} == u32{TARN_STP_LEARNING} &&
              u32{RXTX_FOLLOW_STP_FORWARDING} == u32{TARN_STP_FORWARDING});

template <typename Callback, typename... Arguments>
void _call(Callback rxtx_follow_callbacks::*which, Arguments... arguments) {
    read_lock_bh(&_lock);
    if (Callback callback = _follower.*which)
        callback(arguments...);
    read_unlock_bh(&_lock);
}

// Runs the call on the port or aggregator of that ifindex.
template <typename Call>
i32 _on_port(u32 ifindex, Call call) {
    tarn_if *port = tarn_ifmgr_lookup_by_index(ifindex);
    if (!port)
        return -ENODEV;
    i32 result = port->type == TARN_IF_TYPE_SWITCHPORT ? call(port) : -ENODEV;
    tarn_ifmgr_if_ref_put_later(port);
    return result;
}

// An aggregator that is about to go keeps its members until it has gone.
const tarn_if *_logical(tarn_if *port) {
    const tarn_if *logical = tarn_ifmgr_logical_port(port);
    return read_once(logical->if_flags) & TARN_IF_F_DELETED ? port : logical;
}

u32 _ifindex_of_aggregator(tarn_if *port) {
    const tarn_if *logical = _logical(port);
    return logical != port ? logical->ifindex : 0;
}

void _copy_address(u8 *to, const tarn_if_address &from) {
    memcpy(to, from.bytes, sizeof(from.bytes));
}

// A routed port that was given no address of its own has that of the port.
tarn_if_address _own_address(const tarn_if *port) {
    constexpr u8 none[sizeof(tarn_if::hwaddr)] = {};
    const tarn_if_address own(port->hwaddr);
    return memcmp(own.bytes, none, sizeof(none)) != 0 ? own : tarn_if_address(port->port_hwaddr);
}

// The record with the next higher ifindex; under the lock of the database.
const tarn_if *_above(u32 ifindex) {
    const tarn_if *found = nullptr;
    for (const tarn_avl_node *node = p_tarn_if_db->tree->root; node;) {
        const auto *ifp = static_cast<const tarn_if *>(node->info);
        bool above = ifp->ifindex > ifindex;
        found = above ? ifp : found;
        node = above ? node->left : node->right;
    }
    return found;
}

tarn_if *_hold_next(u32 *ifindex) {
    while (true) {
        read_lock_bh(&tarn_if_db_lock);
        const tarn_if *next = _above(*ifindex);
        *ifindex = next ? next->ifindex : 0;
        read_unlock_bh(&tarn_if_db_lock);
        tarn_if *ifp = next ? tarn_ifmgr_lookup_by_index(*ifindex) : nullptr;
        if (ifp || !next)
            return ifp;
    }
}

bool _is_called(const tarn_if *ifp, const char *name) {
    return ifp->type == TARN_IF_TYPE_SWITCHPORT && strncmp(ifp->name, name, sizeof(ifp->name)) == 0;
}

void _tell_all() {
    u32 ifindex = 0;
    while (tarn_if *ifp = p_tarn_if_db ? _hold_next(&ifindex) : nullptr) {
        tarn_follow(ifp);
        tarn_ifmgr_if_ref_put(ifp);
    }
}

} // namespace

void tarn_follow_init() {
    rwlock_init(&_lock, "tarn_follow_lock");
}

// Whoever changes the state from now on calls the follower; what changed before is seen by the
// walk.
void rxtx_follow_register(const rxtx_follow_callbacks *callbacks) {
    write_lock_bh(&_lock);
    _follower = callbacks ? *callbacks : rxtx_follow_callbacks{};
    write_unlock_bh(&_lock);
    if (callbacks)
        _tell_all();
}

void tarn_follow(const tarn_if *ifp) {
    if (ifp->type == TARN_IF_TYPE_SWITCHPORT)
        _call(&rxtx_follow_callbacks::port, ifp->ifindex);
    else if (ifp->type == TARN_IF_TYPE_VLAN)
        _call(&rxtx_follow_callbacks::vlan, u32{ifp->vid});
}

void tarn_follow_vlans(const tarn_if *port, u32 first, u32 last) {
    _call(&rxtx_follow_callbacks::port_vlans, port->ifindex, first, last);
}

void tarn_follow_stp(const tarn_if *port, u32 instance) {
    _call(&rxtx_follow_callbacks::port_stp, port->ifindex, instance);
}

i32 rxtx_follow_port_get(u32 ifindex, rxtx_follow_port *told) {
    return _on_port(ifindex, [=](tarn_if *port) {
        u32 flags = read_once(port->flags);
        bool routed = read_once(port->if_flags) & TARN_IF_F_L3_SWITCHPORT;
        *told = {};
        told->up = (flags & IFF_UP) != 0;
        told->running = (flags & IFF_RUNNING) != 0;
        told->ingress_filter = read_once(port->ingress_filter) != 0;
        told->routed = routed;
        told->pvid = read_once(port->default_pvid);
        told->routed_vid = routed ? read_once(port->vid) : u16{0};
        told->aggregator = _ifindex_of_aggregator(port);
        told->mirror = read_once(port->mirror_ifindex);
        memcpy(told->name, port->name, sizeof(port->name));
        if (routed)
            _copy_address(told->mac, _own_address(port));
        return 0;
    });
}

u32 rxtx_follow_ifindex_get(const char *name) {
    u32 ifindex = 0;
    while (tarn_if *ifp = p_tarn_if_db ? _hold_next(&ifindex) : nullptr) {
        bool found = _is_called(ifp, name);
        tarn_ifmgr_if_ref_put(ifp);
        if (found)
            return ifindex;
    }
    return 0;
}

i32 rxtx_follow_vlans_get(u32 ifindex, u32 vid, rxtx_follow_vlans *told) {
    if (vid > LAST_VID)
        return -EINVAL;
    return _on_port(ifindex, [=](tarn_if *port) {
        *told = {read_once(port->vlan_member_bmp[vid >> 5]),
                 read_once(port->vlan_tagged_bmp[vid >> 5]),
                 read_once(port->vlan_disabled_bmp[vid >> 5])};
        return 0;
    });
}

i32 rxtx_follow_stp_get(u32 ifindex, u32 instance) {
    if (instance >= TARN_STP_INSTANCES)
        return -EINVAL;
    return _on_port(ifindex, [=](tarn_if *port) {
        return static_cast<i32>(read_once(_logical(port)->stp_state[instance]));
    });
}

i32 rxtx_follow_vlan_get(u32 vid, rxtx_follow_vlan *told) {
    tarn_if *vlan = tarn_ifmgr_lookup_by_vid(vid);
    if (!vlan)
        return -ENODEV;
    bool is_vlan = vlan->type == TARN_IF_TYPE_VLAN;
    if (is_vlan) {
        _copy_address(told->mac, tarn_if_address(vlan->hwaddr));
        told->no_member_check = (read_once(vlan->if_flags) & TARN_IF_F_NO_VLAN_MEMBER_CHECK) != 0;
        told->stp_instance = read_once(vlan->stp_instance);
    }
    tarn_ifmgr_if_ref_put_later(vlan);
    return is_vlan ? 0 : -ENODEV;
}
