// The bottom layer of transmit: which VLAN, whether spanning tree lets it out, tagged or not; then
// the chip, or a plain device of the kernel.
#include "ifmgr/tarn_ifmgr.h"
#include "kernel/errno.h"
#include "kernel/memory.h"
#include "kernel/netdev.h"
#include "kernel/once.h"
#include "kernel/preempt.h"
#include "pkt/frame.h"
#include "pkt/pkt_calls.h"
#include "pkt/pkt_hw.h"
#include "pkt/pkt_tx.h"

namespace {

constexpr u32 VID_MASK = 0x0FFF;

u32 _vid_of(const tarn_if *vlan_if, const sk_buff *skb) {
    if (vlan_if)
        return read_once(vlan_if->vid); // of a routed port it may change
    frame_bytes frame(skb);
    return frame.be16(ETH_TYPE_OFFSET) == ETH_P_8021Q ? frame.be16(VLAN_TCI_OFFSET) & VID_MASK : 0;
}

bool _is_port(const tarn_if *ifp) {
    return ifp->type == TARN_IF_TYPE_ETHERNET || ifp->type == TARN_IF_TYPE_SWITCHPORT;
}

// Authentication leaves regardless of spanning tree, so a blocked port drops only while it is
// uncontrolled. On purpose.
bool _blocked(tarn_if *port, const tarn_if *vlan_if) {
    if (!port || !vlan_if || !_is_port(port))
        return false;
    const tarn_if *logical = tarn_ifmgr_logical_port(port);
    return tarn_ifmgr_stp_state(logical, vlan_if) != TARN_STP_FORWARDING &&
           read_once(logical->auth_state) == TARN_AUTH_UNCONTROLLED;
}

// Under OpenFlow a frame keeps the form in which it came.
bool _tagged(const tarn_if *port, u32 vid, const sk_buff *skb) {
    if (!port)
        return false;
    if (read_once(port->openflow))
        return frame_bytes(skb).be16(ETH_TYPE_OFFSET) == ETH_P_8021Q;
    return tarn_vlan_egress_tagged(port, vid);
}

// A device's queue consumes what it is given, whatever it answers. So it is given a clone, and any
// result but 0 leaves the frame with the caller, here as everywhere.
u32 _give_to_device(const tarn_if *port, sk_buff *skb) {
    net_device *device = read_once(port->netdev);
    if (!device)
        return static_cast<u32>(-ENODEV);
    sk_buff *clone = skb_clone(skb, GFP_ATOMIC);
    if (!clone)
        return static_cast<u32>(-ENOMEM);
    skb_set_dev(clone, device);
    u32 result = static_cast<u32>(dev_queue_xmit(clone));
    if (result == 0)
        consume_skb(skb);
    return result;
}

// The device may be unregistered at any time, and whoever frees it waits for those who have bottom
// halves off.
u32 _device_xmit(const tarn_if *port, sk_buff *skb) {
    local_bh_disable();
    u32 result = _give_to_device(port, skb);
    local_bh_enable();
    return result;
}

} // namespace

u32 _tarn_port_start_xmit(tarn_if *port, tarn_if *vlan_if, sk_buff *skb, u32 cos, u32 queue,
                          u8 tx_enable, bool tx_option) {
    u32 vid = _vid_of(vlan_if, skb);
    if (_blocked(port, vlan_if)) {
        kfree_skb(skb);
        return 0;
    }

    u32 result;
    if (port && port->type == TARN_IF_TYPE_ETHERNET) {
        result = _device_xmit(port, skb);
    } else {
        skb_orphan(skb);
        result = rxtx_hw_start_xmit(port ? port->ifindex : 0, vid, _tagged(port, vid, skb),
                                    tx_option, skb, cos, static_cast<u8>(queue), tx_enable);
    }
    if (result != 0) [[unlikely]]
        tarn_pkt_xmit_failure(vlan_if, queue, static_cast<i32>(result));
    return result;
}
