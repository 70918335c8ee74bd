// Sequences of commands at random, each on a switch that has nothing yet and ends with nothing:
// what must hold of the bind graph, the counts, the memberships and the references is asked for in
// between.
#include "control/nl_client.h"
#include "support/graph_test.h"

#include <algorithm>
#include <cstdlib>
#include <random>

namespace {

constexpr u32 PORTS[] = {5001, 5002, 5003, 5004};
constexpr u32 AGGREGATORS[] = {6001, 6002};
constexpr u32 VIDS = 4; // 1 to 4
constexpr u32 NOBODY = 9999;
constexpr unsigned LENGTH = 24; // of a sequence

// TARN_RANDOM_SEQUENCES says how many; a sanitizer makes them slow.
unsigned sequences() {
    if (const char *said = std::getenv("TARN_RANDOM_SEQUENCES"))
        return static_cast<unsigned>(std::strtoul(said, nullptr, 10));
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return 5000;
#else
    return 100000;
#endif
}

struct NlSequences : GraphTest {
    Client client;
    std::mt19937 random;
    bool with_aggregators = true;
    std::string told; // the commands of this sequence

    NlSequences() { graph_is_broken_on_purpose = true; } // it is looked at here

    u32 below(u32 bound) { return static_cast<u32>(random() % bound); }
    u32 some_port() {
        u32 which = below(with_aggregators ? 7 : 5);
        return which < 4                       ? PORTS[which]
               : which < 6 && with_aggregators ? AGGREGATORS[which - 4]
                                               : NOBODY;
    }
    u16 some_vid() { return static_cast<u16>(1 + below(VIDS)); }
    u32 some_flags() { return below(2) ? LINK : below(2) ? NO_LINK : DOWN; }
    u32 some_interface() { return below(2) ? some_port() : TARN_IF_VLAN_BASE + some_vid(); }
    Bytes some_bitmap() { return Bytes{static_cast<u8>(random() & 0x1E)}; }

    void say(Command command, const char *what, u32 a = 0, u32 b = 0) {
        int result = command.to(client);
        told += std::string(what) + " " + std::to_string(a) + " " + std::to_string(b) + " = " +
                std::to_string(result) + "\n";
        if (below(3) == 0)
            settle();
    }

    void make_port() {
        u32 ifindex = PORTS[below(std::size(PORTS))], flags = some_flags();
        Command command(TARNFWD_CMD_IF_NEWLINK);
        command.ifindex(ifindex).text(TARNFWD_ATTR_IF_NAME, "p" + std::to_string(ifindex));
        command.byte(TARNFWD_ATTR_IF_KIND, TARNFWD_IF_KIND_PORT).word(TARNFWD_ATTR_FLAGS, flags);
        command.mac();
        if (below(4) == 0)
            command.byte(TARNFWD_ATTR_PORT_KIND, TARNFWD_PORT_KIND_ROUTED);
        say(command, "port", ifindex, flags);
    }
    void make_aggregator() {
        if (!with_aggregators)
            return make_port();
        u32 ifindex = AGGREGATORS[below(std::size(AGGREGATORS))];
        Command command(TARNFWD_CMD_IF_NEWLINK);
        command.ifindex(ifindex).text(TARNFWD_ATTR_IF_NAME, "a" + std::to_string(ifindex));
        command.byte(TARNFWD_ATTR_IF_KIND, TARNFWD_IF_KIND_PORT).word(TARNFWD_ATTR_FLAGS, 0).mac();
        command.byte(TARNFWD_ATTR_PORT_KIND,
                     static_cast<u8>(TARNFWD_PORT_KIND_AGG_DYNAMIC + below(2)));
        say(command, "aggregator", ifindex);
    }
    void make_vlans() {
        u16 from = some_vid(), end = static_cast<u16>(from + 1 + below(2));
        Command command(TARNFWD_CMD_IF_CREATE_SVI_RANGE);
        command.half(TARNFWD_ATTR_VID_START, from).half(TARNFWD_ATTR_VID_END, end);
        command.word(TARNFWD_ATTR_VLAN_OPTIONS, below(8)).mac();
        say(command, "vlans", from, end);
    }
    void remove() {
        u32 ifindex = some_interface();
        say(Command(below(2) ? TARNFWD_CMD_IF_DELLINK : TARNFWD_CMD_IF_DELETE_SVI).ifindex(ifindex),
            "delete", ifindex);
    }
    void delete_aggregator() {
        u32 ifindex = some_port();
        say(Command(TARNFWD_CMD_LACP_DELETE_AGGREGATOR).word(TARNFWD_ATTR_AGG_IFINDEX, ifindex),
            "delete aggregator", ifindex);
    }
    void update() {
        u32 ifindex = PORTS[below(std::size(PORTS))], flags = some_flags();
        say(Command(TARNFWD_CMD_IF_UPDATE).ifindex(ifindex).word(TARNFWD_ATTR_FLAGS, flags),
            "flags", ifindex, flags);
    }
    void add() {
        u32 ifindex = some_port();
        u16 vid = some_vid();
        say(Command(TARNFWD_CMD_VLAN_ADD_PORT_DYNAMIC)
                .ifindex(ifindex)
                .byte(TARNFWD_ATTR_TAGGED, static_cast<u8>(below(2)))
                .vid(vid),
            "member", ifindex, vid);
    }
    void add_many() {
        u32 ifindex = some_port();
        Bytes bitmap = some_bitmap();
        say(Command(TARNFWD_CMD_VLAN_ADD_VID_BMP_TO_PORT)
                .ifindex(ifindex)
                .byte(TARNFWD_ATTR_TAGGED, static_cast<u8>(below(2)))
                .bytes(TARNFWD_ATTR_VID_BITMAP, bitmap),
            "members", ifindex, bitmap[0]);
    }
    void take() {
        u32 ifindex = some_port();
        u16 vid = some_vid();
        say(Command(TARNFWD_CMD_VLAN_DELETE_PORT_DYNAMIC).ifindex(ifindex).vid(vid), "no member",
            ifindex, vid);
    }
    void take_many() {
        u32 ifindex = some_port();
        Bytes bitmap = some_bitmap();
        say(Command(TARNFWD_CMD_VLAN_DELETE_VID_BMP_FROM_PORT)
                .ifindex(ifindex)
                .bytes(TARNFWD_ATTR_VID_BITMAP, bitmap),
            "no members", ifindex, bitmap[0]);
    }
    void attach() {
        u32 port = some_port(), aggregator = AGGREGATORS[below(std::size(AGGREGATORS))];
        tarnfwd_cmd command = below(3) ? TARNFWD_CMD_LACP_ATTACH_MUX_TO_AGGREGATOR
                                       : TARNFWD_CMD_LACP_DETACH_MUX_FROM_AGGREGATOR;
        say(Command(command).ifindex(port).word(TARNFWD_ATTR_AGG_IFINDEX, aggregator),
            command == TARNFWD_CMD_LACP_ATTACH_MUX_TO_AGGREGATOR ? "attach" : "detach", port,
            aggregator);
    }
    void shut() {
        u32 ifindex = some_port();
        u16 vid = some_vid();
        say(Command(TARNFWD_CMD_VLAN_PORT_STATE)
                .ifindex(ifindex)
                .vid(vid)
                .state(static_cast<u8>(below(2))),
            "port state", ifindex, vid);
    }
    void route() {
        u32 ifindex = some_port();
        u16 vid = static_cast<u16>(below(2) ? some_vid() : 0);
        say(Command(TARNFWD_CMD_PORT_SET_L3).ifindex(ifindex).vid(vid), "routed", ifindex, vid);
    }
    void upstream() {
        tarnfwd_upstream record{.operation = below(2), .vid = some_vid(), .ifindex = some_port()};
        const auto *bytes = reinterpret_cast<const u8 *>(&record);
        say(Command(TARNFWD_CMD_PVLAN_UFO_UPSTREAM_IF_UPDATE)
                .bytes(TARNFWD_ATTR_PVLAN_UPSTREAM_LIST, Bytes(bytes, bytes + sizeof(record))),
            "upstream", record.vid, record.ifindex);
    }

    void one_command() {
        static constexpr void (NlSequences::*COMMANDS[])() = {&NlSequences::make_port,
                                                              &NlSequences::make_port,
                                                              &NlSequences::make_port,
                                                              &NlSequences::make_aggregator,
                                                              &NlSequences::make_vlans,
                                                              &NlSequences::make_vlans,
                                                              &NlSequences::remove,
                                                              &NlSequences::update,
                                                              &NlSequences::update,
                                                              &NlSequences::update,
                                                              &NlSequences::add,
                                                              &NlSequences::add,
                                                              &NlSequences::add_many,
                                                              &NlSequences::add_many,
                                                              &NlSequences::take,
                                                              &NlSequences::take_many,
                                                              &NlSequences::attach,
                                                              &NlSequences::attach,
                                                              &NlSequences::delete_aggregator,
                                                              &NlSequences::shut,
                                                              &NlSequences::route,
                                                              &NlSequences::upstream};
        (this->*COMMANDS[below(std::size(COMMANDS))])();
    }

    // Without an aggregator in between, a port that a VLAN is bound to is its member.
    static std::string membership_problems() {
        std::string problems;
        for (const tarn_if *ifp : all_records()) {
            if (ifp->type != TARN_IF_TYPE_VLAN)
                continue;
            for (const tarn_if *port : named_by(ifp->children)) {
                auto members = vids_in(port->vlan_member_bmp);
                if (std::find(members.begin(), members.end(), ifp->vid) == members.end())
                    problems += std::string(port->name) + " is below VLAN " +
                                std::to_string(ifp->vid) + " and no member of it\n";
            }
        }
        return problems;
    }
    // The running ports below: 1 for one that runs itself, the sum for all else.
    static u32 running_below(const tarn_if *ifp) {
        bool is_leaf = ifp->type == TARN_IF_TYPE_SWITCHPORT && !(ifp->if_flags & TARN_IF_F_AGG);
        u32 count = is_leaf && (ifp->flags & TARN_IF_LINK) == TARN_IF_LINK;
        for (const tarn_if *child : named_by(ifp->children))
            count += running_below(child);
        return count;
    }
    static std::string running_problems() {
        std::string problems;
        for (const tarn_if *ifp : all_records())
            if (refcount_read(&ifp->refcnt) != 0 && ifp->oper_count != running_below(ifp))
                problems += std::string(ifp->name) + " counts " + std::to_string(ifp->oper_count) +
                            ", not " + std::to_string(running_below(ifp)) + "\n";
        return problems;
    }
    static std::string reference_problems(i32 wanted) {
        std::string problems;
        for (const tarn_if *ifp : all_records()) {
            i32 count = refcount_read(&ifp->refcnt);
            if (count != 0 && count != wanted)
                problems +=
                    std::string(ifp->name) + " has " + std::to_string(count) + " references\n";
        }
        return problems;
    }
    std::string problems() {
        return graph_problems() + running_problems() + reference_problems(1) +
               (with_aggregators ? "" : membership_problems());
    }

    void delete_everything() {
        for (u32 ifindex : {5001u, 5002u, 5003u, 5004u, 6001u, 6002u})
            Command(TARNFWD_CMD_IF_DELLINK).ifindex(ifindex).to(client);
        for (u32 vid = 1; vid <= VIDS + 1; vid++)
            Command(TARNFWD_CMD_IF_DELLINK).ifindex(TARN_IF_VLAN_BASE + vid).to(client);
        settle();
    }
};

TEST_F(NlSequences, commands_keep_graph_counts_memberships_and_references_whole) {
    const char *said = std::getenv("TARN_RANDOM_SEED");
    unsigned seed = said ? static_cast<unsigned>(std::strtoul(said, nullptr, 10)) : 20261121;
    configure([&] {
        userlevel::log_keep(false);
        for (u32 ifindex : {port1()->ifindex, vlan1()->ifindex})
            Command(TARNFWD_CMD_IF_DELLINK).ifindex(ifindex).to(client);
        settle();
        for (unsigned sequence = 0; sequence < sequences(); sequence++) {
            random.seed(seed + sequence);
            with_aggregators = below(4) != 0;
            told.clear();
            for (unsigned i = 0; i < LENGTH; i++)
                one_command();
            settle();
            ASSERT_EQ(problems(), "") << "seed " << seed + sequence << ", after\n" << told;
            delete_everything();
            ASSERT_EQ(graph_problems() + reference_problems(0), "")
                << "seed " << seed + sequence << ", all deleted after\n"
                << told;
        }
        userlevel::neigh_flushes_take();
        userlevel::log_keep(true);
        log();
    });
}

} // namespace
