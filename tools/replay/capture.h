// Captures: pcap (through libpcap) and pcapng (IETF draft-ietf-opsawg-pcapng), Ethernet only.
//
// pcapng is read here and not by libpcap, because libpcap does not tell on which interface a frame
// came in, and that is the port it is offered on.
#pragma once

#include "replay/input.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace replay {

struct CapturedFrame {
    std::size_t number = 0;          // from 1, in the order of the file, skipped ones included
    std::size_t interface = 0;       // from 0, in the order in which the file declares them
    std::vector<std::uint8_t> bytes; // what was captured
    std::uint32_t length = 0;        // what was on the wire; more than bytes when cut short
    std::string comment;             // pcapng only
    std::uint64_t time = 0;          // in nanoseconds since 1970; 0: not told
};

// Frames of an interface that is no Ethernet.
struct Skipped {
    std::size_t interface;
    std::uint16_t link;
    std::size_t frames;
};

// Says what is wrong with a capture, and where.
struct CaptureError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Capture {
public:
    virtual ~Capture() = default;
    // The next frame, or none at the end. Throws CaptureError for a file that is damaged; the
    // frames before are good. So it does at the end of one without any Ethernet.
    virtual std::optional<CapturedFrame> next() = 0;
    // Interfaces declared so far.
    virtual std::size_t interfaces() const = 0;
    // Frames so far, skipped ones included.
    virtual std::size_t frames() const = 0;
    virtual std::vector<Skipped> skipped() const { return {}; }
};

// Over an input that outlives it. Throws CaptureError for one that is no capture.
std::unique_ptr<Capture> open_capture(const Input &input);

// The pcapng reader alone.
std::unique_ptr<Capture> read_pcapng(std::span<const std::uint8_t> bytes);

} // namespace replay
