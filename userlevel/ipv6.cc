#include "kernel/ipv6.h"

#include "kernel/skb.h"

#include <cstring>

namespace {

constexpr u8 ROUTING = 43;
constexpr u8 FRAGMENT = 44;
constexpr u8 AUTHENTICATION = 51;
constexpr u8 DESTINATION = 60;

constexpr u16 FRAGMENT_OFFSET_BITS = 0xFFF8;

bool lies_within(const sk_buff *skb, int start, u32 length) {
    return start >= 0 && static_cast<u32>(start) <= skb_len(skb) &&
           length <= skb_len(skb) - static_cast<u32>(start);
}

} // namespace

bool ipv6_ext_hdr(u8 next) {
    return next == NEXTHDR_HOP || next == ROUTING || next == FRAGMENT || next == AUTHENTICATION ||
           next == NEXTHDR_NONE || next == DESTINATION;
}

int ipv6_skip_exthdr(const sk_buff *skb, int start, u8 *next, u16 *fragment) {
    u8 kind = *next;
    *fragment = 0;
    while (ipv6_ext_hdr(kind)) {
        if (kind == NEXTHDR_NONE || !lies_within(skb, start, 2))
            return -1;
        const u8 *header = skb_data(skb) + start;
        int length = (header[1] + 1) * 8;
        if (kind == FRAGMENT) {
            if (!lies_within(skb, start + 2, sizeof(*fragment)))
                return -1;
            std::memcpy(fragment, header + 2, sizeof(*fragment));
            // Only the first fragment shows what comes behind.
            if (be16_to_cpu(*fragment) & FRAGMENT_OFFSET_BITS)
                break;
            length = 8;
        } else if (kind == AUTHENTICATION) {
            length = (header[1] + 2) * 4;
        }
        kind = header[0];
        start += length;
    }
    *next = kind;
    return start;
}
