#include "kernel/skb.h"
#include "pkt/pkt_calls.h"

// Transmit on the management VLAN takes effect with the state of the stack; until then nothing can
// leave on it.
i32 _tarn_stack_drv_tx(sk_buff *skb, u32) {
    kfree_skb(skb);
    return -1;
}
