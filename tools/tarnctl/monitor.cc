#include "tarnctl/monitor.h"

#include "tarnctl/events.h"
#include "tarnctl/session.h"
#include "tarnctl/show.h"

#include <chrono>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace tarnctl {

namespace {

constexpr int LOOK_EVERY = 1000; // milliseconds

// The time of day; in JSON, seconds since 1970.
std::string clock_text() {
    auto now = std::chrono::system_clock::now();
    auto whole = std::chrono::floor<std::chrono::seconds>(now);
    auto thousandths = std::chrono::duration_cast<std::chrono::milliseconds>(now - whole).count();
    return fmt::format("{:%H:%M:%S}.{:03}",
                       fmt::localtime(std::chrono::system_clock::to_time_t(whole)), thousandths);
}

double clock_seconds() {
    auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<double>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count()) /
           1000;
}

std::string change_text(const Session &session, const Change &change) {
    if (session.json)
        return nlohmann::ordered_json{{"event", "change"},
                                      {"time", clock_seconds()},
                                      {"what", change.fact},
                                      {"now", change.now},
                                      {"before", change.before}}
                   .dump() +
               "\n";
    if (change.before.empty() || change.now.empty())
        return fmt::format("{} {} {} {}\n", clock_text(), change.now.empty() ? "gone" : "new",
                           change.fact, change.now.empty() ? change.before : change.now);
    return fmt::format("{} changed {} {}, was {}\n", clock_text(), change.fact, change.now,
                       change.before);
}

std::string event_text(const Session &session, const client::Event &event, const Names &names) {
    if (!session.json)
        return clock_text() + " " + event_line(event, names);
    auto object = nlohmann::ordered_json::parse(event_json(event, names));
    object["time"] = clock_seconds();
    return object.dump() + "\n";
}

} // namespace

void monitor(Session &session, unsigned long count) {
    client::Client &client = session.client();
    client.listen();
    std::map<std::uint32_t, std::string> names;
    for (const auto &[name, ifindex] : listed(session))
        names[ifindex] = name;
    unsigned long seen = 0;
    auto is_over = [&] { return count != 0 && seen >= count; };
    Facts before = facts_of(session);
    auto looked = std::chrono::steady_clock::now();
    while (!is_over()) {
        auto event = client.next_event(LOOK_EVERY);
        if (client.has_lost_events())
            session.print(session.json ? "{\"event\":\"lost\"}\n" : "events were lost\n");
        if (event) {
            session.print(event_text(session, *event, names));
            seen++;
        }
        if (std::chrono::steady_clock::now() - looked < std::chrono::milliseconds(LOOK_EVERY))
            continue;
        Facts now = facts_of(session);
        looked = std::chrono::steady_clock::now();
        if (now.empty()) // it cannot be asked, or not now
            continue;
        for (const Change &change : changes(before, now)) {
            if (is_over())
                break;
            session.print(change_text(session, change));
            seen++;
        }
        before = std::move(now);
    }
}

} // namespace tarnctl
