// Frames as the driver hands them in: the first bytes are the metadata, the rest is the frame.
#include "control.h"
#include "kernel/memory.h"
#include "kernel/skb.h"
#include "module/tarn_module.h"
#include "pkt/pkt_debug.h"
#include "pkt/pkt_redirect.h"
#include "plain_switch/plain_switch.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct Header {
    u8 ifindex, vid, code, flags, rx_flags, local, headroom, clone;
};

void load() {
    init_module();
    for (u32 k = 1; k <= 3; k++) {
        tarn_if *port = plain_switch::add_port(k);
        plain_switch::add_member(port, 1);
        plain_switch::add_member(port, 2);
    }
    plain_switch::add_vlan(1);
    plain_switch::add_vlan(2)->if_flags |= TARN_IF_F_VLAN_LOCAL;
    for (u32 slot : {30u, 50u})
        enable_redirect(slot, 1);
    tarn_pkt_debug = TARN_PKT_DEBUG_RX;
}

void offer(const Header &header, std::span<const u8> bytes) {
    tarn_rx_meta meta{};
    meta.debug = 1;
    meta.code = header.code;
    meta.flags = header.flags;
    meta.rx_flags = header.rx_flags;
    meta.local = header.local & 1;
    meta.local_post_kernel = header.local >> 1 & 1;
    sk_buff *skb = userlevel::frame_make(bytes, header.headroom);
    sk_buff *held = header.clone & 1 ? skb_clone(skb, GFP_ATOMIC) : nullptr;
    if (rxtx_hw_packet_recv(skb, plain_switch::FIRST_PORT_IFINDEX + header.ifindex, header.vid,
                            &meta) != 0)
        kfree_skb(skb);
    kfree_skb(held);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, std::size_t size) {
    static const bool loaded = (load(), true);
    static const userlevel::snapshot before = userlevel::take_snapshot();
    (void)loaded;
    Header header{};
    if (size < sizeof(header))
        return 0;
    std::memcpy(&header, data, sizeof(header));
    offer(header, {data + sizeof(header), size - sizeof(header)});
    userlevel::log_take();
    std::string lost = userlevel::describe(userlevel::leaked_since(before));
    if (!lost.empty()) {
        std::fprintf(stderr, "lost: %s", lost.c_str());
        std::abort();
    }
    return 0;
}
