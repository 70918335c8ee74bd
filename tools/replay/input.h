// A file or standard input, whole in memory, whatever it was compressed with.
//
// Whole, because a capture is looked at twice (who has ports and VLANs in it, and its frames), and
// a pipe can be read but once.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace replay {

struct Input {
    std::string name;
    std::vector<std::uint8_t> bytes;
    std::string damage = {}; // why there are no more; "": that is all of it
};

// "-": standard input. gzip, bzip2, xz, zstd and lz4 are read through. Throws CaptureError for one
// that cannot be opened.
Input read_input(const std::string &path);

} // namespace replay
