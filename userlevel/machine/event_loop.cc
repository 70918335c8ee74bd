#include "machine/event_loop.h"

#include <csignal>
#include <event2/event.h>
#include <event2/thread.h>
#include <utility>

namespace machine {

namespace {

event_base *make_base() {
    static const int usable_by_threads = evthread_use_pthreads();
    (void)usable_by_threads;
    return event_base_new();
}

void ignore(evutil_socket_t, short, void *) {}

short events_of(event_watch::kind what) {
    constexpr short events[] = {EV_READ | EV_PERSIST, EV_WRITE, 0};
    return events[what];
}

void block_sigpipe() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

} // namespace

event_loop::event_loop() : base_(make_base()), wake_(event_new(base_, -1, 0, ignore, nullptr)) {}

event_loop::~event_loop() {
    event_free(wake_);
    event_base_free(base_);
}

void event_loop::run() {
    block_sigpipe();
    while (!stopped_)
        event_base_loop(base_, EVLOOP_ONCE | EVLOOP_NO_EXIT_ON_EMPTY);
}

void event_loop::run_once() {
    event_base_loop(base_, EVLOOP_ONCE | EVLOOP_NONBLOCK);
}

// A break is forgotten by a loop that begins after it; what was woken is not.
void event_loop::stop() {
    stopped_ = true;
    event_active(wake_, 0, 0);
    event_base_loopbreak(base_);
}

event_watch::event_watch(event_loop &loop, int fd, kind what, std::function<void()> call)
    : call_(std::move(call)),
      event_(event_new(
          loop.base(), fd, events_of(what),
          [](evutil_socket_t, short, void *self) { static_cast<event_watch *>(self)->call_(); },
          this)) {}

event_watch::event_watch(event_loop &loop, std::function<void()> call)
    : event_watch(loop, -1, WISH, std::move(call)) {}

event_watch::~event_watch() {
    event_free(event_);
}

void event_watch::on() {
    event_add(event_, nullptr);
}

void event_watch::on_after(std::chrono::milliseconds time) {
    const timeval wait{.tv_sec = time.count() / 1000, .tv_usec = time.count() % 1000 * 1000};
    event_add(event_, &wait);
}

void event_watch::off() {
    event_del(event_);
}

void event_watch::wake() {
    event_active(event_, 0, 0);
}

} // namespace machine
