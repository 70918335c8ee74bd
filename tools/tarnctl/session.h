// Running lines: each is parsed, sent or looked up, and its outcome printed.
#pragma once

#include "client/client.h"
#include "tarnctl/parse.h"
#include "tarnctl/proc.h"

#include <chrono>
#include <functional>
#include <istream>
#include <map>
#include <string>

namespace tarnctl {

enum Status { DONE = 0, REFUSED = 1, WRONG = 2 };

// What a line works with. The functions find their end at the first need, and throw client::Error
// or ProcError where there is none.
struct Session {
    std::function<client::Client &()> client;
    std::function<ProcTree &()> proc;
    std::function<std::string(const std::string &line)> chip;
    std::function<std::string()> sockets;                 // the list, as the switch prints it
    std::function<void(const std::string &order)> follow; // prints the trace
    std::function<void(const std::string &text)> print;
    std::function<std::string(const std::string &order)> explain = {}; // of a frame
    bool json = false;
    bool replace = false; // takes away what stands and contradicts
    bool statistics = false, brief = false, colours = false; // of `show`
    std::size_t width = 0;                                   // of the terminal; 0: there is none
    std::chrono::milliseconds rate_time{1000};               // for which rates are measured
    // What a line found to be so already, and how many commands went to the switch.
    std::size_t already = 0, told = 0;
    std::map<std::string, std::uint32_t> names = {}; // declared in this session
};

// The status; what went wrong is in `wrong`, in words.
Status run_words(Session &session, const Words &words, std::string &wrong);
Status run_line(Session &session, const std::string &line, std::string &wrong);

// Every line of the input, until one fails, or all of them with `force`: the first failure is the
// result then. `complain` takes "NAME:LINE: what was wrong".
Status run_batch(Session &session, std::istream &input, const std::string &name, bool force,
                 const std::function<void(const std::string &)> &complain);

// The ifindex of a name: one that this session declared, the switch's own listing, vlanVID, a
// device of the machine. 0 for none.
std::uint32_t resolve(Session &session, const std::string &name);

// Interfaces that the switch lists; empty when it cannot be asked.
std::map<std::string, std::uint32_t> listed(Session &session);

} // namespace tarnctl
