#include "explain/stream.h"

#include "control.h"

#include <deque>
#include <mutex>
#include <utility>

namespace explain {

namespace {

constexpr std::size_t QUEUE = 4096; // events that may wait for their reader

std::string lost_line(const Order &order, u64 lost) {
    std::string number = std::to_string(lost);
    return order.json ? "{\"lost\":" + number + "}" : "(" + number + " events were lost)";
}

} // namespace

// Between the threads of frames, which must not wait, and the one that writes.
class TraceStream::Queue {
public:
    Queue(Filter filter, std::function<void()> there)
        : filter_(std::move(filter)), there_(std::move(there)),
          watch_([this](const redirect_event &event) {
              if (Event copy = copy_of(event); filter_.wants(copy))
                  put(std::move(copy));
          }) {}

    // The next, or none; how many were lost before it.
    std::optional<Event> take(u64 &lost) {
        std::lock_guard guard(mutex_);
        if (events_.empty())
            return std::nullopt;
        lost = std::exchange(lost_, 0);
        Event event = std::move(events_.front());
        events_.pop_front();
        return event;
    }

private:
    void put(Event event) {
        std::size_t before;
        {
            std::lock_guard guard(mutex_);
            before = events_.size();
            if (before == QUEUE)
                lost_++;
            else
                events_.push_back(std::move(event));
        }
        if (before == 0)
            there_();
    }

    const Filter filter_;
    const std::function<void()> there_;
    std::mutex mutex_;
    std::deque<Event> events_;
    u64 lost_ = 0;
    userlevel::trace_watch watch_; // the first to go
};

bool trace_is_order(const std::string &line) {
    return line == "trace" || line.starts_with("trace ");
}

TraceStream::TraceStream(const Order &order, std::function<void()> there)
    : order_(order), queue_(std::make_unique<Queue>(order.filter, std::move(there))) {}

TraceStream::~TraceStream() = default;

std::string TraceStream::take(std::size_t bytes) {
    std::string lines;
    while (lines.size() < bytes && !has_ended()) {
        u64 lost = 0;
        auto event = queue_->take(lost);
        if (!event)
            break;
        if (lost != 0)
            lines += lost_line(order_, lost) + "\n";
        lines += (order_.json ? json_of(*event) : line_of(*event)) + "\n";
        taken_++;
    }
    return lines;
}

bool TraceStream::has_ended() const {
    return order_.count != 0 && taken_ >= order_.count;
}

} // namespace explain
