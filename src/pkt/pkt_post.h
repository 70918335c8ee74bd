// Delivery of received frames: to the IP stack, which consumes the frame, and to protocol sockets,
// which get clones.
#pragma once

#include "kernel/skb.h"
#include "kernel/sock.h"

struct rwlock_t;
struct tarn_if;

// Hands the frame to the device of the layer 3 interface. Consumes it in every case; always 0.
u32 tarn_pkt_post_to_kernel(tarn_if *rx_port, tarn_if *l2_port, tarn_if *l3_if, sk_buff *skb,
                            u32 vid);
// 0, or -EINVAL for an interface without a device, which leaves the frame with the caller.
i32 tarn_eth_drv_post_kernel_pkt(tarn_if *ifp, sk_buff *skb);

// Queues a clone on every socket of the list that has room, or on `sk` when `list` is null; both
// may be null. `lock` covers the list, null for none. The frame stays with the caller; always 0. A
// socket without room loses the frame, silently, and costs no clone.
u32 tarn_pkt_post_packet(sk_buff *skb, sock *sk, const sk_list *list, rwlock_t *lock);

// The IPv4 (IPv6) header of the frame, behind at most one tag; null when the type is another. Which
// bytes of it lie in the frame is the caller's question.
const u8 *tarn_pkt_ipv4(const sk_buff *skb);
const u8 *tarn_pkt_ipv6(const sk_buff *skb);
