// Transmit of single frames.
#pragma once

#include "kernel/skb.h"

struct tarn_if;

// Sends the frame out of `port` (null: on the VLAN as a whole). 0 means that the frame was taken;
// on any other result, an errno as u32, it stays with the caller.
u32 _tarn_start_xmit(tarn_if *port, tarn_if *vlan_if, sk_buff *skb, u32 cos, u32 queue,
                     u8 tx_enable, bool discard_bypass, bool tx_option);

// Whether frames trapped here are replicated to the master's CPU alone: on this design, always.
inline u32 tarn_pkt_trap_to_master_cpu_only() {
    return 1;
}
