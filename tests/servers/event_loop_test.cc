#include "machine/event_loop.h"

#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <optional>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using machine::event_loop;
using machine::event_watch;

namespace {

struct Pair {
    int ends[2];
    Pair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, ends), 0); }
    ~Pair() {
        close(ends[0]);
        close(ends[1]);
    }
    void put() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
    void take() const {
        char byte;
        EXPECT_EQ(read(ends[0], &byte, 1), 1);
    }
};

TEST(EventLoop, tells_that_a_descriptor_can_be_read_while_it_can) {
    Pair pair;
    event_loop loop;
    int calls = 0;
    event_watch watch(loop, pair.ends[0], event_watch::READABLE, [&] { calls++; });
    pair.put();
    loop.run_once();
    EXPECT_EQ(calls, 0); // it is not on
    watch.on();
    loop.run_once();
    loop.run_once();
    EXPECT_EQ(calls, 2);
    watch.off();
    loop.run_once();
    EXPECT_EQ(calls, 2);
    watch.on();
    pair.take();
    loop.run_once();
    EXPECT_EQ(calls, 2);
}

TEST(EventLoop, tells_once_that_a_descriptor_can_be_written) {
    Pair pair;
    event_loop loop;
    int calls = 0;
    event_watch watch(loop, pair.ends[0], event_watch::WRITABLE, [&] { calls++; });
    watch.on();
    loop.run_once();
    loop.run_once();
    EXPECT_EQ(calls, 1);
}

TEST(EventLoop, calls_after_a_time) {
    event_loop loop;
    auto begin = std::chrono::steady_clock::now();
    event_watch watch(loop, [&] { loop.stop(); });
    watch.on_after(std::chrono::milliseconds(30));
    loop.run();
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(29));
}

TEST(EventLoop, a_watch_may_end_in_its_own_call) {
    Pair pair;
    event_loop loop;
    std::optional<event_watch> watch;
    watch.emplace(loop, pair.ends[0], event_watch::READABLE, [&] { watch.reset(); });
    watch->on();
    pair.put();
    loop.run_once();
    loop.run_once();
    EXPECT_FALSE(watch);
}

TEST(EventLoop, who_has_gone_is_an_error_and_no_signal) {
    event_loop loop;
    int result = 0, error = 0;
    event_watch watch(loop, [&] {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        close(ends[0]);
        result = static_cast<int>(write(ends[1], "x", 1));
        error = errno;
        close(ends[1]);
        loop.stop();
    });
    watch.wake();
    std::thread([&] { loop.run(); }).join();
    EXPECT_EQ(result, -1);
    EXPECT_EQ(error, EPIPE);
}

TEST(EventLoopThreads, ends_whenever_it_is_told_to) {
    for (int i = 0; i < 200; i++) {
        event_loop loop;
        std::thread thread([&] { loop.run(); });
        std::this_thread::sleep_for(std::chrono::microseconds(i * 2));
        loop.stop();
        thread.join();
    }
}

TEST(EventLoopThreads, is_woken_by_others) {
    event_loop loop;
    std::atomic<int> wishes = 0;
    int calls = 0, seen = 0;
    event_watch watch(loop, [&] {
        calls++;
        seen = wishes;
    });
    event_watch last(loop, [&] { loop.stop(); });
    std::thread thread([&] { loop.run(); });
    auto wish = [&] {
        for (int i = 0; i < 1000; i++) {
            wishes++;
            watch.wake();
        }
    };
    std::thread other(wish);
    wish();
    other.join();
    last.wake();
    thread.join();
    EXPECT_EQ(seen, 2000); // none was passed over
    EXPECT_GT(calls, 0);
}

} // namespace
