#include "replay/replay.h"

#include "config/config.h"
#include "control.h"
#include "kernel/skb.h"
#include "module/tarn_module.h"
#include "pkt/frame.h"
#include "pkt/pkt_debug.h"
#include "plain_switch/plain_switch.h"

#include <algorithm>
#include <cstdio>
#include <fmt/format.h>
#include <set>

namespace replay {

namespace {

constexpr u32 DEFAULT_VID = 1;

u32 be16_at(const CapturedFrame &frame, std::size_t offset) {
    auto byte = [&](std::size_t at) { return at < frame.bytes.size() ? frame.bytes[at] : 0u; };
    return byte(offset) << 8 | byte(offset + 1);
}

// A tag of VID 0 names a priority and no VLAN.
u32 vid_of(const CapturedFrame &frame) {
    u32 vid = 0;
    if (be16_at(frame, ETH_TYPE_OFFSET) == ETH_P_8021Q)
        vid = be16_at(frame, VLAN_TCI_OFFSET) & 0x0FFF;
    return vid != 0 ? vid : DEFAULT_VID;
}

int complain(const Options &options, const std::string &what) {
    fmt::print(stderr, "tarn-replay: {}: {}\n", options.file, what);
    return 1;
}

// Every port and VLAN that the file shows. A file that is damaged further on is told of when it is
// replayed.
void build_switch(const std::string &path) {
    std::set<u32> vids{DEFAULT_VID};
    auto capture = open_capture(path);
    try {
        while (auto frame = capture->next())
            vids.insert(vid_of(*frame));
    } catch (const CaptureError &) {
    }
    for (u32 vid : vids)
        plain_switch::add_vlan(vid);
    for (u32 k = 1; k <= capture->interfaces(); k++) {
        tarn_if *port = plain_switch::add_port(k);
        for (u32 vid : vids)
            plain_switch::add_member(port, vid);
    }
}

// The switch of the file; its complaint stands for itself.
bool configured(const std::string &config) {
    std::string wrong = config::apply(config);
    if (!wrong.empty())
        fmt::print(stderr, "tarn-replay: {}\n", wrong);
    return wrong.empty();
}

std::string known_names() {
    std::string names;
    for (const packet_redirect *redirect : packet_redirects)
        if (redirect)
            names += fmt::format(" {}", redirect->name);
    return names;
}

bool set_redirects(const std::vector<std::string> &names, bool on) {
    for (const std::string &name : names) {
        if (enable_redirect_by_name(name.c_str(), on) == 0)
            continue;
        fmt::print(stderr, "tarn-replay: there is no redirect '{}'; there are:{}\n", name,
                   known_names());
        return false;
    }
    return true;
}

tarn_rx_meta meta_of(const Options &options) {
    tarn_rx_meta meta{};
    meta.debug = 1;
    meta.flood_except[0] = FLOOD_NO_EXCEPTION;
    meta.code = options.code;
    meta.flags = options.flags;
    meta.extra = options.extra;
    meta.queue = options.queue;
    meta.rx_flags = static_cast<u8>(options.rx_flags);
    return meta;
}

Fate fate_of(const Outcome &outcome, u32 result) {
    if (result == 1)
        return Fate::refused;
    if (outcome.stopped_by)
        return Fate::stopped;
    return outcome.trace.consulted.empty() ? Fate::taken : Fate::unclaimed;
}

// The switch's clock goes by the capture, so that limits decide as if the frames came now. It
// starts where it has stood since before the switch was made.
class Clock {
public:
    void set(std::uint64_t time) {
        if (first_ == 0)
            first_ = last_ = time;
        if (time > last_) // and never back
            last_ = time;
        userlevel::clock_stop(userlevel::CLOCK_START + (last_ - first_));
    }

private:
    std::uint64_t first_ = 0, last_ = 0;
};

void offer(Outcome &outcome, const tarn_rx_meta &meta) {
    u32 ifindex = plain_switch::FIRST_PORT_IFINDEX + 1 + static_cast<u32>(outcome.frame.interface);
    outcome.port = port_name(ifindex);
    if (outcome.port.empty())
        outcome.port = fmt::format("port{}", outcome.frame.interface + 1);
    outcome.vid = vid_of(outcome.frame);

    sk_buff *skb = userlevel::frame_make(outcome.frame.bytes);
    u32 result = rxtx_hw_packet_recv(skb, ifindex, outcome.vid, &meta);
    if (result != 0)
        kfree_skb(skb);

    outcome.trace = trace_take();
    outcome.ends = sinks_take();
    for (const Decision &decision : outcome.trace.decisions)
        if (result != 1 && (decision.flags & REDIRECT_STOP))
            outcome.stopped_by = &decision;
    outcome.fate = fate_of(outcome, result);
    for (const userlevel::log_line &line : userlevel::log_take())
        outcome.log.push_back(line.text);
}

// Frames are told as they come, so that what stands before damage is not lost.
void replay_frames(const Options &options, Report &report) {
    std::map<Fate, std::size_t> fates;
    const tarn_rx_meta meta = meta_of(options);
    auto capture = open_capture(options.file);
    std::size_t number = 0;
    Clock clock;
    auto finish = [&] { report.end(fates); };
    try {
        while (auto frame = capture->next()) {
            Outcome outcome{.number = ++number, .frame = std::move(*frame)};
            clock.set(outcome.frame.time);
            offer(outcome, meta);
            fates[outcome.fate]++;
            report.frame(outcome);
        }
    } catch (const CaptureError &) {
        finish();
        throw;
    }
    finish();
}

int load() {
    userlevel::clock_stop(userlevel::CLOCK_START); // setting up takes no time of the switch's
    int result = init_module();
    if (result != 0)
        fmt::print(stderr, "tarn-replay: the module did not start: {}\n", result);
    return result;
}

} // namespace

const char *fate_word(Fate fate) {
    switch (fate) {
    case Fate::stopped:
        return "stopped";
    case Fate::unclaimed:
        return "unclaimed";
    case Fate::refused:
        return "refused";
    case Fate::taken:
        return "taken";
    }
    return "";
}

int replay(const Options &options) {
    if (load() != 0)
        return 1;
    if (!set_redirects(options.enable, true) || !set_redirects(options.disable, false))
        return 2;
    trace_start();
    if (options.debug_log)
        tarn_pkt_debug = TARN_PKT_DEBUG_RX;
    auto report =
        options.json ? json_report(options.explain) : text_report(options.verbose, options.explain);
    try {
        sinks_start();
        if (options.config.empty())
            build_switch(options.file);
        else if (!configured(options.config))
            return 2;
        sinks_take();
        userlevel::log_take();
        auto before = userlevel::take_snapshot();
        replay_frames(options, *report);
        std::string lost = userlevel::describe(userlevel::leaked_since(before));
        if (!lost.empty()) {
            fmt::print(stderr, "tarn-replay: memory was lost:\n{}", lost);
            return 3;
        }
    } catch (const CaptureError &error) {
        std::fflush(stdout);
        return complain(options, error.what());
    }
    return 0;
}

int list_redirects() {
    if (load() != 0)
        return 1;
    fmt::print("{:>5}  {:<20} {:>5}  {:<8}  {}\n", "place", "redirect", "slot", "enabled",
               "not shown");
    for (std::size_t place = 0; process_packet_rxs[place] != REDIRECT_ORDER_END; place++) {
        u32 slot = process_packet_rxs[place];
        const packet_redirect *redirect = packet_redirects[slot];
        if (!redirect)
            continue;
        u32 skip = redirect->skip_protocols;
        fmt::print("{:>5}  {:<20} {:>5}  {:<8} {}{}{}\n", place + 1, redirect->name, slot,
                   redirect->enabled ? "yes" : "no", skip & SKIP_ARP ? " ARP" : "",
                   skip & SKIP_IPV4 ? " IPv4" : "", skip & SKIP_IPV6 ? " IPv6" : "");
    }
    return 0;
}

} // namespace replay
