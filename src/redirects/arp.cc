// "arp": what becomes of ARP (RFC 826). A chain of tests; what is left goes up to the IP stack.
#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_bind.h"
#include "kernel/netdev.h"
#include "pkt/frame.h"
#include "pkt/pkt_explain.h"
#include "pkt/pkt_redirect.h"
#include "redirects/gate.h"
#include "redirects/redirect_calls.h"
#include "redirects/redirects.h"

namespace {

constexpr u32 SLOT = 45;

enum _reason : u32 {
    GATE = 2,
    FOR_MASTER = 3,
    SLAVE = 4,
    NO_L2_PORT = 5,
    NO_L3_PORT = 6,
    L3_PORT_DOWN = 7,
    VIOLATION = 8,
    MASTER_PENDING = 9,
    MULTICAST_SENDER = 10,
    STP = 11,
    TO_KERNEL = 12,
    NO_L3_INTERFACE = 13,
};

// Offsets in the ARP header.
constexpr u32 OPER = 6;
constexpr u32 SENDER = 8;
constexpr u16 REQUEST = 1;

constexpr u32 AUTH_METHOD_WEB = 0x4;

bool _is_local(const tarn_if *vlan_if) {
    return vlan_if && (read_once(vlan_if->if_flags) & TARN_IF_F_VLAN_LOCAL);
}

// A group address; the broadcast address passes for none.
bool _is_multicast(const u8 *mac) {
    constexpr u8 broadcast[ETH_ALEN] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    return (mac[0] & 1) && memcmp(mac, broadcast, ETH_ALEN) != 0;
}

bool _refuses_sender(const tarn_if *l3_port, const frame_bytes &frame, u32 arp) {
    u8 sender[ETH_ALEN];
    frame.copy(arp + SENDER, sender, sizeof(sender));
    return _is_multicast(sender) && !(read_once(l3_port->if_flags) & TARN_IF_F_ARP_MAC_DISPARITY);
}

// A port in the middle of web authentication, or told to forward ARP before it, keeps ARP working
// even where spanning tree blocks it.
bool _blocked(const tarn_if *l2_port, const tarn_if *l3_port) {
    return tarn_ifmgr_stp_state(l2_port, l3_port) != TARN_STP_FORWARDING &&
           !(read_once(l2_port->auth_method) & AUTH_METHOD_WEB) &&
           read_once(l2_port->auth_arp_forward) == 0;
}

const char *_words_of(u32 stp_state) {
    switch (stp_state) {
    case TARN_STP_LISTENING:
        return "spanning tree: the port is listening";
    case TARN_STP_LEARNING:
        return "spanning tree: the port is learning";
    case TARN_STP_BLOCKING:
        return "spanning tree: the port is blocking";
    default:
        return "spanning tree: the port is disabled";
    }
}

// The tests that want the layer 3 interface.
u32 _l3_reason(const tarn_pkt_info *info, const tarn_if *l3_port) {
    u32 flags = read_once(l3_port->flags);
    if ((flags & TARN_IF_LINK) != TARN_IF_LINK) {
        explain(info,
                flags & IFF_UP ? "the layer 3 port is not running" : "the layer 3 port is not up");
        return L3_PORT_DOWN;
    }
    frame_bytes frame(info->skb);
    u32 arp = frame.payload_offset();
    if (dhcpsn_arpsec_enabled() &&
        dhcpsn_arpsec_check_arp_violation(info->l2_port, info->skb, arp, info->rx_vid) != 0)
        return VIOLATION;
    if (frame.be16(arp + OPER) == REQUEST && tarn_stack_is_pending_master())
        return MASTER_PENDING;
    if (_refuses_sender(l3_port, frame, arp))
        return MULTICAST_SENDER;
    if (_blocked(info->l2_port, l3_port)) {
        explain(info, _words_of(tarn_ifmgr_stp_state(info->l2_port, l3_port)));
        return STP;
    }
    return TO_KERNEL;
}

u32 _reason_of(const tarn_pkt_info *info) {
    // A slave answers only on a VLAN that is its own.
    if (info->stack_slave && !_is_local(info->vlan_if))
        return SLAVE;
    if (!info->l2_port || !(read_once(info->l2_port->flags) & IFF_RUNNING)) {
        explain(info, info->l2_port ? "the port is not running" : "the frame has no port");
        return NO_L2_PORT;
    }
    tarn_if *l3_port = tarn_ifmgr_get_matching_L3_port(info->l2_port, info->rx_vid & 0xFFFF);
    if (!l3_port)
        return NO_L3_PORT;
    u32 reason = _l3_reason(info, l3_port);
    tarn_ifmgr_if_ref_put(l3_port);
    return reason == TO_KERNEL && !info->l3_if ? u32{NO_L3_INTERFACE} : reason;
}

i32 tarn_arp_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (info->ethertype != ETH_P_ARP)
        return 0;
    instruct->flags |= REDIRECT_STOP;
    if (!gate_passes(info)) {
        instruct->reason = GATE;
        return 0;
    }
    if (info->slave_only) {
        instruct->flags |= REDIRECT_STACK_REPLICATE;
        instruct->reason = FOR_MASTER;
        return 0;
    }
    instruct->reason = _reason_of(info);
    if (instruct->reason == TO_KERNEL)
        instruct->flags |= REDIRECT_POST_KERNEL;
    return 0;
}

} // namespace

i32 tarn_arp_init() {
    packet_redirect record{.name = "arp",
                           .match = tarn_arp_redirect_instruct_get,
                           .post = tarn_pkt_packet_post_dummy,
                           .concerns = FRAME_ARP};
    return tarn_pkt_register_packet_redirection(&record, SLOT);
}
