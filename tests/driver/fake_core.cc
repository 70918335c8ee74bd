// The core as a list of what it was given.
#include "fake_home.h"

#include "kernel/skb.h"

void rxtx_hw_register(rxtx_hw_callbacks callbacks) {
    std::lock_guard hold(home.lock);
    home.callbacks = callbacks;
}

u32 rxtx_hw_packet_recv(sk_buff *skb, u32 ifindex, u32 vid, const tarn_rx_meta *meta) {
    std::lock_guard hold(home.lock);
    if (home.at_delivery)
        home.at_delivery(skb);
    home.trapped.push_back(
        {Bytes(skb_data(skb), skb_data(skb) + skb_len(skb)), ifindex, vid, *meta});
    if (home.core_result == 0)
        consume_skb(skb);
    return home.core_result;
}
