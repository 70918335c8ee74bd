#include "replay/replay.h"

#include "chip.h"
#include "config/config.h"
#include "control.h"
#include "kernel/skb.h"
#include "module/tarn_module.h"
#include "pkt/frame.h"
#include "pkt/pkt_debug.h"
#include "plain_switch/plain_switch.h"
#include "replay/one.h"
#include "replay/select.h"

#include <algorithm>
#include <cstdio>
#include <fmt/format.h>
#include <set>

namespace replay {

namespace {

constexpr u32 DEFAULT_VID = 1;
constexpr std::uint64_t NANOSECONDS_OF_JIFFY = 1000000000 / JIFFIES_PER_SECOND;

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

int complain(const std::string &name, const std::string &what) {
    std::fflush(stdout);
    fmt::print(stderr, "tarn-replay: {}: {}\n", name, what);
    return 1;
}

// Its VLANs; how many interfaces it has. A file that is damaged further on is told of when it is
// replayed.
std::size_t look_through(const Input &input, std::set<u32> &vids) {
    auto capture = open_capture(input);
    try {
        while (auto frame = capture->next())
            vids.insert(vid_of(*frame));
    } catch (const CaptureError &) {
    }
    return capture->interfaces();
}

// Every port and VLAN that the files show.
void build_switch(std::set<u32> vids, std::size_t ports) {
    vids.insert(DEFAULT_VID);
    for (u32 vid : vids)
        plain_switch::add_vlan(vid);
    for (u32 k = 1; k <= ports; k++) {
        tarn_if *port = plain_switch::add_port(k);
        for (u32 vid : vids)
            plain_switch::add_member(port, vid);
    }
}

// The switch of the file; its complaint stands for itself.
bool configured(const std::string &config) {
    std::string wrong = config::apply(config, say_to_chip);
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
        userlevel::clock_stop(userlevel::CLOCK_START + jiffies_of(last_) - jiffies_of(first_));
    }
    std::uint64_t since_first(std::uint64_t time) const {
        return time > first_ ? time - first_ : 0;
    }

private:
    static unsigned long jiffies_of(std::uint64_t time) { return time / NANOSECONDS_OF_JIFFY; }

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

// One file after the other, through the same switch and by one clock.
class Run {
public:
    explicit Run(const Options &options)
        : meta_(meta_of(options)), filter_(options.filter), wanted_(options.frames),
          several_(options.files.size() > 1),
          report_(options.json ? json_report(options) : text_report(options)) {}

    // Frames are told as they come, so that what stands before damage is not lost.
    void file(const Input &input) {
        auto capture = open_capture(input);
        while (!wanted_.ends_before(before_ + capture->frames() + 1)) {
            auto frame = capture->next();
            if (!frame)
                break;
            if (filter_.passes(*frame))
                one(input, std::move(*frame));
        }
        before_ += capture->frames();
        for (const Skipped &skipped : capture->skipped())
            complain(input.name,
                     fmt::format("{} frame{} of interface {} skipped: link type {}; only Ethernet "
                                 "is read",
                                 skipped.frames, skipped.frames == 1 ? "" : "s",
                                 skipped.interface + 1, skipped.link));
    }

    void end() { report_->end(fates_, told_); }

private:
    void one(const Input &input, CapturedFrame &&frame) {
        const std::size_t number = before_ + frame.number;
        Outcome outcome{
            .number = number, .file = several_ ? &input.name : nullptr, .frame = std::move(frame)};
        clock_.set(outcome.frame.time);
        outcome.since_first = clock_.since_first(outcome.frame.time);
        offer(outcome, meta_);
        fates_[outcome.fate]++;
        if (!wanted_.has(outcome.number))
            return;
        told_++;
        report_->frame(outcome);
    }

    const tarn_rx_meta meta_;
    const PacketFilter filter_;
    const FrameRanges wanted_;
    const bool several_;
    std::unique_ptr<Report> report_;
    Clock clock_;
    std::map<Fate, std::size_t> fates_;
    std::size_t before_ = 0, told_ = 0; // frames of the files before
};

// All of them are there before the first frame is offered.
bool read_files(const Options &options, std::vector<Input> &inputs) {
    std::set<u32> vids;
    std::size_t ports = 0;
    for (const std::string &file : options.files) {
        try {
            inputs.push_back(read_input(file));
            ports = std::max(ports, look_through(inputs.back(), vids));
        } catch (const CaptureError &error) {
            complain(file == "-" ? "standard input" : file, error.what());
            return false;
        }
    }
    if (options.config.empty())
        build_switch(vids, ports);
    return true;
}

int replay_files(Run &run, const std::vector<Input> &inputs) {
    for (const Input &input : inputs) {
        try {
            run.file(input);
        } catch (const CaptureError &error) {
            run.end();
            return complain(input.name, error.what());
        }
    }
    run.end();
    return 0;
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

int replay(const Options &options) try {
    Run run(options);
    if (load() != 0)
        return 1;
    if (!set_redirects(options.enable, true) || !set_redirects(options.disable, false))
        return 2;
    const bool has_config = !options.config.empty();
    if (has_config || !options.frame.empty())
        chip_start();
    if (has_config && !configured(options.config))
        return 2;
    if (options.debug_log)
        tarn_pkt_debug = TARN_PKT_DEBUG_RX;
    if (!options.frame.empty())
        return explain_frame(options, has_config);
    trace_start();
    sinks_start();
    std::vector<Input> inputs;
    if (!read_files(options, inputs))
        return 1;
    sinks_take();
    userlevel::log_take();
    auto before = userlevel::take_snapshot();
    int result = replay_files(run, inputs);
    std::string lost = userlevel::describe(userlevel::leaked_since(before));
    if (lost.empty())
        return result;
    fmt::print(stderr, "tarn-replay: memory was lost:\n{}", lost);
    return 3;
} catch (const SelectError &error) {
    fmt::print(stderr, "tarn-replay: {}\n", error.what());
    return 2;
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
