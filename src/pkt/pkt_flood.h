// Layer 2 floods: by the chip, or in software over the ports that the VLAN is bound to.
//
// Ownership is as in pkt_tx.h: 0 means that the frame was taken; on any other result it stays with
// the caller.
#pragma once

#include "kernel/skb.h"

struct tarn_if;

// Floods the frame on the VLAN, but not to `port` (null: to all) nor to what the exception pair
// names (null: no exception); only to ports with all bits of `mask` in their if_flags.
i32 _tarn_flood(tarn_if *port, u32 vid, const u32 *except, sk_buff *skb, u32 cos, u32 queue,
                u8 tx_enable, u32 mask);
u32 tarn_flood_except_port(tarn_if *port, u32 vid, const u32 *except, sk_buff *skb, u32 cos,
                           u32 queue, u8 tx_enable);
// Only to ports that DHCP snooping trusts.
u32 tarn_flood_trusted_except_port(tarn_if *port, u32 vid, sk_buff *skb, u32 cos, u32 queue,
                                   u8 tx_enable);

// Sends copies to the ports of the VLAN; the frame stays with the caller. 0, or -ENETDOWN (as u32)
// for a VLAN without interface.
u32 _tarn_flood_software(tarn_if *port, u32 vid, const sk_buff *skb, u32 cos, u32 queue,
                         u8 tx_enable, u32 mask);

// Whether multicast frames to groups that nobody joined are flooded; the chip is told.
void tarn_pkt_unknown_multicast_flood_set(u8 enable);
u8 tarn_pkt_unknown_multicast_flood_enabled();
