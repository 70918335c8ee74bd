// Captures from outside, as they are opened: pcapng, and pcap through libpcap.
#include "replay/capture.h"

#include <cstdlib>

namespace {

// libpcap fills a frame that is cut short no further than what the file holds.
void read_all(replay::Capture &capture, std::size_t size) {
    while (auto frame = capture.next())
        if (frame->interface >= capture.interfaces() || frame->number > capture.frames() ||
            frame->bytes.size() > size)
            std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    try {
        const replay::Input input{.name = "fuzz", .bytes = {data, data + size}};
        read_all(*replay::open_capture(input), size);
    } catch (const replay::CaptureError &) {
    }
    try {
        read_all(*replay::read_pcapng({data, size}), size);
    } catch (const replay::CaptureError &) {
    }
    return 0;
}
