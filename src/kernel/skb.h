// Socket buffers: the frame carrier.
//
// A buffer is opaque; its fields are reached by the accessors below, which cost one load in both
// homes. Frames in this module are linear: skb_data(skb) is the first byte of the Ethernet header
// and skb_len(skb) bytes follow. Clones share their data bytes, copies do not.
//
//   skb_pull(skb, n)       drops n bytes from the front: the new front, or null (nothing changed)
//                          when the frame is shorter
//   skb_push(skb, n)       adds n bytes at the front; the caller has tested skb_headroom
//   skb_put, skb_trim      the same at the end
//   skb_copy, skb_clone, skb_realloc_headroom
//                          a new buffer, null on failure; the old one stays with the caller
//   pskb_expand_head       room before and after within the same sk_buff: 0 or -ENOMEM
//   skb_orphan             gives the frame's memory back to the socket that was charged for it; a
//                          frame that names a socket but not how to do that stops the kernel
//   kfree_skb              drops a frame; consume_skb ends one that was delivered
//   __dev_kfree_skb_irq    drops a frame from any context
#pragma once

#include "kernel/types.h"

struct net_device;
struct sk_buff;

// The control block belongs to whoever holds the buffer.
inline constexpr unsigned SKB_CB_SIZE = 48;
inline constexpr int SKB_REASON_DROPPED = 1;

u8 *skb_data(const sk_buff *skb);
u32 skb_len(const sk_buff *skb);
u32 skb_headroom(const sk_buff *skb);
u32 skb_tailroom(const sk_buff *skb);
u32 skb_truesize(const sk_buff *skb);
bool skb_cloned(const sk_buff *skb);
bool skb_shared(const sk_buff *skb);    // the sk_buff itself has other holders
bool skb_is_linear(const sk_buff *skb); // all of skb_len lies at skb_data
u8 *skb_cb(sk_buff *skb);
u32 skb_mark(const sk_buff *skb);
void skb_set_mark(sk_buff *skb, u32 mark);
void skb_set_icmp_trapped(sk_buff *skb); // for an IP stack that asks: a rule on ICMP trapped it
u32 skb_priority(const sk_buff *skb);
void skb_set_protocol(sk_buff *skb, u16 protocol); // network order
// The link header begins that many bytes earlier; where no place of it is known, none is.
void skb_mac_header_back(sk_buff *skb, u32 length);
net_device *skb_dev(const sk_buff *skb);
void skb_set_dev(sk_buff *skb, net_device *device);

void skb_reserve(sk_buff *skb, u32 length);
void skb_orphan(sk_buff *skb);
void kfree_skb(sk_buff *skb);
void consume_skb(sk_buff *skb);

extern "C" {
sk_buff *__alloc_skb(unsigned size, gfp_t flags, int clone_flags, int node);
sk_buff *__netdev_alloc_skb(net_device *device, unsigned length, gfp_t flags);
void *skb_pull(sk_buff *skb, unsigned length);
void *skb_push(sk_buff *skb, unsigned length);
void *skb_put(sk_buff *skb, unsigned length);
void skb_trim(sk_buff *skb, unsigned length);
sk_buff *skb_copy(const sk_buff *skb, gfp_t flags);
sk_buff *skb_clone(sk_buff *skb, gfp_t flags);
sk_buff *skb_realloc_headroom(sk_buff *skb, unsigned headroom);
int pskb_expand_head(sk_buff *skb, int before, int after, gfp_t flags);
void __dev_kfree_skb_irq(sk_buff *skb, int reason);
}

#include "home/skb.h"
