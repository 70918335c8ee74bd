// Capture files: pcap (through libpcap) and pcapng (IETF draft-ietf-opsawg-pcapng), Ethernet only.
//
// A pcapng file is read here and not by libpcap, because libpcap does not tell on which interface a
// frame came in, and that is the port it is offered on.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace replay {

struct CapturedFrame {
    std::size_t interface = 0;       // from 0, in the order in which the file declares them
    std::vector<std::uint8_t> bytes; // what was captured
    std::uint32_t length = 0;        // what was on the wire; more than bytes when cut short
    std::string comment;             // pcapng only
    std::uint64_t time = 0;          // in hundredths of a second; 0: not told
};

// Says what is wrong with a file, and where.
struct CaptureError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Capture {
public:
    virtual ~Capture() = default;
    // The next frame, or none at the end. Throws CaptureError for a file that is damaged; the
    // frames before are good.
    virtual std::optional<CapturedFrame> next() = 0;
    // Interfaces declared so far.
    virtual std::size_t interfaces() const = 0;
};

// Throws CaptureError for a file that cannot be read or is no capture.
std::unique_ptr<Capture> open_capture(const std::string &path);

// The pcapng reader alone, over bytes in memory: what open_capture uses for such files.
std::unique_ptr<Capture> read_pcapng(std::vector<std::uint8_t> bytes);

} // namespace replay
