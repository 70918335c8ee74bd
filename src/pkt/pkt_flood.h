// Layer 2 floods.
#pragma once

#include "kernel/skb.h"

struct tarn_if;

// Floods the frame on the VLAN, but not to `port` (null: to all) nor to what the exception pair
// names (null: no exception); only to ports with all bits of `mask` in their if_flags. 0 means that
// the frame was taken; on any other result it stays with the caller.
i32 _tarn_flood(tarn_if *port, u32 vid, const u32 *except, sk_buff *skb, u32 cos, u32 queue,
                u8 tx_enable, u32 mask);
