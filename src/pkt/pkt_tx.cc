#include "pkt/pkt_tx.h"

#include "kernel/errno.h"

// Transmit takes effect with the hardware boundary; until then there is no device to send on.
u32 _tarn_start_xmit(tarn_if *, tarn_if *, sk_buff *, u32, u32, u8, bool, bool) {
    return static_cast<u32>(-ENODEV);
}
