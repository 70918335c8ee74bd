// One JSON object a line for each frame.
#include "replay/replay.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace replay {

namespace {

using json = nlohmann::ordered_json;

class JsonReport : public Report {
public:
    explicit JsonReport(bool explain) : explain_(explain) {}

    void frame(const Outcome &outcome) override {
        json line{{"frame", outcome.number},
                  {"len", outcome.frame.bytes.size()},
                  {"port", outcome.port},
                  {"vid", outcome.vid},
                  {"ethertype", fmt::format("0x{:04x}", outcome.trace.info.ethertype)},
                  {"fate", fate_word(outcome.fate)}};
        if (const Decision *stop = outcome.stopped_by) {
            line["by"] = stop->name;
            line["slot"] = stop->slot;
            line["reason"] = stop->reason;
        }
        line["chain"] = json::array();
        for (const Decision &decision : outcome.trace.decisions)
            line["chain"].push_back({{"slot", decision.slot},
                                     {"name", decision.name},
                                     {"flags", decision.flags},
                                     {"reason", decision.reason}});
        if (explain_)
            put_reasons(line, outcome.trace);
        line["sent"] = json::array();
        for (const Sent &one : outcome.ends.sent)
            line["sent"].push_back({{"port", one.port},
                                    {"vid", one.vid},
                                    {"tagged", one.tagged},
                                    {"len", one.length}});
        line["kernel"] = json::array();
        for (const Posted &one : outcome.ends.kernel)
            line["kernel"].push_back({{"device", one.device}, {"len", one.length}});
        // The protocol sockets are still to come.
        line["sockets"] = json::array();
        fmt::print("{}\n", line.dump());
    }

    void end(const std::map<Fate, std::size_t> &) override {}

private:
    // "why" of each decision and, in "notes", of those who took none.
    static void put_reasons(json &line, const Trace &trace) {
        for (std::size_t i = 0; i < trace.decisions.size(); i++)
            line["chain"][i]["why"] = trace.decisions[i].why;
        line["notes"] = json::array();
        for (const Note &note : trace.notes)
            line["notes"].push_back({{"slot", note.slot},
                                     {"name", packet_redirects[note.slot]->name},
                                     {"why", note.why}});
    }

    bool explain_;
};

} // namespace

std::unique_ptr<Report> json_report(bool explain) {
    return std::make_unique<JsonReport>(explain);
}

} // namespace replay
