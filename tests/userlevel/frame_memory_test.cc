// Memory that comes and goes with frames, and serves again.
#include "support/switch_test.h"

#include "free_blocks.h"
#include "memory.h"

#include <condition_variable>
#include <mutex>
#include <random>
#include <set>
#include <thread>

namespace {

using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;
using userlevel::free_blocks;

TEST(FreeBlocks, a_size_holds_what_belongs_to_it_and_at_most_twice_that) {
    for (std::size_t bytes = 1; bytes <= 100000; bytes++) {
        const std::size_t size = free_blocks::size_of(bytes);
        if (size == free_blocks::SIZES) {
            EXPECT_GT(bytes, free_blocks::bytes_of(free_blocks::SIZES - 1));
            continue;
        }
        EXPECT_GE(free_blocks::bytes_of(size), bytes);
        EXPECT_LT(size == 0 ? 0 : free_blocks::bytes_of(size - 1), bytes);
    }
}

TEST(FreeBlocks, what_is_kept_is_taken_once_and_no_more_than_so_many) {
    for (std::size_t size = 0; size < free_blocks::SIZES; size++) {
        free_blocks blocks;
        std::vector<std::vector<char>> memory(free_blocks::most_of(size) + 1,
                                              std::vector<char>(64));
        std::set<void *> kept;
        for (std::vector<char> &one : memory)
            if (blocks.keep(size, one.data()))
                kept.insert(one.data());
        EXPECT_THAT(kept, SizeIs(memory.size() - 1));
        for (std::size_t other = 0; other < free_blocks::SIZES; other++) {
            if (other != size) {
                EXPECT_EQ(blocks.take(other), nullptr);
            }
        }
        while (void *one = blocks.take(size))
            EXPECT_EQ(kept.erase(one), 1u);
        EXPECT_THAT(kept, IsEmpty());
        EXPECT_TRUE(blocks.keep(size, memory[0].data())); // there is room again
    }
}

TEST(FrameMemory, a_frame_is_alive_until_it_ends_and_not_while_its_memory_is_kept) {
    auto before = userlevel::take_snapshot();
    for (int round = 0; round < 3; round++) {
        for (u32 length : {60u, 1500u, 9216u, 40000u}) {
            u64 made = userlevel::allocations_made();
            sk_buff *skb = userlevel::frame_make(std::vector<u8>(length));
            EXPECT_EQ(userlevel::allocations_made() - made, 2u);
            auto alive = userlevel::leaked_since(before);
            ASSERT_THAT(alive, SizeIs(2));
            EXPECT_THAT((std::vector<std::string>{alive[0].kind, alive[1].kind}),
                        UnorderedElementsAre("sk_buff", "skb data"));
            EXPECT_EQ(alive[0].bytes + alive[1].bytes,
                      sizeof(sk_buff) + static_cast<std::size_t>(skb->end - skb->head));
            kfree_skb(skb);
            EXPECT_THAT(userlevel::leaked_since(before), IsEmpty());
        }
    }
}

TEST(FrameMemory, what_was_there_before_is_no_leak_and_what_is_made_again_in_its_place_is) {
    sk_buff *old = userlevel::frame_make(std::vector<u8>(60));
    auto before = userlevel::take_snapshot();
    EXPECT_THAT(userlevel::leaked_since(before), IsEmpty());
    kfree_skb(old);
    sk_buff *again = userlevel::frame_make(std::vector<u8>(60));
    EXPECT_THAT(userlevel::leaked_since(before), SizeIs(2));
    kfree_skb(again);
}

TEST(FrameMemory, the_head_of_a_frame_begins_empty_whatever_its_memory_held) {
    for (int round = 0; round < 2; round++) {
        sk_buff *skb = userlevel::frame_make(std::vector<u8>(60));
        EXPECT_EQ(skb->mark, 0u);
        EXPECT_EQ(skb->cb[0], 0);
        EXPECT_EQ(skb->sk, nullptr);
        skb->mark = 0xFFFFFFFF;
        std::fill(std::begin(skb->cb), std::end(skb->cb), 0x55);
        kfree_skb(skb);
    }
}

TEST(FrameMemory, freed_twice_is_told) {
    EXPECT_DEATH(
        {
            void *memory = userlevel::allocate_pooled("twice", 100, GFP_ATOMIC, nullptr);
            userlevel::release(memory);
            userlevel::release(memory);
        },
        "freed twice|AddressSanitizer");
}

// Frames go over to another thread, as to a daemon's, and end there.
TEST(FrameMemoryThreads, what_one_makes_and_another_ends_is_counted_and_none_is_left) {
    constexpr int frames = 20000;
    auto before = userlevel::take_snapshot();
    u64 made = userlevel::allocations_made();
    auto ends = userlevel::skbs_ended();
    std::mutex mutex;
    std::condition_variable come;
    std::vector<sk_buff *> under_way;
    std::thread other([&] {
        for (int ended = 0; ended < frames;) {
            std::vector<sk_buff *> taken;
            {
                std::unique_lock lock(mutex);
                come.wait(lock, [&] { return !under_way.empty(); });
                taken.swap(under_way);
            }
            for (sk_buff *skb : taken) {
                EXPECT_EQ(skb->data[0], static_cast<u8>(skb->mark));
                kfree_skb(skb);
                ended++;
            }
        }
    });
    std::mt19937 draw(1);
    for (int i = 0; i < frames; i++) {
        sk_buff *skb =
            userlevel::frame_make(std::vector<u8>(60 + draw() % 1500, static_cast<u8>(i)));
        skb->mark = static_cast<u8>(i);
        std::lock_guard guard(mutex);
        under_way.push_back(skb);
        come.notify_one();
    }
    other.join();
    EXPECT_EQ(userlevel::allocations_made() - made, 2u * frames);
    EXPECT_EQ(userlevel::skbs_ended().dropped - ends.dropped, u64{frames});
    EXPECT_THAT(userlevel::leaked_since(before), IsEmpty());
}

} // namespace
