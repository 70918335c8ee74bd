// "l2fdbdrop", its table, and "l2mac".
#include "redirects/redirects_test.h"

#include "vlan/l2_fdb_block.h"
#include "vlan/vlan.h"

#include <rapidcheck.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const u8 A[6] = {2, 0, 0, 0, 0, 0xA};
const u8 B[6] = {2, 0, 0, 0, 0, 0xB};

class FdbBlock : public Redirects {
protected:
    u8 enabled() { return redirect("l2fdbdrop").enabled; }
    // The table itself is there to stay.
    void make_table() {
        configure([] { tarn_l2_fdb_block_add(A, 1); });
    }
};

TEST_F(FdbBlock, starts_disabled_and_lets_everything_pass) {
    EXPECT_EQ(enabled(), 0);
    enable_redirect_by_name("l2fdbdrop", 1);
    receive(Frame().padded());
    EXPECT_EQ(redirect("l2fdbdrop").inspects, 1u);
    EXPECT_EQ(redirect("l2fdbdrop").stops, 0u);
}

TEST_F(FdbBlock, every_add_fails_as_the_bucket_is_0) {
    make_table();
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(tarn_l2_fdb_block_add(A, 1), -1);
        EXPECT_EQ(tarn_l2_fdb_block_add(B, 4094), -1);
    }
    EXPECT_EQ(tarn_l2_fdb_block_exists(A, 1), 0);
    EXPECT_EQ(enabled(), 0);
}

TEST_F(FdbBlock, nothing_exists_in_a_table_that_is_not_there) {
    EXPECT_EQ(tarn_l2_fdb_block_exists(A, 1), 0);
    EXPECT_EQ(tarn_l2_fdb_block_remove(A, 1), -1);
}

TEST_F(FdbBlock, without_memory_there_is_no_table) {
    userlevel::fail_allocation(1);
    EXPECT_EQ(tarn_l2_fdb_block_add(A, 1), -1);
    EXPECT_EQ(tarn_l2_fdb_block_exists(A, 1), 0);
}

TEST_F(FdbBlock, with_a_bucket_pairs_come_and_go_and_turn_the_redirect_on_and_off) {
    make_table();
    answers().block_bucket = 7;
    EXPECT_EQ(tarn_l2_fdb_block_add(A, 1), 0);
    EXPECT_EQ(enabled(), 1);
    EXPECT_EQ(tarn_l2_fdb_block_add(A, 1), -1); // there already
    EXPECT_EQ(tarn_l2_fdb_block_add(A, 2), 0);
    EXPECT_EQ(tarn_l2_fdb_block_add(B, 1), 0);
    EXPECT_EQ(tarn_l2_fdb_block_exists(A, 1), 1);
    EXPECT_EQ(tarn_l2_fdb_block_exists(A, 2), 1);
    EXPECT_EQ(tarn_l2_fdb_block_exists(B, 1), 1);
    EXPECT_EQ(tarn_l2_fdb_block_exists(B, 2), 0);
    EXPECT_EQ(tarn_l2_fdb_block_remove(A, 2), 0);
    EXPECT_EQ(tarn_l2_fdb_block_remove(A, 2), -1);
    EXPECT_EQ(tarn_l2_fdb_block_remove(A, 1), 0);
    EXPECT_EQ(enabled(), 1);
    EXPECT_EQ(tarn_l2_fdb_block_remove(B, 1), 0);
    EXPECT_EQ(enabled(), 0);
}

TEST_F(FdbBlock, a_pair_needs_both_and_memory) {
    make_table();
    answers().block_bucket = 7;
    EXPECT_EQ(tarn_l2_fdb_block_add(A, 0), -1);
    EXPECT_EQ(tarn_l2_fdb_block_exists(A, 0), 0);
    EXPECT_EQ(tarn_l2_fdb_block_exists(nullptr, 1), 0);
    EXPECT_EQ(tarn_l2_fdb_block_remove(nullptr, 1), -1);
    EXPECT_EQ(tarn_l2_fdb_block_add(nullptr, 1), -1);
    userlevel::fail_allocation(1);
    EXPECT_EQ(tarn_l2_fdb_block_add(A, 1), -1);
    answers().block_bucket = FDB_BLOCK_BUCKETS; // out of the table
    EXPECT_EQ(tarn_l2_fdb_block_add(A, 1), -1);
    EXPECT_EQ(enabled(), 0);
}

class L2Mac : public Redirects {
protected:
    L2Mac() {
        remember();                     // the frame
        packet_redirects[27] = nullptr; // its slot, where tests have a probe
        configure([] { EXPECT_EQ(tarn_l2_mac_init(), 0); });
        answers().fdb_events.emplace();
        port1()->auth_state = TARN_AUTH_UNCONTROLLED;
        userlevel::clock_stop(1000000);
    }
    ~L2Mac() override { kfree_skb(skb_); }

    Decision decided(u32 flags, const char *source = "02:00:00:00:00:99") {
        Bytes bytes = Frame().from(source).padded();
        std::copy(bytes.begin(), bytes.end(), skb_data(skb_));
        tarn_pkt_info info = passing();
        info.skb = skb_;
        info.l2_port = port1();
        info.flags = flags;
        return decide("l2mac", info);
    }
    sk_buff *skb_ = userlevel::frame_make(Frame().padded().build());
};

constexpr u32 NEW = 0x1, MOVED = 0x2, KEEP = 0x4, GONE = 0x10;
constexpr u32 POST = REDIRECT_POST_USERSPACE;
constexpr const char *GROUP_SOURCE = "03:00:00:00:00:01";

TEST_F(L2Mac, decides_by_the_flags_of_the_chip) {
    EXPECT_EQ(decided(0), Decision{});
    EXPECT_EQ(decided(NEW), (Decision{POST | STOP, 1}));
    EXPECT_EQ(decided(NEW | MOVED), (Decision{POST | STOP, 1}));
    EXPECT_EQ(decided(NEW | GONE), (Decision{POST | STOP, 1}));
    EXPECT_EQ(decided(GONE), (Decision{POST, 0}));
    EXPECT_EQ(decided(GONE | MOVED), (Decision{POST, 0}));
    EXPECT_EQ(decided(MOVED), (Decision{POST, 0}));
    for (u32 flags : {NEW, MOVED, GONE, NEW | MOVED | GONE})
        EXPECT_EQ(decided(flags | KEEP), Decision{});
    EXPECT_EQ(decided(~(NEW | MOVED | KEEP | GONE)), Decision{});
}

TEST_F(L2Mac, a_group_address_is_not_learned) {
    EXPECT_EQ(decided(NEW, GROUP_SOURCE), (Decision{STOP, 1}));
    EXPECT_EQ(decided(GONE, GROUP_SOURCE), Decision{});
    EXPECT_EQ(decided(MOVED, GROUP_SOURCE), Decision{});
}

TEST_F(L2Mac, learns_on_uncontrolled_ports_alone) {
    for (u32 state : {0u, 1u, 2u, 4u}) {
        port1()->auth_state = state;
        EXPECT_EQ(decided(NEW), Decision{}) << state;
    }
    port1()->auth_state = TARN_AUTH_UNCONTROLLED;
    EXPECT_EQ(decided(NEW).reason, 1u);
}

TEST_F(L2Mac, a_frame_without_port_is_no_news) {
    tarn_pkt_info info = passing();
    info.skb = skb_;
    info.flags = NEW;
    EXPECT_EQ(decide("l2mac", info), Decision{});
}

TEST_F(L2Mac, the_22nd_move_of_a_second_is_not_posted) {
    for (int i = 0; i < 21; i++)
        EXPECT_EQ(decided(MOVED), (Decision{POST, 0})) << i;
    EXPECT_EQ(decided(MOVED), Decision{});
    EXPECT_STREQ(why.number, "events in this second");
    EXPECT_EQ(decided(NEW), (Decision{POST | STOP, 1})); // without a limit
    userlevel::clock_advance(100);
    EXPECT_EQ(decided(MOVED), Decision{});
    userlevel::clock_advance(1);
    EXPECT_EQ(decided(MOVED), (Decision{POST, 0}));
}

// Against its rule, over random times, all around the clock.
TEST_F(L2Mac, moves_are_limited_as_their_model_is) {
    constexpr u64 WORDS = 1ull << 32;
    u64 now = 0xFFFF8AD0, start = 0, count = 0, posted = 0, frames = 0;
    EXPECT_TRUE(rc::check([&] {
        constexpr u64 STEPS[] = {0, 0, 1, 7, 99, 100, 101, 102, 5000, WORDS / 2, WORDS - 3, WORDS};
        auto steps = *rc::gen::container<std::vector<std::pair<u32, u32>>>(
            rc::gen::pair(rc::gen::inRange<u32>(0, std::size(STEPS)), rc::gen::inRange(0u, 30u)));
        for (auto [step, burst] : steps) {
            now += STEPS[step];
            userlevel::clock_stop(now);
            for (u32 i = 0; i < burst; i++) {
                bool opens = (now - start) % WORDS >= 101;
                if (opens)
                    start = now, count = 0;
                bool expected = count <= 20;
                count += expected;
                frames++;
                posted += expected;
                RC_ASSERT((decided(MOVED).flags == POST) == expected);
            }
        }
    }));
    EXPECT_GT(now, 2 * WORDS);
    EXPECT_GT(posted, 0u);
    EXPECT_LT(posted, frames);
}

TEST_F(L2Mac, moves_of_group_addresses_count_too) {
    for (int i = 0; i < 21; i++)
        decided(MOVED, GROUP_SOURCE);
    EXPECT_EQ(decided(MOVED), Decision{});
}

TEST_F(L2Mac, an_event_names_the_address_and_where_it_is) {
    Bytes frame = Frame().to("02:00:00:00:00:01").from("02:00:00:00:00:99").padded();
    sk_buff *skb = userlevel::frame_make(frame);
    const Bytes source(frame.begin() + 6, frame.begin() + 12);
    const Bytes destination(frame.begin(), frame.begin() + 6);
    auto events = [&](u32 flags) {
        answers().fdb_events->clear();
        tarn_post_info info{
            .l2_ifindex = 4501, .rx_vid = 0x1000A, .flood_except = {7, 8}, .flags = flags};
        EXPECT_EQ(redirect("l2mac").post(skb, &info), skb);
        return *answers().fdb_events;
    };
    using redirect_seams::FdbEvent;
    FdbEvent fresh{source, 4501, 1, 10, 1, 7, 8}, moved{source, 4501, 3, 10, 1, 7, 8},
        gone{destination, 0, 4, 10, 1, 7, 8};
    EXPECT_THAT(events(NEW), ElementsAre(fresh));
    EXPECT_THAT(events(MOVED), ElementsAre(moved));
    EXPECT_THAT(events(NEW | MOVED), ElementsAre(moved));
    EXPECT_THAT(events(GONE), ElementsAre(gone));
    EXPECT_THAT(events(GONE | NEW), ElementsAre(gone, fresh));
    EXPECT_THAT(events(KEEP), IsEmpty());
    kfree_skb(skb);
}

TEST_F(Redirects, l2mac_is_not_started) {
    EXPECT_STREQ(packet_redirects[27]->name, "probe"); // its slot was free
}

} // namespace
