#include "pkt/frame.h"

#include "kernel/memory.h"

bool frame_strip_tag(sk_buff *skb, u16 *tci) {
    frame_bytes frame(skb);
    if (frame.be16(ETH_TYPE_OFFSET) != ETH_P_8021Q)
        return false;
    *tci = frame.be16(VLAN_TCI_OFFSET);
    if (frame.length < VLAN_TYPE_OFFSET) [[unlikely]]
        return true;

    // Others may read the same bytes through a clone.
    if (skb_cloned(skb) && pskb_expand_head(skb, 0, 0, GFP_ATOMIC) != 0)
        return false;

    u8 *data = skb_data(skb);
    memmove(data + VLAN_HLEN, data, 2 * ETH_ALEN);
    skb_pull(skb, VLAN_HLEN);
    return true;
}

void frame_insert_tag(sk_buff *skb, u16 tci) {
    auto *data = static_cast<u8 *>(skb_push(skb, VLAN_HLEN));
    memmove(data, data + VLAN_HLEN, 2 * ETH_ALEN);
    skb_mac_header_back(skb, VLAN_HLEN);
    const u16 tag[] = {cpu_to_be16(ETH_P_8021Q), cpu_to_be16(tci)};
    memcpy(data + ETH_TYPE_OFFSET, tag, sizeof(tag));
}
