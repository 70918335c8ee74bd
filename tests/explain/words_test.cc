// Every reason that a redirect of classification can stop a frame for has words of its own.
#include "explain/words.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>
#include <vector>

namespace {

struct Reasons {
    const char *redirect;
    std::vector<u32> reasons;
};

TEST(Words, every_reason_has_its_own) {
    const Reasons all[] = {
        {"orvo-bridge", {1}},
        {"remote-mirror", {1}},
        {"sflow", {1, 3}},
        {"flowd", {1, 2}},
        {"l2drop", {1, 2, 3}},
        {"l2mac", {1}},
        {"grasp", {1}},
        {"l3drop", {1, 2}},
        {"filterMatchCpuCode", {1}},
        {"vornappsd", {1, 2}},
        {"mcdrop", {1, 2, 3, 4}},
        {"pim", {1}},
        {"vrrp", {1}},
        {"ipv4", {1, 2, 3, 4, 5}},
        {"ipv6_precheck", {1, 2, 3, 4, 5}},
        {"ipv6", {1, 2, 3, 4, 5, 6}},
        {"arp", {2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13}},
        {"rarp", {1, 2, 3, 4}},
        {"pppoe", {1, 2, 3}},
        {"vlan_local", {1}},
        {"ptp", {1}},
    };
    for (const Reasons &one : all) {
        std::set<std::string> words;
        for (u32 reason : one.reasons)
            words.insert(explain::reason_words(one.redirect, reason));
        EXPECT_EQ(words.size(), one.reasons.size()) << one.redirect;
        EXPECT_FALSE(words.contains("")) << one.redirect;
        for (u32 other = 0; other < 20; other++)
            EXPECT_EQ(explain::reason_words(one.redirect, other).empty(),
                      std::find(one.reasons.begin(), one.reasons.end(), other) == one.reasons.end())
                << one.redirect << " " << other;
    }
}

TEST(Words, what_follows_a_length_is_named_by_its_llc_header) {
    using Bytes = std::vector<u8>;
    const std::vector<std::pair<Bytes, std::string>> rows{
        {{0x42, 0x42, 3, 0}, "LLC 0x42 spanning tree"},
        {{0xFE, 0xFE, 3, 0x83}, "LLC 0xfe IS-IS"},
        {{0xFE, 0xFE, 3, 0x80}, "LLC 0xfe OSI network layer"},
        {{0xFE, 0xFE, 3}, "LLC 0xfe OSI network layer"},
        {{0x90, 0x90, 3}, "LLC 0x90"},
        {{0xAA, 0xAA, 3, 0, 0, 0, 0x88, 0xCC}, "SNAP 00:00:00 0x88cc LLDP"},
        {{0xAA, 0xAA, 3, 0, 0, 0x0C, 0x01, 0x11}, "SNAP 00:00:0c 0x0111 UDLD"},
        {{0xAA, 0xAA, 3, 0, 0, 0x0D, 0x01, 0x11}, "SNAP 00:00:0d 0x0111"},
        {{0xAA, 0xAA, 3, 0, 0, 0x0C, 0x01}, "LLC 0xaa"},
        {{0x42, 0x42}, ""},
        {{}, ""}};
    for (const auto &[bytes, words] : rows)
        EXPECT_EQ(explain::llc_words(bytes), words);
}

} // namespace
