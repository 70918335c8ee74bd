// The outcome of each frame, for people.
#include "explain/words.h"
#include "replay/frame_text.h"

#include "pkt/pkt_candidates.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <ctime>
#include <fmt/format.h>

namespace replay {

using explain::flag_words;
using explain::reason_words;

namespace {

std::string address_text(int family, const u8 *address) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    inet_ntop(family, address, text.data(), text.size());
    return text.data();
}

std::string ethernet_line(const Outcome &outcome, const Colour &colour) {
    const tarn_pkt_info &info = outcome.trace.info;
    std::string name = type_text(outcome);
    std::string line =
        fmt::format("{} -> {}  type 0x{:04x}{}{}", colour(Paint::mac, source_text(outcome.frame)),
                    colour(Paint::mac, destination_text(outcome.frame)), info.ethertype,
                    name.empty() ? "" : " ", name);
    if (info.tag & TARN_TAG_PRESENT)
        line += fmt::format(", tag VID {} priority {}", info.tag & 0xFFF, info.tag >> 13 & 7);
    if (info.src_mac_is_own)
        line += ", our own source MAC";
    if (!info.vlan_member_ok)
        line += ", port is no member of the VLAN";
    return line;
}

std::string ipv4_line(const tarn_pkt_info &info, const Colour &colour) {
    u32 fragment = be16_to_cpu(info.ip_frag_off) & 0x3FFF;
    return fmt::format("IPv4 {} -> {} protocol {} ttl {}{}",
                       colour(Paint::ipv4, address_text(AF_INET, info.src_ip)),
                       colour(Paint::ipv4, address_text(AF_INET, info.dst_ip)), info.ip_proto,
                       info.ttl, fragment ? ", fragment" : "");
}

std::string ipv6_line(const tarn_pkt_info &info, const Colour &colour) {
    std::string line = fmt::format("IPv6 {} -> {} next header {} hop limit {}",
                                   colour(Paint::ipv6, address_text(AF_INET6, info.src_ip)),
                                   colour(Paint::ipv6, address_text(AF_INET6, info.dst_ip)),
                                   info.ipv6_next_header, info.hop_limit);
    if (!info.ipv6_parsed)
        line += ", headers could not be walked";
    else if (info.ipv6_next_header == 58)
        line += fmt::format(", ICMPv6 type {}", info.icmpv6_type);
    else if (info.ipv6_next_header == 17)
        line += fmt::format(", UDP to port {}", be16_to_cpu(info.udp_dport));
    return line + (info.rtr_alert ? ", router alert" : "");
}

std::string ip_line(const tarn_pkt_info &info, const Colour &colour) {
    if (info.ethertype == 0x0800)
        return ipv4_line(info, colour);
    return info.ethertype == 0x86DD ? ipv6_line(info, colour) : "";
}

bool is_delivered(const Decision &stop) {
    return stop.flags &
           (REDIRECT_POST_KERNEL | REDIRECT_POST_KERNEL_PORT | REDIRECT_POST_USERSPACE);
}

std::string fate_line(const Outcome &outcome) {
    switch (outcome.fate) {
    case Fate::stopped: {
        const Decision &stop = *outcome.stopped_by;
        std::string meaning = reason_words(stop.name, stop.reason);
        bool to_kernel = stop.flags & (REDIRECT_POST_KERNEL | REDIRECT_POST_KERNEL_PORT);
        return fmt::format("stopped by {}, reason {}{}{}; {}", stop.name, stop.reason,
                           meaning.empty() ? "" : ": ", meaning,
                           to_kernel ? "given to the IP stack" : "freed");
    }
    case Fate::unclaimed:
        return "unclaimed: nobody stopped it; freed";
    case Fate::refused:
        return "refused: a redirect asked for what cannot be done; left with the driver";
    case Fate::taken:
        return "taken before the chain";
    }
    return {};
}

void print_ends(const Outcome &outcome) {
    for (const Sent &one : outcome.ends.sent)
        fmt::print("      sent {}, VLAN {}{}, {} bytes\n",
                   one.port.empty() ? "on the VLAN" : "out of " + one.port, one.vid,
                   one.tagged ? " tagged" : "", one.length);
    for (const Posted &one : outcome.ends.kernel)
        fmt::print("      to the IP stack on {}, {} bytes\n", one.device, one.length);
    for (const Decision &decision : outcome.trace.decisions)
        if (decision.flags & REDIRECT_STACK_REPLICATE)
            fmt::print("      nothing was replicated: this unit stands alone\n");
}

constexpr std::uint64_t NANOSECONDS = 1000000000, NANOSECONDS_OF_MICROSECOND = 1000;

std::string seconds_text(std::uint64_t time) {
    return fmt::format("{}.{:06} s", time / NANOSECONDS,
                       time % NANOSECONDS / NANOSECONDS_OF_MICROSECOND);
}

std::string date_text(std::uint64_t time) {
    const auto seconds = static_cast<std::time_t>(time / NANOSECONDS);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:06}Z", parts.tm_year + 1900,
                       parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                       time % NANOSECONDS / NANOSECONDS_OF_MICROSECOND);
}

class TextReport : public Report {
public:
    explicit TextReport(const Options &options)
        : verbose_(options.verbose), explain_(options.explain), dates_(options.dates),
          colour_(options.colour) {}

    void frame(const Outcome &outcome) override {
        print_file(outcome);
        print_head(outcome);
        for (const std::string &line : outcome.log)
            fmt::print("   log {}", line);
        if (!outcome.trace.consulted.empty()) {
            fmt::print("      {}\n", ethernet_line(outcome, colour_));
            if (std::string line = ip_line(outcome.trace.info, colour_); !line.empty())
                fmt::print("      {}\n", line);
        }
        print_chain(outcome.trace);
        for (const Decision &decision : outcome.trace.off)
            fmt::print("      slot {:>2} {:<20} is off; on, it would say: {}\n", decision.slot,
                       decision.name, flag_words(decision.flags));
        print_ends(outcome);
        bool good = outcome.stopped_by && is_delivered(*outcome.stopped_by);
        fmt::print("    = {}\n\n", colour_(good ? Paint::good : Paint::bad, fate_line(outcome)));
    }

    void end(const std::map<Fate, std::size_t> &fates, std::size_t told) override {
        std::size_t frames = 0;
        for (auto [fate, count] : fates)
            frames += count;
        fmt::print("{} frame{}", frames, frames == 1 ? "" : "s");
        if (told != frames)
            fmt::print(", {} of them told", told);
        for (auto [fate, count] : fates)
            fmt::print(", {} {}", count, fate_word(fate));
        fmt::print("\n");
        print_counters();
    }

private:
    void print_file(const Outcome &outcome) {
        if (outcome.file == file_)
            return;
        file_ = outcome.file;
        fmt::print("--- {}\n", *file_);
    }

    void print_head(const Outcome &outcome) const {
        const CapturedFrame &frame = outcome.frame;
        fmt::print("frame {}: {} bytes on {}, VLAN {}", outcome.number, frame.bytes.size(),
                   colour_(Paint::port, outcome.port), outcome.vid);
        if (frame.length > frame.bytes.size())
            fmt::print(" (cut short: {} on the wire)", frame.length);
        if (frame.time != 0)
            fmt::print(", {}", dates_ ? date_text(frame.time) : seconds_text(outcome.since_first));
        fmt::print("{}{}\n", frame.comment.empty() ? "" : "  # ", frame.comment);
    }

    void print_chain(const Trace &trace) const {
        for (u32 slot : trace.consulted) {
            auto decision = std::find_if(trace.decisions.begin(), trace.decisions.end(),
                                         [&](const Decision &one) { return one.slot == slot; });
            if (decision != trace.decisions.end())
                print_decision(*decision);
            else
                print_refusal(slot, trace);
        }
    }

    void print_refusal(u32 slot, const Trace &trace) const {
        auto note = std::find_if(trace.notes.begin(), trace.notes.end(),
                                 [&](const Note &one) { return one.slot == slot; });
        bool has_word = explain_ && note != trace.notes.end();
        if (has_word || verbose_)
            fmt::print("      slot {:>2} {:<20} no\n", slot, packet_redirects[slot]->name);
        if (has_word)
            print_why(note->why);
    }

    static void print_why(const std::string &why) {
        if (!why.empty())
            fmt::print("{:35}why: {}\n", "", why);
    }

    void print_decision(const Decision &decision) const {
        fmt::print("      slot {:>2} {:<20} {}", decision.slot, decision.name,
                   flag_words(decision.flags));
        if (decision.flags & REDIRECT_STOP) {
            std::string meaning = reason_words(decision.name, decision.reason);
            fmt::print("; reason {}{}{}", decision.reason, meaning.empty() ? "" : ": ", meaning);
        }
        fmt::print("\n");
        if (explain_)
            print_why(decision.why);
    }

    // Only redirects that did something: all others were asked and said no.
    static void print_counters() {
        fmt::print("\n{:<20} {:>6} {:>6} {:>6} {:>6} {:>6} {:>6} {:>6}  {}\n", "redirect", "asked",
                   "stops", "posts", "kernel", "flood", "resend", "stack", "reasons");
        pkt_candidates_sum_up();
        for (const u8 *slot = process_packet_rxs.data(); *slot != REDIRECT_ORDER_END; slot++) {
            const packet_redirect *one = packet_redirects[*slot];
            if (!one ||
                one->stops + one->userspace + one->flood_l2 + one->resend_l2 + one->stack_rep == 0)
                continue;
            fmt::print("{:<20} {:>6} {:>6} {:>6} {:>6} {:>6} {:>6} {:>6} ", one->name,
                       one->inspects, one->stops, one->userspace, one->kernel + one->kernel_port,
                       one->flood_l2, one->resend_l2, one->stack_rep);
            for (u32 reason = 0; reason < REDIRECT_REASONS; reason++)
                if (one->stop_reasons[reason])
                    fmt::print(" {}:{}", reason, one->stop_reasons[reason]);
            fmt::print("\n");
        }
    }

    bool verbose_, explain_, dates_;
    Colour colour_;
    const std::string *file_ = nullptr;
};

} // namespace

std::unique_ptr<Report> text_report(const Options &options) {
    return std::make_unique<TextReport>(options);
}

} // namespace replay
