#include "tarnctl/asking.h"

#include "tarnctl/proc.h"
#include "tarnctl/text.h"

#include <algorithm>
#include <fmt/format.h>
#include <tarn/tarnfwd_nl.h>

namespace tarnctl {

namespace {

using client::Message;
using Numbers = std::set<std::uint32_t>;

constexpr std::uint32_t UP = 0x1, RUNNING = 0x40;
constexpr std::uint32_t IF_LOCAL = 0x1, IF_STATIC_LAG = 0x8, IF_ALWAYS_UP = 0x4000,
                        IF_NO_MEMBER_CHECK = 0x20000;

std::optional<client::Attribute> attribute(const Message &message, std::uint16_t number) {
    for (const client::Attribute &one : client::attributes_of(message.attributes()))
        if (one.number == number)
            return one;
    return std::nullopt;
}

std::uint32_t number(const Message &message, std::uint16_t of) {
    auto found = attribute(message, of);
    return found ? found->number_value() : 0;
}

std::string mac_text(const Message &message) {
    auto found = attribute(message, TARNFWD_ATTR_MAC);
    return found ? fmt::format("{:02x}", fmt::join(found->value.begin(), found->value.end(), ":"))
                 : "";
}

Numbers bits_of(client::View bitmap) {
    Numbers vids;
    for (std::uint32_t vid = 1; vid <= VID_LAST && vid / 8 < bitmap.size(); vid++)
        if (bitmap[vid / 8] >> (vid % 8) & 1)
            vids.insert(vid);
    return vids;
}

// The VLANs of a command: one, or those of a bitmap.
Numbers vids_of(const Message &message) {
    if (auto bitmap = attribute(message, TARNFWD_ATTR_VID_BITMAP))
        return bits_of(bitmap->value);
    return {number(message, TARNFWD_ATTR_VID)};
}

std::string vlans(const Numbers &vids) {
    return fmt::format("{} {}", vids.size() == 1 ? "VLAN" : "VLANs", ranges(vids));
}

// "VLAN 10 is", "each of VLANs 10,20 is".
std::string vlans_are(const Numbers &vids) {
    return fmt::format("{}{} is", vids.size() == 1 ? "" : "each of ", vlans(vids));
}

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char byte) { return static_cast<char>(std::tolower(byte)); });
    return text;
}

constexpr std::string_view STP_WORDS[] = {"disabled", "listening", "learning", "forwarding",
                                          "blocking"};

// A command that is a flag of the interface, and nothing else.
struct FlagCommand {
    int command;
    unsigned long flag;
    std::string_view what;
};
constexpr FlagCommand FLAG_COMMANDS[] = {
    {TARNFWD_CMD_ARP_MAC_DISPARITY, 0x2000, "ARP MAC disparity"},
    {TARNFWD_CMD_DHCPSN_TRUST, 0x40, "DHCP trust"},
};

class Asker {
public:
    Asker(Standing &standing, const Parsed &parsed, bool replace)
        : standing_(standing), row_(*parsed.row), replace_(replace) {
        for (std::size_t at = 0; at < row_.arguments.size(); at++)
            if (row_.arguments[at].attribute == TARNFWD_ATTR_MAC && parsed.said[at])
                mac_is_said_ = true;
    }

    Plan take(const std::vector<Message> &messages) {
        for (const Message &message : messages)
            if (knows_interfaces(message) && knows_vlans(message))
                ask(message);
        if (!missing_.empty())
            refuse(no_vlan(missing_));
        tell_already();
        return std::move(plan_);
    }

private:
    void send(const Message &message) { plan_.messages.push_back(message); }
    void is_already(const std::string &who, const std::string &what) {
        plan_.already.push_back(fmt::format("{} is already {}", who, what));
    }
    void refuse(const std::string &what) { plan_.refused.push_back(what); }

    std::string name_of(std::uint32_t ifindex) {
        const Interface *found = standing_.interface(ifindex);
        return found ? found->name : fmt::format("{}", ifindex);
    }

    std::string all_names(bool (*suits)(const Interface &)) {
        std::string text;
        for (const Interface &one : standing_.interfaces())
            if (suits(one))
                text += (text.empty() ? "" : " ") + one.name;
        return text.empty() ? "there is none" : "there are: " + text;
    }

    // What names an interface must name one; neighbours are flushed of those that have gone, too,
    // and 0 means all ports where they are trusted.
    bool knows_interfaces(const Message &message) {
        if (row_.words.starts_with("neigh"))
            return true;
        for (const Argument &argument : row_.arguments) {
            if (argument.kind != Kind::interface)
                continue;
            std::uint32_t ifindex = number(message, argument.attribute);
            if (standing_.interface(ifindex) || (ifindex == 0 && row_.words == "dhcp trust"))
                continue;
            bool is_vlan = ifindex > VLAN_IFINDEX_BASE && ifindex <= VLAN_IFINDEX_BASE + VID_LAST;
            if (is_vlan)
                refuse(no_vlan({ifindex - VLAN_IFINDEX_BASE}));
            else
                refuse(fmt::format("there is no interface {}; there are: {}", ifindex,
                                   standing_.names()));
            return false;
        }
        return true;
    }

    std::string no_vlan(const Numbers &vids) {
        Numbers there = standing_.vids();
        std::string are = there.empty() ? "there is none" : "there are: " + ranges(there);
        return fmt::format("there {} no {}; {}; 'vlan add' makes one",
                           vids.size() == 1 ? "is" : "are", vlans(vids), are);
    }

    // Rules for frames that come from elsewhere name VLANs that need not be here.
    bool needs_vlan(const Argument &argument) const {
        if (row_.words == "vlan add" || row_.words == "stack vlan create" ||
            row_.words.ends_with("classifier del") || row_.words.ends_with("group del"))
            return false;
        if (argument.kind == Kind::vid)
            return argument.attribute == TARNFWD_ATTR_VID ||
                   argument.attribute == TARNFWD_ATTR_PVLAN_PRIMARY_VID ||
                   argument.attribute == TARNFWD_ATTR_PVLAN_SECONDARY_VID;
        return argument.kind == Kind::vids || argument.kind == Kind::vid_or_bitmap ||
               argument.kind == Kind::vlan_interface || argument.kind == Kind::vlan_interfaces;
    }

    bool knows_vlans(const Message &message) {
        bool knows = true;
        for (const Argument &argument : row_.arguments) {
            if (!needs_vlan(argument))
                continue;
            Numbers wanted;
            if (argument.kind == Kind::vid_or_bitmap)
                wanted = vids_of(message);
            else if (argument.attribute == TARNFWD_ATTR_IFINDEX)
                wanted = {number(message, TARNFWD_ATTR_IFINDEX) - VLAN_IFINDEX_BASE};
            else
                wanted = {number(message, argument.attribute)};
            for (std::uint32_t vid : wanted) {
                if (standing_.vlan(vid))
                    continue;
                missing_.insert(vid);
                knows = false;
            }
        }
        return knows;
    }

    void ask(const Message &message) {
        switch (message.command()) {
        case TARNFWD_CMD_IF_NEWLINK:
            return new_link(message);
        case TARNFWD_CMD_IF_CREATE_SVI_RANGE:
            return new_vlans(message);
        case TARNFWD_CMD_IF_UPDATE:
            return update(message);
        case TARNFWD_CMD_IF_SET_HWADDR:
            return set_mac(message);
        case TARNFWD_CMD_IF_SET_VLAN_OPTIONS:
            return set_options(message);
        case TARNFWD_CMD_PORT_SET_L3:
            return set_routed(message);
        case TARNFWD_CMD_LACP_DELETE_AGGREGATOR:
            return is_lag(message) ? send(message) : void();
        case TARNFWD_CMD_LACP_ATTACH_MUX_TO_AGGREGATOR:
            return attach(message);
        case TARNFWD_CMD_LACP_DETACH_MUX_FROM_AGGREGATOR:
            return detach(message);
        case TARNFWD_CMD_VLAN_ADD_PORT_DYNAMIC:
        case TARNFWD_CMD_VLAN_ADD_VID_BMP_TO_PORT:
            return join(message);
        case TARNFWD_CMD_VLAN_DELETE_PORT_DYNAMIC:
        case TARNFWD_CMD_VLAN_DELETE_VID_BMP_FROM_PORT:
            return leave(message);
        case TARNFWD_CMD_VLAN_SET_DEFAULT_PVID:
            return set_pvid(message);
        case TARNFWD_CMD_STP_SET_PORT_STATE:
            return set_stp(message);
        default:
            return set_flag(message);
        }
    }

    // --- interfaces

    void new_link(const Message &message) {
        std::uint32_t ifindex = number(message, TARNFWD_ATTR_IFINDEX);
        auto named = attribute(message, TARNFWD_ATTR_IF_NAME);
        std::string name(named->value.begin(), named->value.end() - 1);
        const Interface *there = standing_.interface(ifindex);
        const Interface *of_name = standing_.interface(name);
        if (of_name && of_name->ifindex != ifindex)
            return refuse(fmt::format("the name {} is taken, by the interface with ifindex {}",
                                      name, of_name->ifindex));
        if (!there)
            return send(message);
        std::string other = contradiction(message, *there, name);
        if (replace_) {
            send(Message(TARNFWD_CMD_IF_DELLINK).u32(TARNFWD_ATTR_IFINDEX, ifindex));
            return send(message);
        }
        if (other.empty())
            return is_already(name, fmt::format("there, with ifindex {}", ifindex));
        refuse(other + "; --replace takes it away and makes it anew");
    }

    std::string contradiction(const Message &message, const Interface &there,
                              const std::string &name) {
        if (there.name != name)
            return fmt::format("the ifindex {} is taken, by {}", there.ifindex, there.name);
        std::uint32_t kind = number(message, TARNFWD_ATTR_PORT_KIND);
        bool lag = kind == TARNFWD_PORT_KIND_AGG_STATIC || kind == TARNFWD_PORT_KIND_AGG_DYNAMIC;
        if (there.is_lag() != lag)
            return fmt::format("{} is there, and is {} aggregator", name,
                               there.is_lag() ? "an" : "no");
        if (lag && (kind == TARNFWD_PORT_KIND_AGG_STATIC) != bool(there.if_flags & IF_STATIC_LAG))
            return fmt::format("{} is there, and is a {} aggregator", name,
                               there.if_flags & IF_STATIC_LAG ? "static" : "dynamic");
        if (number(message, TARNFWD_ATTR_FLAGS) & UP && !(there.flags & UP))
            return fmt::format("{} is there, and is down ('link set {} up' brings it up)", name,
                               name);
        return "";
    }

    // A range is sent in the pieces that are not there.
    void new_vlans(const Message &message) {
        Numbers missing;
        for (std::uint32_t vid = number(message, TARNFWD_ATTR_VID_START);
             vid < number(message, TARNFWD_ATTR_VID_END); vid++) {
            const Interface *there = standing_.vlan(vid);
            if (!there || replace_)
                missing.insert(vid);
            else if (std::string other = contradiction(message, *there, vid); !other.empty())
                refuse(other + "; --replace makes it anew, with no members");
            else
                already_["VLAN is there"].insert(vid);
        }
        while (!missing.empty()) {
            std::uint32_t first = *missing.begin(), end = first;
            while (missing.erase(end))
                end++;
            send(piece(message, first, end));
        }
    }

    static Message piece(const Message &message, std::uint32_t first, std::uint32_t end) {
        Message part(message.command());
        for (const client::Attribute &one : client::attributes_of(message.attributes())) {
            if (one.number == TARNFWD_ATTR_VID_START)
                part.u16(one.number, static_cast<std::uint16_t>(first));
            else if (one.number == TARNFWD_ATTR_VID_END)
                part.u16(one.number, static_cast<std::uint16_t>(end));
            else
                part.bytes(one.number, one.value);
        }
        return part;
    }

    std::string contradiction(const Message &message, const Interface &there, std::uint32_t vid) {
        std::uint32_t options = number(message, TARNFWD_ATTR_VLAN_OPTIONS);
        bool local = options & TARNFWD_VLAN_LOCAL;
        if (local != bool(there.if_flags & IF_LOCAL))
            return fmt::format("VLAN {} is there, and is {}local", vid, local ? "not " : "");
        if (options & TARNFWD_VLAN_ALWAYS_UP && !(there.if_flags & IF_ALWAYS_UP))
            return fmt::format("VLAN {} is there, and is not always up ('vlan options' sets it)",
                               vid);
        std::string mac = mac_is_said_ ? standing_.vlan_mac(vid) : "";
        if (!mac.empty() && mac != mac_text(message))
            return fmt::format("VLAN {} is there, with the MAC {} ('link mac' sets it)", vid, mac);
        return "";
    }

    // The flags alone are told by the switch. Where the chip watches the link, only "down" or
    // nothing takes it.
    void update(const Message &message) {
        const Interface &there = *standing_.interface(number(message, TARNFWD_ATTR_IFINDEX));
        std::uint32_t flags = number(message, TARNFWD_ATTR_FLAGS);
        const Chip *chip = standing_.chip();
        const ChipPort *port = chip ? chip->port(there.ifindex) : nullptr;
        bool takes_link = there.has_link() && (flags & UP) && !(flags & RUNNING);
        if (takes_link && port && !replace_)
            return refuse(fmt::format("{} has link, as its device {} has; 'up running' leaves it, "
                                      "and --replace takes it",
                                      there.name, port->device));
        bool more =
            attribute(message, TARNFWD_ATTR_SPEED) || attribute(message, TARNFWD_ATTR_DUPLEX);
        if (!more && there.vid() == 0 && there.flags == flags)
            return is_already(there.name, "so");
        send(message);
    }

    void set_mac(const Message &message) {
        const Interface &there = *standing_.interface(number(message, TARNFWD_ATTR_IFINDEX));
        if (there.vid() != 0 && standing_.vlan_mac(there.vid()) == mac_text(message))
            return is_already(there.name, "of that MAC address");
        send(message);
    }

    void set_options(const Message &message) {
        const Interface &there = *standing_.interface(number(message, TARNFWD_ATTR_IFINDEX));
        std::uint32_t options = number(message, TARNFWD_ATTR_VLAN_OPTIONS);
        bool same = bool(options & TARNFWD_VLAN_ALWAYS_UP) == bool(there.if_flags & IF_ALWAYS_UP) &&
                    bool(options & TARNFWD_VLAN_NO_MEMBER_CHECK) ==
                        bool(there.if_flags & IF_NO_MEMBER_CHECK);
        same ? is_already(there.name, "so") : send(message);
    }

    void set_routed(const Message &message) {
        const Interface &there = *standing_.interface(number(message, TARNFWD_ATTR_IFINDEX));
        std::uint32_t vid = number(message, TARNFWD_ATTR_VID);
        const Chip *chip = standing_.chip();
        const ChipPort *port = chip ? chip->port(there.ifindex) : nullptr;
        if (vid == 0 && !there.is_routed())
            return is_already(there.name, "a switch port");
        if (vid != 0 && there.is_routed() && port && port->routed == vid)
            return is_already(there.name, fmt::format("routed, with VLAN {}", vid));
        send(message);
    }

    void set_flag(const Message &message) {
        auto row =
            std::find_if(std::begin(FLAG_COMMANDS), std::end(FLAG_COMMANDS),
                         [&](const FlagCommand &one) { return one.command == message.command(); });
        const Interface *there = standing_.interface(number(message, TARNFWD_ATTR_IFINDEX));
        bool on = number(message, TARNFWD_ATTR_STATE) != 0;
        if (row == std::end(FLAG_COMMANDS) || !there || bool(there->if_flags & row->flag) != on)
            return send(message);
        is_already(fmt::format("{} of {}", row->what, there->name), on ? "on" : "off");
    }

    // --- aggregators

    bool is_lag(const Message &message) {
        const Interface &lag = *standing_.interface(number(message, TARNFWD_ATTR_AGG_IFINDEX));
        if (lag.is_lag())
            return true;
        refuse(fmt::format("{} is no aggregator; {}", lag.name,
                           all_names([](const Interface &one) { return one.is_lag(); })));
        return false;
    }

    bool is_port(const Interface &port) {
        if (!port.is_lag() && port.vid() == 0)
            return true;
        refuse(fmt::format("{} is no port: it is {}", port.name,
                           port.is_lag() ? "an aggregator" : "a VLAN"));
        return false;
    }

    void attach(const Message &message) {
        const Interface &port = *standing_.interface(number(message, TARNFWD_ATTR_IFINDEX));
        const Interface &lag = *standing_.interface(number(message, TARNFWD_ATTR_AGG_IFINDEX));
        if (!is_lag(message) || !is_port(port))
            return;
        const Interface *now = standing_.lag_of(port);
        if (!now)
            return send(message);
        if (now->ifindex == lag.ifindex)
            return is_already(port.name, "in " + lag.name);
        if (!replace_)
            return refuse(fmt::format("{} is in {}; 'lag detach {} {}' takes it out, as does "
                                      "--replace",
                                      port.name, now->name, port.name, now->name));
        send(Message(TARNFWD_CMD_LACP_DETACH_MUX_FROM_AGGREGATOR)
                 .u32(TARNFWD_ATTR_AGG_IFINDEX, now->ifindex)
                 .u32(TARNFWD_ATTR_IFINDEX, port.ifindex));
        send(message);
    }

    void detach(const Message &message) {
        const Interface &port = *standing_.interface(number(message, TARNFWD_ATTR_IFINDEX));
        const Interface &lag = *standing_.interface(number(message, TARNFWD_ATTR_AGG_IFINDEX));
        if (!is_lag(message))
            return;
        if (lag.has_child(port.name))
            return send(message);
        const Interface *now = standing_.lag_of(port);
        refuse(fmt::format("{} is not in {}; it is in {}", port.name, lag.name,
                           now ? now->name : "none"));
    }

    // --- VLANs of ports

    // The aggregator is the member in the place of its ports.
    bool is_member(const Interface &port, std::uint32_t vid) {
        const Interface *vlan = standing_.vlan(vid), *lag = standing_.lag_of(port);
        return vlan && (vlan->has_child(port.name) || (lag && vlan->has_child(lag->name)));
    }

    bool is_bridge_port(const Interface &port) {
        if (port.vid() == 0)
            return true;
        refuse(fmt::format("{} is a VLAN, and no port or aggregator", port.name));
        return false;
    }

    void join(const Message &message) {
        const Interface &port = *standing_.interface(number(message, TARNFWD_ATTR_IFINDEX));
        bool tagged = number(message, TARNFWD_ATTR_TAGGED) != 0;
        if (!is_bridge_port(port))
            return;
        Numbers wanted = vids_of(message), others, same;
        for (std::uint32_t vid : wanted) {
            auto now = is_member(port, vid) ? standing_.is_tagged(port, vid) : std::nullopt;
            if (now)
                (*now == tagged ? same : others).insert(vid);
        }
        if (!others.empty() && !replace_)
            return refuse(fmt::format("{} is {} member of {}; --replace makes it {}", port.name,
                                      tagged ? "an untagged" : "a tagged", vlans(others),
                                      tagged ? "tagged" : "untagged"));
        if (!others.empty())
            send(members(message, TARNFWD_CMD_VLAN_DELETE_VID_BMP_FROM_PORT, others));
        if (!same.empty())
            is_already(port.name, fmt::format("{} member of {}",
                                              tagged ? "a tagged" : "an untagged", vlans(same)));
        if (same.empty())
            return send(message);
        for (std::uint32_t vid : same)
            wanted.erase(vid);
        if (!wanted.empty())
            send(members(message, TARNFWD_CMD_VLAN_ADD_VID_BMP_TO_PORT, wanted));
    }

    void leave(const Message &message) {
        const Interface &port = *standing_.interface(number(message, TARNFWD_ATTR_IFINDEX));
        if (!is_bridge_port(port))
            return;
        // The memberships of an aggregator without ports, and of a port in one, are not told.
        bool is_told = !port.is_lag() && !standing_.lag_of(port);
        Numbers none;
        for (std::uint32_t vid : vids_of(message))
            if (is_told && !is_member(port, vid))
                none.insert(vid);
        if (none.empty())
            return send(message);
        Numbers member;
        for (std::uint32_t vid : standing_.vids())
            if (is_member(port, vid))
                member.insert(vid);
        refuse(fmt::format("{} is no member of {}; it is one of {}", port.name, vlans(none),
                           member.empty() ? "none" : vlans(member)));
    }

    static Message members(const Message &like, std::uint8_t command, const Numbers &vids) {
        client::Bytes bitmap((VID_LAST + 2) / 8);
        for (std::uint32_t vid : vids)
            bitmap[vid / 8] |= static_cast<std::uint8_t>(1u << (vid % 8));
        Message message(command);
        message.u32(TARNFWD_ATTR_IFINDEX, number(like, TARNFWD_ATTR_IFINDEX));
        if (command == TARNFWD_CMD_VLAN_ADD_VID_BMP_TO_PORT)
            message.u8(TARNFWD_ATTR_TAGGED,
                       static_cast<std::uint8_t>(number(like, TARNFWD_ATTR_TAGGED)));
        message.bytes(TARNFWD_ATTR_VID_BITMAP, bitmap);
        return message;
    }

    void set_pvid(const Message &message) {
        const Interface &port = *standing_.interface(number(message, TARNFWD_ATTR_IFINDEX));
        std::uint32_t vid = number(message, TARNFWD_ATTR_VID);
        if (!is_bridge_port(port))
            return;
        const Chip *chip = standing_.chip();
        const ChipPort *told = chip ? chip->port(port.ifindex) : nullptr;
        if (told && told->pvid == vid)
            return plan_.already.push_back(
                fmt::format("the PVID of {} is already {}", port.name, vid));
        send(message);
    }

    void set_stp(const Message &message) {
        const Interface &port = *standing_.interface(number(message, TARNFWD_ATTR_IFINDEX));
        std::uint32_t instance = number(message, TARNFWD_ATTR_STP_INSTANCE);
        std::uint32_t state = number(message, TARNFWD_ATTR_STP_STATE);
        if (!is_bridge_port(port))
            return;
        const auto &states = standing_.stp_states(port.name);
        if (state >= std::size(STP_WORDS) || instance >= states.size() ||
            lower(states[instance]) != STP_WORDS[state])
            return send(message);
        already_[fmt::format("{} is already {} in", port.name, STP_WORDS[state])].insert(instance);
    }

    // Of several messages that say the same of other numbers.
    void tell_already() {
        for (const auto &[what, numbers] : already_)
            plan_.already.push_back(
                what == "VLAN is there"
                    ? fmt::format("{} already there", vlans_are(numbers))
                    : fmt::format("{} {} {}", what, numbers.size() == 1 ? "instance" : "instances",
                                  ranges(numbers)));
    }

    Standing &standing_;
    const Subcommand &row_;
    bool replace_;
    bool mac_is_said_ = false;
    std::map<std::string, Numbers> already_ = {};
    Numbers missing_ = {}; // VLANs
    Plan plan_ = {};
};

} // namespace

Plan plan(Standing &standing, const Parsed &parsed, bool replace) {
    if (standing.is_known())
        return Asker(standing, parsed, replace).take(parsed.messages);
    if (parsed.row->command == TARNFWD_CMD_IF_CREATE_SVI_RANGE && !replace)
        throw ProcMissing(fmt::format(
            "{}: one that is there would lose its members, and the switch cannot be asked (--proc "
            "or --control says where; --replace makes it all the same): {}",
            parsed.row->words, standing.why_not()));
    return {.messages = parsed.messages};
}

} // namespace tarnctl
