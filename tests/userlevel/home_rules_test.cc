// The user-level home at its edges: what it bounds, what it reports, and what it stops.
#include "control.h"

#include "kernel/errno.h"
#include "kernel/locks.h"
#include "kernel/log.h"
#include "kernel/memory.h"
#include "kernel/netdev.h"
#include "kernel/random.h"
#include "kernel/ratelimit.h"
#include "kernel/refcount.h"
#include "kernel/skb.h"
#include "kernel/time.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <random>
#include <thread>

using ::testing::AllOf;
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

// --- log ---------------------------------------------------------------------------------------

TEST(LogRules, a_continuation_of_a_line_that_was_not_kept_is_not_kept_either) {
    for (std::size_t i = 0; i < userlevel::LOG_LINES; i++)
        pr_info("kept\n");
    pr_info("dropped");
    pr_cont(" and its rest\n");
    auto lines = log();
    EXPECT_THAT(lines, SizeIs(userlevel::LOG_LINES));
    EXPECT_EQ(lines.back(), "6 kept\n");
}

TEST(LogRules, a_continuation_with_nothing_before_it_is_a_line) {
    u64 before = userlevel::log_count();
    pr_cont("alone");
    pr_cont(" with this\n");
    EXPECT_THAT(log(), ElementsAre("4 alone with this\n"));
    pr_info("taken");
    log();
    pr_cont("too late\n");
    EXPECT_THAT(log(), ElementsAre("4 too late\n"));
    EXPECT_EQ(userlevel::log_count() - before, 3u);
}

TEST(LogRules, a_line_does_not_grow_without_end) {
    std::string piece(1000, 'x');
    pr_info("start");
    for (int i = 0; i < 3000; i++)
        pr_cont("%s", piece.c_str());
    auto lines = log();
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_LE(lines[0].size(), userlevel::LOG_LINE_BYTES + piece.size() + 2);
}

TEST(LogRules, lines_may_be_counted_only) {
    u64 before = userlevel::log_count();
    userlevel::log_keep(false);
    pr_info("not kept");
    pr_cont("nor this\n");
    userlevel::log_keep(true);
    pr_cont("still not\n");
    pr_info("kept\n");
    EXPECT_THAT(log(), ElementsAre("6 kept\n"));
    EXPECT_EQ(userlevel::log_count() - before, 2u);
}

TEST(LogRules, a_prefix_that_is_no_level_is_text) {
    _printk("\001x\n");
    _printk("\0010a\n");
    EXPECT_THAT(log(), ElementsAre("4 \001x\n", "0 a\n"));
}

TEST(LogRules, a_broken_format_is_told_and_does_no_harm) {
    constexpr wchar_t NO_CHARACTER[] = {0x7fffffff, 0};
    EXPECT_GT(_printk(KERN_ERR "%ls\n", NO_CHARACTER), 0);
    EXPECT_THAT(log(), ElementsAre("3 (a log line whose format is broken)\n"));
    userlevel::view view;
    seq_printf(view.file(), "a");
    seq_printf(view.file(), "%ls", NO_CHARACTER);
    seq_printf(view.file(), "b");
    EXPECT_EQ(view.text(), "ab");
}

// --- memory ------------------------------------------------------------------------------------

TEST(MemoryRules, an_object_remembers_who_made_it_and_where) {
    auto before = userlevel::take_snapshot();
    local_bh_disable();
    void *memory = __kmalloc(8, GFP_ATOMIC);
    local_bh_enable();
    auto alive = userlevel::leaked_since(before);
    ASSERT_THAT(alive, SizeIs(1));
    EXPECT_EQ(alive[0].preempt, SOFTIRQ_DISABLE_OFFSET);
    EXPECT_EQ(alive[0].flags, GFP_ATOMIC);
    EXPECT_EQ(alive[0].serial, before.serial + 1);
    // The file and offset are there for what has no name to the linker, such as this test.
    EXPECT_THAT(userlevel::describe(alive), AllOf(HasSubstr("8 bytes of kmalloc, allocation "),
                                                  HasSubstr("flags 0xa20, preempt count 0x200, "),
                                                  HasSubstr("test_userlevel+0x")));
    kfree(memory);
}

TEST(MemoryRules, an_allocation_that_may_sleep_where_it_must_not_is_logged) {
    local_bh_disable();
    kfree(__kmalloc(8, GFP_KERNEL));
    kfree(__kmalloc(8, GFP_ATOMIC));
    local_bh_enable();
    kfree(__kmalloc(8, GFP_KERNEL));
    EXPECT_THAT(log(), ElementsAre("2 BUG: an allocation of 8 bytes (kmalloc) may sleep, preempt "
                                   "count 0x200\n"));
}

TEST(MemoryRules, more_than_a_kernel_hands_out_fails) {
    void *largest = __kmalloc(4 << 20, GFP_KERNEL);
    EXPECT_NE(largest, nullptr);
    kfree(largest);
    u64 made = userlevel::allocations_made();
    EXPECT_EQ(__kmalloc((4 << 20) + 1, GFP_KERNEL), nullptr);
    EXPECT_EQ(__kmalloc(SIZE_MAX, GFP_KERNEL), nullptr);
    EXPECT_EQ(userlevel::allocations_made() - made, 2u);
}

TEST(MemoryRules, an_object_returned_to_the_wrong_cache_is_told) {
    kmem_cache *one = kmem_cache_create("one", 8, 0, 0, nullptr);
    kmem_cache *two = kmem_cache_create("two", 8, 0, 0, nullptr);
    void *object = kmem_cache_alloc(one, GFP_KERNEL);
    EXPECT_DEATH(kmem_cache_free(two, object), "kernel BUG");
    kmem_cache_free(one, object);
    kfree(one);
    kfree(two);
}

TEST(MemoryRules, memory_freed_twice_is_told) {
    EXPECT_DEATH(
        {
            void *memory = __kmalloc(8, GFP_KERNEL);
            kfree(memory);
            kfree(memory);
        },
        "freed twice|AddressSanitizer");
}

TEST(MemoryRules, the_list_of_what_is_alive_agrees_with_a_model) {
    auto before = userlevel::take_snapshot();
    std::mt19937 draw(1);
    std::map<u64, void *> model; // by serial number
    u64 serial = before.serial;
    for (int step = 0; step < 20000; step++) {
        if (draw() % 2 == 0 || model.empty()) {
            void *memory = __kmalloc(draw() % 100, GFP_KERNEL);
            model[++serial] = memory;
        } else {
            auto victim = std::next(model.begin(), static_cast<long>(draw() % model.size()));
            kfree(victim->second);
            model.erase(victim);
        }
    }
    auto alive = userlevel::leaked_since(before);
    ASSERT_THAT(alive, SizeIs(model.size()));
    auto expected = model.begin();
    for (const userlevel::object &object : alive) {
        EXPECT_EQ(object.serial, expected->first);
        EXPECT_EQ(object.address, expected->second);
        kfree((expected++)->second);
    }
    EXPECT_THAT(userlevel::leaked_since(before), IsEmpty());
}

// --- locks and preemption ----------------------------------------------------------------------

TEST(LockRules, whoever_waits_for_itself_is_stopped) {
    static rwlock_t lock;
    rwlock_init(&lock, "lock");
    // Each takes its own lock: a process that was forked off is not the owner.
    EXPECT_DEATH((write_lock_bh(&lock), write_lock_bh(&lock)), "kernel BUG");
    EXPECT_DEATH((write_lock_bh(&lock), read_lock_bh(&lock)), "kernel BUG");
    EXPECT_DEATH((read_lock_bh(&lock), read_unlock_bh(&lock), read_unlock_bh(&lock)), "kernel BUG");
}

TEST(LockRules, an_account_is_kept_of_what_a_thread_holds) {
    if (!LOCKDEP)
        GTEST_SKIP() << "nobody keeps account in this build";
    static rwlock_t lock, other;
    rwlock_init(&lock, "lock");
    rwlock_init(&other, "other");
    EXPECT_FALSE(lockdep_is_held(&lock));
    read_lock_bh(&lock);
    read_lock_bh(&lock);
    write_lock_bh(&other);
    EXPECT_TRUE(lockdep_is_held(&lock));
    EXPECT_TRUE(lockdep_is_held(&other));
    std::thread([] { EXPECT_FALSE(lockdep_is_held(&lock)); }).join();
    read_unlock_bh(&lock);
    write_unlock_bh(&other);
    EXPECT_TRUE(lockdep_is_held(&lock));
    EXPECT_FALSE(lockdep_is_held(&other));
    read_unlock_bh(&lock);
    EXPECT_FALSE(lockdep_is_held(&lock));
    EXPECT_DEATH((read_lock_bh(&lock), read_unlock_bh(&other)), "kernel BUG");
    lockdep_assert(true);
    EXPECT_DEATH(lockdep_assert(false), "kernel BUG");
}

TEST(LockRules, bottom_halves_are_not_turned_on_more_often_than_off) {
    local_bh_disable();
    local_bh_enable();
    EXPECT_DEATH(local_bh_enable(), "kernel BUG");
    EXPECT_EQ(preempt_count(), 0u);
}

// --- clock and limiter -------------------------------------------------------------------------

TEST(ClockRules, a_stopped_clock_wraps_like_the_counter_it_is) {
    userlevel::clock_stop(ULONG_MAX);
    userlevel::clock_advance(3);
    EXPECT_EQ(get_jiffies(), 2u);
    userlevel::clock_run();
}

TEST(LimiterRules, an_interval_may_span_the_wrap_of_the_clock) {
    ratelimit_state state;
    userlevel::clock_stop(ULONG_MAX - 10);
    ratelimit_state_init(&state, 50, 1);
    EXPECT_EQ(___ratelimit(&state, "who"), 1);
    EXPECT_EQ(___ratelimit(&state, "who"), 0);
    userlevel::clock_advance(50);
    EXPECT_EQ(___ratelimit(&state, "who"), 0);
    userlevel::clock_advance(1);
    EXPECT_EQ(___ratelimit(&state, "who"), 1);
    EXPECT_THAT(log(), ElementsAre("4 who: 2 callbacks suppressed\n"));
    EXPECT_EQ(ratelimit_missed(&state), 0);
}

TEST(LimiterRules, the_numbers_may_change_at_any_time) {
    ratelimit_state state;
    userlevel::clock_stop(1000);
    ratelimit_state_init(&state, 50, 1);
    EXPECT_EQ(___ratelimit(&state, "who"), 1);
    EXPECT_EQ(___ratelimit(&state, "who"), 0);
    ratelimit_set_burst(&state, 2);
    EXPECT_EQ(___ratelimit(&state, "who"), 1);
    ratelimit_set_interval(&state, 10);
    EXPECT_EQ(ratelimit_interval(&state), 10);
    userlevel::clock_advance(11);
    EXPECT_EQ(___ratelimit(&state, "who"), 1);
    EXPECT_THAT(log(), ElementsAre("4 who: 1 callbacks suppressed\n"));
}

// --- the rest ----------------------------------------------------------------------------------

TEST(RandomRules, the_systems_bytes_follow_a_script) {
    std::array<u8, 300> first{}, second{};
    userlevel::random_script({1, 2});
    get_random_bytes(first.data(), first.size());
    get_random_bytes(second.data(), second.size());
    EXPECT_EQ(first[0], 1);
    EXPECT_EQ(first[1], 2);
    // By chance alone, 2^-2000 or so.
    EXPECT_NE(first, second);
    EXPECT_GT(std::ranges::count_if(second, [](u8 byte) { return byte != 0; }), 200);
}

TEST(RefcountRules, each_impossible_step_has_its_text) {
    struct Row {
        refcount_saturation_type what;
        const char *line;
    };
    for (Row row : {Row{REFCOUNT_ADD_NOT_ZERO_OVF, "4 refcount_t: saturated; leaking memory.\n"},
                    Row{REFCOUNT_ADD_OVF, "4 refcount_t: saturated; leaking memory.\n"},
                    Row{REFCOUNT_ADD_UAF, "4 refcount_t: addition on 0; use-after-free.\n"},
                    Row{REFCOUNT_SUB_UAF, "4 refcount_t: underflow; use-after-free.\n"},
                    Row{REFCOUNT_DEC_LEAK, "4 refcount_t: decrement hit 0; leaking memory.\n"},
                    Row{static_cast<refcount_saturation_type>(7),
                        "4 refcount_t: unknown saturation event!?.\n"}}) {
        refcount_t count{1};
        refcount_warn_saturate(&count, row.what);
        EXPECT_THAT(log(), ElementsAre(row.line));
        EXPECT_EQ(refcount_read(&count), INT_MIN / 2);
    }
}

TEST(NotifierRules, the_highest_priority_comes_first_and_of_equals_the_older) {
    static notifier_block low{nullptr, nullptr, -1}, high{nullptr, nullptr, 5},
        first{nullptr, nullptr, 0}, second{nullptr, nullptr, 0};
    for (notifier_block *block : {&low, &first, &high, &second})
        EXPECT_EQ(register_netdevice_notifier(block), 0);
    EXPECT_EQ(high.next, &first);
    EXPECT_EQ(first.next, &second);
    EXPECT_EQ(second.next, &low);
    EXPECT_EQ(register_netdevice_notifier(&second), -EEXIST);
    EXPECT_EQ(second.next, &low);
}

} // namespace
