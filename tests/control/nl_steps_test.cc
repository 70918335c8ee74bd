// What every command does: the steps that both homes share, and beside them what only a process can
// see, the functions of the core that a command calls.
#include "control/nl_step_run.h"

#include "control/nl_callees.h"
#include "control/nl_client.h"
#include "kernel/netdev.h"
#include "security/auth_state.h"
#include "sockets/socket_test.h"

#include <map>
#include <sstream>

namespace {

// --- what a command has to call ----------------------------------------------------------------

using Values = std::map<std::string, std::string>; // of attributes, by name

Values values_of(const std::string &with) {
    std::istringstream words(with);
    Values values;
    for (std::string name, value; words >> name >> value;)
        values[name] = value;
    return values;
}

std::string text_of(const Values &values) {
    std::string text;
    for (const auto &[name, value] : values)
        text += (text.empty() ? "" : " ") + name + " " + value;
    return text;
}

nl_attribute attribute_of(const std::string &name) {
    return nl_attribute_of(nl_attribute_named(name.c_str(), name.size()));
}

// As a callee is shown the attribute.
std::string shown(const Values &values, const std::string &name) {
    auto found = values.find(name);
    if (found == values.end())
        return "none";
    std::string text = found->second;
    if (attribute_of(name).kind == NL_INTEGER)
        return std::to_string(std::strtoul(text.c_str(), nullptr, 0));
    if (attribute_of(name).kind == NL_BITMAP) // without the zeros at its end
        while (text.ends_with("00"))
            text.resize(text.size() - 2);
    return text;
}

// A word of what is expected, with its values.
std::string expanded(const Values &values, const std::string &word) {
    std::size_t start = word.find_first_not_of("@!"), slash = word.find('/');
    if (start == std::string::npos)
        return word;
    std::string prefix = word.substr(0, start), name = word.substr(start, slash - start);
    if (nl_attribute_named(name.c_str(), name.size()) == 0)
        return word;
    std::string value = shown(values, name);
    if (slash != std::string::npos)
        return std::to_string(value.size() / 2 / std::stoul(word.substr(slash + 1)));
    if (prefix == "!")
        return value == "0" ? "1" : "0";
    if (prefix == "!!")
        return value == "0" ? "0" : "1";
    return prefix + value;
}

struct Expected {
    bool answers = false; // with the result of the last
    bool open = false;    // what follows is not looked at
    std::vector<std::string> calls;

    std::vector<std::string> of(std::vector<std::string> made) const {
        if (open && made.size() > calls.size())
            made.resize(calls.size());
        return made;
    }
};

Expected expect(const std::string &calls, const Values &values) {
    Expected expected;
    std::istringstream all(calls);
    for (std::string call; std::getline(all, call, ';');) {
        std::istringstream words(call);
        std::string text;
        for (std::string word; words >> word;)
            if (word == "=")
                expected.answers = true;
            else
                text += (text.empty() ? "" : " ") + expanded(values, word);
        if (text == "...")
            expected.open = true;
        else
            expected.calls.push_back(text);
    }
    return expected;
}

const nl_case &case_of(u8 command) {
    for (const nl_case &each : nl_cases)
        if (each.command == command)
            return each;
    ADD_FAILURE() << "no case for command " << int{command};
    return nl_cases[0];
}

const char *calls_of(const nl_step &step) {
    return step.calls ? step.calls : case_of(step.command).calls;
}

// --- the home ----------------------------------------------------------------------------------

// The list is plain C: what it calls are functions, which find the running test here.
class NlSteps : public SocketTest {
public:
    static inline NlSteps *current = nullptr;

protected:
    NlSteps() {
        current = this;
        fake_driver::attach_without_flood(); // a flood is seen port by port
        frame_ = open(TARN_AF_FRAME);
        nl_callees() = {};
        userlevel::clock_stop(1000000); // what is held back is held back for ever
    }
    ~NlSteps() override {
        nl_callees() = {};
        userlevel::neigh_flushes_take();
    }

    static int command(nl_message *message) {
        message->u.header.nlmsg_type = current->client.family;
        return current->configure([&] {
            nl_callees().calls.clear();
            nl_callees().traced = true;
            current->client.send({message->u.bytes, message->length});
            nl_callees().traced = false;
            userlevel::work_run();
            current->log(); // other tests look at it
            return current->client.answer();
        });
    }
    static int send_command(u8 number, const std::string &with) {
        nl_message message;
        EXPECT_EQ(nl_step_build(&message, 0, number, with.c_str()), 0) << with;
        return command(&message);
    }

    static const nl_home &home() {
        static const nl_home the_home = {.command = command,
                                         .file = file,
                                         .arrive = arrive,
                                         .look = look,
                                         .tries = 1,
                                         .wait = [] {}};
        return the_home;
    }

    static std::vector<std::string> take_calls() { return std::exchange(nl_callees().calls, {}); }

    Client client;

private:
    static const char *keep(std::string text) {
        static std::string kept;
        kept = std::move(text);
        return kept.c_str();
    }
    static const char *file(const char *name) {
        return keep(userlevel::proc_read("tarn/" + std::string(name)).text);
    }
    static void arrive(unsigned port, unsigned vid, int subnet, const u8 *frame, unsigned length) {
        Arrival arrival{.port = port - plain_switch::FIRST_PORT_IFINDEX, .vid = vid};
        arrival.meta.flags = subnet ? u32{TARN_RX_SUBNET_VLAN} : 0;
        current->receive(Bytes(frame, frame + length), arrival);
    }
    static const char *look(const char *what, const char *rest) {
        std::string how = what;
        if (how == "chip")
            return current->driver().unknown_multicast.back() ? "unknown-multicast on"
                                                              : "unknown-multicast off";
        if (how == "sends")
            return keep(current->sends(rest));
        if (how == "meets")
            return current->meets(rest);
        if (how == "knows")
            return keep(current->knows(rest));
        net_device *device = device_named(rest);
        if (how == "device")
            return keep(device ? described(device) : "");
        if (how == "up")
            return dev_change_flags(device, netdev_flags(device) | IFF_UP) == 0 ? "" : "fails";
        return current->leaves(device) ? "leaves" : "";
    }

    static net_device *device_named(const std::string &name) {
        for (net_device *device : userlevel::netdevs())
            if (netdev_name(device) == name)
                return device;
        return nullptr;
    }
    static std::string described(net_device *device) {
        const u8 *mac = netdev_addr(device);
        char text[80];
        int length = std::snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0],
                                   mac[1], mac[2], mac[3], mac[4], mac[5]);
        ethtool_link link{};
        if (device->ethtool_ops && device->ethtool_ops->get_link_ksettings &&
            device->ethtool_ops->get_link_ksettings(device, &link) == 0)
            std::snprintf(text + length, sizeof(text) - static_cast<std::size_t>(length),
                          " speed %u duplex %u", link.speed, link.duplex);
        return text;
    }
    std::string sends(const char *rest) {
        std::istringstream words(rest);
        u32 port = 0;
        u16 vid = 0;
        words >> port >> vid;
        driver().sent.clear();
        send(frame_, vlan_name(port, vid), Frame().from("02:00:00:00:00:07").padded());
        std::string text;
        for (const auto &one : driver().sent)
            text += std::to_string(one.ifindex) + (one.tagged ? "-tagged " : "-untagged ");
        return text;
    }
    bool leaves(net_device *device) {
        driver().sent.clear();
        userlevel::netdev_transmit(device, Bytes(Frame().from("02:00:00:00:00:07").padded()));
        return !driver().sent.empty();
    }

    // A process has no IP stack, so what it would know stands here.
    struct Neighbour {
        std::string device;
        u32 port;
    };
    const char *meets(const char *rest) {
        userlevel::neigh_flushes_take();
        std::istringstream words(rest);
        Neighbour &one = neighbours_.emplace_back();
        words >> one.device >> one.port;
        return "";
    }
    std::string knows(const std::string &device) {
        for (const userlevel::neigh_flush &flush : userlevel::neigh_flushes_take())
            std::erase_if(neighbours_,
                          [&](const Neighbour &one) { return is_flushed(flush, one); });
        std::string text;
        for (const Neighbour &one : neighbours_)
            text += one.device == device ? "192.0.2.99 " : "";
        return text;
    }
    static bool is_flushed(const userlevel::neigh_flush &flush, const Neighbour &one) {
        static const std::vector<u8> host = {2, 0, 0, 0, 0, 0x99};
        if (std::string(flush.table) == "ndisc" ||
            (flush.device && netdev_name(flush.device) != one.device) ||
            (flush.vid != -1 && "vlan" + std::to_string(flush.vid) != one.device))
            return false;
        return flush.mac.empty() ? flush.ifindex == one.port : flush.mac == host;
    }

    struct socket *frame_;
    std::vector<Neighbour> neighbours_;
};

TEST_F(NlSteps, every_step_is_answered_calls_and_shows_what_it_must) {
    for (const nl_step &step : nl_steps) {
        SCOPED_TRACE(std::string(case_of(step.command).name) + " " + step.with);
        const char *wrong = nl_step_send(&step, &home());
        EXPECT_EQ(wrong, nullptr) << wrong;
        ASSERT_NE(calls_of(step), nullptr);
        Expected expected = expect(calls_of(step), values_of(step.with));
        EXPECT_EQ(expected.of(take_calls()), expected.calls);
        wrong = nl_step_sights(&step, &home());
        EXPECT_EQ(wrong, nullptr) << wrong;
    }
    remember(); // tables keep the nodes of what was added and removed
}

TEST_F(NlSteps, every_command_has_a_step) {
    std::set<u8> commands;
    for (const nl_step &step : nl_steps)
        commands.insert(step.command);
    for (const nl_case &each : nl_cases)
        EXPECT_TRUE(commands.contains(each.command)) << each.name;
    EXPECT_EQ(commands.size(), NL_CASES);
}

// --- edges: what a command calls is asked for, and not done ------------------------------------

class NlEdges : public NlSteps {
protected:
    static constexpr int RESULT = -77;

    NlEdges() {
        for (const nl_step &step : nl_steps) { // until there is what the others name
            if (step.command != TARNFWD_CMD_IF_NEWLINK &&
                step.command != TARNFWD_CMD_IF_CREATE_SVI_RANGE)
                break;
            nl_step_send(&step, &home());
        }
        nl_callees().results = {RESULT};
    }

    static std::string name_of(u8 number) { return nl_attribute_names[number]; }

    // As the first step has them that names all of them.
    static Values usual(const nl_case &one) {
        for (const nl_step &step : nl_steps)
            if (step.command == one.command)
                return values_of(step.with);
        return {};
    }
    static std::vector<std::string> edges_of(const std::string &name) {
        nl_attribute attribute = attribute_of(name);
        if (attribute.kind == NL_BITMAP)
            return {"01", std::string(1023, '0') + "8", std::string(1024, 'f')};
        if (attribute.kind == NL_BYTES)
            return {std::string(2u * attribute.length, '0'),
                    std::string(2u * attribute.length, 'f')};
        if (attribute.kind == NL_ARRAY)
            return {"-", std::string(2u * 96, '5')}; // whole records of each size
        u64 most = (u64{1} << 8 * attribute.length) - 1;
        return {"0", "1", "2", std::to_string(most - 1), std::to_string(most)};
    }
    // Whether the value may be any, or names an interface that has to be there.
    static bool is_free(const nl_case &one, const std::string &name) {
        return std::string(one.calls).find("@" + name) == std::string::npos;
    }

    void say(const nl_case &one, const Values &values) {
        SCOPED_TRACE(std::string(one.name) + " " + text_of(values));
        int answer = send_command(one.command, text_of(values));
        Expected expected = expect(one.calls, values);
        EXPECT_EQ(take_calls(), expected.calls);
        EXPECT_EQ(answer, expected.answers ? RESULT : one.command == 73 ? -EINVAL : 0);
    }
};

TEST_F(NlEdges, every_attribute_reaches_the_callee_as_it_was_sent) {
    for (const nl_case &one : nl_cases) {
        if (!one.calls)
            continue; // it depends on the values: the steps and the tests below have them
        Values values = usual(one);
        say(one, values);
        for (u8 number : one.needs) {
            if (!number || !is_free(one, name_of(number)))
                continue;
            for (const std::string &edge : edges_of(name_of(number))) {
                Values others = values;
                others[name_of(number)] = edge;
                say(one, others);
            }
        }
    }
}

TEST_F(NlEdges, nothing_is_called_while_an_attribute_is_missing_or_too_short) {
    for (const nl_case &one : nl_cases)
        for (u8 number : one.needs) {
            if (!number)
                break;
            SCOPED_TRACE(std::string(one.name) + " without " + name_of(number));
            Values values = usual(one);
            ASSERT_EQ(values.erase(name_of(number)), 1u);
            EXPECT_EQ(send_command(one.command, text_of(values)), -EINVAL);
            EXPECT_EQ(take_calls(), std::vector<std::string>{});
            if (nl_attribute_of(number).kind != NL_BYTES)
                continue;
            values = usual(one);
            values[name_of(number)].resize(values[name_of(number)].size() - 2);
            EXPECT_EQ(send_command(one.command, text_of(values)), -EINVAL) << "a byte too short";
            EXPECT_EQ(take_calls(), std::vector<std::string>{});
        }
}

TEST_F(NlEdges, a_creation_tells_what_its_creator_said) {
    for (const char *kind : {"if_kind 2", "if_kind 3", "if_kind 3 port_kind 1",
                             "if_kind 3 port_kind 2", "if_kind 3 port_kind 3"})
        EXPECT_EQ(send_command(TARNFWD_CMD_IF_NEWLINK,
                               "ifindex 9 if_name a flags 0 mac 020000000009 " + std::string(kind)),
                  RESULT)
            << kind;
}

TEST_F(NlEdges, a_range_goes_on_after_a_failure_and_tells_of_the_last) {
    const char *with = "vid_start 65533 vid_end 65535 vlan_options 4294967295 mac ffffffffffff";
    const std::vector<std::string> calls = {
        "tarn_ifmgr_vlan_create ffffffffffff 6 65533 4294967295",
        "tarn_ifmgr_vlan_create ffffffffffff 6 65534 4294967295",
    };
    nl_callees().results = {RESULT, 0};
    EXPECT_EQ(send_command(TARNFWD_CMD_IF_CREATE_SVI_RANGE, with), 0);
    EXPECT_EQ(take_calls(), calls);
    nl_callees().answered = 0;
    nl_callees().results = {0, RESULT};
    EXPECT_EQ(send_command(TARNFWD_CMD_IF_CREATE_SVI_RANGE, with), RESULT);
    EXPECT_EQ(take_calls(), calls);
}

TEST_F(NlEdges, what_a_tunnel_or_the_snooping_of_a_vlan_says_is_not_told) {
    for (const char *state : {"0", "1"})
        EXPECT_EQ(send_command(TARNFWD_CMD_IF_SET_VXLAN_CONFIG,
                               "vid 1 vxlan_vni 2 vxlan_remote_addr 01010101 "
                               "vxlan_local_addr 02020202 state " +
                                   std::string(state)),
                  0);
    EXPECT_EQ(send_command(TARNFWD_CMD_DHCPSN_STATE, "vid 1 dhcpsn_kind 0 state 1 dhcpsn_global 0"),
              0);
    EXPECT_EQ(send_command(TARNFWD_CMD_DHCPSN_STATE, "vid 1 dhcpsn_kind 2 state 1 dhcpsn_global 0"),
              RESULT);
}

TEST_F(NlEdges, every_operation_on_leases_tells_what_became_of_it) {
    for (const char *operation : {"0", "1", "2"})
        EXPECT_EQ(send_command(TARNFWD_CMD_DHCPSN_LEASE,
                               "ifindex 4294967295 vid 65535 ipv4_addr ffffffff mac ffffffffffff "
                               "dhcpsn_lease_op " +
                                   std::string(operation)),
                  RESULT)
            << operation;
    EXPECT_EQ(take_calls(), std::vector<std::string>{"dhcpsn_db_lease_flush_all"});
}

TEST_F(NlEdges, a_flush_by_address_tells_what_it_did) {
    for (const char *ifindex : {"0", "320"})
        EXPECT_EQ(send_command(TARNFWD_CMD_ARP_DEL_ALL_BY_MAC,
                               "id 0 mac ffffffffffff ifindex " + std::string(ifindex)),
                  RESULT);
}

// Two marks: whether the station has not finished, and how often it may yet be passed over.
TEST_F(NlEdges, a_supplicant_is_marked_and_counts_down_anew_when_its_mark_changes) {
    tarn_auth_supp supplicant{};
    nl_callees().supplicant = &supplicant;
    auto mark = [&](const char *state) {
        return send_command(TARNFWD_CMD_AUTH_MAC_AGEOUT_INCOMPLETE,
                            "ifindex 5201 mac 020000000099 state " + std::string(state));
    };
    supplicant.ageout_count = 1;
    EXPECT_EQ(mark("0"), 0);
    EXPECT_EQ(supplicant.ageout_count, 1) << "it has that mark already";
    EXPECT_EQ(mark("255"), 0);
    EXPECT_EQ(supplicant.ageout_incomplete, 1);
    EXPECT_EQ(supplicant.ageout_count, 3);
    supplicant.ageout_count = 2;
    EXPECT_EQ(mark("1"), 0);
    EXPECT_EQ(supplicant.ageout_count, 2);
    EXPECT_EQ(mark("0"), 0);
    EXPECT_EQ(supplicant.ageout_incomplete, 0);
    EXPECT_EQ(supplicant.ageout_count, 3);
}

} // namespace
