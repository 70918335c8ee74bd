#include "replay/capture.h"

#include "replay/pcapng.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <pcap/pcap.h>

namespace replay {

namespace {

class Pcap : public Capture {
public:
    explicit Pcap(const std::string &path) {
        std::array<char, PCAP_ERRBUF_SIZE> error{};
        handle_ = pcap_open_offline(path.c_str(), error.data());
        if (!handle_)
            throw CaptureError(error.data());
        int type = pcap_datalink(handle_);
        if (type != DLT_EN10MB) {
            const char *name = pcap_datalink_val_to_description(type);
            pcap_close(handle_);
            throw CaptureError(fmt::format("link type {} ({}); only Ethernet is read", type,
                                           name ? name : "unknown"));
        }
    }
    Pcap(const Pcap &) = delete;
    Pcap &operator=(const Pcap &) = delete;
    ~Pcap() override { pcap_close(handle_); }

    std::optional<CapturedFrame> next() override {
        pcap_pkthdr *header = nullptr;
        const u_char *bytes = nullptr;
        int result = pcap_next_ex(handle_, &header, &bytes);
        if (result == PCAP_ERROR_BREAK)
            return std::nullopt;
        if (result != 1)
            throw CaptureError(pcap_geterr(handle_));
        const auto seconds = static_cast<std::uint64_t>(header->ts.tv_sec);
        const auto micros = static_cast<std::uint64_t>(header->ts.tv_usec);
        return CapturedFrame{.interface = 0,
                             .bytes = {bytes, bytes + header->caplen},
                             .length = header->len,
                             .comment = {},
                             .time = seconds * 100 + micros / 10000};
    }

    std::size_t interfaces() const override { return 1; }

private:
    pcap_t *handle_ = nullptr;
};

std::uint32_t first_word(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw CaptureError(std::strerror(errno));
    std::array<unsigned char, 4> start{};
    file.read(reinterpret_cast<char *>(start.data()), start.size());
    if (file.gcount() == 0)
        throw CaptureError(file.bad() || errno == EISDIR
                               ? "cannot be read"
                               : "not a capture file: it has no bytes at all");
    if (file.gcount() < 4)
        throw CaptureError("not a capture file: it ends after a few bytes");
    return static_cast<std::uint32_t>(start[0]) << 24 | start[1] << 16 | start[2] << 8 | start[3];
}

bool is_pcap(std::uint32_t magic) {
    // Microseconds, nanoseconds, and a variant with longer headers, in either byte order.
    for (std::uint32_t known : {0xA1B2C3D4u, 0xA1B23C4Du, 0xA1B2CD34u})
        if (magic == known || magic == __builtin_bswap32(known))
            return true;
    return false;
}

std::vector<std::uint8_t> whole_file(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

} // namespace

std::unique_ptr<Capture> open_capture(const std::string &path) {
    std::uint32_t magic = first_word(path);
    if (magic == PCAPNG_SECTION)
        return read_pcapng(whole_file(path));
    if (is_pcap(magic))
        return std::make_unique<Pcap>(path);
    throw CaptureError(fmt::format(
        "not a capture file (first bytes {:02x} {:02x} {:02x} {:02x}); pcap and pcapng are read",
        magic >> 24, magic >> 16 & 0xFF, magic >> 8 & 0xFF, magic & 0xFF));
}

} // namespace replay
