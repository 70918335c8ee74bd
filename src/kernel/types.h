// Fixed-width names as the kernel spells them, and the byte order of the wire.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;
using i8 = std::int8_t;
using i16 = std::int16_t;
using i32 = std::int32_t;
using i64 = std::int64_t;

// Allocation flags: GFP_KERNEL, GFP_ATOMIC and __GFP_ZERO, see kernel/memory.h.
using gfp_t = unsigned int;

constexpr u16 be16_to_cpu(u16 wire) {
    return std::endian::native == std::endian::little ? __builtin_bswap16(wire) : wire;
}

constexpr u32 be32_to_cpu(u32 wire) {
    return std::endian::native == std::endian::little ? __builtin_bswap32(wire) : wire;
}

constexpr u16 cpu_to_be16(u16 host) {
    return be16_to_cpu(host);
}
constexpr u32 cpu_to_be32(u32 host) {
    return be32_to_cpu(host);
}
