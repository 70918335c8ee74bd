// Delivery to the IP stack.
#pragma once

#include "kernel/skb.h"

struct tarn_if;

// Hands the frame to the device of the layer 3 interface. Consumes it in every case; always 0.
u32 tarn_pkt_post_to_kernel(tarn_if *rx_port, tarn_if *l2_port, tarn_if *l3_if, sk_buff *skb,
                            u32 vid);
