#include "segment.h"

#include "checksum.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr u32 ETH_HEADER = 14, VLAN_TAG = 4, UDP_HEADER = 8, IPV4_HEADER = 20, TCP_HEADER = 20;
constexpr u8 FIN = 0x01, PSH = 0x08, CWR = 0x80;

u32 word(const u8 *at) {
    return static_cast<u32>(at[0] << 8 | at[1]);
}

void put_word(u8 *at, u32 value) {
    at[0] = static_cast<u8>(value >> 8);
    at[1] = static_cast<u8>(value);
}

u32 headers_of(const large_frame &large) {
    if (large.udp)
        return large.l4 + UDP_HEADER;
    return large.l4 + (large.bytes[large.l4 + 12] >> 4) * 4u;
}

void fix_ipv4(u8 *ip, u32 header, u32 length, u32 number) {
    put_word(ip + 2, length);
    put_word(ip + 4, word(ip + 4) + number); // each segment its own identification
    put_word(ip + 10, 0);
    u32 sum = 0;
    for (u32 at = 0; at < header; at += 2)
        sum += word(ip + at);
    while (sum >> 16)
        sum = (sum & 0xFFFF) + (sum >> 16);
    put_word(ip + 10, ~sum);
}

void fix_tcp(u8 *tcp, u32 done, bool first, bool last) {
    u32 sequence = (word(tcp + 4) << 16 | word(tcp + 6)) + done;
    put_word(tcp + 4, sequence >> 16);
    put_word(tcp + 6, sequence);
    if (!last)
        tcp[13] &= static_cast<u8>(~(FIN | PSH));
    if (!first)
        tcp[13] &= static_cast<u8>(~CWR);
}

} // namespace

bool large_frame_begin(large_frame &large, u32 l4, u32 segment_bytes, bool udp) {
    large.done = large.count = 0;
    large.l4 = l4;
    large.segment_bytes = segment_bytes;
    large.udp = udp;
    large.l3 = ETH_HEADER;
    std::span<const u8> bytes = large.bytes;
    while (large.l3 + 20 < bytes.size() &&
           (word(&bytes[large.l3 - 2]) == 0x8100 || word(&bytes[large.l3 - 2]) == 0x88A8))
        large.l3 += VLAN_TAG;
    u32 smallest_header = udp ? UDP_HEADER : TCP_HEADER;
    bool sound = segment_bytes != 0 && l4 >= large.l3 + IPV4_HEADER && bytes.size() > l4 + 20 &&
                 headers_of(large) < bytes.size() && headers_of(large) >= l4 + smallest_header;
    if (!sound)
        large.bytes = {};
    return sound;
}

u32 large_frame_next(large_frame &large, std::span<u8> to) {
    if (large.bytes.empty())
        return 0;
    u32 headers = headers_of(large);
    u32 payload = static_cast<u32>(large.bytes.size()) - headers;
    u32 part = std::min(large.segment_bytes, payload - large.done);
    u32 length = headers + part;
    if (part == 0 || length > to.size()) {
        large.bytes = {};
        return 0;
    }
    std::memcpy(to.data(), large.bytes.data(), headers);
    std::memcpy(to.data() + headers, large.bytes.data() + headers + large.done, part);
    u8 *ip = to.data() + large.l3;
    if (ip[0] >> 4 == 4)
        fix_ipv4(ip, large.l4 - large.l3, length - large.l3, large.count);
    else
        put_word(ip + 4, length - large.l3 - 40);
    if (large.udp)
        put_word(to.data() + large.l4 + 4, length - large.l4);
    else
        fix_tcp(to.data() + large.l4, large.done, large.count == 0, large.done + part == payload);
    checksum_fill(to.data(), length);
    large.done += part;
    large.count++;
    return length;
}
