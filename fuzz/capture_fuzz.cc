// Capture files from outside, as they are opened: pcapng, and pcap through libpcap.
#include "replay/capture.h"

#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

namespace {

void read_all(replay::Capture &capture, std::size_t size) {
    while (auto frame = capture.next())
        if (frame->interface >= capture.interfaces() || frame->bytes.size() > size)
            std::abort();
}

// libpcap fills a frame that is cut short no further than what the file holds.
void open_file(const std::uint8_t *data, std::size_t size) {
    static const int fd = memfd_create("capture", MFD_CLOEXEC);
    static const std::string path = "/proc/self/fd/" + std::to_string(fd);
    if (ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size))
        std::abort();
    read_all(*replay::open_capture(path), size);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    try {
        open_file(data, size);
    } catch (const replay::CaptureError &) {
    }
    try {
        read_all(*replay::read_pcapng({data, data + size}), size);
    } catch (const replay::CaptureError &) {
    }
    return 0;
}
