// "testd", family 55: a loop test that sends frames of type 0x9000 and gets them back, from the
// chain as from the IP stack.
#include "ifmgr/tarn_if_device.h"
#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_bind.h"
#include "kernel/errno.h"
#include "kernel/log.h"
#include "kernel/netdev.h"
#include "kernel/work.h"
#include "pkt/pkt_post.h"
#include "sockets/socket_family.h"
#include "sockets/sockets.h"

namespace {

constexpr u32 SLOT = 14;
constexpr u32 POSTED = 1;
constexpr u16 ETH_P_LOOPTEST = 0x9000;

// --- send --------------------------------------------------------------------------------------

// What the IP stack has a device for is used as it is.
i32 _route(socket_send *send) {
    send->named = tarn_ifmgr_lookup_by_index(send->address.ifindex);
    if (!send->named)
        return -EINVAL;
    if (tarn_if_is_l3(send->named))
        tarn_ifmgr_if_ref_get(send->port = send->named);
    else
        send->port = tarn_ifmgr_get_L2_xmit_port(send->named);
    if (!send->port)
        return -EINVAL;
    return read_once(send->port->flags) & SOCKET_UP ? 0 : -ENETDOWN;
}

// Any answer of the queue that is no error counts as sent.
i32 _through_stack(const tarn_if *ifp, sk_buff *skb) {
    net_device *device = tarn_if_device_get(ifp);
    if (!device)
        return socket_sent(skb, static_cast<u32>(-EINVAL));
    skb_set_dev(skb, device);
    i32 result = dev_queue_xmit(skb);
    dev_put(device);
    return result < 0 ? result : 0;
}

i32 _transmit(const socket_send *send, sk_buff *skb) {
    if (tarn_if_is_l3(send->port))
        return _through_stack(send->port, skb);
    return socket_transmit(send, skb, send->family->send.cos);
}

constexpr socket_family _testd{
    .number = TARN_AF_TESTD,
    .name = "TESTD",
    .lock_name = "testd_sock_list_lock",
    .address_size = sizeof(vlan_skaddr),
    .receive = {.push = SOCKET_PUSH_VLAN, .port = SOCKET_L2_IFINDEX},
    .send = {.function = "_testd_sock_sendmsg",
             .min_name = sizeof(vlan_skaddr),
             .null_message = VLAN_SKADDR_IS_NULL,
             .short_message = SKADDR_IS_SHORT,
             .cos = 2,
             .queue = 2,
             .route = _route,
             .transmit = _transmit},
};

using _sockets = family_sockets<_testd>;

// --- frames that the IP stack takes --------------------------------------------------------------

// Nobody else's: null after a message when that cannot be had.
sk_buff *_unshared(sk_buff *skb) {
    if (!skb_shared(skb))
        return skb;
    sk_buff *own = skb_clone(skb, GFP_ATOMIC);
    consume_skb(skb);
    if (!own)
        _printk("Out of memory cloning skb");
    return own;
}

// The address and, behind it, what followed the Ethernet header, in a buffer of its own. Null, with
// the frame gone, when that cannot be had.
sk_buff *_addressed(sk_buff *skb, u32 ifindex) {
    vlan_skaddr address{};
    address.ifindex = ifindex;
    bool has_header = skb_headroom(skb) >= ETH_HLEN; // the stack has pulled it
    if (has_header) {
        skb_push(skb, ETH_HLEN);
        frame_bytes(skb).copy(0, &address, ETH_HLEN);
        skb_pull(skb, ETH_HLEN);
    }
    sk_buff *roomy = has_header ? skb_realloc_headroom(skb, sizeof(address)) : nullptr;
    consume_skb(skb);
    if (roomy)
        memcpy(skb_push(roomy, sizeof(address)), &address, sizeof(address));
    return roomy;
}

i32 _to_sockets(sk_buff *skb, const net_device *device) {
    tarn_if *ifp = tarn_ifmgr_lookup_by_index(netdev_ifindex(device));
    if (!ifp) {
        _printk("Unknown interface %s - drop", netdev_name(device));
        kfree_skb(skb);
        return -EINVAL;
    }
    skb = _unshared(skb);
    if (skb)
        skb = _addressed(skb, ifp->ifindex);
    if (skb) {
        tarn_pkt_post_packet(skb, nullptr, &_sockets::list, &_sockets::lock);
        __dev_kfree_skb_irq(skb, SKB_REASON_DROPPED);
    }
    tarn_ifmgr_if_ref_put(ifp);
    return skb ? 0 : -ENOMEM;
}

// Frames of other namespaces are none of ours, whatever the number of their device.
i32 testd_packet_rcv(sk_buff *skb, net_device *device, packet_type *type, net_device *) {
    u16 wanted = be16_to_cpu(packet_type_type(type));
    if (wanted != ETH_P_LOOPTEST)
        _printk("packet failed looptest type test 0x%x - drop", wanted);
    if (wanted != ETH_P_LOOPTEST || !netdev_in_init_net(device)) {
        kfree_skb(skb);
        return -EINVAL;
    }
    return _to_sockets(skb, device);
}

// The record is one for all sockets: the first one arms it, and it stays so.
constinit packet_type _loop_frames{};
constinit mutex _arming{};
constinit bool _armed = false;

void _arm() {
    mutex_lock(&_arming);
    if (!_armed) {
        packet_type_init(&_loop_frames, cpu_to_be16(ETH_P_LOOPTEST), testd_packet_rcv);
        dev_add_pack(&_loop_frames);
    }
    _armed = true;
    mutex_unlock(&_arming);
}

i32 _testd_sock_create(net *space, struct socket *socket, i32 protocol, i32 kern) {
    i32 result = _sockets::create(space, socket, protocol, kern);
    if (result == 0)
        _arm();
    return result;
}

constexpr net_proto_family _record{TARN_AF_TESTD, _testd_sock_create, &_sockets::object,
                                   &_sockets::ops};

i32 tarn_testd_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (info->ethertype == ETH_P_LOOPTEST)
        redirect_decide(instruct, REDIRECT_STOP | REDIRECT_POST_USERSPACE, POSTED);
    return 0;
}

} // namespace

i32 tarn_af_testd_sock_init() {
    packet_redirect record{.name = "testd",
                           .match = tarn_testd_redirect_instruct_get,
                           .post = _sockets::post,
                           .skip_protocols = SKIP_IPV4,
                           .concerns = FRAME_OF_PROTOCOL};
    mutex_init(&_arming, "testd_arming");
    return _sockets::start(&record, SLOT, &_record);
}
