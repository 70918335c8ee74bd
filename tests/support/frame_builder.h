// Frames for tests, byte by byte:
//
//   Frame().to("01:80:c2:00:00:02").from("02:00:00:00:00:99").type(0x8809).padded()
//   Frame().tag(10).ipv4({.protocol = 112})
//   Frame().ipv6({.next = 0}).bytes({58, 0, 5, 2, 0, 0, 1, 0}).bytes({143, 0})
//
// Addresses and types have plain defaults: to 02:00:00:00:00:01, from 02:00:00:00:00:99, type
// 0x88B5.
#pragma once

#include "kernel/types.h"

#include <array>
#include <initializer_list>
#include <string>
#include <vector>

using Bytes = std::vector<u8>;
using Mac = std::array<u8, 6>;

Mac mac(const std::string &text);

struct Ipv4 {
    u8 protocol = 17;
    std::array<u8, 4> source{192, 0, 2, 1};
    std::array<u8, 4> destination{192, 0, 2, 2};
    u16 fragment = 0; // the fragment word, host order
    u8 ttl = 64;
};

struct Ipv6 {
    u8 next = 17;
    std::array<u8, 16> source{0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    std::array<u8, 16> destination{0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2};
    u8 hop_limit = 255;
};

class Frame {
public:
    Frame &to(const std::string &address);
    Frame &from(const std::string &address);
    Frame &tag(u16 tci, u16 tag_type = 0x8100); // a second call adds an inner tag
    Frame &type(u16 ethertype);
    Frame &ipv4(const Ipv4 &header);
    Frame &ipv6(const Ipv6 &header);
    Frame &bytes(std::initializer_list<int> more);
    Frame &bytes(const Bytes &more);
    Frame &padded(std::size_t length = 60); // zeros up to that length
    Frame &cut(std::size_t length);         // ends the frame early

    Bytes build() const;
    operator Bytes() const { return build(); }

private:
    Mac to_ = {2, 0, 0, 0, 0, 1};
    Mac from_ = {2, 0, 0, 0, 0, 0x99};
    Bytes tags_;
    u16 type_ = 0x88B5;
    Bytes payload_;
    std::size_t pad_ = 0;
    std::size_t cut_ = SIZE_MAX;
};
