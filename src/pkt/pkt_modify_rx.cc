// The hooks that may change a frame, and the record of how it came, before it is classified.
#include "pkt/pkt_candidates.h"
#include "pkt/pkt_redirect.h"
#include "pkt/pkt_rx.h"

void tarn_pkt_modify_rx(tarn_rx_modify *modify, const tarn_rx_meta *meta, tarn_if *ifp,
                        sk_buff *skb) {
    for (u32 left = pkt_modifiers(meta); left != 0; left &= left - 1) {
        const u8 slot = process_packet_modify_rx[static_cast<u32>(__builtin_ctz(left))];
        packet_redirects[slot]->modify_rx(modify, meta, ifp, skb);
    }
}
