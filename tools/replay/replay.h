// Replaying a capture: each frame is offered to the switch, and the outcome told.
#pragma once

#include "replay/capture.h"
#include "replay/colour.h"
#include "replay/sinks.h"
#include "replay/trace.h"

#include <map>
#include <string>
#include <vector>

namespace replay {

struct Options {
    std::vector<std::string> files;
    std::string filter; // what is offered, as pcap-filter(7) has it; empty: all
    std::string frames; // what is told; empty: all
    std::string frame;  // in hexadecimal digits, in place of files
    std::string port;   // where it comes in; empty: the first
    std::string colour = "auto";
    std::string config; // words of tarnctl that make the switch; empty: the plainest one
    std::vector<std::string> enable, disable; // names of redirects
    u32 code = 0, flags = 0, extra = 0, queue = 0;
    u32 rx_flags = 0;
    bool json = false;
    bool verbose = false; // every redirect that was asked
    bool debug_log = false;
    bool explain = false; // why each redirect decided as it did
    bool dates = false;   // when frames came, and not how long after the first
};

enum class Fate { stopped, unclaimed, refused, taken };
const char *fate_word(Fate fate);

// One frame and what became of it.
struct Outcome {
    std::size_t number = 0;            // from 1, on through all files
    const std::string *file = nullptr; // null where there is but one
    CapturedFrame frame;
    std::uint64_t since_first = 0; // nanoseconds; where times are told
    std::string port = {};
    u32 vid = 0;
    Fate fate = Fate::unclaimed;
    Trace trace = {};
    Ends ends = {};
    const Decision *stopped_by = nullptr; // into the trace; null where nobody stopped it
    std::vector<std::string> log = {};    // what the core said meanwhile
};

// Where outcomes go: text or JSON.
class Report {
public:
    virtual ~Report() = default;
    virtual void frame(const Outcome &outcome) = 0;
    // Of all that were offered; `told`: of how many was told.
    virtual void end(const std::map<Fate, std::size_t> &fates, std::size_t told) = 0;
};

std::unique_ptr<Report> text_report(const Options &options);
std::unique_ptr<Report> json_report(const Options &options);

// Loads the module, builds the plainest switch that the files ask for and replays them, one after
// the other. 0; 1 or 2 after a message on standard error; 3 where memory was lost, which would be a
// defect of ours.
int replay(const Options &options);

// Slot, name, place in the chain and state of every redirect, on standard output.
int list_redirects();

} // namespace replay
