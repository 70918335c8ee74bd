#include "explain/stream.h"

#include "control.h"
#include "explain/order.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <sys/socket.h>
#include <utility>

namespace explain {

namespace {

constexpr std::size_t QUEUE = 4096; // events that may wait for their reader

// Between the threads of frames, which must not wait, and the one that writes.
class Queue {
public:
    void put(Event event) {
        std::lock_guard guard(mutex_);
        if (events_.size() == QUEUE) {
            lost_++;
            return;
        }
        events_.push_back(std::move(event));
        there_.notify_one();
    }
    // The next, or none after a moment; how many were lost before it.
    std::optional<Event> take(u64 &lost) {
        std::unique_lock lock(mutex_);
        there_.wait_for(lock, std::chrono::milliseconds(100), [&] { return !events_.empty(); });
        lost = 0;
        if (events_.empty())
            return std::nullopt;
        lost = std::exchange(lost_, 0);
        Event event = std::move(events_.front());
        events_.pop_front();
        return event;
    }

private:
    std::mutex mutex_;
    std::condition_variable there_;
    std::deque<Event> events_;
    u64 lost_ = 0;
};

// A client says nothing more: when its end can be read, it has gone.
bool is_gone(int fd) {
    char byte;
    return recv(fd, &byte, 1, MSG_DONTWAIT | MSG_PEEK) == 0;
}

bool write_line(int fd, const std::string &line) {
    std::string text = line + "\n";
    for (std::size_t at = 0; at < text.size();) {
        ssize_t written = send(fd, text.data() + at, text.size() - at, MSG_NOSIGNAL);
        if (written <= 0)
            return false;
        at += static_cast<std::size_t>(written);
    }
    return true;
}

std::string lost_line(const Order &order, u64 lost) {
    std::string number = std::to_string(lost);
    return order.json ? "{\"lost\":" + number + "}" : "(" + number + " events were lost)";
}

bool write_event(int fd, const Order &order, const Event &event, u64 lost) {
    if (lost != 0 && !write_line(fd, lost_line(order, lost)))
        return false;
    return write_line(fd, order.json ? json_of(event) : line_of(event));
}

} // namespace

bool trace_is_order(const std::string &line) {
    return line == "trace" || line.starts_with("trace ");
}

std::string trace_stream(int fd, const std::string &line) {
    Order order;
    std::string wrong = parse_order(line, order);
    if (!wrong.empty())
        return wrong;
    using clock = std::chrono::steady_clock;
    const auto end = clock::now() + std::chrono::seconds(order.seconds);
    Queue queue;
    userlevel::trace_watch watch([&](const redirect_event &event) {
        Event copy = copy_of(event);
        if (order.filter.wants(copy))
            queue.put(std::move(copy));
    });
    for (unsigned long written = 0; order.count == 0 || written < order.count;) {
        u64 lost = 0;
        auto event = queue.take(lost);
        if (event && !write_event(fd, order, *event, lost))
            break;
        written += event.has_value();
        if (is_gone(fd) || (order.seconds != 0 && clock::now() >= end))
            break;
    }
    return "";
}

} // namespace explain
