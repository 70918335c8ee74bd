// The word "trace" of the control socket: events of the chain of redirects, a line each, as they
// come.
//
//   trace [json] [port NAME] [redirect NAME] [drops] [count N] [seconds N]
//
// Ends after that many lines or seconds, when the client goes, or never. A client that reads too
// slowly is told how many it has lost; frames do not wait for it.
#pragma once

#include "explain/order.h"

#include <functional>
#include <memory>
#include <string>

namespace explain {

bool trace_is_order(const std::string &line);

// The lines of one trace. Frames put events in from their threads, one thread takes lines out.
class TraceStream {
public:
    // `there` is called when there is something to take again, from a frame's thread.
    TraceStream(const Order &order, std::function<void()> there);
    ~TraceStream();

    // What there is, of about so many bytes, and not more lines than were asked for.
    std::string take(std::size_t bytes);
    // All lines that were asked for have been taken.
    bool has_ended() const;

private:
    class Queue;

    Order order_;
    unsigned long taken_ = 0;
    std::unique_ptr<Queue> queue_;
};

} // namespace explain
