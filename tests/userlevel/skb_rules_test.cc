// Socket buffers: what they count for, who may touch which byte, and what a misuse does.
#include "kernel/skb.h"

#include "control.h"
#include "kernel/bytes.h"
#include "kernel/errno.h"
#include "kernel/memory.h"
#include "kernel/netdev.h"
#include "memory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ::testing::ElementsAre;

namespace {

using Bytes = std::vector<u8>;

constexpr u32 RECORD = 256;  // of the buffer, in a kernel
constexpr u32 TRAILER = 320; // behind the bytes, in a kernel

class SkbRules : public ::testing::Test {
protected:
    SkbRules() : before_(userlevel::take_snapshot()) {}
    ~SkbRules() override { EXPECT_EQ(userlevel::describe(userlevel::leaked_since(before_)), ""); }
    static Bytes bytes(const sk_buff *skb) { return {skb_data(skb), skb_data(skb) + skb_len(skb)}; }
    static u32 block_of(const sk_buff *skb) {
        return skb_headroom(skb) + skb_len(skb) + skb_tailroom(skb);
    }

private:
    userlevel::snapshot before_;
};

TEST_F(SkbRules, a_buffer_from_the_allocator_counts_for_a_whole_size_class) {
    // The longest frame of each class, and one byte more.
    struct Row {
        u32 length, total;
    };
    for (Row row : {Row{128, 512}, Row{129, 1024}, Row{640, 1024}, Row{641, 2048}, Row{1664, 2048},
                    Row{1665, 4096}, Row{3712, 4096}, Row{3713, 8192}, Row{7808, 8192},
                    Row{7809, 16384}, Row{16000, 16384}, Row{16001, 32768}, Row{65152, 65536}}) {
        sk_buff *skb = __netdev_alloc_skb(nullptr, row.length, GFP_KERNEL);
        EXPECT_EQ(skb_truesize(skb), row.total + RECORD) << row.length;
        EXPECT_EQ(block_of(skb), row.total - TRAILER) << row.length;
        kfree_skb(skb);
    }
}

TEST_F(SkbRules, a_length_that_no_kernel_could_serve_fails) {
    constexpr u32 LONGEST = (4 << 20) - TRAILER - 64;
    for (gfp_t flags : {GFP_ATOMIC, GFP_KERNEL}) {
        sk_buff *skb = __netdev_alloc_skb(nullptr, LONGEST, flags);
        ASSERT_NE(skb, nullptr);
        EXPECT_EQ(skb_truesize(skb), (4u << 20) + RECORD);
        kfree_skb(skb);
        for (u32 length : {LONGEST + 1, 0x7fffffffu, 0x90000000u, 0xffffffc0u, 0xffffffffu})
            EXPECT_EQ(__netdev_alloc_skb(nullptr, length, flags), nullptr) << length;
    }
}

TEST_F(SkbRules, a_copy_of_a_buffer_cut_from_a_page_counts_for_a_size_class) {
    sk_buff *skb = __netdev_alloc_skb(nullptr, 1500, GFP_ATOMIC);
    EXPECT_EQ(skb_truesize(skb), 1600 + TRAILER + RECORD);
    sk_buff *copy = skb_copy(skb, GFP_ATOMIC);
    EXPECT_EQ(skb_truesize(copy), 2048 + RECORD);
    EXPECT_EQ(skb_headroom(copy), 64u);
    EXPECT_EQ(skb_tailroom(copy), 2048 - TRAILER - 64);
    kfree_skb(copy);
    kfree_skb(skb);
}

TEST_F(SkbRules, enough_headroom_already_gives_a_buffer_of_just_the_frame) {
    sk_buff *skb = userlevel::frame_make(Bytes{1, 2, 3}, 64, 1500);
    skb_cb(skb)[0] = 5;
    skb_set_mark(skb, 6);
    EXPECT_EQ(skb_truesize(skb), 2048 + RECORD);
    for (u32 wanted : {0u, 10u, 64u}) {
        sk_buff *other = skb_realloc_headroom(skb, wanted);
        EXPECT_EQ(skb_truesize(other), 512 + RECORD); // not the tail room
        EXPECT_EQ(skb_headroom(other), 64u);
        EXPECT_THAT(bytes(other), ElementsAre(1, 2, 3));
        EXPECT_EQ(skb_cb(other)[0], 5);
        EXPECT_EQ(skb_mark(other), 6u);
        EXPECT_FALSE(skb_cloned(skb));
        EXPECT_NE(skb_data(other), skb_data(skb));
        kfree_skb(other);
    }
    kfree_skb(skb);
}

TEST_F(SkbRules, missing_headroom_comes_in_cache_lines) {
    sk_buff *skb = userlevel::frame_make(Bytes{1, 2, 3}, 16);
    sk_buff *other = skb_realloc_headroom(skb, 17); // 1 is missing
    EXPECT_EQ(skb_headroom(other), 16 + 64u);
    kfree_skb(other);
    other = skb_realloc_headroom(skb, 500);
    EXPECT_EQ(skb_headroom(other), 16 + 512u);
    EXPECT_EQ(skb_truesize(other), 1024 + RECORD);
    EXPECT_THAT(bytes(other), ElementsAre(1, 2, 3));
    kfree_skb(other);
    kfree_skb(skb);
}

TEST_F(SkbRules, a_failed_wish_for_headroom_leaves_the_frame_alone) {
    sk_buff *skb = userlevel::frame_make(Bytes{1, 2, 3}, 16);
    for (u32 wanted : {1u, 500u}) {
        u64 made = userlevel::allocations_made();
        kfree_skb(skb_realloc_headroom(skb, wanted));
        u64 needed = userlevel::allocations_made() - made;
        EXPECT_EQ(needed, 2u);
        for (u64 n = 1; n <= needed; n++) {
            userlevel::fail_allocation(n);
            EXPECT_EQ(skb_realloc_headroom(skb, wanted), nullptr);
            EXPECT_FALSE(skb_cloned(skb));
            EXPECT_THAT(bytes(skb), ElementsAre(1, 2, 3));
        }
    }
    kfree_skb(skb);
}

TEST_F(SkbRules, more_room_counts_for_the_buffer_unless_a_socket_holds_it) {
    int socket = 0;
    for (void *holder : {static_cast<void *>(nullptr), static_cast<void *>(&socket)}) {
        sk_buff *skb = userlevel::frame_make(Bytes{1}, 16);
        skb->sk = holder;
        EXPECT_EQ(pskb_expand_head(skb, 0, 300, GFP_ATOMIC), 0);
        EXPECT_EQ(block_of(skb), 1024 - TRAILER);
        EXPECT_EQ(skb_truesize(skb), (holder ? 512 : 1024) + RECORD);
        kfree_skb(skb);
    }
}

TEST_F(SkbRules, room_may_be_given_back_but_not_the_frame) {
    sk_buff *skb = userlevel::frame_make(Bytes(100, 7), 16, 1000);
    int spare = static_cast<int>(skb_tailroom(skb));
    EXPECT_EQ(pskb_expand_head(skb, 0, -spare, GFP_ATOMIC), 0);
    EXPECT_EQ(bytes(skb), Bytes(100, 7));
    EXPECT_EQ(skb_truesize(skb), 512 + RECORD);
    EXPECT_DEATH(pskb_expand_head(skb, 0, -static_cast<int>(skb_tailroom(skb)) - 1, GFP_ATOMIC),
                 "kernel BUG");
    EXPECT_DEATH(pskb_expand_head(skb, -1, 0, GFP_ATOMIC), "kernel BUG");
    kfree_skb(skb);
}

TEST_F(SkbRules, a_buffer_with_two_users_lives_until_both_are_done_and_may_not_be_moved) {
    sk_buff *skb = userlevel::frame_make(Bytes{1});
    skb->users = 2;
    EXPECT_DEATH(pskb_expand_head(skb, 1, 0, GFP_ATOMIC), "kernel BUG");
    auto before = userlevel::skbs_ended();
    consume_skb(skb);
    EXPECT_THAT(bytes(skb), ElementsAre(1));
    kfree_skb(skb);
    auto after = userlevel::skbs_ended();
    EXPECT_EQ(after.consumed, before.consumed);
    EXPECT_EQ(after.dropped, before.dropped + 1); // who came last decides
}

TEST_F(SkbRules, no_room_to_reserve_stops_the_kernel) {
    sk_buff *skb = __netdev_alloc_skb(nullptr, 0, GFP_ATOMIC);
    EXPECT_DEATH(skb_reserve(skb, skb_tailroom(skb) + 1), "kernel BUG");
    skb_reserve(skb, skb_tailroom(skb));
    EXPECT_EQ(skb_tailroom(skb), 0u);
    kfree_skb(skb);
}

TEST_F(SkbRules, nothing_happens_to_a_null_buffer) {
    auto before = userlevel::skbs_ended();
    kfree_skb(nullptr);
    consume_skb(nullptr);
    __dev_kfree_skb_irq(nullptr, SKB_REASON_DROPPED);
    auto after = userlevel::skbs_ended();
    EXPECT_EQ(after.dropped + after.consumed + after.irq,
              before.dropped + before.consumed + before.irq);
}

TEST_F(SkbRules, a_clone_of_a_clone_keeps_the_bytes_until_the_last_is_gone) {
    sk_buff *first = userlevel::frame_make(Bytes{1, 2});
    sk_buff *second = skb_clone(first, GFP_ATOMIC);
    sk_buff *third = skb_clone(second, GFP_ATOMIC);
    kfree_skb(first);
    EXPECT_TRUE(skb_cloned(third));
    kfree_skb(second);
    EXPECT_FALSE(skb_cloned(third));
    EXPECT_THAT(bytes(third), ElementsAre(1, 2));
    kfree_skb(third);
}

TEST_F(SkbRules, a_frame_made_where_one_must_not_sleep_does_not_ask_to) {
    u64 before = userlevel::sleeping_allocations_in_atomic();
    local_bh_disable();
    kfree_skb(userlevel::frame_make(Bytes{1}));
    local_bh_enable();
    EXPECT_EQ(userlevel::sleeping_allocations_in_atomic(), before);
}

TEST_F(SkbRules, a_buffer_freed_twice_is_told) {
    EXPECT_DEATH(
        {
            sk_buff *skb = userlevel::frame_make(Bytes{1});
            sk_buff *clone = skb_clone(skb, GFP_ATOMIC);
            userlevel::release(skb->head);
            userlevel::release(skb->head);
            kfree_skb(clone);
        },
        "freed twice|AddressSanitizer");
}

// Whether the address sanitizer stops whoever reads this byte.
void expect_forbidden(const u8 *byte, const char *what) {
    EXPECT_DEATH(
        {
            volatile u8 seen = *static_cast<const volatile u8 *>(byte);
            (void)seen;
        },
        "AddressSanitizer")
        << what;
}

TEST_F(SkbRules, forbidden_ground_follows_the_bounds_of_the_frame) {
    if (!userlevel::UNDER_ASAN)
        GTEST_SKIP() << "only the address sanitizer can tell";
    sk_buff *skb = userlevel::frame_make(Bytes(64, 1), 64);
    expect_forbidden(skb->head, "the first byte of the headroom");
    expect_forbidden(skb->end - 1, "the last byte of the tail room");
    expect_forbidden(skb->end, "the byte behind the block");
    expect_forbidden(skb->head - 1, "the byte before the block");

    skb_trim(skb, 61);
    expect_forbidden(skb_data(skb) + 61, "what was trimmed off");
    skb_pull(skb, 16);
    expect_forbidden(skb_data(skb) - 1, "what was pulled");
    skb_push(skb, 16);
    skb_data(skb)[0] = 2;
    *static_cast<u8 *>(skb_put(skb, 3)) = 3;
    expect_forbidden(skb_data(skb) + 64, "behind what was put");

    EXPECT_EQ(pskb_expand_head(skb, 64, 64, GFP_ATOMIC), 0);
    expect_forbidden(skb_data(skb) - 1, "the headroom of the new block");
    expect_forbidden(skb_data(skb) + 64, "the tail room of the new block");
    sk_buff *copy = skb_copy(skb, GFP_ATOMIC);
    expect_forbidden(skb_data(skb) - 1, "the headroom of what was copied");
    expect_forbidden(skb_data(copy) - 1, "the headroom of the copy");
    kfree_skb(copy);
    kfree_skb(skb);
}

TEST_F(SkbRules, clones_may_touch_the_whole_block) {
    sk_buff *skb = userlevel::frame_make(Bytes(64, 1), 64);
    sk_buff *clone = skb_clone(skb, GFP_ATOMIC);
    skb_pull(clone, 32); // must not close to the other what it still has
    EXPECT_EQ(skb_data(skb)[0], 1);
    EXPECT_EQ(skb_data(clone)[-1], 1);
    kfree_skb(skb);
    kfree_skb(clone);
}

// --- the link header -----------------------------------------------------------------------------

u16 protocol_of(const Bytes &frame) {
    sk_buff *skb = userlevel::frame_make(frame);
    net_device *device = alloc_etherdev_mqs(0, 1, 1);
    u16 type = be16_to_cpu(eth_type_trans(skb, device));
    EXPECT_EQ(skb->head + skb->mac_header, skb->data - (frame.size() < 14 ? 0 : 14));
    EXPECT_EQ(skb_dev(skb), device);
    kfree_skb(skb);
    free_netdev(device);
    return type;
}

Bytes with_type(u16 type, const Bytes &payload) {
    Bytes frame(12, 2);
    frame.push_back(static_cast<u8>(type >> 8));
    frame.push_back(static_cast<u8>(type));
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}

TEST_F(SkbRules, a_type_below_0x600_is_a_length_and_the_frame_one_of_802) {
    constexpr u16 ETH_P_802_3 = 0x0001, ETH_P_802_2 = 0x0004;
    const Bytes llc{0x42, 0x42, 0x03}, netware{0xFF, 0xFF, 0x00};
    EXPECT_EQ(protocol_of(with_type(0x0800, llc)), 0x0800);
    EXPECT_EQ(protocol_of(with_type(0x0600, netware)), 0x0600);
    for (u16 length : {0x0000, 0x0026, 0x05DC, 0x05FF}) {
        EXPECT_EQ(protocol_of(with_type(length, llc)), ETH_P_802_2) << length;
        EXPECT_EQ(protocol_of(with_type(length, netware)), ETH_P_802_3) << length;
        EXPECT_EQ(protocol_of(with_type(length, {0xFF, 0xFE})), ETH_P_802_2) << length;
        EXPECT_EQ(protocol_of(with_type(length, {0xFF})), ETH_P_802_2) << length;
        EXPECT_EQ(protocol_of(with_type(length, {})), ETH_P_802_2) << length;
    }
    EXPECT_EQ(protocol_of(Bytes(13, 0xFF)), ETH_P_802_3) << "what is missing reads as 0";
    EXPECT_EQ(protocol_of(Bytes(1, 0xFF)), ETH_P_802_2);
}

TEST_F(SkbRules, the_place_of_the_link_header_goes_along_with_the_bytes) {
    sk_buff *skb = userlevel::frame_make(Bytes(60, 1), 40);
    EXPECT_EQ(skb->mac_header, SKB_NO_MAC_HEADER);
    skb_mac_header_back(skb, 4);
    EXPECT_EQ(pskb_expand_head(skb, 0, 0, GFP_ATOMIC), 0);
    EXPECT_EQ(skb->mac_header, SKB_NO_MAC_HEADER);
    skb->mac_header = 40;
    skb_mac_header_back(skb, 4);
    EXPECT_EQ(skb->mac_header, 36);
    EXPECT_EQ(pskb_expand_head(skb, 64, 0, GFP_ATOMIC), 0);
    EXPECT_EQ(skb->mac_header, 100);
    sk_buff *roomy = skb_realloc_headroom(skb, 200), *narrow = skb_realloc_headroom(skb, 1);
    for (sk_buff *other : {skb_copy(skb, GFP_ATOMIC), skb_clone(skb, GFP_ATOMIC), roomy, narrow}) {
        EXPECT_EQ(other->data - (other->head + other->mac_header), 4);
        kfree_skb(other);
    }
    skb_mac_header_back(skb, 101); // beyond the beginning
    EXPECT_EQ(skb->mac_header, 100);
    kfree_skb(skb);
}

} // namespace
