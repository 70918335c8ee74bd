// Words of each CPU: what threads count for themselves comes to what they counted.
#include "kernel/percpu.h"

#include "control.h"
#include "kernel/memory.h"

#include <atomic>
#include <barrier>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

struct Words {
    u32 first, second;
    u64 own;
};

// At once, each with its number.
template <typename Body>
void on_threads(u32 count, Body body) {
    std::vector<std::thread> threads;
    for (u32 t = 0; t < count; t++)
        threads.emplace_back([=] { body(t); });
    for (std::thread &thread : threads)
        thread.join();
}

class Percpu : public ::testing::Test {
protected:
    Percpu() : before_(userlevel::take_snapshot()), words_(alloc_percpu_gfp<Words>(GFP_KERNEL)) {}
    ~Percpu() override {
        free_percpu(words_);
        EXPECT_EQ(userlevel::describe(userlevel::leaked_since(before_)), "");
    }

    userlevel::snapshot before_;
    Words *words_;
};
using PercpuThreads = Percpu;

TEST_F(Percpu, a_record_starts_with_zeros_and_counts_each_word_for_itself) {
    EXPECT_EQ(percpu_sum(&words_->first), 0u);
    this_cpu_inc(&words_->first);
    this_cpu_add(&words_->second, 40);
    this_cpu_add(&words_->second, 2);
    EXPECT_EQ(percpu_sum(&words_->first), 1u);
    EXPECT_EQ(percpu_sum(&words_->second), 42u);
}

TEST_F(Percpu, a_word_of_one_cpu_is_its_own) {
    EXPECT_EQ(this_cpu_add_return(&words_->own, 1ull << 40), 1ull << 40);
    EXPECT_EQ(this_cpu_add_return(&words_->own, 2), (1ull << 40) + 2);
    std::thread([this] {
        EXPECT_EQ(this_cpu_add_return(&words_->own, 5), 5u);
        this_cpu_write(&words_->own, 77);
        EXPECT_EQ(this_cpu_read(&words_->own), 77u);
    }).join();
    EXPECT_EQ(this_cpu_read(&words_->own), (1ull << 40) + 2);
    this_cpu_write(&words_->own, 7);
    EXPECT_EQ(this_cpu_add_return(&words_->own, 0ull - 8), ~0ull);
}

TEST_F(Percpu, growth_is_told_once) {
    u32 summed_up = 0;
    this_cpu_add(&words_->first, 5);
    EXPECT_EQ(percpu_grown(&words_->first, &summed_up), 5u);
    EXPECT_EQ(percpu_grown(&words_->first, &summed_up), 0u);
    this_cpu_add(&words_->first, 0xFFFFFFFF); // around the end of the word
    EXPECT_EQ(percpu_grown(&words_->first, &summed_up), 0xFFFFFFFFu);
}

TEST_F(Percpu, a_record_that_is_used_again_starts_with_zeros) {
    on_threads(4, [this](u32) { this_cpu_inc(&words_->first); });
    this_cpu_inc(&words_->first);
    Words *old = words_;
    free_percpu(words_);
    words_ = alloc_percpu_gfp<Words>(GFP_KERNEL);
    EXPECT_EQ(words_, old);
    EXPECT_EQ(percpu_sum(&words_->first), 0u);
}

TEST_F(Percpu, records_stand_apart) {
    std::vector<Words *> more;
    for (u32 i = 0; i < 3000; i++) { // of several regions
        more.push_back(alloc_percpu_gfp<Words>(GFP_KERNEL));
        this_cpu_add(&more.back()->first, i);
    }
    for (u32 i = 0; i < 3000; i++) {
        EXPECT_EQ(percpu_sum(&more[i]->first), i);
        EXPECT_EQ(percpu_sum(&more[i]->second), 0u);
        free_percpu(more[i]);
    }
}

TEST_F(Percpu, an_allocation_may_fail) {
    userlevel::fail_allocation(1);
    EXPECT_EQ(alloc_percpu_gfp<Words>(GFP_KERNEL), nullptr);
    free_percpu(nullptr);
    EXPECT_EXIT(free_percpu(&before_), ::testing::KilledBySignal(SIGABRT), "");
}

TEST_F(PercpuThreads, that_count_sum_up_exactly_and_never_seem_to_fall) {
    constexpr u32 COUNTERS = 4, EACH = 200000;
    std::atomic<bool> done = false;
    std::atomic<u32> falls = 0;
    std::thread reader([&] {
        for (u32 last = 0; !done;) {
            u32 now = percpu_sum(&words_->first);
            falls += now < last;
            last = now;
        }
    });
    on_threads(COUNTERS, [this](u32) {
        for (u32 n = 0; n < EACH; n++)
            this_cpu_inc(&words_->first);
    });
    done = true;
    reader.join();
    EXPECT_EQ(falls, 0u);
    EXPECT_EQ(percpu_sum(&words_->first), COUNTERS * EACH);
}

TEST_F(PercpuThreads, that_follow_each_other_keep_what_those_before_have_counted) {
    for (u32 round = 0; round < 20; round++)
        on_threads(20, [this](u32 t) { this_cpu_add(&words_->first, t); });
    EXPECT_EQ(percpu_sum(&words_->first), 20u * 190);
}

TEST_F(PercpuThreads, beyond_the_places_share_one_and_lose_nothing) {
    constexpr u32 MANY = userlevel::PERCPU_PLACES + 40, EACH = 300000;
    std::barrier together(MANY);
    std::atomic<u32> alone = 0;
    on_threads(MANY, [&](u32) {
        this_cpu_add_return(&words_->own, 1); // who is first gets a place
        together.arrive_and_wait();
        for (u32 n = 0; n < EACH; n++)
            this_cpu_inc(&words_->first);
        alone += this_cpu_read(&words_->own) == 1;
        together.arrive_and_wait(); // a place that is left is taken again
    });
    EXPECT_EQ(percpu_sum(&words_->first), MANY * EACH);
    EXPECT_LE(alone, userlevel::PERCPU_PLACES);
    EXPECT_GE(alone, userlevel::PERCPU_PLACES - 2);
}

} // namespace
