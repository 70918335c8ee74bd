// What a thread waits for: descriptors, times, and wishes of other threads. By libevent.
//
//   event_loop loop;
//   event_watch readable(loop, fd, event_watch::READABLE, [&] { ... });
//   readable.on();
//   loop.run();
//
// What is called is called on the thread that runs the loop, one after another, and should wait for
// nothing. Watches may be turned on, off and woken from any thread; they are made and destroyed
// where the loop runs, or while it does not, and before it.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>

struct event;
struct event_base;

namespace machine {

class event_loop {
public:
    event_loop();
    ~event_loop();
    event_loop(const event_loop &) = delete;
    event_loop &operator=(const event_loop &) = delete;

    // On this thread, until stop(). It has no SIGPIPE any more: who has gone is an error of a
    // write.
    void run();
    // What is due now, and no more.
    void run_once();
    // From any thread, once and for all: run() returns as soon as the call under way has.
    void stop();

    event_base *base() const { return base_; } // for what libevent offers beside

private:
    event_base *base_;
    event *wake_;
    std::atomic<bool> stopped_ = false;
};

class event_watch {
public:
    enum kind {
        READABLE, // calls again and again, while it can be read
        WRITABLE, // calls once it can be written
        WISH,     // no descriptor: calls after a time, or when it is woken
    };

    event_watch(event_loop &loop, int fd, kind what, std::function<void()> call);
    event_watch(event_loop &loop, std::function<void()> call); // a WISH
    ~event_watch();
    event_watch(const event_watch &) = delete;
    event_watch &operator=(const event_watch &) = delete;

    void on();
    void on_after(std::chrono::milliseconds time); // calls once
    void off();
    void wake();

private:
    std::function<void()> call_;
    event *event_;
};

} // namespace machine
