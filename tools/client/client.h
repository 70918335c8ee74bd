// A client of the control family: finds the switch, sends commands, takes answers and events.
//
// In: a Message (message.h). Out: an Answer, whose error is 0, a negative errno or the switch's own
// number (tarn/tarnfwd_nl.h). What goes wrong on the way to the switch is thrown as client::Error,
// in words that say what was tried.
#pragma once

#include "client/transport.h"

#include <deque>
#include <stdexcept>
#include <utility>

namespace client {

struct Error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Client {
public:
    // Asks the other side for the family by its name.
    explicit Client(std::unique_ptr<Transport> transport);

    Answer command(Message message);

    // Events from now on.
    void listen();
    // None when none has come in that time; a negative time waits for ever.
    std::optional<Event> next_event(int milliseconds);
    // Whether some have been lost since the last question, before the next one.
    bool has_lost_events() { return std::exchange(has_lost_, false); }

    std::string where() const { return transport_->name(); }
    std::uint16_t family() const { return family_; } // its number, on the other side

private:
    void resolve();
    Answer exchange(Message &message);
    Bytes wait(int milliseconds);

    std::unique_ptr<Transport> transport_;
    std::uint16_t family_ = 0;
    std::uint32_t group_ = 0;
    std::uint32_t sequence_ = 0;
    std::deque<Event> events_;
    bool has_lost_ = false;
};

// The switch that is there: that of `path` alone if one is given (the caller's, else of
// $TARN_NETLINK), else the kernel's, else the one behind the default socket of
// tarn/tarnfwd_socket.h.
std::unique_ptr<Client> find(const std::string &path = "");

} // namespace client
