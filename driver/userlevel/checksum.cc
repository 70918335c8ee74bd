#include "checksum.h"

namespace {

constexpr std::uint8_t TCP = 6, UDP = 17, ICMPV6 = 58;
constexpr std::size_t ETH_HEADER = 14, VLAN_TAG = 4, IPV4_HEADER = 20, IPV6_HEADER = 40;

std::uint32_t word(const std::uint8_t *at) {
    return static_cast<std::uint32_t>(at[0] << 8 | at[1]);
}

std::uint32_t sum(const std::uint8_t *at, std::size_t length, std::uint32_t before) {
    std::uint64_t total = before;
    for (; length > 1; length -= 2, at += 2)
        total += word(at);
    if (length != 0)
        total += static_cast<std::uint32_t>(at[0] << 8);
    while (total >> 16)
        total = (total & 0xFFFF) + (total >> 16);
    return static_cast<std::uint32_t>(total);
}

// Where in the segment its checksum stands; 0 for protocols that have none here.
std::size_t checksum_offset(std::uint8_t protocol) {
    if (protocol == TCP)
        return 16;
    if (protocol == UDP)
        return 6;
    return protocol == ICMPV6 ? 2 : 0;
}

// `addresses` are both, as they stand in the IP header.
void fill(std::uint8_t *segment, std::size_t length, std::uint8_t protocol,
          const std::uint8_t *addresses, std::size_t address_bytes) {
    std::size_t offset = checksum_offset(protocol);
    if (offset == 0 || length < offset + 2)
        return;
    segment[offset] = segment[offset + 1] = 0;
    std::uint32_t total = sum(addresses, address_bytes, protocol);
    total = sum(segment, length, total + static_cast<std::uint32_t>(length));
    std::uint32_t result = ~total & 0xFFFF;
    if (result == 0 && protocol == UDP)
        result = 0xFFFF; // 0 would say that there is none
    segment[offset] = static_cast<std::uint8_t>(result >> 8);
    segment[offset + 1] = static_cast<std::uint8_t>(result);
}

void fill_ipv4(std::uint8_t *packet, std::size_t length) {
    if (length < IPV4_HEADER)
        return;
    std::size_t header = (packet[0] & 0xFu) * 4, total = word(packet + 2);
    bool fragment = (word(packet + 6) & 0x3FFF) != 0;
    if (header < IPV4_HEADER || header > total || total > length || fragment || packet[9] == ICMPV6)
        return;
    fill(packet + header, total - header, packet[9], packet + 12, 8);
}

// Behind the extension headers that may stand before a segment that is whole.
void fill_ipv6(std::uint8_t *packet, std::size_t length) {
    if (length < IPV6_HEADER)
        return;
    std::size_t end = IPV6_HEADER + word(packet + 4), at = IPV6_HEADER;
    if (end > length)
        return;
    std::uint8_t next = packet[6];
    while ((next == 0 || next == 43 || next == 60) && at + 8 <= end) {
        next = packet[at];
        at += (packet[at + 1] + 1u) * 8;
    }
    if (at <= end)
        fill(packet + at, end - at, next, packet + 8, 32);
}

} // namespace

void checksum_fill(std::uint8_t *frame, std::size_t length) {
    std::size_t l3 = ETH_HEADER;
    while (length >= l3 && (word(frame + l3 - 2) == 0x8100 || word(frame + l3 - 2) == 0x88A8))
        l3 += VLAN_TAG;
    if (length <= l3)
        return;
    if (word(frame + l3 - 2) == 0x0800 && frame[l3] >> 4 == 4)
        fill_ipv4(frame + l3, length - l3);
    if (word(frame + l3 - 2) == 0x86DD && frame[l3] >> 4 == 6)
        fill_ipv6(frame + l3, length - l3);
}
