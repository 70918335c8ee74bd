// Walking IPv6 extension headers (RFC 8200, section 4).
//
//   ipv6_ext_hdr(next)      whether this protocol number is an extension header the walk knows
//   ipv6_skip_exthdr(skb, start, next, fragment)
//                           from the header at offset `start`, whose number is *next, to the first
//                           that is none: its offset, with *next its number. -1 when a header does
//                           not lie in the frame or the chain ends in 59, with *next as it was. The
//                           offset is not tested against the end of the frame.
#pragma once

#include "kernel/types.h"

struct sk_buff;

inline constexpr u8 NEXTHDR_HOP = 0;
inline constexpr u8 NEXTHDR_NONE = 59;

extern "C" {
bool ipv6_ext_hdr(u8 next);
int ipv6_skip_exthdr(const sk_buff *skb, int start, u8 *next, u16 *fragment);
}
