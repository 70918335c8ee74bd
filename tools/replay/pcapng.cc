#include "replay/pcapng.h"

#include "replay/capture.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <span>

namespace replay {

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t BLOCK_OVERHEAD = 12; // type, length, and the length again

std::size_t padded(std::size_t length) {
    return (length + 3) & ~std::size_t{3};
}

class Pcapng : public Capture {
public:
    explicit Pcapng(Bytes bytes) : bytes_(bytes) {}

    std::optional<CapturedFrame> next() override {
        while (at_ < bytes_.size())
            if (auto frame = block())
                return frame;
        refuse_without_ethernet();
        return std::nullopt;
    }

    std::size_t interfaces() const override { return interfaces_.size(); }
    std::size_t frames() const override { return frames_; }

    std::vector<Skipped> skipped() const override {
        std::vector<Skipped> all;
        for (std::size_t k = 0; k < interfaces_.size(); k++)
            if (interfaces_[k].skipped != 0)
                all.push_back({k, interfaces_[k].link, interfaces_[k].skipped});
        return all;
    }

private:
    [[noreturn]] void damaged(const std::string &what) const {
        throw CaptureError(fmt::format("damaged at byte {}: {}", at_, what));
    }

    void refuse_without_ethernet() const {
        if (std::none_of(interfaces_.begin(), interfaces_.end(),
                         [](const Interface &one) { return one.link == PCAPNG_LINK_ETHERNET; }))
            for (const Skipped &one : skipped())
                throw CaptureError(
                    fmt::format("interface {} has link type {}; only Ethernet is read",
                                one.interface, one.link));
    }

    std::uint16_t u16(Bytes from, std::size_t offset) const {
        std::uint16_t value;
        std::memcpy(&value, from.data() + offset, sizeof(value));
        return swapped_ ? __builtin_bswap16(value) : value;
    }

    std::uint32_t u32(Bytes from, std::size_t offset) const {
        std::uint32_t value;
        std::memcpy(&value, from.data() + offset, sizeof(value));
        return swapped_ ? __builtin_bswap32(value) : value;
    }

    // Reads one block; a frame if it holds one.
    std::optional<CapturedFrame> block() {
        Bytes rest = bytes_.subspan(at_);
        if (rest.size() < BLOCK_OVERHEAD)
            damaged("the file ends within a block");
        std::uint32_t type = u32(rest, 0);
        if (type == PCAPNG_SECTION)
            section(rest);
        else if (!in_section_)
            damaged("there is no section header");

        std::uint32_t length = u32(rest, 4);
        if (length < BLOCK_OVERHEAD || length % 4 != 0)
            damaged(fmt::format("a block cannot be {} bytes long", length));
        if (length > rest.size())
            damaged("the file ends within a block");
        if (u32(rest, length - 4) != length)
            damaged("the two lengths of a block differ");
        auto frame = body(type, rest.subspan(8, length - BLOCK_OVERHEAD));
        at_ += length;
        return frame;
    }

    // The byte order holds from the section header on; interfaces are numbered anew.
    void section(Bytes rest) {
        std::uint32_t order;
        if (rest.size() < BLOCK_OVERHEAD + 4)
            damaged("the file ends within a section header");
        std::memcpy(&order, rest.data() + 8, sizeof(order));
        if (order != PCAPNG_BYTE_ORDER && order != __builtin_bswap32(PCAPNG_BYTE_ORDER))
            damaged("the section has no byte order");
        swapped_ = order != PCAPNG_BYTE_ORDER;
        in_section_ = true;
        first_of_section_ = interfaces_.size();
    }

    std::optional<CapturedFrame> body(std::uint32_t type, Bytes body) {
        switch (type) {
        case PCAPNG_INTERFACE:
            if (body.size() < 8)
                damaged("an interface description is too short");
            interfaces_.push_back(
                {.link = u16(body, 0), .time_units = time_units(body.subspan(8))});
            return std::nullopt;
        case PCAPNG_PACKET:
            return packet(body, 20, body.size() < 20 ? 0 : u32(body, 0));
        case PCAPNG_OLD_PACKET:
            return packet(body, 20, body.size() < 20 ? 0 : u16(body, 0));
        case PCAPNG_SIMPLE_PACKET:
            return simple_packet(body);
        default:
            return std::nullopt; // names, statistics, what others add
        }
    }

    std::optional<CapturedFrame> packet(Bytes body, std::size_t header, std::uint32_t interface) {
        if (body.size() < header)
            damaged("a packet is too short for its header");
        std::uint32_t captured = u32(body, 12);
        if (captured > body.size() - header)
            damaged(fmt::format("a packet of {} bytes in a block of {}", captured, body.size()));
        auto frame = on(interface, body.subspan(header, captured));
        if (!frame)
            return std::nullopt;
        frame->length = u32(body, 16);
        frame->time = nanoseconds(std::uint64_t{u32(body, 4)} << 32 | u32(body, 8),
                                  interfaces_[frame->interface].time_units);
        std::size_t options = header + padded(captured);
        if (options < body.size())
            frame->comment = comment(body.subspan(options));
        return frame;
    }

    std::optional<CapturedFrame> simple_packet(Bytes body) {
        if (body.size() < 4)
            damaged("a packet is too short for its header");
        std::uint32_t length = u32(body, 0);
        auto frame = on(0, body.subspan(4, std::min<std::size_t>(length, body.size() - 4)));
        if (frame)
            frame->length = length;
        return frame;
    }

    // None where the interface is no Ethernet.
    std::optional<CapturedFrame> on(std::uint32_t interface, Bytes bytes) {
        std::size_t index = first_of_section_ + interface;
        if (index >= interfaces_.size())
            damaged(fmt::format("a packet names interface {}, which is not described", interface));
        frames_++;
        if (interfaces_[index].link != PCAPNG_LINK_ETHERNET) {
            interfaces_[index].skipped++;
            return std::nullopt;
        }
        return CapturedFrame{.number = frames_,
                             .interface = index,
                             .bytes = {bytes.begin(), bytes.end()},
                             .length = 0,
                             .comment = {},
                             .time = 0};
    }

    // What that option holds; nothing where it is not there.
    Bytes option(Bytes options, std::uint16_t wanted) const {
        while (options.size() >= 4) {
            std::uint16_t code = u16(options, 0);
            std::size_t length = u16(options, 2);
            if (code == PCAPNG_OPTION_END || length > options.size() - 4)
                break;
            if (code == wanted)
                return options.subspan(4, length);
            options = options.subspan(std::min(options.size(), 4 + padded(length)));
        }
        return {};
    }

    std::string comment(Bytes options) const {
        Bytes text = option(options, PCAPNG_OPTION_COMMENT);
        return {reinterpret_cast<const char *>(text.data()), text.size()};
    }

    // How many units of its times make a second: a power of 10, or with the high bit of 2.
    std::uint64_t time_units(Bytes options) const {
        Bytes resolution = option(options, PCAPNG_OPTION_RESOLUTION);
        if (resolution.empty())
            return 1000000;
        unsigned exponent = resolution[0] & 0x7Fu;
        if (resolution[0] & 0x80)
            return exponent < 64 ? std::uint64_t{1} << exponent : 0;
        if (exponent > 19)
            return 0;
        std::uint64_t units = 1;
        for (; exponent != 0; exponent--)
            units *= 10;
        return units;
    }

    // Without units it is no time, nor is what does not fit in.
    static std::uint64_t nanoseconds(std::uint64_t time, std::uint64_t units) {
        constexpr std::uint64_t second = 1000000000;
        if (units == 0 || time / units >= UINT64_MAX / second)
            return 0;
        unsigned __int128 rest = time % units;
        return time / units * second + static_cast<std::uint64_t>(rest * second / units);
    }

    struct Interface {
        std::uint16_t link;
        std::uint64_t time_units; // 0: finer than can be told
        std::size_t skipped = 0;  // frames of another link type
    };

    Bytes bytes_;
    std::size_t frames_ = 0;
    std::size_t at_ = 0;
    bool swapped_ = false;
    bool in_section_ = false;
    std::size_t first_of_section_ = 0;
    std::vector<Interface> interfaces_;
};

} // namespace

std::unique_ptr<Capture> read_pcapng(std::span<const std::uint8_t> bytes) {
    return std::make_unique<Pcapng>(bytes);
}

} // namespace replay
