// The boundary with the driver of the switching chip, as the core calls it.
//
// Each wrapper works without a driver, and without the callback; tarn/rxtx_hw.h says what every
// argument means. The callbacks are read once a call and may change between two.
#pragma once

#include "kernel/netdev.h"
#include "kernel/skb.h"
#include "tarn/rxtx_hw.h"

// 0: the frame was taken (without a driver: freed). On any other result it stays with the caller.
u32 rxtx_hw_start_xmit(u32 ifindex, u32 vid, u32 tagged, u32 tx_option, sk_buff *skb, u32 cos,
                       u8 queue, u8 tx_enable);
// 0: taken. -EOPNOTSUPP: flood in software. On any result but 0 the frame stays with the caller.
i32 rxtx_hw_flood_except(u32 ifindex, u32 vid, u32 except0, u32 except1, sk_buff *skb, u32 cos,
                         u8 queue, u32 mask, u32 reserved, u8 tagged);
u32 rxtx_hw_auth_set(net_device *device, u32 on); // a null device: 0
u32 rxtx_hw_unknown_multicast_flood_set(u32 enable);
u32 rxtx_hw_sdma_counters(unsigned long a, unsigned long b, unsigned long c);
i32 rxtx_hw_cache_index(unsigned long a, unsigned long b, unsigned long c);
