#include "sockets/socket_family.h"

#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_bind.h"
#include "kernel/errno.h"
#include "kernel/log.h"
#include "pkt/pkt_post.h"
#include "pkt/pkt_tx.h"

namespace {

// --- send --------------------------------------------------------------------------------------

void _say(const char *message, const char *function, i32 length) {
    if (message)
        _printk(message, function, length);
}

i32 _name_is_there(const socket_send_rules *rules, const msghdr *msg) {
    if (msg_name(msg))
        return 0;
    _say(rules->null_message, rules->function, 0);
    return -EINVAL;
}

i32 _name_is_long(const socket_send_rules *rules, const msghdr *msg) {
    if (msg_namelen(msg) >= static_cast<i32>(rules->min_name))
        return 0;
    _say(rules->short_message, rules->function, msg_namelen(msg));
    return -EINVAL;
}

// Both addresses begin alike; the short one's ifindex is led to its place in the long one.
void _read_address(vlan_skaddr *address, const msghdr *msg, u32 size) {
    u32 given = static_cast<u32>(msg_namelen(msg));
    if (size == sizeof(l2_skaddr)) {
        const auto *name = static_cast<const u8 *>(msg_name(msg));
        memcpy(address, name, 2 * ETH_ALEN);
        memcpy(&address->ifindex, name + 2 * ETH_ALEN, sizeof(address->ifindex));
        return;
    }
    memcpy(address, msg_name(msg), given < size ? given : size);
}

i32 _read_name(socket_send *send, const msghdr *msg) {
    const socket_send_rules *rules = &send->family->send;
    auto *first = rules->short_first ? _name_is_long : _name_is_there;
    auto *second = rules->short_first ? _name_is_there : _name_is_long;
    if (i32 result = first(rules, msg); result != 0)
        return result;
    if (i32 result = second(rules, msg); result != 0)
        return result;
    _read_address(&send->address, msg, send->family->address_size);
    return 0;
}

i32 _length_fits(std::size_t length) {
    return length > SOCKET_PAYLOAD_MAX ? -EMSGSIZE : 0;
}

i32 _check(socket_send *send, const msghdr *msg, std::size_t length) {
    const socket_send_rules *rules = &send->family->send;
    i32 result = rules->length_first ? _length_fits(length) : 0;
    if (result == 0)
        result = _read_name(send, msg);
    if (result == 0)
        result = rules->route ? rules->route(send) : socket_route_port(send);
    return result == 0 ? _length_fits(length) : result;
}

void _write_header(sk_buff *skb, const socket_send *send, u16 length) {
    const socket_send_rules *rules = &send->family->send;
    if (rules->write_header)
        rules->write_header(skb, send, length);
    else if (rules->header != SOCKET_HEADER_NONE)
        add_eth_header(skb, rules->header, send->address.dest_mac, send->address.src_mac, length);
}

sk_buff *_build(const socket_send *send, msghdr *msg, std::size_t length, i32 *error) {
    const socket_send_rules *rules = &send->family->send;
    bool noblock = msg_flags(msg) & SOCKET_MSG_DONTWAIT;
    sk_buff *skb = sock_alloc_send_skb(send->sk, length + rules->room, noblock, error);
    if (!skb)
        return nullptr;
    skb_reserve(skb, rules->headroom);
    skb_set_protocol(skb, sk_protocol(send->sk));
    skb_set_dev(skb, nullptr);
    _write_header(skb, send, static_cast<u16>(length));
    void *payload = skb_put(skb, static_cast<u32>(length));
    if (_copy_from_iter(payload, length, msg_iter(msg)) == length)
        return skb;
    kfree_skb(skb);
    *error = -EFAULT;
    return nullptr;
}

i32 _transmit(const socket_send *send, sk_buff *skb) {
    const socket_send_rules *rules = &send->family->send;
    return rules->transmit ? rules->transmit(send, skb) : socket_transmit(send, skb, rules->cos);
}

// --- receive -----------------------------------------------------------------------------------

// Room before the frame, in bytes that nobody else reads: daemons that got a clone before may still
// have their address there.
sk_buff *_with_room(sk_buff *skb, u32 bytes) {
    if (skb_headroom(skb) >= bytes)
        return skb_cloned(skb) && pskb_expand_head(skb, 0, 0, GFP_ATOMIC) != 0 ? nullptr : skb;
    sk_buff *roomy = skb_realloc_headroom(skb, bytes);
    if (roomy)
        consume_skb(skb);
    return roomy;
}

u32 _ifindex_of(socket_port port, const tarn_post_info *info) {
    return port == SOCKET_RX_PORT && info->rx_port ? info->rx_port->ifindex : info->l2_ifindex;
}

} // namespace

i32 socket_sent(sk_buff *skb, u32 result) {
    if (result != 0)
        kfree_skb(skb);
    return static_cast<i32>(result);
}

i32 socket_transmit(const socket_send *send, sk_buff *skb, u32 cos) {
    const socket_send_rules *rules = &send->family->send;
    bool option = rules->by_flag && send->address.xmit_flag != 0;
    return socket_sent(skb,
                       tarn_start_xmit(send->port, send->vlan, skb, cos, rules->queue, 1, option));
}

i32 socket_route_port(socket_send *send) {
    const socket_send_rules *rules = &send->family->send;
    send->named = tarn_ifmgr_lookup_by_index(send->address.ifindex);
    if (!send->named || !(rules->types & (1u << send->named->type)))
        return -EINVAL;
    if ((read_once(send->named->flags) & rules->up) != rules->up)
        return -ENETDOWN;
    if (rules->straight)
        tarn_ifmgr_if_ref_get(send->port = send->named);
    else
        send->port = tarn_ifmgr_get_L2_xmit_port(send->named);
    if (!send->port)
        return -EINVAL;
    if (!rules->vlan_by_vid)
        return 0;
    send->vlan = tarn_ifmgr_lookup_by_vid(send->address.vid);
    return send->vlan ? 0 : -EINVAL;
}

i32 socket_family_sendmsg(const socket_family *family, struct socket *socket, msghdr *msg,
                          std::size_t length) {
    socket_send send{.family = family, .sk = socket_sk(socket), .address = {}};
    if (!send.sk)
        return -EINVAL;
    i32 result = _check(&send, msg, length);
    sk_buff *skb = result == 0 ? _build(&send, msg, length, &result) : nullptr;
    if (skb) {
        u32 sent = skb_len(skb); // the driver may have the frame when it answers
        result = _transmit(&send, skb);
        if (result == 0)
            result = static_cast<i32>(sent);
    }
    tarn_ifmgr_if_ref_put(send.vlan);
    tarn_ifmgr_if_ref_put(send.port);
    tarn_ifmgr_if_ref_put(send.named);
    return result;
}

i32 socket_family_create(const net_proto_family *record, net *space, struct socket *socket,
                         i32 protocol, i32 kern, void (*destruct)(sock *sk), sk_list *list,
                         rwlock_t *lock) {
    sock *sk;
    i32 result =
        tarn_socket_create(space, socket, record->proto, kern, record->family, record->ops, &sk);
    if (result != 0)
        return result;
    sk_set_family(sk, static_cast<u16>(record->family));
    sk_set_protocol(sk, static_cast<u16>(protocol));
    sk_set_destruct(sk, destruct);
    sock_hold(sk);

    write_lock_bh(lock);
    sock_hold(sk);
    sk_add_bind_node(sk, list);
    write_unlock_bh(lock);
    return 0;
}

// Whatever keeps a frame from being had is -EINVAL, on purpose: also an empty queue. With MSG_PEEK
// the frame stays queued, so its address is skipped and not taken off.
i32 socket_family_recvmsg(u32 address_size, struct socket *socket, msghdr *msg, std::size_t size,
                          i32 flags) {
    sock *sk = socket_sk(socket);
    if (!sk)
        return -EINVAL;
    i32 error = 0;
    sk_buff *skb = skb_recv_datagram(sk, static_cast<u32>(flags), &error);
    if (!skb)
        return -EINVAL;

    if (void *name = msg_name(msg))
        frame_bytes(skb).copy(0, name, address_size);
    msg_set_namelen(msg, static_cast<i32>(address_size));
    u32 length = skb_len(skb) > address_size ? skb_len(skb) - address_size : 0;
    if (length > size) {
        length = static_cast<u32>(size);
        msg_set_flags(msg, msg_flags(msg) | SOCKET_MSG_TRUNC);
    }
    error = skb_copy_datagram_iter(skb, static_cast<i32>(address_size), msg_iter(msg),
                                   static_cast<i32>(length));
    skb_free_datagram(sk, skb);
    return error != 0 ? error : static_cast<i32>(length);
}

sk_buff *socket_family_address(const socket_receive_rules *rules, sk_buff *skb,
                               const tarn_post_info *info) {
    vlan_skaddr address{};
    frame_bytes(skb).copy(0, &address, ETH_HLEN);
    address.ifindex = _ifindex_of(rules->port, info);
    address.vid = static_cast<u16>(info->rx_vid);

    skb = _with_room(skb, rules->push);
    if (!skb)
        return nullptr;
    auto *front = static_cast<u8 *>(skb_push(skb, rules->push));
    if (rules->push == SOCKET_PUSH_L2) {
        memcpy(front, &address, 2 * ETH_ALEN);
        memcpy(front + 2 * ETH_ALEN, &address.ifindex, sizeof(address.ifindex));
    } else {
        // Of the shorter push the end lies over the old Ethernet header, which stays there.
        memcpy(front, &address, rules->push);
        if (rules->address)
            rules->address(front, skb, info);
    }
    return skb;
}

sk_buff *socket_family_post(const socket_receive_rules *rules, sk_buff *skb,
                            const tarn_post_info *info, const sk_list *list, rwlock_t *lock) {
    if (skb_len(skb) < ETH_HLEN || (rules->port == SOCKET_RX_PORT && !info->rx_port))
        return skb;
    if (rules->prepare)
        skb = rules->prepare(skb, info);
    if (skb)
        skb = socket_family_address(rules, skb, info);
    if (skb)
        tarn_pkt_post_packet(skb, nullptr, list, lock);
    return skb;
}
