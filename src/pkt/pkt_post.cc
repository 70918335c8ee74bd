#include "pkt/pkt_post.h"

// Delivery takes effect with the layer 3 devices; until then the frame ends here.
u32 tarn_pkt_post_to_kernel(tarn_if *, tarn_if *, tarn_if *, sk_buff *skb, u32) {
    kfree_skb(skb);
    return 0;
}
