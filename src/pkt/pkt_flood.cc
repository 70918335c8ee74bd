#include "pkt/pkt_flood.h"

#include "kernel/errno.h"

// Floods take effect with the hardware boundary; until then nobody can flood.
i32 _tarn_flood(tarn_if *, u32, const u32 *, sk_buff *, u32, u32, u8, u32) {
    return -EOPNOTSUPP;
}
