#include "fuzzed_switch.h"

#include "chip.h"
#include "containers/tarn_avl.h"
#include "control.h"
#include "ifmgr/tarn_if.h"
#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_change.h"
#include "ifmgr/tarn_ifmgr_create.h"
#include "ifmgr/tarn_ifmgr_index.h"
#include "ifmgr/tarn_ifmgr_settings.h"
#include "kernel/memory.h"
#include "module/tarn_module.h"
#include "pkt/pkt_flood.h"
#include "pkt/pkt_redirect.h"
#include "plain_switch/plain_switch.h"
#include "redirects/redirects.h"
#include "sockets/sockets.h"
#include "vlan/vlan_member.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace fuzzed {

namespace {

const std::string SOCKETS = "records of sockets";

constexpr u32 FIRST_LIMIT = 10; // of multicast, from the start

std::array<u8, REDIRECT_SLOTS> first_redirects{}; // those that are on
std::map<std::string, std::string> first_debug;   // what its files say
std::map<std::string, u32> alive;                 // after a reset: how much of what
std::string settings;                             // and what the files say
std::vector<char> reply(CHIP_REPLY);

void tell(const std::string &line) {
    chip_command(line.c_str(), reply.data(), reply.size());
}

void note_redirects() {
    for (u32 slot = 0; slot < REDIRECT_SLOTS; slot++)
        first_redirects[slot] = packet_redirects[slot] && packet_redirects[slot]->enabled;
}

void note_debug() {
    for (const userlevel::proc_name &entry : userlevel::proc_list("tarn"))
        if (entry.name.starts_with("pktdebug") && entry.name != "pktdebugpostinfo")
            first_debug["tarn/" + entry.name] = userlevel::proc_read("tarn/" + entry.name).text;
}

// Each change has all lists of them made anew.
void forget_redirects() {
    for (u32 slot = 0; slot < REDIRECT_SLOTS; slot++)
        if (packet_redirects[slot] && packet_redirects[slot]->enabled != first_redirects[slot])
            enable_redirect(slot, first_redirects[slot]);
}

std::vector<tarn_if *> records() {
    std::vector<tarn_if *> all;
    read_lock_bh(&tarn_if_db_lock);
    for (const tarn_avl_node *node = tarn_avl_first_node(p_tarn_if_db->tree); node;
         node = tarn_avl_next_node(node))
        all.push_back(static_cast<tarn_if *>(node->info));
    read_unlock_bh(&tarn_if_db_lock);
    return all;
}

void remove_interfaces() {
    std::vector<u32> all;
    for (const tarn_if *ifp : records())
        all.push_back(ifp->ifindex);
    std::reverse(all.begin(), all.end()); // ports after what is above them
    for (u32 ifindex : all) {
        tarn_if *ifp = tarn_ifmgr_lookup_by_index(ifindex);
        if (!ifp)
            continue;
        tarn_ifmgr_if_ref_put(ifp);
        tarn_ifmgr_delete_interface(ifp);
        userlevel::work_run();
    }
}

// The database keeps the records of interfaces that went, for those that come with their numbers.
// The destructors of others, and the events of their devices, may be at the tree meanwhile.
void free_records() {
    tarn_ifmgr_change_begin();
    for (tarn_if *ifp : records()) {
        if (ifp->if_flags & TARN_IF_F_VALID)
            continue;
        write_lock_bh(&tarn_if_db_lock);
        tarn_avl_delete(p_tarn_if_db->tree, ifp);
        tarn_ifmgr_index_remove(ifp);
        write_unlock_bh(&tarn_if_db_lock);
        kfree(ifp);
    }
    for (tarn_if **at = &tarn_ifmgr_replaced; *at;) {
        tarn_if *ifp = *at;
        if (ifp->if_flags & TARN_IF_F_VALID) {
            at = &ifp->replaced_next;
            continue;
        }
        *at = ifp->replaced_next;
        kfree(ifp);
    }
    tarn_ifmgr_change_end();
}

std::map<std::string, u32> count_alive() {
    std::map<std::string, u32> counted;
    for (const userlevel::object &object : userlevel::live()) {
        // A tree keeps its free nodes.
        if (std::strcmp(object.kind, "avl_node_cache") == 0)
            continue;
        char site[32];
        std::snprintf(site, sizeof(site), " from %p", object.site);
        counted[object.kind == std::string("sock")
                    ? SOCKETS
                    : std::to_string(object.bytes) + " bytes of " + object.kind + site]++;
    }
    return counted;
}

// Blocks of that size are addresses of this list, and nothing else's.
void forget_hosts() {
    for (const userlevel::object &object : userlevel::live()) {
        if (object.bytes != sizeof(u32) || std::string(object.kind) != "kmalloc")
            continue;
        u32 address;
        std::memcpy(&address, object.address, sizeof(address));
        tarn_vornappsd_remove_ip_address(&address);
    }
}

void forget_settings() {
    forget_hosts();
    for (u32 vid = 0; vid < TARN_VLAN_COUNT; vid++) {
        tarn_rmirror_set_mirror_vlan(vid, false);
        if (tarn_ryke_is_ctrl_vlan(vid))
            tarn_ryke_set_ctrl_vlan(vid, 0);
    }
    tarn_udld_enable(0);
    tarn_update_mcast_limits(FIRST_LIMIT);
    tarn_pkt_unknown_multicast_flood_set(1);
    tarn_mcdrop_flooding_group_flush();
    forget_redirects();
    for (const auto &[path, text] : first_debug)
        if (userlevel::proc_read(path).text != text)
            userlevel::proc_write(path, text);
    userlevel::proc_write("tarn/hidecounter", "\n");
}

void add_ports() {
    for (u32 vid : {1u, 2u})
        plain_switch::add_vlan(vid);
    for (u32 k = 1; k <= PORTS; k++) {
        tarn_if *port = plain_switch::add_port(k);
        std::string number = std::to_string(port->ifindex);
        tell("noport " + number);
        tell("port " + number + " p" + std::to_string(k));
        for (u32 vid : {1u, 2u})
            plain_switch::add_member(port, vid);
        tarn_vlan_add_vlan_to_port(port->ifindex, 2, 1); // tagged
        tarn_vlan_set_default_pvid(port->ifindex, 1);
    }
    const u8 address[6] = {2, 0, 0, 0, 2, 1};
    tarn_ifmgr_aggregator_add("lag1", address, TARN_AGG_TYPE_STATIC, 4501);
    for (u32 instance = 0; instance < TARN_STP_INSTANCES; instance++)
        tarn_ifmgr_stp_port_state_set(4501, instance, TARN_STP_FORWARDING);
    tarn_ifmgr_aggregator_port_attach(4501, 5003);
    for (const char *line : {"fdb flush", "filter 806 800 86dd", "trap filter on", "flood hardware",
                             "age 300", "sflow 0"})
        tell(line);
}

void list(const std::string &folder, std::vector<std::string> *found) {
    for (const userlevel::proc_name &entry : userlevel::proc_list(folder))
        if (std::string path = folder + "/" + entry.name; S_ISDIR(entry.mode))
            list(path, found);
        else
            found->push_back(path);
}

// All files but those that count.
std::string read_settings() {
    std::string text;
    for (const std::string &path : files())
        if (path.find("count") == std::string::npos && path.find("cnt") == std::string::npos &&
            path.find("meminfo") == std::string::npos && path.find("postinfo") == std::string::npos)
            text += path + ":\n" + userlevel::proc_read(path).text;
    return text;
}

} // namespace

std::vector<std::string> files() {
    std::vector<std::string> found;
    list("tarn", &found);
    return found;
}

void load() {
    userlevel::log_keep(false);
    userlevel::random_seed(1);
    init_module();
    chip_start();
    note_redirects();
    note_debug();
    reset();
    reset(); // what the first one leaves is there for ever
    alive = count_alive();
    settings = read_settings();
}

void reset() {
    userlevel::fail_allocation(0);
    remove_interfaces();
    free_records();
    forget_settings();
    add_ports();
    userlevel::work_run();
    userlevel::neigh_flushes_take();
}

void must_have_lost_nothing(u32 closed_sockets) {
    if (std::string now = read_settings(); now != settings) {
        std::fprintf(stderr, "the files say:\n%sand not:\n%s", now.c_str(), settings.c_str());
        std::abort();
    }
    std::map<std::string, u32> wanted = alive, now = count_alive();
    if (closed_sockets != 0)
        wanted[SOCKETS] += closed_sockets;
    if (now == wanted)
        return;
    for (const auto &[what, count] : now)
        if (count != wanted[what])
            std::fprintf(stderr, "%u of %s, not %u\n", count, what.c_str(), wanted[what]);
    std::fprintf(stderr, "alive, latest last:\n%s", userlevel::describe(userlevel::live()).c_str());
    std::abort();
}

void run_steps(std::span<const u8> input, Step step) {
    while (input.size() > 3) {
        std::size_t length = std::min<std::size_t>(input[2], input.size() - 3);
        step(input[0], input[1], input.subspan(3, length));
        input = input.subspan(3 + length);
    }
}

} // namespace fuzzed
