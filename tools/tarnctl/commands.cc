#include "tarnctl/command.h"

#include "chip_words.h"

#include <tarn/tarnfwd_nl.h>

namespace tarnctl {

namespace {

// How rows are written. Each helper makes one argument; the trailing functions bend it.

Argument fixed(std::uint16_t attribute, std::uint32_t value) {
    return {.kind = Kind::fixed,
            .attribute = attribute,
            .word = "",
            .name = "",
            .help = "",
            .value = value};
}

Argument value(Kind kind, std::uint16_t attribute, std::string_view name, std::string_view help) {
    return {.kind = kind, .attribute = attribute, .word = "", .name = name, .help = help};
}

Argument number(std::uint16_t attribute, std::string_view name, std::uint32_t low,
                std::uint32_t high, std::string_view help, std::vector<Choice> choices = {}) {
    return {.kind = Kind::number,
            .attribute = attribute,
            .word = "",
            .name = name,
            .help = help,
            .low = low,
            .high = high,
            .choices = std::move(choices)};
}

Argument choice(std::uint16_t attribute, std::string_view name, std::string_view help,
                std::vector<Choice> choices) {
    return {.kind = Kind::choice,
            .attribute = attribute,
            .word = "",
            .name = name,
            .help = help,
            .choices = std::move(choices)};
}

Argument bits(std::uint16_t attribute, std::string_view name, std::string_view help,
              std::vector<Choice> choices) {
    return {.kind = Kind::bits,
            .attribute = attribute,
            .word = "",
            .name = name,
            .help = help,
            .choices = std::move(choices)};
}

// Words that may be left out; the attribute is sent all the same.
Argument flags(std::uint16_t attribute, std::string_view help, std::vector<Choice> choices) {
    return {.kind = Kind::flags,
            .attribute = attribute,
            .word = "",
            .name = "",
            .help = help,
            .optional = true,
            .choices = std::move(choices)};
}

// The value follows a keyword.
Argument after(std::string_view word, Argument argument) {
    argument.word = word;
    return argument;
}

// May be left out, and is not sent then.
Argument maybe(std::string_view word, Argument argument) {
    argument.word = word;
    argument.optional = true;
    return argument;
}

// May be left out, and means this then.
Argument otherwise(std::string_view fallback, std::string_view word, Argument argument) {
    argument.word = word;
    argument.fallback = fallback;
    return argument;
}

Argument perhaps(Argument argument) {
    argument.optional = true;
    return argument;
}

// At least one of the words must be said.
Argument said(Argument argument) {
    argument.optional = false;
    return argument;
}

constexpr std::uint32_t WHOLE = 0xFFFFFFFF;

// --- arguments that many rows share
// ---------------------------------------------------------------

Argument port(std::string_view name = "PORT") {
    return value(Kind::interface, TARNFWD_ATTR_IFINDEX, name,
                 "a port or an aggregator; several as p1,p2");
}

Argument any_interface() {
    return value(Kind::interface, TARNFWD_ATTR_IFINDEX, "INTERFACE", "an interface of the switch");
}

Argument vid(std::uint16_t attribute = TARNFWD_ATTR_VID, std::string_view name = "VID") {
    return value(Kind::vid, attribute, name, "the VLAN");
}

Argument some_vids() {
    return value(Kind::vid_or_bitmap, TARNFWD_ATTR_VID, "VIDS", "the VLANs, such as 10,20-30");
}

// A VLAN or 0.
Argument vid_or_0(std::string_view help) {
    return number(TARNFWD_ATTR_VID, "VID", 0, 4094, help);
}

Argument state(std::string_view help) {
    return value(Kind::on_off, TARNFWD_ATTR_STATE, "on|off", help);
}

Argument mac() {
    return value(Kind::mac, TARNFWD_ATTR_MAC, "MAC", "the MAC address");
}

Argument address() {
    return value(Kind::ipv4, TARNFWD_ATTR_IPV4_ADDR, "ADDRESS", "the IPv4 address");
}

Argument fib() {
    return number(TARNFWD_ATTR_ID, "FIB", 0, WHOLE, "the FIB's number");
}

Argument vrf() {
    return otherwise("0", "vrf", number(TARNFWD_ATTR_ID, "VRF", 0, WHOLE, "the VRF's number"));
}

Argument new_name() {
    return value(Kind::new_name, TARNFWD_ATTR_IF_NAME, "NAME",
                 "its name, of at most 15 characters");
}

Argument new_ifindex() {
    return after("ifindex", number(TARNFWD_ATTR_IFINDEX, "IFINDEX", 1, WHOLE,
                                   "its number, which nothing else has"));
}

std::vector<Choice> flag_words() {
    return {{"up", 0x1, "down"}, {"down", 0, "up"},  {"running", 0x40},   {"broadcast", 0x2},
            {"noarp", 0x80},     {"promisc", 0x100}, {"allmulti", 0x200}, {"multicast", 0x1000}};
}

Argument new_flags() {
    return flags(TARNFWD_ATTR_FLAGS, "its flags; it has link when it is up and running",
                 flag_words());
}

Argument creation_options(std::string_view what) {
    return flags(TARNFWD_ATTR_VLAN_OPTIONS, what,
                 {{"mirror", TARNFWD_VLAN_MIRROR},
                  {"local", TARNFWD_VLAN_LOCAL},
                  {"always-up", TARNFWD_VLAN_ALWAYS_UP}});
}

Argument vxlan_peer(std::uint16_t attribute, std::string_view name, std::string_view help) {
    return value(Kind::ipv4, attribute, name, help);
}

std::vector<Choice> stp_states() {
    return {{"disabled", TARNFWD_STP_DISABLED},
            {"listening", TARNFWD_STP_LISTENING},
            {"learning", TARNFWD_STP_LEARNING},
            {"forwarding", TARNFWD_STP_FORWARDING},
            {"blocking", TARNFWD_STP_BLOCKING}};
}

std::vector<Choice> auth_states() {
    return {{"block-in-out", TARNFWD_AUTH_BLOCK_IN_OUT},
            {"block-in", TARNFWD_AUTH_BLOCK_IN},
            {"unblock", TARNFWD_AUTH_UNBLOCK},
            {"uncontrolled", TARNFWD_AUTH_UNCONTROLLED},
            {"auto", TARNFWD_AUTH_AUTO}};
}

Argument instance() {
    return value(Kind::instances, TARNFWD_ATTR_STP_INSTANCE, "INSTANCES",
                 "spanning tree instances from 0 to 63, such as 0,5-7, or all");
}

Argument one_instance() {
    return after("instance", number(TARNFWD_ATTR_STP_INSTANCE, "INSTANCE", 0, 63,
                                    "the spanning tree instance"));
}

std::vector<Argument> mirror() {
    return {after("target", value(Kind::interface, TARNFWD_ATTR_MIRROR_TARGET, "PORT",
                                  "the port that gets the copies")),
            after("source", value(Kind::interface, TARNFWD_ATTR_MIRROR_SOURCE, "PORT",
                                  "the port that is mirrored")),
            otherwise("0", "vlan", vid_or_0("one VLAN alone, or 0 for all")),
            otherwise("tx", "direction",
                      choice(TARNFWD_ATTR_MIRROR_DIRECTION, "DIRECTION",
                             "which frames; the switch itself copies those that it sends",
                             {{"rx", 1}, {"tx", 2}, {"both", 3}}))};
}

std::vector<Argument> classifier() {
    return {port(), vid(),
            value(Kind::subnet, TARNFWD_ATTR_IPV4_ADDR, "SUBNET",
                  "the senders' network, such as 192.0.2.0/24")};
}

std::vector<Argument> translation() {
    return {port(), vid(TARNFWD_ATTR_XLATE_VID),
            number(TARNFWD_ATTR_XLATE_NEW_VID, "NEWVID", 0, 4094,
                   "what it becomes; 0 leaves it as it is")};
}

// The switch asks for an interface and an action, and looks at neither.
std::vector<Argument> stacking() {
    return {fixed(TARNFWD_ATTR_IFINDEX, 0), fixed(TARNFWD_ATTR_XLATE_MISS_ACTION, 0),
            value(Kind::vid, TARNFWD_ATTR_STACK_RULE_VID_A, "INNER", "the VLAN that rides inside"),
            value(Kind::vid, TARNFWD_ATTR_STACK_RULE_VID_B, "OUTER", "the VLAN that carries it")};
}

std::vector<Argument> vxlan(std::uint32_t on) {
    return {fixed(TARNFWD_ATTR_STATE, on), vid(),
            after("vni", number(TARNFWD_ATTR_VXLAN_VNI, "VNI", 0, 0xFFFFFF,
                                "the VXLAN network identifier")),
            after("remote", vxlan_peer(TARNFWD_ATTR_VXLAN_REMOTE_ADDR, "ADDRESS",
                                       "the far end of the tunnel")),
            after("local", vxlan_peer(TARNFWD_ATTR_VXLAN_LOCAL_ADDR, "ADDRESS",
                                      "the near end of the tunnel"))};
}

std::vector<Argument> flooding_group() {
    return {otherwise("0", "fib", fib()), vid(),
            value(Kind::ipv4, TARNFWD_ATTR_IPV4_ADDR, "GROUP", "the group's IPv4 address")};
}

std::vector<Argument> router_group(std::uint32_t operation) {
    return {vrf(),
            number(TARNFWD_ATTR_IPV4_ADDR, "GROUP", 0, 255, "the last byte of the group's address"),
            fixed(TARNFWD_ATTR_MC_ROUTER_OP, operation), fixed(TARNFWD_ATTR_MC_ROUTER_VALUE, 0)};
}

std::vector<Argument> pvlan_pair() {
    return {vid(TARNFWD_ATTR_PVLAN_PRIMARY_VID, "PRIMARY"),
            vid(TARNFWD_ATTR_PVLAN_SECONDARY_VID, "SECONDARY")};
}

std::vector<Argument> pvlan_port() {
    return {port(), vid(TARNFWD_ATTR_PVLAN_PRIMARY_VID, "PRIMARY"),
            vid(TARNFWD_ATTR_PVLAN_SECONDARY_VID, "SECONDARY")};
}

Argument rules(std::uint16_t attribute, std::string_view help) {
    return value(Kind::rules, attribute, "RULES", help);
}

Argument hooked(std::uint16_t attribute, std::string_view help) {
    return value(Kind::ports, attribute, "PORTS", help);
}

std::vector<Argument> no_lease(std::uint32_t operation, const Argument &which) {
    return {fixed(TARNFWD_ATTR_IFINDEX, 0), fixed(TARNFWD_ATTR_VID, 0),
            fixed(TARNFWD_ATTR_DHCPSN_LEASE_OP, operation), which, fixed(TARNFWD_ATTR_MAC, 0)};
}

std::vector<Argument> snooping(const Argument &which, std::uint32_t kind, std::uint32_t global) {
    return {which, fixed(TARNFWD_ATTR_DHCPSN_KIND, kind), state("whether it is on"),
            fixed(TARNFWD_ATTR_DHCPSN_GLOBAL, global)};
}

Argument whole_switch() {
    return fixed(TARNFWD_ATTR_VID, 0);
}

Argument name_of_port() {
    return value(Kind::word, 0, "PORT", "a port or an aggregator, by name");
}

Subcommand message(std::string_view words, int command, std::string_view help,
                   std::vector<Argument> arguments = {}, std::string_view example = {}) {
    return {.words = words,
            .action = Action::message,
            .command = command,
            .command_one = -1,
            .help = help,
            .arguments = std::move(arguments),
            .example = example};
}

// Several VLANs go by the first command, one alone by the second.
Subcommand message(std::string_view words, int several, int one, std::string_view help,
                   std::vector<Argument> arguments, std::string_view example = {}) {
    Subcommand row = message(words, several, help, std::move(arguments), example);
    row.command_one = one;
    return row;
}

Subcommand local(std::string_view words, Action action, std::string_view help,
                 std::vector<Argument> arguments = {}, std::string_view file = {},
                 std::string_view written = {}) {
    return {.words = words,
            .action = action,
            .command = -1,
            .command_one = -1,
            .help = help,
            .arguments = std::move(arguments),
            .file = file,
            .value = written};
}

Subcommand show(std::string_view words, std::string_view file, std::string_view help) {
    return local(words, Action::show, help, {}, file);
}

Subcommand show_port(std::string_view words, std::string_view file, std::string_view help) {
    return local(words, Action::show, help, {name_of_port()}, file);
}

Argument shown_name() {
    return perhaps(value(Kind::word, 0, "PORT", "one of them alone"));
}

Subcommand facts(std::string_view words, std::string_view what, std::string_view help,
                 std::vector<Argument> arguments = {}) {
    return local(words, Action::facts, help, std::move(arguments), what);
}

Subcommand set(std::string_view words, std::string_view file, std::string_view help,
               std::vector<Argument> arguments, std::string_view written) {
    return local(words, Action::set, help, std::move(arguments), file, written);
}

// --- the rows
// -------------------------------------------------------------------------------------

std::vector<Subcommand> rows_of_interfaces() {
    return {
        message("link add port", TARNFWD_CMD_IF_NEWLINK,
                "Declares a switch port. One that is there already stays as it is.",
                {new_ifindex(), new_name(), fixed(TARNFWD_ATTR_IF_KIND, TARNFWD_IF_KIND_PORT),
                 new_flags(), after("mac", mac()),
                 flags(TARNFWD_ATTR_PORT_KIND, "a routed port, with a device of its own",
                       {{"routed", TARNFWD_PORT_KIND_ROUTED}}),
                 maybe("member", number(TARNFWD_ATTR_STACK_MEMBER, "MEMBER", 0, WHOLE,
                                        "the member of the stack that it belongs to"))},
                "link add port port1 ifindex 5001 mac 02:00:00:00:01:01 up running"),
        message("link add lag", TARNFWD_CMD_IF_NEWLINK,
                "Declares an aggregator. Its ports join it by 'lag attach'.",
                {new_ifindex(), new_name(), fixed(TARNFWD_ATTR_IF_KIND, TARNFWD_IF_KIND_PORT),
                 fixed(TARNFWD_ATTR_FLAGS, 0), after("mac", mac()),
                 otherwise("static", "mode",
                           choice(TARNFWD_ATTR_PORT_KIND, "MODE",
                                  "static: it runs while a port of it runs; dynamic: when told so",
                                  {{"static", TARNFWD_PORT_KIND_AGG_STATIC},
                                   {"dynamic", TARNFWD_PORT_KIND_AGG_DYNAMIC}}))},
                "link add lag lag1 ifindex 4501 mac 02:00:00:00:02:01"),
        message("link add ethernet", TARNFWD_CMD_IF_NEWLINK,
                "Declares a device of the machine, found by its name, to the switch.",
                {new_ifindex(), new_name(), fixed(TARNFWD_ATTR_IF_KIND, TARNFWD_IF_KIND_ETHERNET),
                 new_flags(), after("mac", mac())},
                "link add ethernet eth0 ifindex 2 mac 02:00:00:00:03:01 up"),
        message("link set", TARNFWD_CMD_IF_UPDATE,
                "Sets the flags of a port, all at once, and what is known of its link.",
                {any_interface(), said(new_flags()),
                 maybe("speed", number(TARNFWD_ATTR_SPEED, "MBITS", 0, WHOLE, "in Mbit/s")),
                 maybe("duplex", choice(TARNFWD_ATTR_DUPLEX, "DUPLEX", "as the link has it",
                                        {{"half", 0}, {"full", 1}}))},
                "link set port1 up running speed 1000 duplex full"),
        message("link del", TARNFWD_CMD_IF_DELLINK, "Takes an interface away.", {any_interface()},
                "link del port1"),
        message("link mac", TARNFWD_CMD_IF_SET_HWADDR, "Sets the MAC address of an interface.",
                {any_interface(), mac()}, "link mac vlan10 02:00:00:00:00:0a"),
        message("link routed", TARNFWD_CMD_PORT_SET_L3,
                "Makes a port a routed one with that VLAN, or with 0 a switch port again.",
                {port(), vid_or_0("the VLAN, or 0")}, "link routed port1 100"),
        facts("link show", "interfaces", "The same as 'show interfaces'.", {shown_name()}),
        message("fib bind", TARNFWD_CMD_IF_BIND_FIB, "Makes a layer 3 interface one of a FIB.",
                {any_interface(), fib()}, "fib bind vlan10 1"),
        message("fib unbind", TARNFWD_CMD_IF_UNBIND_FIB,
                "Takes a layer 3 interface out of a FIB that it belongs to.",
                {any_interface(), fib()}, "fib unbind vlan10 1"),
    };
}

std::vector<Subcommand> rows_of_vlans() {
    return {
        message(
            "vlan add", TARNFWD_CMD_IF_CREATE_SVI_RANGE,
            "Makes VLANs with their interfaces vlanVID. One that is there already stays as it is. "
            "Of "
            "a range, the switch goes on where one fails, and answers for the last.",
            {value(Kind::vid_ranges, TARNFWD_ATTR_VID_START, "VIDS", "the VLANs, such as 10,20-30"),
             creation_options("mirror: a remote mirror VLAN; local: of this stack member alone; "
                              "always-up: up without a port that is"),
             otherwise("02:00:00:00:00:01", "mac", mac())},
            "vlan add 10-20 mac 02:00:00:00:00:01"),
        message("vlan del", TARNFWD_CMD_IF_DELETE_SVI, "Takes VLANs and their interfaces away.",
                {value(Kind::vlan_interfaces, TARNFWD_ATTR_IFINDEX, "VIDS",
                       "the VLANs, such as 10,20-30")},
                "vlan del 10-20"),
        message(
            "vlan options", TARNFWD_CMD_IF_SET_VLAN_OPTIONS,
            "Sets the options of a VLAN, all at once: those not said are off.",
            {value(Kind::vlan_interface, TARNFWD_ATTR_IFINDEX, "VID", "the VLAN"),
             flags(TARNFWD_ATTR_VLAN_OPTIONS,
                   "always-up: up without a port that is; no-member-check: frames from any port "
                   "belong to it",
                   {{"always-up", TARNFWD_VLAN_ALWAYS_UP},
                    {"no-member-check", TARNFWD_VLAN_NO_MEMBER_CHECK}})},
            "vlan options 10 always-up"),
        message("vlan member add", TARNFWD_CMD_VLAN_ADD_VID_BMP_TO_PORT,
                TARNFWD_CMD_VLAN_ADD_PORT_DYNAMIC, "Makes a port a member of VLANs.",
                {port(),
                 flags(TARNFWD_ATTR_TAGGED, "the port's frames carry a tag", {{"tagged", 1}}),
                 some_vids()},
                "vlan member add port1 10,20-30 tagged"),
        message("vlan member del", TARNFWD_CMD_VLAN_DELETE_VID_BMP_FROM_PORT,
                TARNFWD_CMD_VLAN_DELETE_PORT_DYNAMIC, "Takes a port out of VLANs.",
                {port(), some_vids()}, "vlan member del port1 10,20-30"),
        message("vlan pvid", TARNFWD_CMD_VLAN_SET_DEFAULT_PVID,
                "Sets the VLAN of a port's untagged frames.", {port(), vid()},
                "vlan pvid port1 10"),
        message("vlan filter", TARNFWD_CMD_PORT_SET_VLAN_INGRESS_FILTER,
                "Refuses frames of VLANs that the port is no member of, or takes them.",
                {port(), state("whether they are refused")}, "vlan filter port1 on"),
        message("vlan port-state", TARNFWD_CMD_VLAN_PORT_STATE_BMP, TARNFWD_CMD_VLAN_PORT_STATE,
                "Opens a port for VLANs, or shuts it.",
                {port(), some_vids(), state("on: it carries them")},
                "vlan port-state port1 10 off"),
        message("vlan classifier add", TARNFWD_CMD_VLAN_CLASSIFIER_ADD,
                "Puts untagged frames from a subnet into a VLAN.", classifier(),
                "vlan classifier add port1 10 192.0.2.0/24"),
        message("vlan classifier del", TARNFWD_CMD_VLAN_CLASSIFIER_DELETE, "Ends that.",
                classifier(), "vlan classifier del port1 10 192.0.2.0/24"),
        message(
            "vlan translate add", TARNFWD_CMD_VLAN_XLATE_ADD_TO_PORT,
            "Takes frames of one VLAN for those of another. The first rule of a VLAN stays until "
            "it is deleted.",
            translation(), "vlan translate add port1 10 20"),
        message("vlan translate del", TARNFWD_CMD_VLAN_XLATE_DELETE_FROM_PORT, "Ends that.",
                translation(), "vlan translate del port1 10 20"),
        message(
            "vlan translate miss", TARNFWD_CMD_VLAN_XLATE_SET_MISS_ACTION_TO_PORT,
            "Says what becomes of frames that no translation rule finds. The switch keeps it for "
            "the chip.",
            {port(), number(TARNFWD_ATTR_XLATE_MISS_ACTION, "ACTION", 0, 255,
                            "in the chip's "
                            "numbers")},
            "vlan translate miss port1 1"),
        message("vlan stack add", TARNFWD_CMD_VLAN_STACK_RULE_ADD,
                "Lets a VLAN ride inside another.", stacking(), "vlan stack add 10 100"),
        message("vlan stack del", TARNFWD_CMD_VLAN_STACK_RULE_DELETE, "Ends that.", stacking(),
                "vlan stack del 10 100"),
        message("vxlan add", TARNFWD_CMD_IF_SET_VXLAN_CONFIG, "Gives a VLAN a VXLAN tunnel.",
                vxlan(1), "vxlan add 10 vni 5000 remote 192.0.2.2 local 192.0.2.1"),
        message("vxlan del", TARNFWD_CMD_IF_SET_VXLAN_CONFIG, "Takes it away.", vxlan(0),
                "vxlan del 10 vni 5000 remote 192.0.2.2 local 192.0.2.1"),
        message("pvlan type", TARNFWD_CMD_PVLAN_SET_VLAN_TYPE,
                "Sets the private VLAN type of a VLAN.",
                {vid(), choice(TARNFWD_ATTR_PVLAN_TYPE, "TYPE", "what kind of VLAN it is",
                               {{"none", 0}, {"community", 1}, {"isolated", 2}, {"primary", 3}})},
                "pvlan type 10 primary"),
        message("pvlan associate", TARNFWD_CMD_PVLAN_VLAN_ASSOCIATE,
                "Puts a secondary VLAN under a primary one.", pvlan_pair(),
                "pvlan associate 10 11"),
        message("pvlan dissociate", TARNFWD_CMD_PVLAN_VLAN_DISSOCIATE, "Takes it away from there.",
                pvlan_pair(), "pvlan dissociate 10 11"),
        message("pvlan port add", TARNFWD_CMD_PVLAN_PORT_ADD,
                "Puts a port into an association, as its mode says.", pvlan_port(),
                "pvlan port add port1 10 11"),
        message("pvlan port del", TARNFWD_CMD_PVLAN_PORT_DELETE, "Takes it out.", pvlan_port(),
                "pvlan port del port1 10 11"),
        message("pvlan mode", TARNFWD_CMD_PVLAN_SET_PORT_MODE,
                "Sets the private VLAN mode of a port, for the VLANs that it is a member of now.",
                {port(), choice(TARNFWD_ATTR_PVLAN_PORT_MODE, "MODE", "3 is promiscuous too",
                                {{"host", 1}, {"promiscuous", 2}})},
                "pvlan mode port1 promiscuous"),
        message("pvlan forwarding", TARNFWD_CMD_PVLAN_SET_VLAN_FORWARDING,
                "Restricts a VLAN to traffic with its upstream interfaces, or frees it.",
                {vid(), choice(TARNFWD_ATTR_PVLAN_FORWARDING, "MODE", "what passes",
                               {{"upstream", 0}, {"free", 1}})},
                "pvlan forwarding 10 upstream"),
        message("pvlan upstream", TARNFWD_CMD_PVLAN_UFO_UPSTREAM_IF_UPDATE,
                "Adds and deletes upstream interfaces of VLANs. What names nothing is passed over.",
                {value(Kind::upstream, TARNFWD_ATTR_PVLAN_UPSTREAM_LIST, "LIST",
                       "add:VID:INTERFACE or del:VID:INTERFACE, joined by commas")},
                "pvlan upstream add:10:port1,del:10:port2"),
    };
}

std::vector<Subcommand> rows_of_lags_and_trees() {
    return {
        message("lag attach", TARNFWD_CMD_LACP_ATTACH_MUX_TO_AGGREGATOR,
                "Joins a port to an aggregator, which takes over its VLANs.",
                {port(), value(Kind::interface, TARNFWD_ATTR_AGG_IFINDEX, "LAG", "the aggregator")},
                "lag attach port1 lag1"),
        message("lag detach", TARNFWD_CMD_LACP_DETACH_MUX_FROM_AGGREGATOR,
                "Takes a port out of an aggregator.",
                {port(), value(Kind::interface, TARNFWD_ATTR_AGG_IFINDEX, "LAG", "the aggregator")},
                "lag detach port1 lag1"),
        message("lag del", TARNFWD_CMD_LACP_DELETE_AGGREGATOR, "Takes an aggregator away.",
                {value(Kind::interface, TARNFWD_ATTR_AGG_IFINDEX, "LAG", "the aggregator")},
                "lag del lag1"),
        show_port("lag show", "{}/members", "Shows the ports of an aggregator."),
        message("stp vlan add", TARNFWD_CMD_STP_ADD_VLAN_TO_INSTANCE,
                "Puts VLANs into a spanning tree instance.",
                {value(Kind::vids, TARNFWD_ATTR_VID, "VIDS", "the VLANs, such as 10,20-30"),
                 one_instance()},
                "stp vlan add 10 instance 1"),
        message("stp vlan del", TARNFWD_CMD_STP_DELETE_VLAN_FROM_INSTANCE,
                "Puts VLANs back into instance 0.",
                {value(Kind::vids, TARNFWD_ATTR_VID, "VIDS", "the VLANs, such as 10,20-30")},
                "stp vlan del 10"),
        message("stp state", TARNFWD_CMD_STP_SET_PORT_STATE,
                "Sets the spanning tree state of a port. A new port is blocking in all instances.",
                {port(), otherwise("0", "instance", instance()),
                 choice(TARNFWD_ATTR_STP_STATE, "STATE", "the state", stp_states())},
                "stp state port1 forwarding instance all"),
        show_port("stp show", "{}/bridge",
                  "Shows the spanning tree state of a port in every instance."),
        message("mirror add", TARNFWD_CMD_PMIRROR_SET, "Copies what a port sends to another.",
                mirror(), "mirror add source port1 target port2"),
        message("mirror del", TARNFWD_CMD_PMIRROR_UNSET, "Ends that.", mirror(),
                "mirror del source port1 target port2"),
    };
}

std::vector<Subcommand> rows_of_neighbours_and_multicast() {
    return {
        message(
            "neigh flush port", TARNFWD_CMD_NBR_DEL_BY_VLAN_AND_PORT,
            "Forgets the neighbours that were learned on a port.",
            {otherwise("all", "family",
                       choice(TARNFWD_ATTR_FAMILY, "FAMILY", "which neighbours",
                              {{"all", 0}, {"ipv4", 2}, {"ipv6", 10}})),
             otherwise("any", "vlan",
                       number(TARNFWD_ATTR_ID, "VID", 1, 4094, "their VLAN", {{"any", WHOLE}})),
             value(Kind::interface, TARNFWD_ATTR_PORT_IFINDEX, "PORT", "where they were learned"),
             otherwise("0", "dev", any_interface())},
            "neigh flush port port1 vlan 10 family ipv4"),
        message("neigh flush mac", TARNFWD_CMD_ARP_DEL_ALL_BY_MAC,
                "Forgets the neighbours with a MAC address in a VLAN.",
                {otherwise("0", "dev", any_interface()),
                 after("vlan", number(TARNFWD_ATTR_ID, "VID", 1, 4094, "their VLAN")), mac()},
                "neigh flush mac 02:00:00:00:09:01 vlan 10"),
        message("neigh moved", TARNFWD_CMD_NBR_DEL_BY_VLAN_MAC,
                "Tells that a neighbour is to be found elsewhere now.", {any_interface(), mac()},
                "neigh moved vlan10 02:00:00:00:09:01"),
        message("arp mac-disparity", TARNFWD_CMD_ARP_MAC_DISPARITY,
                "Accepts ARP whose sender's MAC address is a group's, or refuses it.",
                {any_interface(), state("whether it is accepted")}, "arp mac-disparity vlan10 on"),
        message("igmp group add", TARNFWD_CMD_IGMP_SNOOPING_ROUTERMODE,
                "Takes a group for one of routers' protocols.",
                router_group(TARNFWD_MC_ROUTER_SET_GROUP), "igmp group add 5"),
        message("igmp group del", TARNFWD_CMD_IGMP_SNOOPING_ROUTERMODE, "Ends that.",
                router_group(TARNFWD_MC_ROUTER_CLEAR_GROUP), "igmp group del 5"),
        message("igmp router-mode", TARNFWD_CMD_IGMP_SNOOPING_ROUTERMODE,
                "Sets the router mode of a VRF.",
                {vrf(), fixed(TARNFWD_ATTR_IPV4_ADDR, 0),
                 fixed(TARNFWD_ATTR_MC_ROUTER_OP, TARNFWD_MC_ROUTER_SET_MODE),
                 number(TARNFWD_ATTR_MC_ROUTER_VALUE, "MODE", 0, 255, "the mode")},
                "igmp router-mode 1"),
        message(
            "igmp vrf add", TARNFWD_CMD_IGMP_SNOOPING_ROUTERMODE_DB,
            "Keeps a router mode for a VRF.",
            {number(TARNFWD_ATTR_ID, "VRF", 0, WHOLE, "its number"), fixed(TARNFWD_ATTR_STATE, 1)},
            "igmp vrf add 1"),
        message(
            "igmp vrf del", TARNFWD_CMD_IGMP_SNOOPING_ROUTERMODE_DB, "Keeps it no longer.",
            {number(TARNFWD_ATTR_ID, "VRF", 0, WHOLE, "its number"), fixed(TARNFWD_ATTR_STATE, 0)},
            "igmp vrf del 1"),
        message("multicast stop-unregistered", TARNFWD_CMD_STOP_UNREG_MC_FLOODING,
                "Stops the flooding of multicast that nobody asked for, or lets it go on.",
                {state("on: it is not flooded")}, "multicast stop-unregistered on"),
        message("multicast rate-limit", TARNFWD_CMD_MULTICAST_RATELIMIT,
                "Limits the unregistered multicast that reaches the CPU.",
                {number(TARNFWD_ATTR_MC_RATE_LIMIT, "FRAMES", 0, WHOLE,
                        "in 100 ticks of the kernel's clock; 0: no limit")},
                "multicast rate-limit 50"),
        message("multicast group add", TARNFWD_CMD_IPV4_MC_FLOODING_GROUP_ADD,
                "Floods a group in a VLAN.", flooding_group(),
                "multicast group add 10 224.0.1.129"),
        message("multicast group del", TARNFWD_CMD_IPV4_MC_FLOODING_GROUP_REMOVE, "Ends that.",
                flooding_group(), "multicast group del 10 224.0.1.129"),
        message("multicast group flush", TARNFWD_CMD_IPV4_MC_FLOODING_GROUP_FLUSH,
                "Ends it for all groups."),
        message("mroute ipv4 add", TARNFWD_CMD_IPV4_MC_VIF_ADD,
                "Routes IPv4 multicast on an interface.", {any_interface()},
                "mroute ipv4 add vlan10"),
        message("mroute ipv4 del", TARNFWD_CMD_IPV4_MC_VIF_DEL, "Ends that.", {any_interface()},
                "mroute ipv4 del vlan10"),
        message("mroute ipv4 software", TARNFWD_CMD_IPV4_MC_SOFTWARE_ROUTING_SET,
                "Routes IPv4 multicast in software, or leaves it to the chip.",
                {state("whether in software")}, "mroute ipv4 software on"),
        message("mroute ipv6 add", TARNFWD_CMD_IPV6_MC_VIF_ADD,
                "Routes IPv6 multicast on an interface.", {any_interface()},
                "mroute ipv6 add vlan10"),
        message("mroute ipv6 del", TARNFWD_CMD_IPV6_MC_VIF_DEL, "Ends that.", {any_interface()},
                "mroute ipv6 del vlan10"),
        message("mroute ipv6 software", TARNFWD_CMD_IPV6_MC_SOFTWARE_ROUTING_SET,
                "Routes IPv6 multicast in software, or leaves it to the chip.",
                {state("whether in software")}, "mroute ipv6 software on"),
    };
}

std::vector<Subcommand> rows_of_security() {
    return {
        message("auth port", TARNFWD_CMD_AUTH_SET_PORT_STATE,
                "Sets how a port treats stations that are not admitted.",
                {port(), choice(TARNFWD_ATTR_AUTH_PORT_STATE, "STATE", "the state", auth_states()),
                 otherwise("none", "method",
                           bits(TARNFWD_ATTR_AUTH_METHOD, "METHODS", "the ways to authenticate",
                                {{"mac", 1}, {"dot1x", 2}, {"web", 4}}))},
                "auth port port1 auto method mac,dot1x"),
        message(
            "auth web", TARNFWD_CMD_AUTH_WEB_CONFIG,
            "Says where Web authentication listens, and which ports lead there.",
            {address(),
             after("port", number(TARNFWD_ATTR_AUTH_WEB_PORT, "PORT", 0, 65535,
                                  "the TCP port where it listens")),
             otherwise(
                 "0", "port2",
                 number(TARNFWD_ATTR_AUTH_WEB_PORT2, "PORT", 0, 65535, "a second one; 0: none")),
             otherwise("off", "dhcpd", state("whether it serves DHCP and DNS itself")),
             otherwise("none", "http",
                       hooked(TARNFWD_ATTR_AUTH_HTTP_PORTS, "TCP ports of HTTP that lead there")),
             otherwise(
                 "none", "https",
                 hooked(TARNFWD_ATTR_AUTH_HTTPS_PORTS, "TCP ports of HTTPS that lead there"))},
            "auth web 192.0.2.1 port 8080 http 80,8000 https 443"),
        message("auth forward", TARNFWD_CMD_AUTH_FWD_CONFIG,
                "Says what stations may reach that are not admitted; all of it at once.",
                {port(), otherwise("0", "guest-vlan", vid_or_0("the VLAN of guests; 0: none")),
                 otherwise("off", "arp", state("whether their ARP passes")),
                 otherwise("none", "guest-rules",
                           rules(TARNFWD_ATTR_AUTH_GUEST_FWD_RULES, "what guests may reach")),
                 otherwise("none", "rules",
                           rules(TARNFWD_ATTR_AUTH_FWD_RULES, "what the others may reach"))},
                "auth forward port1 arp on rules 192.0.2.0/24:80/tcp,192.0.2.53/32:53/udp"),
        message("auth supplicant set", TARNFWD_CMD_AUTH_SET_SUPP_STATE,
                "Admits a station to a VLAN, or no longer.",
                {port(), after("vlan", vid()), after("admitted", state("whether it is")), mac()},
                "auth supplicant set port1 02:00:00:00:09:01 vlan 10 admitted on"),
        message("auth supplicant del", TARNFWD_CMD_AUTH_DEL_SUPP, "Forgets a station.",
                {port(), mac()}, "auth supplicant del port1 02:00:00:00:09:01"),
        message("auth supplicant ageout", TARNFWD_CMD_AUTH_MAC_AGEOUT_INCOMPLETE,
                "Marks a station whose ageing is not concluded.",
                {port(), after("incomplete", state("whether it is not")), mac()},
                "auth supplicant ageout port1 02:00:00:00:09:01 incomplete on"),
        show_port("auth show", "{}/auth",
                  "Shows the state, the methods and the guest VLAN of a port."),
        show_port("auth forward-show", "{}/authfwd", "Shows what may be reached on a port."),
        show_port("auth supplicant show", "{}/authsupp", "Shows stations of a port, nine at most."),
        show("auth web-show", "authglobal", "Shows where Web authentication listens."),
        message("dhcp lease add", TARNFWD_CMD_DHCPSN_LEASE, "Tells a lease to DHCP snooping.",
                {port(), vid(), fixed(TARNFWD_ATTR_DHCPSN_LEASE_OP, TARNFWD_LEASE_ADD), address(),
                 mac()},
                "dhcp lease add port1 10 192.0.2.9 02:00:00:00:09:01"),
        message("dhcp lease del", TARNFWD_CMD_DHCPSN_LEASE, "Takes it back.",
                no_lease(TARNFWD_LEASE_DELETE, address()), "dhcp lease del 192.0.2.9"),
        message("dhcp lease flush", TARNFWD_CMD_DHCPSN_LEASE, "Takes all of them back.",
                no_lease(TARNFWD_LEASE_FLUSH, fixed(TARNFWD_ATTR_IPV4_ADDR, 0))),
        show("dhcp lease show", "arpsecdb", "Shows the leases."),
        message("dhcp snooping vlan", TARNFWD_CMD_DHCPSN_STATE, "Snoops DHCP in a VLAN, or not.",
                snooping(vid(), 0, 0), "dhcp snooping vlan 10 on"),
        message("dhcp snooping global", TARNFWD_CMD_DHCPSN_STATE,
                "Snoops DHCP on the switch as a whole, or in no VLAN.",
                snooping(whole_switch(), 0, 1), "dhcp snooping global on"),
        message("dhcp trust", TARNFWD_CMD_DHCPSN_TRUST,
                "Trusts DHCP servers behind a port, or not. Port 0 with off: no port any more.",
                {port(), state("whether it is trusted")}, "dhcp trust port1 on"),
        message("dhcp flood", TARNFWD_CMD_DHCPSN_L2_FLOODING_STATE,
                "Floods DHCP frames in a VLAN, or not.", {vid(), state("whether they are flooded")},
                "dhcp flood 10 on"),
        message("arp security vlan", TARNFWD_CMD_DHCPSN_STATE,
                "Holds ARP in a VLAN against the leases, or not.", snooping(vid(), 1, 0),
                "arp security vlan 10 on"),
        message("arp security global", TARNFWD_CMD_DHCPSN_STATE,
                "Turns ARP security on, or off in all VLANs.", snooping(whole_switch(), 1, 0),
                "arp security global on"),
        message("arp security debug", TARNFWD_CMD_DHCPSN_STATE,
                "Logs what ARP security does, or not.", snooping(whole_switch(), 2, 0),
                "arp security debug on"),
        message("arp security action", TARNFWD_CMD_DHCPSN_ARPSEC_ACTION,
                "Says what follows a violation of ARP security on a port.",
                {port(), bits(TARNFWD_ATTR_ARPSEC_ACTION, "BITS",
                              "bits 0 to 3; the switch acts on bit3, the others are the daemon's",
                              {{"bit0", 1}, {"bit1", 2}, {"bit2", 4}, {"bit3", 8}})},
                "arp security action port1 bit3"),
        show("arp security show", "arpseccnt", "Shows the counters of ARP security."),
        set("arp security clear", "arpseccnt", "Clears the counters of ARP security.", {}, "0\n"),
    };
}

std::vector<Subcommand> rows_of_the_rest() {
    return {
        message("ryke control-vlan", TARNFWD_CMD_RYKE_SET_CTRL_VLAN,
                "Makes a VLAN a control VLAN of the ring protocol, or an ordinary one.",
                {vid(), state("whether it is one")}, "ryke control-vlan 100 on"),
        message("udld enable", TARNFWD_CMD_UDLD_ENABLED, "Turns link detection on or off.",
                {state("whether it is on")}, "udld enable on"),
        message("udld filter", TARNFWD_CMD_UDLD_SET_HW_FILTER,
                "Tells that the chip filters a port for link detection, or does not.",
                {port(), state("whether it does")}, "udld filter port1 on"),
        message("vornappsd add", TARNFWD_CMD_VORNAPPSD_REDIRECT_ADD_IP_ADDRESS,
                "Takes management connections to an address to the IP stack.", {address()},
                "vornappsd add 192.0.2.1"),
        message("vornappsd del", TARNFWD_CMD_VORNAPPSD_REDIRECT_REMOVE_IP_ADDRESS, "Ends that.",
                {address()}, "vornappsd del 192.0.2.1"),
        message("fdb set", TARNFWD_CMD_L2_FDB_SET,
                "A command that the switch always refuses, kept for its number."),
        message("stack vlan create", TARNFWD_CMD_STACK_MGMT_VLAN_CREATE,
                "Makes the management VLAN of the stack.", {vid(), after("mac", mac())},
                "stack vlan create 4090 mac 02:00:00:00:00:01"),
        message("stack vlan destroy", TARNFWD_CMD_STACK_MGMT_VLAN_DESTROY, "Takes it away."),
        message("stack vlan state", TARNFWD_CMD_STACK_MGMT_VLAN_SET_STATE, "Brings it up, or down.",
                {state("on: up")}, "stack vlan state on"),
    };
}

std::vector<Subcommand> rows_of_views() {
    return {
        facts("show interfaces", "interfaces",
              "Shows every interface: its state, its device with its speed, its VLANs, spanning "
              "tree and aggregator. In brackets: VLANs of which it is not told whether it is "
              "tagged there. With --statistics: frames, rates and drops.",
              {shown_name()}),
        facts("show vlans", "vlans", "Shows every VLAN with its ports and options."),
        facts("show fdb", "fdb", "Shows the addresses of the software chip.",
              {maybe("vlan", number(0, "VID", 1, 4094, "those of one VLAN")),
               maybe("port", value(Kind::word, 0, "PORT", "those on one port"))}),
        facts("show lag", "lag", "Shows the aggregators with their ports."),
        facts("show stp", "stp", "Shows which port is in which spanning tree state, and where.",
              {shown_name()}),
        facts("show running", "running",
              "Shows the batch that would make this switch again: what it is told by tarnctl, as "
              "far as it tells. 'tarnctl --batch' runs it."),
        show("show counters", "pktcounts", "Shows what each redirect did with received frames."),
        show("show counters rx-modify", "rxmodifycounts",
             "Shows what the hooks saw that change received frames."),
        show("show counters tx-modify", "txmodifycounts",
             "Shows what the hooks saw that change frames on their way out."),
        local("show redirects", Action::redirect, "Shows which redirects are enabled."),
        local("show sockets", Action::sockets, "The same as 'sockets'."),
        show("show refcounts", "refcounts", "Shows interfaces that somebody holds a reference to."),
        show("show memory", "meminfo", "Shows free memory, and how often a port joined a VLAN."),
        show("show subnet-vlans", "subnetvlan", "Shows how many subnets each port classifies."),
        show("show last-post", "pktdebugpostinfo", "Shows what the last posted frame was."),
        show_port("show openflow", "{}/openflow", "Shows whether a port is OpenFlow's."),
        show_port("show disabled-vlans", "{}/disablevlans",
                  "Shows the word that shuts all VLANs of a port."),
        local("redirect enable", Action::redirect, "Enables a redirect.",
              {value(Kind::word, 0, "NAME", "as 'show redirects' names it")},
              "redirectprotocolenable"),
        local("redirect disable", Action::redirect, "Disables a redirect.",
              {value(Kind::word, 0, "NAME", "as 'show redirects' names it")},
              "redirectprotocoldisable"),
        set("counters clear", "clearpktcount", "Clears the counters of every redirect.", {}, "0\n"),
        set("counters hide", "hidecounter",
            "Leaves redirects that are for one protocol out of 'show counters', or shows them "
            "again.",
            {value(Kind::word, 0, "NAME", "as 'show redirects' names it")}, "{}\n"),
        set("debug log", "pktdebug", "Logs frames: 1 received, 2 sent, 3 both, 0 none.",
            {number(0, "WHICH", 0, 3, "which frames")}, "{}\n"),
        set("debug vlan", "pktdebugvlan", "Logs frames of one VLAN alone; 0: of all.",
            {number(0, "VID", 0, 4094, "the VLAN")}, "{}\n"),
        set("debug posts", "pktdebugpostenable", "Remembers what was posted last.",
            {number(0, "VALUE", 0, 255, "0: no; 1: yes")}, "{}\n"),
        set("debug burst", "pktdebugratelimitburst", "Limits the log to so many lines at once.",
            {number(0, "LINES", 0, 999999, "how many")}, "{}\n"),
        set("debug interval", "pktdebugratelimitinterval",
            "Limits the log to that burst in a time.",
            {number(0, "TICKS", 0, 999999, "of the kernel's clock")}, "{}\n"),
        set("openflow port", "{}/openflow", "Gives a port to OpenFlow, or takes it back.",
            {name_of_port(), number(0, "VALUE", 0, 99, "0: not OpenFlow's")}, "{}\n"),
        set("vlan shut-all", "{}/disablevlans", "Shuts a port for all VLANs (1), or opens it.",
            {name_of_port(), number(0, "VALUE", 0, 9, "1: shut")}, "{}\n"),
        local("proc read", Action::proc_read, "Prints a file of the proc tree as it is.",
              {value(Kind::word, 0, "FILE", "its path, such as ifdb or port1/auth")}),
        local("proc write", Action::proc_write, "Writes a line to a file of the proc tree.",
              {value(Kind::word, 0, "FILE", "its path, such as pktdebug"),
               value(Kind::text, 0, "TEXT", "the line")}),
        local(
            "monitor", Action::monitor,
            "Prints the events of the switch, and what changes of its links, VLANs, spanning tree "
            "and configuration, one line each with its time. Changes are looked for every second.",
            {otherwise("0", "count",
                       number(0, "EVENTS", 0, WHOLE, "ends after so many; 0: never"))}),
        local(
            "sockets", Action::sockets,
            "Shows who listens on the sockets of protocols, what waits there, and what was lost."),
        local("trace", Action::trace,
              "Prints what redirects decide about frames, and why, as they do.",
              {perhaps(value(Kind::text, 0, "WHICH",
                             "port NAME, redirect NAME, drops, count N, seconds N"))}),
        local("explain", Action::explain,
              "Tells where a frame would go, through chip and core, and why, without sending it.",
              {value(Kind::word, 0, "PORT", "where it comes in, by name or ifindex"),
               value(Kind::text, 0, "HEX",
                     "the frame, two hexadecimal digits a byte, without its checksum")}),
    };
}

// What stands in brackets may be left out.
std::vector<Argument> rest_of(const chip_word &word) {
    std::string_view usage = word.arguments;
    if (usage.empty())
        return {};
    if (word.least > 1)
        return {value(Kind::text, 0, usage, "as the chip reads it")};
    return {perhaps(value(Kind::text, 0, usage.substr(1, usage.size() - 2), "one alone"))};
}

// The software chip of tarn-switch has words of its own.
std::vector<Subcommand> rows_of_the_chip() {
    static const std::vector<std::string> words = [] {
        std::vector<std::string> all;
        for (const chip_word &word : CHIP_WORDS)
            all.push_back(std::string("chip ") + word.name);
        return all;
    }();
    std::vector<Subcommand> rows;
    for (std::size_t i = 0; i < words.size(); i++)
        rows.push_back(local(words[i], Action::chip, CHIP_WORDS[i].help, rest_of(CHIP_WORDS[i])));
    return rows;
}

void append(std::vector<Subcommand> &all, std::vector<Subcommand> rows) {
    for (Subcommand &row : rows)
        all.push_back(std::move(row));
}

std::vector<Subcommand> all_rows() {
    std::vector<Subcommand> all;
    append(all, rows_of_interfaces());
    append(all, rows_of_vlans());
    append(all, rows_of_lags_and_trees());
    append(all, rows_of_neighbours_and_multicast());
    append(all, rows_of_security());
    append(all, rows_of_the_rest());
    append(all, rows_of_views());
    append(all, rows_of_the_chip());
    return all;
}

} // namespace

const std::vector<Subcommand> &subcommands() {
    static const std::vector<Subcommand> rows = all_rows();
    return rows;
}

const std::vector<Topic> &topics() {
    static const std::vector<Topic> all{
        {"link", "ports, aggregators and devices of the machine"},
        {"vlan", "VLANs, their members and the rules that choose them"},
        {"lag", "aggregators and their ports"},
        {"stp", "spanning tree states"},
        {"mirror", "copies of what a port sends"},
        {"neigh", "neighbours of the IP stack"},
        {"pvlan", "private VLANs"},
        {"vxlan", "tunnels of VLANs"},
        {"fib", "which routing tables interfaces belong to"},
        {"arp", "ARP and its security"},
        {"dhcp", "DHCP snooping and its leases"},
        {"auth", "port authentication"},
        {"igmp", "IGMP snooping"},
        {"multicast", "flooding and limits of multicast"},
        {"mroute", "multicast routing"},
        {"ryke", "the ring protocol"},
        {"udld", "detection of links that work one way"},
        {"vornappsd", "addresses of management connections"},
        {"openflow", "ports of OpenFlow"},
        {"fdb", "the chip's address table"},
        {"stack", "the stack's management VLAN"},
        {"redirect", "redirects on and off"},
        {"counters", "counters of redirects"},
        {"debug", "the log of frames"},
        {"show", "what the switch knows"},
        {"proc", "the proc tree, file by file"},
        {"monitor", "events as they come"},
        {"sockets", "daemons on the sockets of protocols"},
        {"trace", "decisions about frames as they are made"},
        {"explain", "where a frame would go"},
        {"chip", "the software chip of tarn-switch"},
    };
    return all;
}

} // namespace tarnctl
