// Checksums that the kernel of a sending device left to the hardware.
#pragma once

#include <cstddef>
#include <cstdint>

// Fills in the checksum of the TCP, UDP or ICMPv6 segment in this Ethernet frame, as far as the
// frame holds it whole. Frames of other kinds, and fragments, stay as they are.
void checksum_fill(std::uint8_t *frame, std::size_t length);
