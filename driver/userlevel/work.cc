#include "work.h"

#include "checksum.h"
#include "kernel/memory.h"
#include "kernel/skb.h"
#include "segment.h"

namespace {

constexpr u8 GSO_NONE = 0, GSO_TCPV4 = 1, GSO_TCPV6 = 4, GSO_UDP_L4 = 5, GSO_ECN = 0x80;
constexpr u32 LARGEST_SEGMENT = 9216, LARGEST_HEADER = 60;

u8 kind_of(const device_work &work) {
    return work.gso_type & static_cast<u8>(~GSO_ECN);
}

bool begin(large_frame &large, const sk_buff *skb, const device_work &work) {
    large.bytes = {skb_data(skb), skb_len(skb)};
    return large_frame_begin(large, work.csum_start, work.gso_size, kind_of(work) == GSO_UDP_L4);
}

} // namespace

bool work_is_sound(const sk_buff *skb, const chip_work &work) {
    u8 kind = kind_of(work.told);
    if (kind == GSO_NONE)
        return true;
    bool known = kind == GSO_TCPV4 || kind == GSO_TCPV6 || kind == GSO_UDP_L4;
    large_frame large;
    return known && work.told.gso_size <= LARGEST_SEGMENT && begin(large, skb, work.told);
}

device_work work_now(const chip_work &work, u32 length) {
    device_work now = work.told;
    auto moved = static_cast<u16>(length - work.length);
    now.header_length = static_cast<u16>(now.header_length + moved);
    now.csum_start = static_cast<u16>(now.csum_start + moved);
    return now;
}

void chip_port_finish(sk_buff *skb, const chip_work *work,
                      void (*take)(void *context, sk_buff *skb), void *context) {
    device_work now = work_now(*work, skb_len(skb));
    if (kind_of(now) == GSO_NONE) {
        checksum_fill(skb_data(skb), skb_len(skb));
        return take(context, skb);
    }
    large_frame large;
    bool more = begin(large, skb, now);
    while (more) {
        u32 room = now.csum_start + LARGEST_HEADER + now.gso_size;
        sk_buff *piece = __netdev_alloc_skb(nullptr, room, GFP_KERNEL);
        if (!piece)
            break;
        u32 length = large_frame_next(large, {static_cast<u8 *>(skb_put(piece, room)), room});
        more = length != 0;
        skb_trim(piece, length);
        if (more)
            take(context, piece);
        else
            kfree_skb(piece);
    }
    consume_skb(skb);
}
