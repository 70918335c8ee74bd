#include "pkt/pkt_calls.h"

// The queue of a protocol socket takes effect with the families; until then no socket can be
// opened.
i32 tarn_socket_post_skb(sock *, sk_buff *) {
    return -1;
}
