#include "events/tarnfwd_nl_event.h"

#include "kernel/errno.h"
#include "kernel/genl.h"
#include "kernel/memory.h"
#include "tarn/tarnfwd_nl.h"

namespace {

// Far above the need of any event, so that none has to be measured.
constexpr u32 MESSAGE_SIZE = 3840;
constexpr u32 DOS_HEADER = 20;
constexpr int ANY_NODE = -1;

struct _attribute {
    tarnfwd_attr number;
    u32 length;
    const void *data;
};

template <typename Integer>
_attribute _of(tarnfwd_attr number, const Integer &value) {
    return {number, sizeof(value), &value};
}

template <u32 N>
i32 _send(tarnfwd_cmd event, const _attribute (&attributes)[N]) {
    gfp_t flags = gfp_here();
    sk_buff *skb = __alloc_skb(MESSAGE_SIZE, flags, 0, ANY_NODE);
    if (!skb)
        return -ENOMEM;
    void *header = genlmsg_put(skb, 0, 0, &tarnfwd_nl_family, 0, static_cast<u8>(event));
    if (!header || is_err_value(header)) {
        kfree_skb(skb);
        return header ? static_cast<i32>(reinterpret_cast<std::intptr_t>(header)) : -EMSGSIZE;
    }
    for (const _attribute &each : attributes)
        if (nla_put(skb, each.number, static_cast<int>(each.length), each.data) != 0) {
            kfree_skb(skb);
            return -EMSGSIZE;
        }
    genlmsg_end(skb, header);
    return genlmsg_multicast_allns(&tarnfwd_nl_family, skb, 0, 0, flags);
}

} // namespace

i32 tarnfwd_nl_send_l2_fdb_add(const u8 *mac, u32 ifindex, u8 event, u16 vid, u8 state, u32 vni,
                               u32 remote) {
    return _send(TARNFWD_CMD_L2_FDB_ADD, {
                                             {TARNFWD_ATTR_MAC, 6, mac},
                                             _of(TARNFWD_ATTR_IFINDEX, ifindex),
                                             _of(TARNFWD_ATTR_VID, vid),
                                             _of(TARNFWD_ATTR_STATE, state),
                                             _of(TARNFWD_ATTR_FDB_EVENT, event),
                                             _of(TARNFWD_ATTR_VXLAN_VNI, vni),
                                             _of(TARNFWD_ATTR_VXLAN_REMOTE_ADDR, remote),
                                         });
}

i32 tarnfwd_nl_send_dos_match(u32 ifindex, u32 reason, u16 ethertype, const u8 *header) {
    u8 short_reason = static_cast<u8>(reason);
    return _send(TARNFWD_CMD_DOS_MATCH, {
                                            _of(TARNFWD_ATTR_IFINDEX, ifindex),
                                            _of(TARNFWD_ATTR_DOS_REASON, short_reason),
                                            _of(TARNFWD_ATTR_ETHERTYPE, ethertype),
                                            {TARNFWD_ATTR_DOS_HEADER, DOS_HEADER, header},
                                        });
}

i32 tarnfwd_nl_send_dhcpsn_arpsec_violation(u32 ifindex, u16 vid, u32 address, const u8 *mac,
                                            u8 reason) {
    return _send(TARNFWD_CMD_DHCPSN_ARPSEC_VIOLATION, {
                                                          _of(TARNFWD_ATTR_IFINDEX, ifindex),
                                                          _of(TARNFWD_ATTR_VID, vid),
                                                          _of(TARNFWD_ATTR_IPV4_ADDR, address),
                                                          _of(TARNFWD_ATTR_ARPSEC_REASON, reason),
                                                          {TARNFWD_ATTR_MAC, 6, mac},
                                                      });
}
