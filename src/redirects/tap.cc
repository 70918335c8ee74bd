#include "redirects/tap.h"

#include "kernel/errno.h"
#include "kernel/memory.h"
#include "kernel/skb.h"
#include "pkt/frame.h"
#include "pkt/pkt_info.h"

namespace {

constexpr int MORE_HEADROOM = 64;

// Others may read the same bytes through a clone.
i32 _make_writable(sk_buff *skb, u32 headroom) {
    bool narrow = skb_headroom(skb) < headroom;
    if (!narrow && !skb_cloned(skb))
        return 0;
    return pskb_expand_head(skb, narrow ? MORE_HEADROOM : 0, 0, GFP_ATOMIC);
}

// One that ended within its tag has never lost it.
bool _still_has(const sk_buff *skb, u32 tag) {
    frame_bytes frame(skb);
    return frame_ends_within_tag(frame) && frame.be16(VLAN_TCI_OFFSET) == static_cast<u16>(tag);
}

} // namespace

i32 tap_restore_tag(sk_buff *skb, u32 tag) {
    // A frame that ends within its addresses never had one that could be stripped.
    if (!(tag & TARN_TAG_PRESENT) || skb_len(skb) < 2 * ETH_ALEN || _still_has(skb, tag))
        return 0;
    if (_make_writable(skb, VLAN_HLEN) != 0)
        return -ENOMEM;
    frame_insert_tag(skb, static_cast<u16>(tag));
    return 0;
}

sk_buff *tap_make_room(sk_buff *skb, u32 bytes) {
    if (skb_headroom(skb) >= bytes)
        return skb;
    sk_buff *roomy = skb_realloc_headroom(skb, bytes);
    if (roomy)
        kfree_skb(skb);
    return roomy;
}
