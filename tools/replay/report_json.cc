// One JSON object a line for each frame.
#include "explain/words.h"
#include "replay/frame_text.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace replay {

namespace {

using json = nlohmann::ordered_json;

class JsonReport : public Report {
public:
    explicit JsonReport(bool explain) : explain_(explain) {}

    void frame(const Outcome &outcome) override {
        json line{{"frame", outcome.number}};
        if (outcome.file)
            line["file"] = *outcome.file;
        if (outcome.frame.time != 0)
            line["time"] = static_cast<double>(outcome.frame.time) / NANOSECONDS;
        line["len"] = outcome.frame.bytes.size();
        line["port"] = outcome.port;
        line["vid"] = outcome.vid;
        line["src"] = source_text(outcome.frame);
        line["dst"] = destination_text(outcome.frame);
        line["ethertype"] = fmt::format("0x{:04x}", outcome.trace.info.ethertype);
        line["type"] = type_text(outcome);
        line["fate"] = fate_word(outcome.fate);
        if (const Decision *stop = outcome.stopped_by) {
            line["by"] = stop->name;
            line["slot"] = stop->slot;
            line["reason"] = stop->reason;
            line["words"] = words_of(*stop);
        }
        put_decisions(line["chain"], outcome.trace.decisions);
        put_decisions(line["off"], outcome.trace.off);
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
        // Nobody listens on the protocol sockets of a replay.
        line["sockets"] = json::array();
        fmt::print("{}\n", line.dump());
    }

    void end(const std::map<Fate, std::size_t> &, std::size_t) override {}

private:
    static constexpr double NANOSECONDS = 1e9;

    static std::string words_of(const Decision &decision) {
        return decision.flags & REDIRECT_STOP
                   ? explain::reason_words(decision.name, decision.reason)
                   : "";
    }

    static void put_decisions(json &list, const std::vector<Decision> &decisions) {
        list = json::array();
        for (const Decision &decision : decisions)
            list.push_back({{"slot", decision.slot},
                            {"name", decision.name},
                            {"flags", decision.flags},
                            {"reason", decision.reason},
                            {"words", words_of(decision)}});
    }

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

std::unique_ptr<Report> json_report(const Options &options) {
    return std::make_unique<JsonReport>(options.explain);
}

} // namespace replay
