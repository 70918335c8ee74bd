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
    explicit Pcapng(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}

    std::optional<CapturedFrame> next() override {
        while (at_ < bytes_.size())
            if (auto frame = block())
                return frame;
        return std::nullopt;
    }

    std::size_t interfaces() const override { return interfaces_.size(); }

private:
    [[noreturn]] void damaged(const std::string &what) const {
        throw CaptureError(fmt::format("damaged at byte {}: {}", at_, what));
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
        Bytes rest = Bytes(bytes_).subspan(at_);
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
            interfaces_.push_back({u16(body, 0), time_units(body.subspan(8))});
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
        CapturedFrame frame = on(interface, body.subspan(header, captured));
        frame.length = u32(body, 16);
        frame.time = hundredths(std::uint64_t{u32(body, 4)} << 32 | u32(body, 8),
                                interfaces_[frame.interface].time_units);
        std::size_t options = header + padded(captured);
        if (options < body.size())
            frame.comment = comment(body.subspan(options));
        return frame;
    }

    std::optional<CapturedFrame> simple_packet(Bytes body) {
        if (body.size() < 4)
            damaged("a packet is too short for its header");
        std::uint32_t length = u32(body, 0);
        CapturedFrame frame =
            on(0, body.subspan(4, std::min<std::size_t>(length, body.size() - 4)));
        frame.length = length;
        return frame;
    }

    CapturedFrame on(std::uint32_t interface, Bytes bytes) const {
        std::size_t index = first_of_section_ + interface;
        if (index >= interfaces_.size())
            damaged(fmt::format("a packet names interface {}, which is not described", interface));
        if (interfaces_[index].link != PCAPNG_LINK_ETHERNET)
            damaged(fmt::format("interface {} has link type {}; only Ethernet is read", interface,
                                interfaces_[index].link));
        return {.interface = index,
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

    // Without units it is no time.
    static std::uint64_t hundredths(std::uint64_t time, std::uint64_t units) {
        if (units == 0)
            return 0;
        std::uint64_t rest = time % units;
        return time / units * 100 + (units < 1000000 ? rest * 100 / units : rest / (units / 100));
    }

    struct Interface {
        std::uint16_t link;
        std::uint64_t time_units; // 0: finer than can be told
    };

    std::vector<std::uint8_t> bytes_;
    std::size_t at_ = 0;
    bool swapped_ = false;
    bool in_section_ = false;
    std::size_t first_of_section_ = 0;
    std::vector<Interface> interfaces_;
};

} // namespace

std::unique_ptr<Capture> read_pcapng(std::vector<std::uint8_t> bytes) {
    return std::make_unique<Pcapng>(std::move(bytes));
}

} // namespace replay
