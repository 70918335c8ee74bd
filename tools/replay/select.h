// Which frames of a capture are wanted.
#pragma once

#include "replay/capture.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

struct bpf_program;

namespace replay {

// Says what is wrong with the words.
struct SelectError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Numbers of frames, as "3,10-20,100-"; "" is all.
class FrameRanges {
public:
    explicit FrameRanges(const std::string &words);
    bool has(std::size_t number) const;
    // No range reaches as far as that.
    bool ends_before(std::size_t number) const;

private:
    struct Range {
        std::size_t first, last;
    };
    std::vector<Range> ranges_;
};

// A filter in the words of pcap-filter(7); "" lets everything through.
class PacketFilter {
public:
    explicit PacketFilter(const std::string &words);
    ~PacketFilter();
    PacketFilter(const PacketFilter &) = delete;
    PacketFilter &operator=(const PacketFilter &) = delete;
    bool passes(const CapturedFrame &frame) const;

private:
    std::unique_ptr<bpf_program> program_; // null: none
};

} // namespace replay
