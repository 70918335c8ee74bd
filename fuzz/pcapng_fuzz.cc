// Capture files from outside.
#include "replay/capture.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    auto capture = replay::read_pcapng({data, data + size});
    try {
        while (auto frame = capture->next())
            if (frame->interface >= capture->interfaces() || frame->bytes.size() > size)
                std::abort();
    } catch (const replay::CaptureError &) {
    }
    return 0;
}
