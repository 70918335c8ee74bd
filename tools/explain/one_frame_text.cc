// The story of one frame, for people and for programs.
#include "explain/one_frame.h"
#include "explain/words.h"
#include "pkt/frame.h"
#include "pkt/pkt_redirect.h"

#include <algorithm>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <string_view>

namespace explain {

namespace {

struct DropWord {
    std::string_view drop, words;
};

constexpr DropWord DROP_WORDS[] = {
    {"runt", "no whole Ethernet header, or no whole tag"},
    {"link", "the port is down"},
    {"source", "the source is a group address"},
    {"untagged", "it has no tag, and the port no PVID"},
    {"vlan", "the port is no member of the VLAN"},
    {"stp", "spanning tree does not let it in"},
    {"own", "it is for the switch itself, and no trap takes it"},
    {"reserved", "no bridge forwards that address, and no trap takes it"},
    {"nowhere", "there is no port to leave by"},
    {"memory", "memory is short"},
    {"send", "a port did not take it"},
    {"cpu", "the core left it with the chip"},
};

std::string drop_words(const std::string &drop) {
    auto found = std::find_if(std::begin(DROP_WORDS), std::end(DROP_WORDS),
                              [&](const DropWord &entry) { return entry.drop == drop; });
    return found == std::end(DROP_WORDS) ? "" : std::string(found->words);
}

std::string mac_at(const Bytes &frame, std::size_t offset) {
    std::string text;
    for (std::size_t i = offset; i < offset + ETH_ALEN; i++)
        text += fmt::format("{}{:02x}", i > offset ? ":" : "", i < frame.size() ? frame[i] : u8{0});
    return text;
}

u32 word_at(const Bytes &frame, std::size_t offset) {
    auto byte = [&](std::size_t at) { return at < frame.size() ? frame[at] : u32{0}; };
    return byte(offset) << 8 | byte(offset + 1);
}

std::string type_text(const Bytes &frame) {
    std::size_t at = ETH_TYPE_OFFSET;
    std::string tag;
    if (word_at(frame, at) == ETH_P_8021Q) {
        const u32 tci = word_at(frame, VLAN_TCI_OFFSET);
        tag = fmt::format(", tag VID {} priority {}", tci & 0xFFF, tci >> 13);
        at = VLAN_TYPE_OFFSET;
    }
    const u32 type = word_at(frame, at);
    std::string words = ethertype_words(type);
    if (is_length(type) && frame.size() > at + 2)
        if (std::string llc = llc_words(std::span(frame).subspan(at + 2)); !llc.empty())
            words += ", " + llc;
    return fmt::format("0x{:04x}{}{}{}", type, words.empty() ? "" : " ", words, tag);
}

std::string chip_text(const Story &story) {
    std::string text;
    for (const Trapped &trap : story.traps)
        text += fmt::format("chip: to the CPU by the trap '{}' (code {}, queue {})\n", trap.row,
                            trap.code, trap.queue);
    if (!story.drop.empty())
        text += fmt::format("chip: dropped, {}: {}\n", story.drop, drop_words(story.drop));
    else if (story.traps.empty())
        text += "chip: forwarded in hardware; the CPU does not see it\n";
    if (story.learned || story.moved)
        text += fmt::format("chip: its source {} {}\n", story.moved ? "moves to" : "is learned on",
                            story.port);
    return text;
}

// Each copy that came to the CPU begins anew.
std::string core_text(const Story &story) {
    std::string text;
    std::uint64_t frame = 0;
    for (const Event &event : story.events) {
        if (event.frame != frame)
            text += fmt::format("core: on {}, VLAN {}\n", event.port, event.vid);
        frame = event.frame;
        text += event.redirect.empty() ? fmt::format("      {}\n", verdict_text(event))
                                       : fmt::format("      slot {:>2} {:<20} {}\n", event.slot,
                                                     event.redirect, verdict_text(event));
    }
    return text;
}

std::string ends_text(const Story &story) {
    std::string text;
    for (const Sent &one : story.sent)
        text += fmt::format("  => out of {}, {} bytes{}\n", one.port, one.length,
                            one.vid ? fmt::format(", tag VID {}", one.vid) : ", untagged");
    for (const Posted &one : story.posted)
        text += fmt::format("  => to the IP stack on {}, {} bytes\n", one.device, one.length);
    for (const std::string &one : story.sockets)
        text += fmt::format("  => to the socket {}\n", one);
    return text.empty() ? "  => nowhere\n" : text;
}

} // namespace

std::string text_of(const Story &story) {
    std::string text = fmt::format("{} bytes on {}: {} -> {}  type {}\n", story.frame.size(),
                                   story.port, mac_at(story.frame, ETH_SRC_OFFSET),
                                   mac_at(story.frame, ETH_DST_OFFSET), type_text(story.frame));
    text += chip_text(story) + core_text(story);
    for (const std::string &line : story.log)
        text += " log: " + line;
    return text + ends_text(story);
}

std::string json_of(const Story &story) {
    using json = nlohmann::ordered_json;
    json line{{"port", story.port},
              {"len", story.frame.size()},
              {"src", mac_at(story.frame, ETH_SRC_OFFSET)},
              {"dst", mac_at(story.frame, ETH_DST_OFFSET)},
              {"type", type_text(story.frame)}};
    line["chip"] = {{"drop", story.drop},
                    {"words", drop_words(story.drop)},
                    {"learned", story.learned},
                    {"moved", story.moved},
                    {"traps", json::array()}};
    for (const Trapped &one : story.traps)
        line["chip"]["traps"].push_back(
            {{"trap", one.row}, {"code", one.code}, {"queue", one.queue}});
    line["core"] = json::array();
    for (const Event &event : story.events) {
        json told = json::parse(json_of(event));
        told.erase("frame"); // an address, of no use to anybody
        line["core"].push_back(told);
    }
    line["sent"] = json::array();
    for (const Sent &one : story.sent)
        line["sent"].push_back({{"port", one.port}, {"len", one.length}, {"vid", one.vid}});
    line["kernel"] = json::array();
    for (const Posted &one : story.posted)
        line["kernel"].push_back({{"device", one.device}, {"len", one.length}});
    line["sockets"] = story.sockets;
    line["log"] = story.log;
    return line.dump() + "\n";
}

} // namespace explain
