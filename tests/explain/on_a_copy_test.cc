// A copy of the process tells what it saw, and nothing of it is seen elsewhere.
#include "explain/on_a_copy.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>
#include <unistd.h>

namespace {

using explain::on_a_copy;
using steady = std::chrono::steady_clock;

TEST(OnACopy, what_it_changes_it_changes_for_itself) {
    int counter = 1;
    EXPECT_EQ(on_a_copy([&] { return std::to_string(++counter); }), "2");
    EXPECT_EQ(counter, 1);
    EXPECT_EQ(on_a_copy([] { return std::string(300000, 'x'); }), std::string(300000, 'x'));
    EXPECT_EQ(on_a_copy([] { return std::string(); }), "");
}

TEST(OnACopy, has_no_descriptor_to_reach_anybody_by) {
    int way[2];
    ASSERT_EQ(pipe(way), 0);
    auto told = on_a_copy([&] {
        std::string open;
        for (int fd : {0, 1, 2, way[0], way[1]})
            if (write(fd, "x", 1) >= 0 || errno != EBADF)
                open += std::to_string(fd) + " ";
        return open;
    });
    EXPECT_EQ(told, "");
    close(way[0]);
    close(way[1]);
}

// Three copies of half a second, and a machine that is busy.
TEST(OnACopy, one_that_waits_for_ever_is_given_up) {
    auto begin = steady::now();
    EXPECT_EQ(on_a_copy([]() -> std::string {
                  for (;;)
                      pause();
              }),
              std::nullopt);
    EXPECT_LT(steady::now() - begin, std::chrono::seconds(20));
}

TEST(OnACopy, one_that_dies_is_none) {
    EXPECT_EQ(on_a_copy([]() -> std::string {
                  raise(SIGKILL);
                  return "";
              }),
              std::nullopt);
}

// A lock that somebody else holds is never given back in the copy, so the next one is asked.
TEST(OnACopy, another_one_is_made_when_a_lock_was_held) {
    std::mutex lock;
    std::atomic<bool> held = false;
    std::thread holder([&] {
        std::lock_guard guard(lock);
        held = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
    });
    while (!held)
        std::this_thread::yield();
    auto told = on_a_copy([&]() -> std::string {
        lock.lock();
        return "there";
    });
    holder.join();
    EXPECT_EQ(told, "there");
}

} // namespace
