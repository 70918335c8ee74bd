#include "pkt/frame.h"

#include "kernel/memory.h"

bool frame_strip_tag(sk_buff *skb, u16 *tci) {
    frame_bytes frame(skb);
    if (frame.be16(ETH_TYPE_OFFSET) != ETH_P_8021Q || frame.length < VLAN_TYPE_OFFSET)
        return false;

    // Others may read the same bytes through a clone.
    if (skb_cloned(skb) && pskb_expand_head(skb, 0, 0, GFP_ATOMIC) != 0)
        return false;

    u8 *data = skb_data(skb);
    *tci = frame_bytes(skb).be16(VLAN_TCI_OFFSET);
    memmove(data + VLAN_HLEN, data, 2 * ETH_ALEN);
    skb_pull(skb, VLAN_HLEN);
    return true;
}
