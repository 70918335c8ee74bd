// tarn-make-demo: writes the capture that ./run replays, a pcapng file with two interfaces and a
// word on each frame.
#include "replay/pcapng.h"

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes operator+(Bytes left, const Bytes &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes zeros(std::size_t count) {
    return Bytes(count);
}

Bytes padded(Bytes frame, std::size_t length = 60) {
    if (frame.size() < length)
        frame.resize(length);
    return frame;
}

const Bytes HOST{0x02, 0, 0, 0, 0, 0x99};
const Bytes SWITCH{0x02, 0, 0, 0, 0, 0x01};
const Bytes ALL_ONES(6, 0xFF);
const Bytes PIM_GROUP{0x01, 0x00, 0x5E, 0, 0, 0x0D};
const Bytes VRRP_GROUP{0x01, 0x00, 0x5E, 0, 0, 0x12};

Bytes type(unsigned number) {
    return {static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
}

Bytes tag(unsigned vid) {
    return type(0x8100) + type(vid);
}

Bytes ipv4(std::uint8_t protocol, const Bytes &to, unsigned fragment = 0) {
    return type(0x0800) + Bytes{0x45, 0, 0, 20, 0, 0} + type(fragment) + Bytes{64, protocol, 0, 0} +
           Bytes{192, 0, 2, 1} + to;
}

Bytes ipv6(std::uint8_t next, std::uint8_t group, const Bytes &payload) {
    return type(0x86DD) +
           Bytes{0x60, 0, 0, 0, 0, static_cast<std::uint8_t>(payload.size()), next, 1} +
           Bytes{0xFE, 0x80} + zeros(13) + Bytes{0x99} + Bytes{0xFF, 0x02} + zeros(13) +
           Bytes{group} + payload;
}

struct Demo {
    std::uint32_t interface;
    Bytes frame;
    std::string comment;
    std::size_t captured = SIZE_MAX;
};

std::vector<Demo> demo() {
    const Bytes listener_report = Bytes{58, 0, 5, 2, 0, 0, 1, 0} + Bytes{143, 0} + zeros(6);
    return {
        {0, padded(SWITCH + HOST + ipv4(17, {192, 0, 2, 2})), "an ordinary IPv4 frame"},
        {0, padded(SWITCH + ALL_ONES + type(0x88B5)), "a source that is the broadcast address"},
        {0, padded(SWITCH + Bytes{3, 0, 0, 0, 0, 9} + type(0x88B5)), "a source that is a group"},
        {0, padded(SWITCH + zeros(6) + type(0x8809)), "a source that is zero"},
        {1, padded(SWITCH + HOST + tag(10) + ipv4(17, {192, 0, 2, 2})), "a tag for VLAN 10"},
        {1, padded(SWITCH + HOST + tag(10) + tag(20) + ipv4(17, {192, 0, 2, 2})), "two tags"},
        {0, padded(PIM_GROUP + HOST + ipv4(103, {224, 0, 0, 13})), "a PIM hello"},
        {0, padded(VRRP_GROUP + SWITCH + ipv4(112, {224, 0, 0, 18})), "VRRP with our own address"},
        {0, padded(SWITCH + HOST + type(0x8863)), "PPPoE discovery"},
        {0, padded(Bytes{0x33, 0x33, 0, 0, 0, 0x13} + HOST + ipv6(17, 0x13, zeros(8))),
         "GRASP to all neighbours"},
        {0, padded(Bytes{0x33, 0x33, 0, 0, 0, 0x16} + HOST + ipv6(0, 0x16, listener_report)),
         "an MLD report with router alert"},
        {0, padded(SWITCH + HOST + ipv4(17, {192, 0, 2, 2}, 0x2000)), "the first of two fragments"},
        {1, padded(Bytes{0x01, 0x1B, 0x19, 0, 0, 0} + HOST + type(0x88F7)), "PTP"},
        {1, padded(Bytes{0x01, 0x80, 0xC2, 0, 0, 0x02} + HOST + type(0x8809)), "an LACPDU"},
        {0, Bytes{0x02, 0, 0, 0, 0, 0x01, 0x02}, "a runt of seven bytes"},
        {0, padded(SWITCH + HOST + ipv4(17, {192, 0, 2, 2}), 1000), "captured in part", 40},
        {1, padded(SWITCH + HOST + ipv4(17, {192, 0, 2, 2}), 9216), "a jumbo frame"},
    };
}

class Writer {
public:
    explicit Writer(const std::string &path) : file_(path, std::ios::binary) {}

    void section() {
        block(replay::PCAPNG_SECTION,
              word(replay::PCAPNG_BYTE_ORDER) + half(1) + half(0) + word(~0u) + word(~0u));
    }
    void interface() {
        block(replay::PCAPNG_INTERFACE, half(replay::PCAPNG_LINK_ETHERNET) + half(0) + word(0));
    }
    void packet(const Demo &one) {
        Bytes bytes = one.frame;
        if (one.captured < bytes.size())
            bytes.resize(one.captured);
        auto captured = static_cast<std::uint32_t>(bytes.size());
        Bytes comment(one.comment.begin(), one.comment.end());
        block(replay::PCAPNG_PACKET, word(one.interface) + word(0) + word(0) + word(captured) +
                                         word(static_cast<std::uint32_t>(one.frame.size())) +
                                         aligned(bytes) + half(replay::PCAPNG_OPTION_COMMENT) +
                                         half(static_cast<std::uint16_t>(comment.size())) +
                                         aligned(comment) + half(replay::PCAPNG_OPTION_END) +
                                         half(0));
    }
    bool good() { return file_.flush().good(); }

private:
    static Bytes word(std::uint32_t value) {
        const auto *bytes = reinterpret_cast<const std::uint8_t *>(&value);
        return {bytes, bytes + sizeof(value)};
    }
    static Bytes half(std::uint16_t value) {
        const auto *bytes = reinterpret_cast<const std::uint8_t *>(&value);
        return {bytes, bytes + sizeof(value)};
    }
    static Bytes aligned(Bytes bytes) {
        bytes.resize((bytes.size() + 3) & ~std::size_t{3});
        return bytes;
    }
    void block(std::uint32_t type, const Bytes &body) {
        auto length = static_cast<std::uint32_t>(body.size() + 12);
        Bytes whole = word(type) + word(length) + body + word(length);
        file_.write(reinterpret_cast<const char *>(whole.data()),
                    static_cast<std::streamsize>(whole.size()));
    }

    std::ofstream file_;
};

} // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: tarn-make-demo FILE\n");
        return 2;
    }
    Writer writer(argv[1]);
    writer.section();
    writer.interface();
    writer.interface();
    for (const Demo &one : demo())
        writer.packet(one);
    if (!writer.good()) {
        std::perror(argv[1]);
        return 1;
    }
    return 0;
}
