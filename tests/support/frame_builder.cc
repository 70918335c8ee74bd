#include "support/frame_builder.h"

#include <algorithm>

namespace {

void append_be16(Bytes &bytes, u16 value) {
    bytes.push_back(static_cast<u8>(value >> 8));
    bytes.push_back(static_cast<u8>(value));
}

template <typename Range>
void append(Bytes &bytes, const Range &more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

} // namespace

Mac mac(const std::string &text) {
    auto digit = [&](std::size_t at) {
        u8 one = static_cast<u8>(text.at(at));
        return one <= '9' ? one - '0' : (one | 0x20) - 'a' + 10;
    };
    Mac address{};
    for (std::size_t i = 0; i < address.size(); i++)
        address[i] = static_cast<u8>(digit(3 * i) << 4 | digit(3 * i + 1));
    return address;
}

Frame &Frame::to(const std::string &address) {
    to_ = mac(address);
    return *this;
}

Frame &Frame::from(const std::string &address) {
    from_ = mac(address);
    return *this;
}

Frame &Frame::tag(u16 tci, u16 tag_type) {
    append_be16(tags_, tag_type);
    append_be16(tags_, tci);
    return *this;
}

Frame &Frame::type(u16 ethertype) {
    type_ = ethertype;
    return *this;
}

Frame &Frame::ipv4(const Ipv4 &header) {
    type_ = 0x0800;
    append(payload_, Bytes{0x45, 0, 0, 20, 0, 0});
    append_be16(payload_, header.fragment);
    append(payload_, Bytes{header.ttl, header.protocol, 0, 0});
    append(payload_, header.source);
    append(payload_, header.destination);
    return *this;
}

Frame &Frame::ipv6(const Ipv6 &header) {
    type_ = 0x86DD;
    append(payload_, Bytes{0x60, 0, 0, 0, 0, 0, header.next, header.hop_limit});
    append(payload_, header.source);
    append(payload_, header.destination);
    return *this;
}

Frame &Frame::bytes(std::initializer_list<int> more) {
    for (int byte : more)
        payload_.push_back(static_cast<u8>(byte));
    return *this;
}

Frame &Frame::bytes(const Bytes &more) {
    append(payload_, more);
    return *this;
}

Frame &Frame::padded(std::size_t length) {
    pad_ = length;
    return *this;
}

Frame &Frame::cut(std::size_t length) {
    cut_ = length;
    return *this;
}

Bytes Frame::build() const {
    Bytes frame;
    append(frame, to_);
    append(frame, from_);
    append(frame, tags_);
    append_be16(frame, type_);
    append(frame, payload_);
    frame.resize(std::max(frame.size(), pad_));
    frame.resize(std::min(frame.size(), cut_));
    return frame;
}
