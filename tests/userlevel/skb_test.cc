// Socket buffers: the rules of Linux 6.1 for linear frames.
#include "kernel/skb.h"

#include "control.h"
#include "kernel/errno.h"
#include "kernel/memory.h"
#include "kernel/netdev.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ::testing::ElementsAre;

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool UNDER_ASAN = true;
#else
constexpr bool UNDER_ASAN = false;
#endif

using Bytes = std::vector<u8>;

class Skb : public ::testing::Test {
protected:
    Skb() : before_(userlevel::take_snapshot()) {}
    ~Skb() override { EXPECT_EQ(userlevel::describe(userlevel::leaked_since(before_)), ""); }
    static Bytes bytes(const sk_buff *skb) { return {skb_data(skb), skb_data(skb) + skb_len(skb)}; }
    sk_buff *make(const Bytes &of = {1, 2, 3, 4}, u32 headroom = 16) {
        return userlevel::frame_make(of, headroom);
    }

private:
    userlevel::snapshot before_;
};

TEST_F(Skb, a_driver_buffer_counts_for_its_block_and_its_records) {
    // Length, then what a 6.1 kernel on x86_64 counts for it: the block that its allocator hands
    // out (rounded to a size of kmalloc, or cut to size from a page), and 256 bytes for the record.
    struct Row {
        u32 length;
        gfp_t flags;
        u32 truesize;
    };
    for (Row row : {Row{0, GFP_ATOMIC, 512 + 256}, Row{64, GFP_ATOMIC, 512 + 256},
                    Row{128, GFP_ATOMIC, 512 + 256}, Row{129, GFP_ATOMIC, 1024 + 256},
                    Row{640, GFP_ATOMIC, 1024 + 256}, Row{641, GFP_ATOMIC, 768 + 320 + 256},
                    Row{1500, GFP_ATOMIC, 1600 + 320 + 256}, Row{1500, GFP_KERNEL, 2048 + 256},
                    Row{3712, GFP_ATOMIC, 3776 + 320 + 256}, Row{3713, GFP_ATOMIC, 8192 + 256},
                    Row{9216, GFP_ATOMIC, 16384 + 256}}) {
        sk_buff *skb = __netdev_alloc_skb(nullptr, row.length, row.flags);
        EXPECT_EQ(skb_truesize(skb), row.truesize) << row.length << " bytes, flags " << row.flags;
        EXPECT_EQ(skb_headroom(skb), 64u);
        EXPECT_EQ(skb_len(skb), 0u);
        EXPECT_GE(skb_tailroom(skb), row.length);
        kfree_skb(skb);
    }
}

TEST_F(Skb, bytes_are_put_pushed_pulled_and_trimmed) {
    sk_buff *skb = make({1, 2, 3, 4});
    u32 tailroom = skb_tailroom(skb);
    EXPECT_EQ(skb_headroom(skb), 16u);

    *static_cast<u8 *>(skb_put(skb, 1)) = 5;
    EXPECT_EQ(skb_tailroom(skb), tailroom - 1);
    *static_cast<u8 *>(skb_push(skb, 1)) = 0;
    EXPECT_EQ(skb_headroom(skb), 15u);
    EXPECT_THAT(bytes(skb), ElementsAre(0, 1, 2, 3, 4, 5));

    void *front = skb_pull(skb, 2);
    EXPECT_EQ(front, skb_data(skb));
    EXPECT_THAT(bytes(skb), ElementsAre(2, 3, 4, 5));
    skb_trim(skb, 3);
    EXPECT_THAT(bytes(skb), ElementsAre(2, 3, 4));
    skb_trim(skb, 9); // not longer
    EXPECT_EQ(skb_len(skb), 3u);
    kfree_skb(skb);
}

TEST_F(Skb, a_pull_of_more_than_there_is_changes_nothing) {
    sk_buff *skb = make();
    EXPECT_EQ(skb_pull(skb, 5), nullptr);
    EXPECT_THAT(bytes(skb), ElementsAre(1, 2, 3, 4));
    EXPECT_NE(skb_pull(skb, 4), nullptr);
    EXPECT_EQ(skb_len(skb), 0u);
    kfree_skb(skb);
}

TEST_F(Skb, no_room_to_push_or_put_stops_the_kernel) {
    sk_buff *skb = make({1}, 3);
    EXPECT_DEATH(skb_push(skb, 4), "skb_under_panic.*headroom:3");
    EXPECT_DEATH(skb_put(skb, skb_tailroom(skb) + 1), "skb_over_panic");
    kfree_skb(skb);
}

TEST_F(Skb, a_clone_shares_bytes_and_a_copy_does_not) {
    sk_buff *skb = make();
    EXPECT_FALSE(skb_cloned(skb));
    sk_buff *clone = skb_clone(skb, GFP_ATOMIC);
    EXPECT_TRUE(skb_cloned(skb));
    EXPECT_TRUE(skb_cloned(clone));
    EXPECT_EQ(skb_data(clone), skb_data(skb));
    EXPECT_EQ(skb_truesize(clone), skb_truesize(skb));

    sk_buff *copy = skb_copy(skb, GFP_ATOMIC);
    EXPECT_FALSE(skb_cloned(copy));
    EXPECT_NE(skb_data(copy), skb_data(skb));
    EXPECT_EQ(bytes(copy), bytes(skb));
    EXPECT_EQ(skb_headroom(copy), 16u);

    kfree_skb(skb);
    EXPECT_FALSE(skb_cloned(clone)); // the last holder of its bytes
    EXPECT_THAT(bytes(clone), ElementsAre(1, 2, 3, 4));
    kfree_skb(clone);
    kfree_skb(copy);
}

TEST_F(Skb, clones_move_their_own_bounds) {
    sk_buff *skb = make();
    sk_buff *clone = skb_clone(skb, GFP_ATOMIC);
    skb_pull(clone, 2);
    EXPECT_THAT(bytes(clone), ElementsAre(3, 4));
    EXPECT_THAT(bytes(skb), ElementsAre(1, 2, 3, 4));
    kfree_skb(skb);
    kfree_skb(clone);
}

TEST_F(Skb, clones_and_copies_carry_the_control_block_and_the_marks) {
    net_device device{};
    sk_buff *skb = make();
    skb_cb(skb)[47] = 9;
    skb_set_mark(skb, 77);
    skb_set_dev(skb, &device);
    for (sk_buff *other : {skb_clone(skb, GFP_ATOMIC), skb_copy(skb, GFP_ATOMIC)}) {
        EXPECT_EQ(skb_cb(other)[47], 9);
        EXPECT_EQ(skb_mark(other), 77u);
        EXPECT_EQ(skb_dev(other), &device);
        skb_cb(other)[47] = 1; // its own
        kfree_skb(other);
    }
    EXPECT_EQ(skb_cb(skb)[47], 9);
    kfree_skb(skb);
}

TEST_F(Skb, more_room_leaves_clones_behind) {
    sk_buff *skb = make();
    sk_buff *clone = skb_clone(skb, GFP_ATOMIC);
    u32 before = skb_truesize(skb);
    EXPECT_EQ(pskb_expand_head(skb, 100, 0, GFP_ATOMIC), 0);
    EXPECT_EQ(skb_headroom(skb), 116u);
    EXPECT_FALSE(skb_cloned(skb));
    EXPECT_FALSE(skb_cloned(clone));
    EXPECT_EQ(bytes(skb), bytes(clone));
    EXPECT_NE(skb_data(skb), skb_data(clone));
    EXPECT_GE(skb_truesize(skb), before);
    kfree_skb(skb);
    kfree_skb(clone);
}

TEST_F(Skb, headers_that_were_pulled_are_still_there_after_a_move) {
    sk_buff *skb = make();
    skb_pull(skb, 2);
    EXPECT_EQ(pskb_expand_head(skb, 0, 64, GFP_ATOMIC), 0);
    skb_push(skb, 2);
    EXPECT_THAT(bytes(skb), ElementsAre(1, 2, 3, 4));
    skb_pull(skb, 2);
    sk_buff *copy = skb_copy(skb, GFP_ATOMIC);
    skb_push(copy, 2);
    EXPECT_THAT(bytes(copy), ElementsAre(1, 2, 3, 4));
    kfree_skb(copy);
    kfree_skb(skb);
}

TEST_F(Skb, headroom_can_be_had_in_a_new_buffer) {
    sk_buff *skb = make({1, 2}, 4);
    for (u32 wanted : {2u, 4u, 5u, 200u}) {
        sk_buff *more = skb_realloc_headroom(skb, wanted);
        EXPECT_GE(skb_headroom(more), wanted);
        EXPECT_THAT(bytes(more), ElementsAre(1, 2));
        EXPECT_FALSE(skb_cloned(skb));
        kfree_skb(more);
    }
    kfree_skb(skb);
}

TEST_F(Skb, every_allocation_may_fail_and_nothing_is_lost) {
    sk_buff *skb = make();
    auto refuse = [](u64 n, auto call) {
        userlevel::fail_allocation(n);
        EXPECT_FALSE(call());
        userlevel::fail_allocation(0);
    };
    refuse(1, [&] { return skb_clone(skb, GFP_ATOMIC); });
    for (u64 n : {1, 2}) {
        refuse(n, [&] { return skb_copy(skb, GFP_ATOMIC); });
        refuse(n, [&] { return __netdev_alloc_skb(nullptr, 60, GFP_ATOMIC); });
        refuse(n, [&] { return skb_realloc_headroom(skb, 500); });
        refuse(n, [&] { return skb_realloc_headroom(skb, 1); });
        refuse(n, [&] { return userlevel::frame_make(Bytes{1}); });
    }
    userlevel::fail_allocation(1);
    EXPECT_EQ(pskb_expand_head(skb, 1, 0, GFP_ATOMIC), -ENOMEM);
    EXPECT_THAT(bytes(skb), ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(skb_headroom(skb), 16u);
    kfree_skb(skb);
}

TEST_F(Skb, ends_are_counted_by_their_kind) {
    auto before = userlevel::skbs_ended();
    kfree_skb(make());
    consume_skb(make());
    consume_skb(make());
    __dev_kfree_skb_irq(make(), SKB_REASON_DROPPED);
    auto after = userlevel::skbs_ended();
    EXPECT_EQ(after.dropped - before.dropped, 1u);
    EXPECT_EQ(after.consumed - before.consumed, 2u);
    EXPECT_EQ(after.irq - before.irq, 1u);
}

TEST_F(Skb, a_destructor_runs_once_and_not_for_clones) {
    static int runs;
    runs = 0;
    sk_buff *skb = make();
    skb->destructor = [](sk_buff *) { runs++; };
    kfree_skb(skb_clone(skb, GFP_ATOMIC));
    EXPECT_EQ(runs, 0);
    kfree_skb(skb);
    EXPECT_EQ(runs, 1);
}

TEST_F(Skb, the_room_around_a_frame_is_forbidden_ground) {
    if (!UNDER_ASAN)
        GTEST_SKIP() << "only the address sanitizer can tell";
    sk_buff *skb = make(Bytes(32, 1), 64);
    EXPECT_DEATH(
        {
            volatile u8 byte = skb_data(skb)[skb_len(skb)];
            (void)byte;
        },
        "AddressSanitizer");
    EXPECT_DEATH(
        {
            volatile u8 byte = skb_data(skb)[-1];
            (void)byte;
        },
        "AddressSanitizer");
    skb_pull(skb, 8);
    EXPECT_DEATH(
        {
            volatile u8 byte = skb_data(skb)[-1];
            (void)byte;
        },
        "AddressSanitizer");
    skb_push(skb, 16);
    skb_data(skb)[0] = 1;
    kfree_skb(skb);
}

} // namespace
