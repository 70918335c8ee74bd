#include "replay/capture.h"

#include "replay/pcapng.h"

#include <array>
#include <cstdio>
#include <fmt/format.h>
#include <pcap/pcap.h>

namespace replay {

namespace {

constexpr std::uint64_t NANOSECONDS = 1000000000;

class Pcap : public Capture {
public:
    explicit Pcap(const std::vector<std::uint8_t> &bytes) {
        // It is opened to be read.
        FILE *file = fmemopen(const_cast<std::uint8_t *>(bytes.data()), bytes.size(), "rb");
        if (!file)
            throw std::bad_alloc();
        std::array<char, PCAP_ERRBUF_SIZE> error{};
        handle_ = pcap_fopen_offline_with_tstamp_precision(file, PCAP_TSTAMP_PRECISION_NANO,
                                                           error.data());
        if (!handle_) {
            std::fclose(file);
            throw CaptureError(error.data());
        }
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
        // 32 bits in the file, which libpcap takes for signed; with this precision the other word
        // has nanoseconds.
        const std::uint64_t seconds = static_cast<std::uint32_t>(header->ts.tv_sec);
        const auto nanoseconds = static_cast<std::uint32_t>(header->ts.tv_usec);
        return CapturedFrame{.number = ++frames_,
                             .interface = 0,
                             .bytes = {bytes, bytes + header->caplen},
                             .length = header->len,
                             .comment = {},
                             .time = seconds * NANOSECONDS + nanoseconds};
    }

    std::size_t interfaces() const override { return 1; }
    std::size_t frames() const override { return frames_; }

private:
    pcap_t *handle_ = nullptr;
    std::size_t frames_ = 0;
};

// Of an input that could not be read to its end: where it stops, it is for that.
class Broken : public Capture {
public:
    Broken(std::unique_ptr<Capture> whole, std::string damage)
        : whole_(std::move(whole)), damage_(std::move(damage)) {}

    std::optional<CapturedFrame> next() override {
        try {
            if (auto frame = whole_->next())
                return frame;
        } catch (const CaptureError &) {
        }
        throw CaptureError(damage_);
    }

    std::size_t interfaces() const override { return whole_->interfaces(); }
    std::size_t frames() const override { return whole_->frames(); }
    std::vector<Skipped> skipped() const override { return whole_->skipped(); }

private:
    std::unique_ptr<Capture> whole_;
    std::string damage_;
};

std::uint32_t first_word(const std::vector<std::uint8_t> &bytes) {
    if (bytes.empty())
        throw CaptureError("not a capture file: it has no bytes at all");
    if (bytes.size() < 4)
        throw CaptureError("not a capture file: it ends after a few bytes");
    return static_cast<std::uint32_t>(bytes[0]) << 24 | bytes[1] << 16 | bytes[2] << 8 | bytes[3];
}

bool is_pcap(std::uint32_t magic) {
    // Microseconds, nanoseconds, and a variant with longer headers, in either byte order.
    for (std::uint32_t known : {0xA1B2C3D4u, 0xA1B23C4Du, 0xA1B2CD34u})
        if (magic == known || magic == __builtin_bswap32(known))
            return true;
    return false;
}

std::unique_ptr<Capture> reader_of(const std::vector<std::uint8_t> &bytes) {
    std::uint32_t magic = first_word(bytes);
    if (magic == PCAPNG_SECTION)
        return read_pcapng(bytes);
    if (is_pcap(magic))
        return std::make_unique<Pcap>(bytes);
    throw CaptureError(fmt::format(
        "not a capture file (first bytes {:02x} {:02x} {:02x} {:02x}); pcap and pcapng are read",
        magic >> 24, magic >> 16 & 0xFF, magic >> 8 & 0xFF, magic & 0xFF));
}

} // namespace

std::unique_ptr<Capture> open_capture(const Input &input) {
    if (input.damage.empty())
        return reader_of(input.bytes);
    try {
        return std::make_unique<Broken>(reader_of(input.bytes), input.damage);
    } catch (const CaptureError &) {
        throw CaptureError(input.damage);
    }
}

} // namespace replay
