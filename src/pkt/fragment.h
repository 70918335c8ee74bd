// IPv4 fragments.
#pragma once

#include "pkt/pkt_info.h"

// Whether the frame is a part of a larger packet: more of it follows, or it stands further in.
inline bool is_ipv4_fragment(const tarn_pkt_info *info) {
    constexpr u16 more_and_offset = 0x3FFF;
    return be16_to_cpu(info->ip_frag_off) & more_and_offset;
}
