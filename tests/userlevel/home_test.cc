// The user-level home: log, clock, memory, limiter and the rest.
#include "control.h"

#include "kernel/bug.h"
#include "kernel/ipv6.h"
#include "kernel/locks.h"
#include "kernel/log.h"
#include "kernel/memory.h"
#include "kernel/once.h"
#include "kernel/random.h"
#include "kernel/ratelimit.h"
#include "kernel/refcount.h"
#include "kernel/skb.h"
#include "kernel/time.h"
#include "kernel/vmstat.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

std::vector<std::string> log() {
    std::vector<std::string> lines;
    for (const auto &line : userlevel::log_take())
        lines.push_back(std::to_string(line.level) + " " + line.text);
    return lines;
}

TEST(Log, keeps_lines_with_their_level) {
    pr_crit("a %d\n", 1);
    pr_err("b\n");
    pr_warn("c\n");
    pr_notice("d\n");
    pr_info("e\n");
    pr_debug("f\n");
    _printk("g\n");
    EXPECT_THAT(log(),
                ElementsAre("2 a 1\n", "3 b\n", "4 c\n", "5 d\n", "6 e\n", "7 f\n", "4 g\n"));
    EXPECT_THAT(log(), IsEmpty());
    EXPECT_EQ(userlevel::log_count(), 7u);
}

TEST(Log, a_continuation_joins_the_line_before) {
    pr_info("a");
    pr_cont("b");
    pr_cont("c\n");
    EXPECT_THAT(log(), ElementsAre("6 abc\n"));
}

TEST(Log, a_flood_of_lines_is_bounded) {
    for (std::size_t i = 0; i < userlevel::LOG_LINES + 10; i++)
        pr_info("line\n");
    EXPECT_EQ(userlevel::log_count(), userlevel::LOG_LINES + 10);
    EXPECT_THAT(log(), SizeIs(userlevel::LOG_LINES));
}

TEST(Clock, runs_at_a_hundred_a_second_from_five_minutes_before_the_wrap) {
    unsigned long start = get_jiffies();
    EXPECT_NEAR(static_cast<double>(start), 0xFFFFFFFF - 30000.0, 100);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_GE(get_jiffies() - start, 5u);
}

TEST(Clock, can_be_stopped_and_moved) {
    userlevel::clock_stop(100);
    EXPECT_EQ(get_jiffies(), 100u);
    userlevel::clock_advance(5);
    EXPECT_EQ(get_jiffies(), 105u);
    userlevel::clock_run();
    EXPECT_NE(get_jiffies(), 105u);
}

TEST(Memory, the_wanted_allocation_fails_once) {
    userlevel::fail_allocation(2);
    void *first = __kmalloc(8, GFP_KERNEL);
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(__kmalloc(8, GFP_KERNEL), nullptr);
    void *third = __kmalloc(8, GFP_KERNEL);
    EXPECT_NE(third, nullptr);
    kfree(first);
    kfree(third);
    kfree(nullptr);
}

TEST(Memory, failures_at_random_repeat_with_their_seed) {
    auto pattern = [](u64 seed) {
        std::string failed;
        userlevel::fail_allocations_at_random(0x4000, seed);
        for (int i = 0; i < 200; i++) {
            void *memory = __kmalloc(8, GFP_ATOMIC);
            failed += memory ? '.' : 'x';
            kfree(memory);
        }
        userlevel::fail_allocations_at_random(0, 0);
        return failed;
    };
    EXPECT_EQ(pattern(1), pattern(1));
    EXPECT_NE(pattern(1), pattern(2));
    auto failures = std::ranges::count(pattern(1), 'x');
    EXPECT_GT(failures, 20);
    EXPECT_LT(failures, 80);
}

TEST(Memory, what_is_alive_can_be_listed) {
    auto before = userlevel::take_snapshot();
    void *a = __kmalloc(10, GFP_KERNEL);
    kmem_cache *cache = kmem_cache_create("things", 24, 0, 0, nullptr);
    void *b = kmem_cache_alloc(cache, GFP_ATOMIC);
    auto leaked = userlevel::leaked_since(before);
    ASSERT_THAT(leaked, SizeIs(3));
    EXPECT_STREQ(leaked[0].kind, "kmalloc");
    EXPECT_EQ(leaked[0].bytes, 10u);
    EXPECT_EQ(leaked[0].address, a);
    EXPECT_EQ(leaked[0].flags, GFP_KERNEL);
    EXPECT_STREQ(leaked[2].kind, "things");
    EXPECT_EQ(leaked[2].bytes, 24u);
    EXPECT_THAT(userlevel::describe(leaked), HasSubstr("24 bytes of things, allocation "));
    kmem_cache_free(cache, b);
    kfree(a);
    EXPECT_THAT(userlevel::leaked_since(before), SizeIs(1)); // the cache
    kfree(cache);
    EXPECT_THAT(userlevel::leaked_since(before), IsEmpty());
}

TEST(Memory, zeroed_memory_is_zero) {
    auto *bytes = static_cast<u8 *>(__kmalloc(64, GFP_KERNEL | __GFP_ZERO));
    EXPECT_THAT(std::vector<u8>(bytes, bytes + 64), ::testing::Each(0));
    kfree(bytes);
}

TEST(Memory, an_allocation_that_may_sleep_where_it_must_not_is_noticed) {
    local_bh_disable();
    kfree(__kmalloc(8, GFP_ATOMIC));
    kfree(__kmalloc(8, gfp_here()));
    EXPECT_EQ(userlevel::sleeping_allocations_in_atomic(), 0u);
    kfree(__kmalloc(8, GFP_KERNEL));
    EXPECT_EQ(userlevel::sleeping_allocations_in_atomic(), 1u);
    local_bh_enable();
    kfree(__kmalloc(8, gfp_here()));
    EXPECT_EQ(userlevel::sleeping_allocations_in_atomic(), 1u);
}

TEST(Memory, caches_run_their_constructor) {
    kmem_cache *cache =
        kmem_cache_create("built", 1, 0, 0, [](void *at) { *static_cast<u8 *>(at) = 7; });
    auto *object = static_cast<u8 *>(kmem_cache_alloc(cache, GFP_KERNEL));
    EXPECT_EQ(*object, 7);
    kmem_cache_free(cache, object);
    kfree(cache);
}

TEST(Preempt, locks_keep_bottom_halves_off_and_readers_nest) {
    static rwlock_t lock{};
    rwlock_init(&lock, "lock");
    EXPECT_EQ(preempt_count(), 0u);
    read_lock_bh(&lock);
    read_lock_bh(&lock);
    EXPECT_EQ(preempt_count(), 2 * SOFTIRQ_DISABLE_OFFSET);
    read_unlock_bh(&lock);
    read_unlock_bh(&lock);
    write_lock_bh(&lock);
    EXPECT_EQ(preempt_count(), SOFTIRQ_DISABLE_OFFSET);
    write_unlock_bh(&lock);
    EXPECT_EQ(preempt_count(), 0u);
}

TEST(Random, repeats_with_its_seed_and_follows_a_script) {
    auto draw = [] {
        std::array<u8, 8> bytes;
        get_random_bytes(bytes.data(), bytes.size());
        return bytes;
    };
    userlevel::random_seed(3);
    auto first = draw();
    userlevel::random_seed(3);
    EXPECT_EQ(draw(), first);
    EXPECT_NE(draw(), first);
    userlevel::random_script({1, 2, 3});
    auto scripted = draw();
    EXPECT_EQ(scripted[0], 1);
    EXPECT_EQ(scripted[2], 3);
}

class Limiter : public ::testing::Test {
protected:
    Limiter() {
        userlevel::clock_stop(1000);
        ratelimit_state_init(&state, 50, 2);
    }
    ratelimit_state state;
};

TEST_F(Limiter, lets_a_burst_pass_in_each_interval) {
    EXPECT_EQ(___ratelimit(&state, "who"), 1);
    EXPECT_EQ(___ratelimit(&state, "who"), 1);
    EXPECT_EQ(___ratelimit(&state, "who"), 0);
    EXPECT_EQ(___ratelimit(&state, "who"), 0);
    EXPECT_EQ(ratelimit_missed(&state), 2);
    userlevel::clock_advance(50);
    EXPECT_EQ(___ratelimit(&state, "who"), 0);
    EXPECT_THAT(log(), IsEmpty());
    userlevel::clock_advance(1);
    EXPECT_EQ(___ratelimit(&state, "who"), 1);
    EXPECT_EQ(ratelimit_missed(&state), 0);
    EXPECT_THAT(log(), ElementsAre("4 who: 3 callbacks suppressed\n"));
}

TEST_F(Limiter, an_interval_of_zero_is_no_limit) {
    ratelimit_set_interval(&state, 0);
    for (int i = 0; i < 10; i++)
        EXPECT_EQ(___ratelimit(&state, "who"), 1);
}

TEST_F(Limiter, a_burst_of_zero_lets_nothing_pass) {
    ratelimit_set_burst(&state, 0);
    EXPECT_EQ(___ratelimit(&state, "who"), 0);
    EXPECT_EQ(ratelimit_burst(&state), 0);
}

TEST(Refcount, impossible_steps_are_reported_and_saturate) {
    refcount_t count{1};
    EXPECT_TRUE(refcount_inc_not_zero(&count));
    EXPECT_EQ(refcount_dec(&count), 2);
    EXPECT_EQ(refcount_dec(&count), 1);
    EXPECT_FALSE(refcount_inc_not_zero(&count));
    refcount_warn_saturate(&count, REFCOUNT_DEC_LEAK);
    EXPECT_LT(refcount_read(&count), 0);
    EXPECT_THAT(log(), ElementsAre("4 refcount_t: decrement hit 0; leaking memory.\n"));
}

TEST(Pages, read_what_was_set) {
    EXPECT_EQ(vm_zone_stat_read(NR_FREE_PAGES), 1 << 18);
    userlevel::zone_pages_set(NR_ZONE_ACTIVE_FILE, -3);
    EXPECT_EQ(vm_zone_stat_read(NR_ZONE_ACTIVE_FILE), -3);
    EXPECT_EQ(vm_zone_stat_read(999), 0);
}

TEST(View, gathers_what_is_printed) {
    userlevel::view view;
    seq_printf(view.file(), "%s %d", "a", 1);
    seq_printf(view.file(), "\n");
    EXPECT_EQ(view.text(), "a 1\n");
}

TEST(Bug, stops_the_process) {
    EXPECT_DEATH(BUG(), "kernel BUG at .*home_test.cc");
}

TEST(Ipv6, knows_its_extension_headers) {
    for (int next = 0; next < 256; next++) {
        bool extension =
            next == 0 || next == 43 || next == 44 || next == 51 || next == 59 || next == 60;
        EXPECT_EQ(ipv6_ext_hdr(static_cast<u8>(next)), extension) << next;
    }
}

TEST(Ipv6, skips_to_the_first_header_that_is_no_extension) {
    struct Row {
        u8 first;
        std::vector<u8> bytes;
        int offset;
        u8 next;
    };
    for (const Row &row : {Row{6, {}, 0, 6}, Row{0, {6, 0, 0, 0, 0, 0, 0, 0}, 8, 6},
                           Row{60, {6, 1, 0, 0, 0, 0, 0, 0}, 16, 6}, // longer than the frame
                           Row{51, {6, 1}, 12, 6}, Row{44, {6, 0, 0, 1}, 8, 6},
                           Row{44, {6, 0, 0, 8}, 0, 44}, // a later fragment
                           Row{59, {}, -1, 59}, Row{60, {59, 0, 0, 0, 0, 0, 0, 0}, -1, 60},
                           Row{60, {6}, -1, 60}, Row{44, {6, 0, 0}, -1, 44}}) {
        sk_buff *skb = userlevel::frame_make(row.bytes);
        u8 next = row.first;
        u16 fragment;
        EXPECT_EQ(ipv6_skip_exthdr(skb, 0, &next, &fragment), row.offset) << int(row.first);
        EXPECT_EQ(next, row.next);
        kfree_skb(skb);
    }
}

TEST(Threads, memory_log_and_counters_may_be_used_from_many) {
    auto before = userlevel::take_snapshot();
    u32 counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++)
        threads.emplace_back([&] {
            for (int i = 0; i < 500; i++) {
                kfree(__kmalloc(16, GFP_KERNEL));
                sk_buff *skb = userlevel::frame_make(std::vector<u8>(60));
                sk_buff *clone = skb_clone(skb, GFP_ATOMIC);
                kfree_skb(skb);
                kfree_skb(clone);
                pr_info("line\n");
                count_in(counter, 1);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_THAT(userlevel::leaked_since(before), IsEmpty());
    EXPECT_THAT(log(), SizeIs(2000));
    EXPECT_EQ(counter, 2000u);
}

} // namespace
