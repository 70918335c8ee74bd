#include "switch/live_switch.h"

#include "chip.h"
#include "config/config.h"
#include "control.h"
#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_change.h"
#include "ifmgr/tarn_ifmgr_create.h"
#include "ifmgr/tarn_ifmgr_link.h"
#include "ifmgr/tarn_ifmgr_settings.h"
#include "kernel/log.h"
#include "kernel/netdev.h"
#include "kernel/once.h"
#include "machine/machine.h"
#include "machine/proc_fuse.h"
#include "module/tarn_module.h"
#include "netlink.h"
#include "pkt/pkt_debug.h"
#include "pkt/pkt_redirect.h"
#include "switch/explain_frame.h"
#include "userlevel/chip_home.h"
#include "vlan/vlan_member.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <map>
#include <sstream>

namespace live {

namespace {

constexpr const char *PROC_DIRECTORY = "tarn";
constexpr u32 FIRST_PORT_IFINDEX = 5000;
constexpr u32 PORT_FLAGS = IFF_UP | IFF_BROADCAST;

std::vector<PortOption> ports;
std::vector<unsigned> vids;
std::map<std::string, bool> links; // of the machine's devices

using Address = std::array<u8, 6>;

bool parse_address(const std::string &text, Address &address) {
    unsigned bytes[6];
    char rest;
    if (std::sscanf(text.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x%c", &bytes[0], &bytes[1], &bytes[2],
                    &bytes[3], &bytes[4], &bytes[5], &rest) != 6)
        return false;
    for (std::size_t i = 0; i < address.size(); i++)
        address[i] = static_cast<u8>(bytes[i]);
    return (address[0] & 1) == 0;
}

u32 ifindex_of(const std::string &port) {
    for (std::size_t k = 0; k < ports.size(); k++)
        if (ports[k].name == port)
            return FIRST_PORT_IFINDEX + 1 + static_cast<u32>(k);
    return 0;
}

std::string held_by_another(const std::string &line) {
    std::istringstream words(line);
    std::string word, ifindex, device;
    words >> word >> ifindex >> device;
    int holder = chip_home_holder(device.c_str());
    return fmt::format("'{}' is a port of another switch{}; stop it, or choose another device\n",
                       device, holder != 0 ? fmt::format(", process {}", holder) : "");
}

std::string chip(const std::string &line, bool *ok = nullptr) {
    thread_local std::vector<char> reply(CHIP_REPLY);
    int result = chip_command(line.c_str(), reply.data(), reply.size());
    if (ok)
        *ok = result == 0;
    if (result == -EPERM)
        return "no right to open packet sockets (CAP_NET_RAW): run it as root, or under "
               "'unshare -Urn' with devices of its own\n";
    if (result == -EBUSY && line.starts_with("port "))
        return held_by_another(line);
    return result == 0 && !ok ? "" : reply.data();
}

// The link of a port, as a control daemon tells it.
void tell_link(tarn_if *port, bool up) {
    tarn_ifmgr_change_begin();
    u32 old = read_once(port->flags);
    write_once(port->flags, up ? old | IFF_RUNNING : old & ~IFF_RUNNING);
    tarn_ifmgr_L2_link_state_check(port, (old & TARN_IF_LINK) == TARN_IF_LINK);
    tarn_ifmgr_change_end();
}

// The port that the chip has opened on a device, whoever told it to; 0 for none.
u32 port_on(const std::string &device) {
    bool ok;
    std::istringstream lines(chip("show ports", &ok));
    std::string word, name, rest;
    for (u32 ifindex; lines >> word >> ifindex >> name; std::getline(lines, rest))
        if (name == device)
            return ifindex;
    return 0;
}

void tell_link(const std::string &device, bool up) {
    tarn_if *ifp = tarn_ifmgr_lookup_by_index(port_on(device));
    if (ifp)
        tell_link(ifp, up);
    tarn_ifmgr_if_ref_put(ifp);
}

void on_link(const std::string &device, bool up) {
    std::lock_guard guard(userlevel::netlink_serial());
    links[device] = up;
    tell_link(device, up);
}

// A port may be opened when its device has long had link.
void tell_links() {
    std::lock_guard guard(userlevel::netlink_serial());
    for (const auto &[device, up] : links)
        tell_link(device, up);
}

std::string add_port(const PortOption &option) {
    u32 ifindex = ifindex_of(option.name);
    std::string wrong = chip(fmt::format("port {} {}", ifindex, option.device));
    if (!wrong.empty())
        return fmt::format("port {}: {}", option.name, wrong);
    const Address address{2, 0, 0, 0, 1, static_cast<u8>(ifindex - FIRST_PORT_IFINDEX)};
    i32 result = tarn_ifmgr_switchport_create(option.name.c_str(), address.data(), PORT_FLAGS, 0,
                                              ifindex, 0);
    if (result != 0)
        return fmt::format("port {}: the switch refused it with {}", option.name, result);
    for (u32 instance = 0; instance < TARN_STP_INSTANCES; instance++)
        tarn_ifmgr_stp_port_state_set(ifindex, instance, TARN_STP_FORWARDING);
    return "";
}

std::string add_member(unsigned vid, const MemberOption &member) {
    u32 ifindex = ifindex_of(member.port);
    if (ifindex == 0)
        return fmt::format("VLAN {}: there is no port '{}'; --port declares it", vid, member.port);
    tarn_vlan_add_vlan_to_port(ifindex, vid, member.tagged);
    if (!member.tagged)
        tarn_vlan_set_default_pvid(ifindex, static_cast<u16>(vid));
    return "";
}

std::string add_vlan(const VlanOption &option, const std::string &address_text) {
    Address address;
    if (!parse_address(address_text, address))
        return fmt::format("'{}' is no address of one station: write it as 02:00:00:00:00:01",
                           address_text);
    tarn_if *vlan = nullptr;
    i32 result = tarn_ifmgr_vlan_create(address.data(), address.size(), &vlan,
                                        static_cast<u16>(option.vid), 0);
    if (result != 0)
        return fmt::format("VLAN {}: its device cannot be made ({}); is there one called vlan{}?",
                           option.vid, result, option.vid);
    vids.push_back(option.vid);
    std::string wrong;
    for (const MemberOption &member : option.members)
        if (wrong.empty())
            wrong = add_member(option.vid, member);
    return wrong;
}

std::string set_redirects(const std::vector<std::string> &names, bool on) {
    for (const std::string &name : names)
        if (enable_redirect_by_name(name.c_str(), on) != 0)
            return fmt::format("there is no redirect '{}'; 'tarn-replay --list' shows them", name);
    return "";
}

std::string start_chip() {
    int result = chip_home_start();
    return result == 0 ? "" : fmt::format("the chip did not start: {}", std::strerror(-result));
}

void prepare_devices(bool in_process) {
    if (!in_process && machine::lacking().empty()) {
        machine::make_devices();
        return;
    }
    pr_notice("Devices of the switch stay in the process: %s\n",
              in_process ? "as told" : machine::lacking().c_str());
}

// The first that fails ends it.
std::string configure(const Options &options) {
    std::lock_guard guard(userlevel::netlink_serial());
    ports = options.ports;
    std::string wrong;
    for (const PortOption &port : options.ports)
        if (wrong.empty())
            wrong = add_port(port);
    for (const VlanOption &vlan : options.vlans)
        if (wrong.empty())
            wrong = add_vlan(vlan, options.address);
    for (const std::string &line : options.chip)
        if (wrong.empty())
            wrong = chip(line);
    if (wrong.empty())
        wrong = set_redirects(options.enable, true);
    if (wrong.empty())
        wrong = set_redirects(options.disable, false);
    return wrong;
}

void remove(u32 ifindex) {
    tarn_if *ifp = tarn_ifmgr_lookup_by_index(ifindex);
    if (!ifp)
        return;
    tarn_ifmgr_if_ref_put(ifp);
    tarn_ifmgr_delete_interface(ifp);
}

std::string show_counters(u32 mode) {
    userlevel::view view;
    print_redirect_counters(mode, view.file());
    return view.text();
}

std::string show_interface(const tarn_if *ifp) {
    return fmt::format("{:<16} ifindex {:<6} flags 0x{:<5x} running below {}\n",
                       std::string_view(ifp->name, strnlen(ifp->name, sizeof(ifp->name))),
                       ifp->ifindex, read_once(ifp->flags), read_once(ifp->oper_count));
}

std::string show_interfaces() {
    std::lock_guard guard(userlevel::netlink_serial());
    std::string text;
    std::vector<u32> all;
    all.reserve(ports.size() + vids.size());
    for (const PortOption &port : ports)
        all.push_back(ifindex_of(port.name));
    for (unsigned vid : vids)
        all.push_back(TARN_IF_VLAN_BASE + vid);
    for (u32 ifindex : all) {
        tarn_if *ifp = tarn_ifmgr_lookup_by_index(ifindex);
        if (ifp)
            text += show_interface(ifp);
        tarn_ifmgr_if_ref_put(ifp);
    }
    return text;
}

std::string say_to_chip(const std::string &line, bool *ok) {
    std::string reply = chip(line, ok);
    if (*ok && line.starts_with("port "))
        tell_links();
    return reply;
}

std::string mount_proc(const std::string &path) {
    std::string wrong = machine::proc_mount(path, PROC_DIRECTORY);
    return wrong.empty() ? "" : "files of the switch at " + wrong;
}

std::string proc_failed(const std::string &name, long result, bool *ok) {
    *ok = false;
    return fmt::format("{}: {} (error {})\n", name, std::strerror(static_cast<int>(-result)),
                       -result);
}

std::string proc_path(const std::string &name) {
    return std::string(PROC_DIRECTORY) + "/" + name;
}

std::string proc_read(const std::string &name, bool *ok) {
    userlevel::proc_result got = userlevel::proc_read(proc_path(name));
    return got.result < 0 ? proc_failed(name, got.result, ok) : got.text;
}

// The text goes with a newline, as echo writes it.
std::string proc_write(const std::string &words, bool *ok) {
    std::size_t end = words.find(' ');
    std::string name = words.substr(0, end);
    std::string text = end == std::string::npos ? "" : words.substr(end + 1);
    std::lock_guard guard(userlevel::netlink_serial());
    long result = userlevel::proc_write(proc_path(name), text + "\n");
    return result < 0 ? proc_failed(name, result, ok) : fmt::format("{}\n", result);
}

} // namespace

std::string start(const Options &options) {
    userlevel::log_keep(false);
    userlevel::log_echo(true);
    if (init_module() != 0)
        return "the module did not start";
    userlevel::work_thread_start();
    tarn_pkt_debug = options.debug_log;
    std::string wrong = start_chip();
    if (!wrong.empty())
        return wrong;
    prepare_devices(options.devices_in_process);
    wrong = configure(options);
    if (wrong.empty() && !options.config.empty())
        wrong = config::apply(options.config,
                              [](const std::string &line, bool &ok) { return chip(line, &ok); });
    if (wrong.empty() && !options.proc.empty())
        wrong = mount_proc(options.proc);
    // When the ports are there: the first report says which of them have link.
    return wrong.empty() ? machine::watch(on_link) : wrong;
}

std::string command(const std::string &line, bool *ok) {
    *ok = true;
    if (line.starts_with("chip "))
        return say_to_chip(line.substr(5), ok);
    if (line.starts_with("explain "))
        return explain_frame(line.substr(8), ok);
    if (line == "show counters")
        return show_counters(REDIRECT_COUNTERS_RX);
    if (line == "show counters modify_rx")
        return show_counters(REDIRECT_COUNTERS_MODIFY_RX);
    if (line == "show counters modify_tx")
        return show_counters(REDIRECT_COUNTERS_MODIFY_TX);
    if (line == "show interfaces")
        return show_interfaces();
    if (line == "show sockets")
        return userlevel::proc_read("net/tarn_sockets").text;
    if (line.starts_with("proc read "))
        return proc_read(line.substr(10), ok);
    if (line.starts_with("proc write "))
        return proc_write(line.substr(11), ok);
    *ok = false;
    return "unknown word '" + line +
           "': say 'show interfaces', 'show sockets', 'show counters [modify_rx|modify_tx]', "
           "'proc read NAME', 'proc write NAME TEXT', 'trace [drops] ...', 'explain PORT HEX' or "
           "'chip WORDS...' "
           "('chip help' lists those)\n";
}

void stop() {
    machine::proc_unmount();
    chip_home_stop();
    std::lock_guard guard(userlevel::netlink_serial());
    // A VLAN that still has ports would say so.
    for (const PortOption &port : ports)
        remove(ifindex_of(port.name));
    for (unsigned vid : vids)
        remove(TARN_IF_VLAN_BASE + vid);
    ports.clear();
    vids.clear();
}

} // namespace live
