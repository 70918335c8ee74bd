#include "pkt/pkt_calls.h"

// Replication takes effect with the state of the stack; until then there is no other member, and no
// management traffic of a stack to take.
u32 tarn_stack_pkt_process(sk_buff *, u32, u32) {
    return 0;
}

i32 tarn_pkt_stack_replicate(sk_buff *, tarn_if *, u32, u32, u32, u32, u32, u32, u8 *) {
    return 0;
}
