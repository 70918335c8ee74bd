#include "pkt/pkt_flood.h"

#include "ifmgr/tarn_ifmgr.h"
#include "kernel/errno.h"
#include "kernel/memory.h"
#include "kernel/once.h"
#include "pkt/frame.h"
#include "pkt/pkt_calls.h"
#include "pkt/pkt_debug.h"
#include "pkt/pkt_hw.h"
#include "pkt/pkt_info.h"
#include "pkt/pkt_tx.h"

namespace {

constinit u8 unknown_multicast_flood = 1;

struct _flood_way {
    tarn_if *port;
    u32 cos, queue;
    u8 tx_enable;
    u32 mask;
};

void _log(const tarn_if *port, u32 vid, const sk_buff *skb, u32 queue) {
    char vlan_name[TARN_IF_NAME_SIZE];
    snprintf(vlan_name, sizeof(vlan_name), "vlan%d", static_cast<i32>(vid));
    _tarn_pkt_debug_tx(port ? port->name : "portUnknown", vlan_name, vid, skb, queue, true);
}

u32 _software(const _flood_way &way, u32 vid, const sk_buff *skb) {
    return _tarn_flood_software(way.port, vid, skb, way.cos, way.queue, way.tx_enable, way.mask);
}

// Bytes of its own, for a frame about to be rewritten: others may read them through a clone.
bool _own_bytes(sk_buff *skb) {
    return !skb_cloned(skb) || pskb_expand_head(skb, 0, 0, GFP_ATOMIC) == 0;
}

// Whether the tag finds room before the frame and its addresses to stand behind.
bool _takes_tag(const sk_buff *skb) {
    return skb_headroom(skb) >= VLAN_HLEN && skb_len(skb) >= ETH_TYPE_OFFSET;
}

// The type bytes of this tag stand the wrong way round, on purpose: the far end expects them so.
u32 _flood_tagged(const _flood_way &way, u32 vid, u32 outer, sk_buff *skb) {
    if (!_takes_tag(skb) || !_own_bytes(skb))
        return 0;
    auto *data = static_cast<u8 *>(skb_push(skb, VLAN_HLEN));
    memmove(data, data + VLAN_HLEN, 2 * ETH_ALEN);
    const u8 tag[VLAN_HLEN] = {0x00, 0x81,
                               static_cast<u8>(((way.cos << 5) & 0x60) | ((vid >> 8) & 0x0F)),
                               static_cast<u8>(vid)};
    memcpy(data + ETH_TYPE_OFFSET, tag, sizeof(tag));
    return _software(way, outer, skb);
}

u32 _flood_stripped(const _flood_way &way, u32 vid, sk_buff *skb) {
    frame_bytes frame(skb);
    if (frame.be16(ETH_TYPE_OFFSET) != ETH_P_8021Q || frame_ends_within_tag(frame))
        return 0;
    // The control word as it lies in memory, on purpose: no byte swap.
    u16 word = 0;
    frame.copy(VLAN_TCI_OFFSET, &word, sizeof(word));
    u32 inner = word & 0xFF0Fu;
    if (tarn_vlan_stack_outer_vlan_get(inner) != vid)
        return 0;
    u16 tci;
    return frame_strip_tag(skb, &tci) ? _software(way, inner, skb) : 0;
}

// VLANs that carry others: the flood goes on in the outer one, or in the one that the tag names.
u32 _flood_stacked(const _flood_way &way, u32 vid, sk_buff *skb) {
    u32 outer = tarn_vlan_stack_outer_vlan_get(vid);
    return outer != 0 ? _flood_tagged(way, vid, outer, skb) : _flood_stripped(way, vid, skb);
}

} // namespace

i32 _tarn_flood(tarn_if *port, u32 vid, const u32 *except, sk_buff *skb, u32 cos, u32 queue,
                u8 tx_enable, u32 mask) {
    // Floods know no bypass.
    if (read_once(tx_discard_all)) {
        kfree_skb(skb);
        return 0;
    }

    // The line is written when the chip has answered, and by then a frame that it took may be gone.
    sk_buff *logged = read_once(tarn_pkt_debug) ? skb_copy(skb, GFP_ATOMIC) : nullptr;
    i32 result =
        rxtx_hw_flood_except(port ? port->ifindex : 0, vid, except ? except[0] : FLOOD_NO_EXCEPTION,
                             except ? except[1] : 0, skb, cos, static_cast<u8>(queue), mask, 0,
                             tarn_vlan_egress_tagged(port, vid));
    if (result != -EOPNOTSUPP) {
        if (logged) {
            _log(port, vid, logged, queue);
            consume_skb(logged);
        }
        return result;
    }
    if (logged)
        consume_skb(logged);

    const _flood_way way{port, cos, queue, tx_enable, mask};
    u32 sent = _software(way, vid, skb);
    if (static_cast<i32>(sent) >= 0)
        sent = _flood_stacked(way, vid, skb);
    if (static_cast<i32>(sent) < 0)
        return static_cast<i32>(sent);
    kfree_skb(skb);
    return static_cast<i32>(sent);
}

u32 tarn_flood_except_port(tarn_if *port, u32 vid, const u32 *except, sk_buff *skb, u32 cos,
                           u32 queue, u8 tx_enable) {
    return static_cast<u32>(_tarn_flood(port, vid, except, skb, cos, queue, tx_enable, 0));
}

u32 tarn_flood_trusted_except_port(tarn_if *port, u32 vid, sk_buff *skb, u32 cos, u32 queue,
                                   u8 tx_enable) {
    return static_cast<u32>(
        _tarn_flood(port, vid, nullptr, skb, cos, queue, tx_enable, TARN_IF_F_DHCPSN_TRUSTED));
}

void tarn_pkt_unknown_multicast_flood_set(u8 enable) {
    write_once(unknown_multicast_flood, enable);
    rxtx_hw_unknown_multicast_flood_set(enable);
}

u8 tarn_pkt_unknown_multicast_flood_enabled() {
    return read_once(unknown_multicast_flood);
}
