// Numbers of the pcapng format, for its reader and its writer.
#pragma once

#include <cstdint>

namespace replay {

inline constexpr std::uint32_t PCAPNG_SECTION = 0x0A0D0D0A; // reads the same in both byte orders
inline constexpr std::uint32_t PCAPNG_INTERFACE = 1;
inline constexpr std::uint32_t PCAPNG_OLD_PACKET = 2;
inline constexpr std::uint32_t PCAPNG_SIMPLE_PACKET = 3;
inline constexpr std::uint32_t PCAPNG_PACKET = 6;

inline constexpr std::uint32_t PCAPNG_BYTE_ORDER = 0x1A2B3C4D;
inline constexpr std::uint16_t PCAPNG_LINK_ETHERNET = 1;
inline constexpr std::uint16_t PCAPNG_OPTION_END = 0;
inline constexpr std::uint16_t PCAPNG_OPTION_COMMENT = 1;
inline constexpr std::uint16_t PCAPNG_OPTION_RESOLUTION = 9; // of an interface's times

} // namespace replay
