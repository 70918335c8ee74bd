#include "explain/one_frame.h"

#include "chip_state.h"
#include "chip_trap.h"
#include "control.h"
#include "ifmgr/tarn_ifmgr.h"
#include "kernel/netdev.h"
#include "netdev.h"
#include "pkt/frame.h"
#include "pkt/pkt_redirect.h"
#include "port.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <sstream>
#include <utility>

namespace explain {

namespace {

Story *current = nullptr; // while it is under way

constexpr std::array<const char *, CHIP_DROPS> DROPS{"runt",    "link",   "source", "untagged",
                                                     "vlan",    "stp",    "own",    "reserved",
                                                     "nowhere", "memory", "send",   "cpu"};

std::string interface_name(u32 ifindex) {
    tarn_if *ifp = tarn_ifmgr_lookup_by_index(ifindex);
    std::string name = ifp ? std::string(ifp->name, strnlen(ifp->name, TARN_IF_NAME_SIZE))
                           : fmt::format("port {}", ifindex);
    tarn_ifmgr_if_ref_put(ifp);
    return name;
}

// --- the ends of the IP stack
// ------------------------------------------------------------------------------------

void note_posted(net_device *device, std::size_t length) {
    if (current)
        current->posted.push_back({netdev_name(device), length});
}

// In the place of the machine's.
const userlevel::netdev_back no_machine{
    .add = [](net_device *) { return 0; },
    .remove = [](net_device *) {},
    .flags = [](net_device *, u32) {},
    .carrier = [](net_device *, bool) {},
    .address = [](net_device *) {},
    .receive =
        [](net_device *device, sk_buff *skb) {
            note_posted(device, skb_len(skb));
            consume_skb(skb);
        },
    .transmit =
        [](net_device *device, sk_buff *skb) {
            note_posted(device, skb_len(skb));
            consume_skb(skb);
            return 0;
        },
    .find = [](const char *) -> net_device * { return nullptr; },
    .listen = [](u16) {},
    .forget = [](const userlevel::neigh_flush &) {},
};

// Devices with nothing at their backs keep what they are given.
void take_recorded(Story *story) {
    for (net_device *device : userlevel::netdevs())
        for (const auto &frame : std::exchange(userlevel::netdev_recorded(device).received, {}))
            if (story)
                story->posted.push_back({netdev_name(device), frame.bytes.size()});
}

// --- the sockets of daemons
// ------------------------------------------------------------------------------------

struct Listener {
    std::string family, name, process, frames, lost;
    bool has_same_queue(const Listener &other) const {
        return frames == other.frames && lost == other.lost;
    }
};

std::vector<Listener> listeners() {
    std::vector<Listener> all;
    std::istringstream lines(userlevel::proc_read("net/tarn_sockets").text);
    std::string line, skipped;
    std::getline(lines, line); // the heads
    while (std::getline(lines, line)) {
        Listener one;
        std::istringstream words(line);
        words >> one.family >> one.name >> one.process >> skipped >> one.frames >> skipped >>
            skipped >> one.lost;
        all.push_back(one);
    }
    return all;
}

void note_listeners(Story &story, const std::vector<Listener> &before) {
    const std::vector<Listener> after = listeners();
    for (std::size_t i = 0; i < std::min(before.size(), after.size()); i++)
        if (!after[i].has_same_queue(before[i]))
            story.sockets.push_back(
                fmt::format("{} of process {}{}", after[i].name, after[i].process,
                            after[i].lost != before[i].lost ? ", which has no room for it" : ""));
}

// --- the chip
// ------------------------------------------------------------------------------------

// What it has counted: of the port, and of the rows of the trap table.
struct Counts {
    chip_counters port;
    std::array<unsigned long, CHIP_TRAPS> hits;
};

Counts counts_of(u32 slot) {
    Counts counts{.port = chip.ports[slot].count, .hits = {}};
    std::copy(std::begin(chip.trap_hits), std::end(chip.trap_hits), counts.hits.begin());
    return counts;
}

void note_chip(Story &story, const Counts &before, const Counts &after) {
    for (u32 why = 0; why < CHIP_DROPS; why++)
        if (after.port.dropped[why] != before.port.dropped[why])
            story.drop = DROPS[why];
    for (u32 row = 0; row < trap_count(); row++)
        if (after.hits[row] != before.hits[row])
            story.traps.push_back({trap_row(row).name, trap_row(row).code, trap_row(row).queue});
    story.learned = after.port.learned != before.port.learned;
    story.moved = after.port.moved != before.port.moved;
}

// The device in the slot of that port, with a reference; null: there is none.
chip_device *device_of(u32 ifindex, u32 &slot) {
    read_lock_bh(&chip.lock);
    slot = chip_slot_of(ifindex);
    chip_device *device = slot < CHIP_PORTS ? chip.ports[slot].device : nullptr;
    if (device)
        chip_port_get(device);
    read_unlock_bh(&chip.lock);
    return device;
}

int digit_of(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    c = static_cast<char>(c | 0x20);
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

} // namespace

std::string parse_frame(const std::string &text, Bytes &bytes) {
    constexpr std::size_t longest = 10240; // fits a line of the control socket
    constexpr const char *between = " \t\n:.-";
    for (std::size_t at = text.find_first_not_of(between); at != std::string::npos;
         at = text.find_first_not_of(between, at + 2)) {
        int high = digit_of(text[at]), low = at + 1 < text.size() ? digit_of(text[at + 1]) : -1;
        if (high < 0 || low < 0)
            return fmt::format("'{}' is no byte of a frame: write two hexadecimal digits for each",
                               text.substr(at, 2));
        bytes.push_back(static_cast<std::uint8_t>(high << 4 | low));
    }
    if (bytes.empty() || bytes.size() > longest)
        return fmt::format("a frame has 1 to {} bytes", longest);
    return "";
}

u32 find_port(const std::string &port) {
    u32 found = 0;
    read_lock_bh(&chip.lock);
    for (u64 left = chip.present; left; left &= left - 1) {
        const u32 ifindex = chip.ports[chip_first(left)].ifindex;
        const bool is_it =
            port.empty() || port == std::to_string(ifindex) || port == interface_name(ifindex);
        if (is_it && (found == 0 || ifindex < found))
            found = ifindex;
    }
    read_unlock_bh(&chip.lock);
    return found;
}

std::string let_through(u32 ifindex, const Bytes &frame, Story &story) {
    u32 slot = 0;
    chip_device *device = device_of(ifindex, slot);
    if (!device)
        return fmt::format("the chip has no port with ifindex {}; 'chip port {} DEVICE' opens one",
                           ifindex, ifindex);
    story.port = interface_name(ifindex);
    story.frame = frame;
    userlevel::netdev_use_back(&no_machine);
    take_recorded(nullptr);
    userlevel::log_take();
    const std::vector<Listener> before = listeners();
    const Counts counted = counts_of(slot);
    current = &story;
    {
        userlevel::trace_watch watch(
            [&story](const redirect_event &event) { story.events.push_back(copy_of(event)); });
        chip_receive(device, slot, userlevel::frame_make(frame));
    }
    current = nullptr;
    note_chip(story, counted, counts_of(slot));
    note_listeners(story, before);
    take_recorded(&story);
    for (const userlevel::log_line &line : userlevel::log_take())
        story.log.push_back(line.text);
    chip_port_put(device);
    return "";
}

void note_sent(u32 slot, std::span<const std::uint8_t> frame) {
    if (!current)
        return;
    u32 vid = 0;
    if (frame.size() >= VLAN_TYPE_OFFSET &&
        (frame[ETH_TYPE_OFFSET] << 8 | frame[ETH_TYPE_OFFSET + 1]) == ETH_P_8021Q)
        vid = (frame[VLAN_TCI_OFFSET] << 8 | frame[VLAN_TCI_OFFSET + 1]) & 0xFFF;
    current->sent.push_back({interface_name(chip.ports[slot].ifindex), frame.size(), vid});
}

} // namespace explain
