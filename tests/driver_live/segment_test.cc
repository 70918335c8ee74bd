// Cutting and checksums, byte by byte.
#include "checksum.h"
#include "kernel/memory.h"
#include "kernel/skb.h"
#include "segment.h"
#include "work.h"

#include <cstring>
#include <gtest/gtest.h>

namespace {

using Bytes = std::vector<u8>;

// Over what has its checksum in it: 0xFFFF when that is right.
u32 ones_sum(std::span<const u8> bytes, u32 before = 0) {
    u32 sum = before;
    for (std::size_t at = 0; at < bytes.size(); at++)
        sum += static_cast<u32>(at % 2 == 0 ? bytes[at] << 8 : bytes[at]);
    while (sum >> 16)
        sum = (sum & 0xFFFF) + (sum >> 16);
    return sum;
}

// Over a segment and its pseudo-header.
u32 folded_sum(std::span<const u8> frame, u32 l4, u32 addresses, u32 address_bytes, u8 protocol) {
    std::span<const u8> segment = frame.subspan(l4);
    u32 pseudo = ones_sum(frame.subspan(addresses, address_bytes),
                          protocol + static_cast<u32>(segment.size()));
    return ones_sum(segment, pseudo);
}

Bytes tcp4(u32 payload, bool tagged = false) {
    Bytes frame(12, 2);
    if (tagged)
        frame.insert(frame.end(), {0x81, 0, 0, 5});
    u32 total = 40 + payload;
    frame.insert(frame.end(), {8,
                               0,
                               0x45,
                               0,
                               static_cast<u8>(total >> 8),
                               static_cast<u8>(total),
                               0x12,
                               0xFF,
                               0x40,
                               0,
                               64,
                               6,
                               0,
                               0,
                               10,
                               0,
                               0,
                               1,
                               10,
                               0,
                               0,
                               2});
    frame.insert(frame.end(), {0, 80,   0,    81, 0xFF, 0xFF, 0xFF, 0xF0, 0, 0, 0,
                               1, 0x50, 0x99, 1,  0,    0xAB, 0xCD, 0,    0}); // CWR, ACK, PSH, FIN
    for (u32 i = 0; i < payload; i++)
        frame.push_back(static_cast<u8>(i));
    return frame;
}

Bytes udp6(u32 payload) {
    Bytes frame(12, 2);
    frame.insert(frame.end(), {0x86, 0xDD, 0x60, 0, 0, 0, static_cast<u8>((payload + 8) >> 8),
                               static_cast<u8>(payload + 8), 17, 64});
    for (u8 i = 0; i < 32; i++)
        frame.push_back(i);
    frame.insert(frame.end(), {0, 80, 0, 81, static_cast<u8>((payload + 8) >> 8),
                               static_cast<u8>(payload + 8), 1, 2});
    for (u32 i = 0; i < payload; i++)
        frame.push_back(static_cast<u8>(i));
    return frame;
}

std::vector<Bytes> cut(const Bytes &whole, u32 l4, u32 segment, bool udp) {
    large_frame large;
    large.bytes = whole;
    std::vector<Bytes> parts;
    if (!large_frame_begin(large, l4, segment, udp))
        return parts;
    Bytes part(10240);
    while (u32 length = large_frame_next(large, part))
        parts.emplace_back(part.begin(), part.begin() + length);
    EXPECT_TRUE(large.bytes.empty());
    return parts;
}

} // namespace

TEST(Cutting, a_tcp_frame_becomes_segments_in_sequence) {
    std::vector<Bytes> parts = cut(tcp4(250), 34, 100, false);
    ASSERT_EQ(parts.size(), 3u);
    for (u32 i = 0; i < 3; i++) {
        const Bytes &part = parts[i];
        u32 payload = i == 2 ? 50 : 100;
        ASSERT_EQ(part.size(), 54 + payload);
        EXPECT_EQ(part[17], 40 + payload);                                 // total length
        EXPECT_EQ(part[18] << 8 | part[19], 0x12FF + static_cast<int>(i)); // identification
        EXPECT_EQ(static_cast<u32>(part[38]) << 24 | static_cast<u32>(part[39] << 16) |
                      static_cast<u32>(part[40] << 8) | part[41],
                  0xFFFFFFF0u + i * 100); // the sequence, around its end
        EXPECT_EQ(part[54], static_cast<u8>(i * 100));
        EXPECT_EQ(folded_sum(part, 34, 26, 8, 6), 0xFFFFu);
        EXPECT_EQ(ones_sum(std::span(part).subspan(14, 20)), 0xFFFFu);
    }
    EXPECT_EQ(parts[0][47], 0x90); // CWR and ACK
    EXPECT_EQ(parts[1][47], 0x10);
    EXPECT_EQ(parts[2][47], 0x19); // ACK, PSH and FIN
}

TEST(Cutting, the_tag_stands_in_each_segment) {
    std::vector<Bytes> parts = cut(tcp4(150, true), 38, 100, false);
    ASSERT_EQ(parts.size(), 2u);
    EXPECT_EQ(parts[1][12], 0x81);
    EXPECT_EQ(parts[1][15], 5);
    EXPECT_EQ(folded_sum(parts[1], 38, 30, 8, 6), 0xFFFFu);
}

TEST(Cutting, udp_over_ipv6_becomes_datagrams) {
    std::vector<Bytes> parts = cut(udp6(150), 54, 100, true);
    ASSERT_EQ(parts.size(), 2u);
    EXPECT_EQ(parts[0].size(), 162u);
    EXPECT_EQ(parts[1].size(), 112u);
    EXPECT_EQ(parts[1][19], 58);
    EXPECT_EQ(parts[1][59], 58);
    for (const Bytes &part : parts)
        EXPECT_EQ(folded_sum(part, 54, 22, 32, 17), 0xFFFFu);
}

TEST(Cutting, headers_that_make_no_sense_give_nothing) {
    EXPECT_TRUE(cut(tcp4(100), 34, 0, false).empty());
    EXPECT_TRUE(cut(tcp4(100), 20, 100, false).empty());
    EXPECT_TRUE(cut(tcp4(100), 1000, 100, false).empty());
    EXPECT_TRUE(cut({}, 34, 100, false).empty());
    Bytes short_header = tcp4(100);
    short_header[46] = 0x10;
    EXPECT_TRUE(cut(short_header, 34, 100, false).empty());
    short_header[46] = 0xF0;
    short_header.resize(80);
    EXPECT_TRUE(cut(short_header, 34, 100, false).empty());
}

TEST(Checksums, are_filled_in_for_whole_segments) {
    Bytes frame = tcp4(11);
    checksum_fill(frame.data(), frame.size());
    EXPECT_EQ(folded_sum(frame, 34, 26, 8, 6), 0xFFFFu);
    frame = udp6(11);
    checksum_fill(frame.data(), frame.size());
    EXPECT_EQ(folded_sum(frame, 54, 22, 32, 17), 0xFFFFu);
    frame[20] = 58; // ICMPv6
    checksum_fill(frame.data(), frame.size());
    EXPECT_EQ(folded_sum(frame, 54, 22, 32, 58), 0xFFFFu);
}

TEST(Checksums, padding_behind_the_packet_does_not_count) {
    Bytes frame = tcp4(1);
    Bytes padded = frame;
    padded.resize(frame.size() + 5, 0xEE);
    checksum_fill(frame.data(), frame.size());
    checksum_fill(padded.data(), padded.size());
    padded.resize(frame.size());
    EXPECT_EQ(padded, frame);
}

TEST(Checksums, fragments_and_frames_cut_short_stay_as_they_are) {
    Bytes fragment = tcp4(20);
    fragment[20] = 0x20;
    Bytes before = fragment;
    checksum_fill(fragment.data(), fragment.size());
    EXPECT_EQ(fragment, before);
    for (const Bytes &whole : {tcp4(20), udp6(20)})
        for (std::size_t length = 0; length < whole.size(); length++) {
            Bytes part(whole.begin(), whole.begin() + static_cast<long>(length)), same = part;
            checksum_fill(part.data(), part.size());
            EXPECT_EQ(part, same) << length;
        }
}

namespace {

sk_buff *make(const Bytes &bytes) {
    sk_buff *skb = __netdev_alloc_skb(nullptr, static_cast<unsigned>(bytes.size()), GFP_KERNEL);
    std::memcpy(skb_put(skb, static_cast<unsigned>(bytes.size())), bytes.data(), bytes.size());
    return skb;
}

void keep(void *into, sk_buff *skb) {
    static_cast<std::vector<Bytes> *>(into)->emplace_back(skb_data(skb),
                                                          skb_data(skb) + skb_len(skb));
    consume_skb(skb);
}

chip_work tcp_work(u32 length) {
    return {{.flags = 1,
             .gso_type = 1,
             .header_length = 54,
             .gso_size = 1000,
             .csum_start = 34,
             .csum_offset = 16},
            length};
}

} // namespace

TEST(Work, is_done_as_cutting_does_it) {
    const Bytes whole = tcp4(2500);
    sk_buff *skb = make(whole);
    chip_work work = tcp_work(skb_len(skb));
    EXPECT_TRUE(work_is_sound(skb, work));
    std::vector<Bytes> pieces;
    chip_port_finish(skb, &work, keep, &pieces);
    EXPECT_EQ(pieces, cut(whole, 34, 1000, false));
    EXPECT_EQ(pieces.size(), 3u);
}

TEST(Work, moves_with_a_tag_that_comes) {
    const Bytes whole = tcp4(2500, true);
    sk_buff *skb = make(whole);
    chip_work work = tcp_work(skb_len(skb) - 4);
    EXPECT_EQ(work_now(work, skb_len(skb)).csum_start, 38);
    EXPECT_EQ(work_now(work, skb_len(skb)).header_length, 58);
    std::vector<Bytes> pieces;
    chip_port_finish(skb, &work, keep, &pieces);
    EXPECT_EQ(pieces, cut(whole, 38, 1000, false));
}

TEST(Work, may_be_a_checksum_alone) {
    Bytes whole = tcp4(100);
    sk_buff *skb = make(whole);
    chip_work work = tcp_work(skb_len(skb));
    work.told.gso_type = 0;
    EXPECT_TRUE(work_is_left(work.told));
    std::vector<Bytes> pieces;
    chip_port_finish(skb, &work, keep, &pieces);
    checksum_fill(whole.data(), whole.size());
    EXPECT_EQ(pieces, std::vector<Bytes>{whole});
    work.told.flags = 2; // "it is right", which leaves nothing
    EXPECT_FALSE(work_is_left(work.told));
}

TEST(Work, that_nobody_could_do_is_not_taken) {
    sk_buff *skb = make(tcp4(2500));
    chip_work work = tcp_work(skb_len(skb));
    for (u8 kind : {2, 3, 6}) {
        work.told.gso_type = kind;
        EXPECT_FALSE(work_is_sound(skb, work)) << u32{kind};
    }
    work = tcp_work(skb_len(skb));
    work.told.gso_size = 9217;
    EXPECT_FALSE(work_is_sound(skb, work));
    work = tcp_work(skb_len(skb));
    work.told.csum_start = 30000;
    EXPECT_FALSE(work_is_sound(skb, work));
    consume_skb(skb);
}
