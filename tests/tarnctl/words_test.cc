// What is wrong, in words; batches; views; help, completion and the manual page.
#include "chip_words.h"
#include "tarnctl/cases.h"

#include "client/attributes.h"
#include "tarnctl/events.h"
#include "tarnctl/help.h"
#include "tarnctl/options.h"
#include "tarnctl/standing.h"
#include "tarnctl/views.h"

#include <algorithm>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;
using namespace tarnctl;

std::string first_line(const std::string &text) {
    return text.substr(0, text.find('\n'));
}

// --- errors of words
// ------------------------------------------------------------------------------

struct WrongLine {
    const char *line, *said;
};

constexpr WrongLine WRONG_LINES[] = {
    {"lnik add",
     "unknown word 'lnik'; did you mean 'link'? Say one of link, fib, vlan, vxlan, pvlan, lag, "
     "stp, mirror, "
     "neigh, arp, igmp, multicast, mroute, auth, dhcp, ryke, udld, vornappsd, fdb, "
     "stack, show, redirect, counters, debug, openflow, proc, monitor, sockets, trace, "
     "explain, chip"},
    {"vlan member", "a word is missing after 'vlan member': say one of add, del"},
    {"vlan member ad",
     "unknown word 'ad' after 'vlan member'; did you mean 'add'? Say one of add, del"},
    {"vlan pvid 5001", "vlan pvid: VID is missing: a VLAN number from 1 to 4094"},
    {"vlan pvid 5001 0", "vlan pvid: VID '0' is wrong; expected a VLAN number from 1 to 4094"},
    {"vlan pvid 5001 4095",
     "vlan pvid: VID '4095' is wrong; expected a VLAN number from 1 to 4094"},
    {"vlan pvid 5001 ten", "vlan pvid: VID 'ten' is wrong; expected a VLAN number from 1 to 4094"},
    {"vlan pvid 5001 10 11", "vlan pvid: unexpected word '11'"},
    {"vlan pvid nobody 10",
     "vlan pvid: PORT 'nobody': no interface of that name is known; expected "
     "the name or the ifindex of an interface"},
    {"vlan add 20-10", "vlan add: VIDS '20-10': the range '20-10' runs backwards; expected VLAN "
                       "numbers from 1 to 4094, such as 10,20-30"},
    {"vlan add 10,,20", "vlan add: VIDS '10,,20' is wrong; expected VLAN numbers from 1 to 4094, "
                        "such as 10,20-30"},
    {"vlan add 1-2-3",
     "vlan add: VIDS '1-2-3': '1-2-3' is no range; expected VLAN numbers from 1 to "
     "4094, such as 10,20-30"},
    {"link set 5001", "link set: a word is missing: up, down, running, broadcast, noarp, promisc, "
                      "allmulti or multicast"},
    {"link set 5001 up down", "link set: 'down' contradicts 'up'"},
    {"link set 5001 up up", "link set: 'up' is said twice"},
    {"link set 5001 up speed",
     "link set: after 'speed' comes MBITS: a number from 0 to 4294967295"},
    {"link set 5001 up speed 1 speed 2", "link set: 'speed' is said twice"},
    {"link set 5001 up duplex both",
     "link set: DUPLEX 'both' is wrong; expected half or full, or a number up to 255"},
    {"link add port p1 ifindex 5001",
     "link add port: 'mac MAC' is missing: a MAC address such as 02:00:00:00:00:01"},
    {"link add port p1 ifindex 5001 mac 02:00:00:00:00",
     "link add port: MAC '02:00:00:00:00' is wrong; expected a MAC address such as "
     "02:00:00:00:00:01"},
    {"link add port a/b ifindex 5001 mac 02:00:00:00:00:01",
     "link add port: NAME 'a/b' is wrong; expected a name of 1 to 15 characters, no number, "
     "without "
     "'/', ':' and blanks"},
    {"link add port sixteencharacter ifindex 5001 mac 02:00:00:00:00:01",
     "link add port: NAME 'sixteencharacter' is wrong; expected a name of 1 to 15 characters, no "
     "number, without '/', ':' and blanks"},
    {"vlan filter 5001 yes", "vlan filter: on|off 'yes' is wrong; expected on or off"},
    {"stp state 5001 frozen",
     "stp state: STATE 'frozen' is wrong; expected disabled, listening, learning, forwarding or "
     "blocking, or a number up to 255"},
    {"stp state 5001 blocking instance 64",
     "stp state: INSTANCES '64' is wrong; expected numbers from 0 to 63, such as 0,5-7, or all"},
    {"vornappsd add 192.0.2", "vornappsd add: ADDRESS '192.0.2' is wrong; expected an IPv4 address "
                              "such as 192.0.2.1"},
    {"vlan classifier add 5001 10 192.0.2.0/33",
     "vlan classifier add: SUBNET '192.0.2.0/33' is wrong; expected an IPv4 network such as "
     "192.0.2.0/24"},
    {"auth port 5001 auto method card",
     "auth port: METHODS 'card': 'card' is none of them; expected mac, dot1x or web, joined by "
     "commas, or none"},
    {"auth forward 5001 rules 192.0.2.0/24:80/sctp",
     "auth forward: RULES '192.0.2.0/24:80/sctp' is wrong; expected "
     "ADDRESS/LENGTH[:PORT[/tcp|/udp]], joined by commas, such as 192.0.2.0/24:80/tcp, or none"},
    {"pvlan upstream put:10:5001", "pvlan upstream: LIST 'put:10:5001' is wrong; expected "
                                   "add:VID:INTERFACE or del:VID:INTERFACE, "
                                   "joined by commas"},
    {"neigh flush port 5001 vlan 0",
     "neigh flush port: VID '0' is wrong; expected a number from 1 to 4094 or any"},
    {"link del \"port1", "the quote \" does not end"},
};

TEST(tarnctl_errors, a_wrong_word_is_named_with_what_was_expected) {
    for (const WrongLine &one : WRONG_LINES) {
        fake::Switch tarn;
        EXPECT_EQ(tarn.line(one.line), WRONG) << one.line;
        EXPECT_EQ(first_line(tarn.wrong), one.said);
        EXPECT_TRUE(tarn.sent.empty()) << one.line;
    }
}

TEST(tarnctl_errors, a_missing_word_shows_the_usage) {
    fake::Switch tarn;
    tarn.line("lag attach 5001");
    EXPECT_THAT(tarn.wrong, HasSubstr("\nusage: lag attach PORT LAG"));
}

// Each needed argument of each command in turn.
TEST(tarnctl_errors, no_argument_that_is_needed_can_be_left_out) {
    for (const Subcommand &row : subcommands()) {
        bool needs =
            std::any_of(row.arguments.begin(), row.arguments.end(), [](const Argument &one) {
                return one.needed() && one.kind != Kind::fixed;
            });
        fake::Switch tarn;
        if (!needs)
            continue;
        EXPECT_EQ(tarn.line(std::string(row.words)), WRONG) << row.words;
        EXPECT_THAT(tarn.wrong, HasSubstr(" is missing: ")) << row.words;
    }
}

// --- what the switch answers
// ----------------------------------------------------------------------

struct Refusal {
    int error;
    const char *words;
};

constexpr Refusal REFUSALS[] = {
    {-1, "the interface is unknown or of the wrong type, or there is nothing like it (-1)"},
    {-22, "refused as invalid: something named is not there, or does not fit (EINVAL, -22)"},
    {-19, "there is no such interface (ENODEV, -19)"},
    {-95, "the switch does not know this command, or this kind (EOPNOTSUPP, -95)"},
    {-34, "Numerical result out of range (ERANGE, -34)"},
    {-201, "no MAC address, or no such kind of aggregator (TARNFWD_ERR_BAD_ARG, -201)"},
    {-202, "the interface manager refused it (-202)"},
    {-203, "there is no interface of that ifindex (TARNFWD_ERR_NO_INTERFACE, -203)"},
    {-204, "the interface is of a type that this does not go with, or was not bound "
           "(TARNFWD_ERR_WRONG_TYPE, -204)"},
    {-205, "the switch is out of memory (TARNFWD_ERR_NO_MEMORY, -205)"},
    {-206, "the interface database did not take the record (TARNFWD_ERR_TREE_INSERT, -206)"},
    {-210, "its network device could not be made: is there one of that name already? "
           "(TARNFWD_ERR_NETDEV, -210)"},
    {-215, "the interface database could not be made (TARNFWD_ERR_INIT, -215)"},
    {-218, "port and aggregator are of different types (TARNFWD_ERR_TYPE_MISMATCH, -218)"},
    {-226, "that ifindex was taken meanwhile (TARNFWD_ERR_EXISTS, -226)"},
};

TEST(tarnctl_answers, a_refusal_is_said_in_words) {
    for (const Refusal &one : REFUSALS) {
        fake::Switch tarn;
        tarn.replies = {{one.error}};
        EXPECT_EQ(tarn.line("vlan filter 5001 on"), REFUSED);
        EXPECT_EQ(tarn.wrong, std::string("vlan filter: ") + one.words);
    }
}

TEST(tarnctl_answers, what_the_kernel_adds_is_said_with_the_attribute) {
    fake::Switch tarn;
    // Behind two headers, 16 and 4 bytes, and IFINDEX, 8 bytes.
    tarn.replies = {{-34, "Attribute failed policy validation", 28}};
    EXPECT_EQ(tarn.line("vlan filter 5001 on"), REFUSED);
    EXPECT_THAT(tarn.wrong, HasSubstr("; it says 'Attribute failed policy validation' of the "
                                      "attribute STATE"));
}

TEST(tarnctl_answers, of_many_commands_all_are_sent_and_the_first_refusal_is_named) {
    fake::Switch tarn;
    tarn.replies = {{0}, {-1}, {-22}, {0}};
    EXPECT_EQ(tarn.line("vlan del 10-13"), REFUSED);
    EXPECT_EQ(tarn.sent.size(), 4u);
    EXPECT_THAT(tarn.wrong, StartsWith("vlan del (VLAN 11): "));
    EXPECT_THAT(tarn.wrong, HasSubstr("(-1)"));
}

TEST(tarnctl_answers, a_switch_that_is_not_there_is_said_with_what_was_tried) {
    ::setenv("TARN_NETLINK", "/nowhere/netlink", 1);
    try {
        client::find();
        FAIL();
    } catch (const client::Error &error) {
        EXPECT_STREQ(error.what(), "no switch answers; tried:\n  the socket '/nowhere/netlink': No "
                                   "such file or directory");
    }
    try {
        client::find("/elsewhere/netlink");
        FAIL();
    } catch (const client::Error &error) {
        EXPECT_THAT(error.what(), HasSubstr("/elsewhere/netlink"));
        EXPECT_THAT(error.what(), testing::Not(HasSubstr("/nowhere")));
    }
}

// A socket that is listened at by nobody awake.
TEST(tarnctl_answers, a_switch_that_hangs_is_not_waited_for_for_ever) {
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    std::string path = testing::TempDir() + "tarnctl-hangs-" + std::to_string(getpid());
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    ASSERT_EQ(listen(fd, 0), 0);
    for (int client = 0; client < 3; client++) // the first two fit
        try {
            control_ask(path, "show sockets", std::chrono::milliseconds(50));
            ADD_FAILURE();
        } catch (const ProcMissing &error) {
            EXPECT_EQ(error.what(), "the control socket '" + path +
                                        "': the switch is there, but does not answer");
        }
    close(fd);
    unlink(path.c_str());
}

TEST(tarnctl_answers, a_proc_tree_that_is_not_there_is_no_refusal) {
    fake::Switch tarn;
    tarn.session.proc = []() -> ProcTree & { throw ProcMissing("no proc tree"); };
    EXPECT_EQ(tarn.line("show interfaces"), WRONG);
    EXPECT_EQ(tarn.wrong, "no proc tree");
}

// --- batches
// --------------------------------------------------------------------------------------

struct Batch {
    fake::Switch tarn;
    std::vector<std::string> complaints;

    Batch() { tarn.session.replace = true; } // nobody can be asked

    Status run(const std::string &text, bool force = false) {
        std::istringstream input(text);
        return run_batch(tarn.session, input, "file", force,
                         [this](const std::string &what) { complaints.push_back(what); });
    }
};

TEST(tarnctl_batch, blank_lines_and_comments_are_passed_over) {
    Batch batch;
    EXPECT_EQ(batch.run("# a comment\n\n  \t\r\nvlan add 10 # and one behind\n   vlan del 10\n"),
              DONE);
    EXPECT_EQ(batch.tarn.sent.size(), 2u);
}

TEST(tarnctl_batch, stops_at_the_first_wrong_line_with_its_number) {
    Batch batch;
    EXPECT_EQ(batch.run("vlan add 10\n\nvlan ad 11\nvlan add 12\n"), WRONG);
    EXPECT_EQ(batch.tarn.sent.size(), 1u);
    ASSERT_EQ(batch.complaints.size(), 1u);
    EXPECT_THAT(batch.complaints[0], StartsWith("file:3: unknown word 'ad' after 'vlan'"));
}

TEST(tarnctl_batch, stops_at_the_first_refused_line) {
    Batch batch;
    batch.tarn.replies = {{0}, {-210}};
    EXPECT_EQ(batch.run("vlan add 10\nvlan add 11\nvlan add 12"), REFUSED);
    EXPECT_EQ(batch.tarn.sent.size(), 2u);
    EXPECT_THAT(batch.complaints[0], StartsWith("file:2: vlan add: "));
}

TEST(tarnctl_batch, goes_on_when_forced_and_tells_of_the_first) {
    Batch batch;
    batch.tarn.replies = {{-210}, {0}};
    EXPECT_EQ(batch.run("vlan add 10\nnonsense\nvlan add 12\n", true), REFUSED);
    EXPECT_EQ(batch.tarn.sent.size(), 2u);
    EXPECT_EQ(batch.complaints.size(), 2u);
}

TEST(tarnctl_batch, quotes_hold_words_together) {
    EXPECT_EQ(words_of("a 'b c' \"d'e\" f\\ g '' h#i #j"),
              (Words{"a", "b c", "d'e", "f g", "", "h#i"}));
}

// --- views
// ----------------------------------------------------------------------------------------

TEST(tarnctl_show, counters_as_json_keep_names_with_underscores) {
    json shown = json::parse(
        show_view("pktcounts",
                  "PACKET COUNTS\n---------\nkelm_agent_inspects: 5\nkelm_agent_stops: 3 1:2 4:1\n"
                  "stp_inspects: 0 DISABLED\n",
                  true));
    EXPECT_EQ(shown["kelm_agent"]["inspects"], 5);
    EXPECT_EQ(shown["kelm_agent"]["stops"], 3);
    EXPECT_EQ(shown["kelm_agent"]["reasons"]["4"], 1);
    EXPECT_EQ(shown["stp"]["disabled"], true);
}

// What each view reads, and a fact that its JSON must hold.
struct ViewCase {
    const char *line, *file, *text, *json_text;
};

constexpr ViewCase VIEW_CASES[] = {
    {"stp show port1", "port1/bridge", "00: Blocking\n01: Forwarding\n",
     R"([{"instance":0,"state":"Blocking"},{"instance":1,"state":"Forwarding"}])"},
    {"lag show lag1", "lag1/members", "port1\nport2\n", R"(["port1","port2"])"},
    {"auth show port1", "port1/auth", "state=Auto\nmethod=MAC \nguest-vlan=0\n",
     R"({"state":"Auto","method":"MAC ","guest-vlan":"0"})"},
    {"auth forward-show port1", "port1/authfwd", "0.0.0.0:arp\n", R"(["0.0.0.0:arp"])"},
    {"show memory", "meminfo",
     "MEMINFO TABLE\n---------\nFree Pages 12\nNumber of vlan_port_adds 3\n",
     R"({"Free Pages":12,"Number of vlan_port_adds":3})"},
    {"show refcounts", "refcounts",
     "IRREGULAR REFERENCE COUNTS\nRegular reference counts of 1 are not shown\n---------\n"
     "Interface port1 reference count 2\n",
     R"([{"name":"port1","references":2}])"},
    {"dhcp lease show", "arpsecdb",
     "DHCP Snooping ARP Security Database\n---------\nClient IP       MAC Address    VLAN "
     "Port(ifindex)\n192.0.2.9       0200.0000.0901 10   5001\n",
     R"([{"address":"192.0.2.9","mac":"0200.0000.0901","vid":10,"ifindex":5001}])"},
    {"arp security show", "arpseccnt",
     "DHCP Snooping ARP Security statistics\n---------\n5001 1 2 3 4 5 6 7\n",
     R"([{"ifindex":5001,"counters":[1,2,3,4,5,6,7]}])"},
    {"show subnet-vlans", "subnetvlan", "Interfaces are skipped\n\nport1 tree size: 2\n",
     R"([{"name":"port1","subnets":2}])"},
    {"show openflow port1", "port1/openflow", "1\n", R"("1")"},
    {"proc read a/b", "a/b", "x\ny\n", R"(["x","y"])"},
};

TEST(tarnctl_show, each_view_shows_its_file_and_has_json) {
    for (const ViewCase &one : VIEW_CASES) {
        fake::Switch tarn;
        tarn.proc.files[one.file] = one.text;
        EXPECT_EQ(tarn.line(one.line), DONE) << tarn.wrong;
        EXPECT_EQ(tarn.printed, one.text);
        tarn.printed.clear();
        tarn.session.json = true;
        tarn.line(one.line);
        EXPECT_EQ(json::parse(tarn.printed), json::parse(one.json_text)) << one.line;
    }
}

TEST(tarnctl_show, every_view_gives_json_whatever_the_file_holds) {
    for (const Subcommand &row : subcommands()) {
        if (row.action != Action::show)
            continue;
        for (const char *text : {"", "\n", "nonsense\n", "a: b: c\n  Children:\n=\n \xff\n"})
            EXPECT_TRUE(json::accept(show_view(row.file, text, true))) << row.words;
    }
}

TEST(tarnctl_show, a_file_that_is_not_there_is_refused) {
    fake::Switch tarn;
    EXPECT_EQ(tarn.line("stp show port9"), REFUSED);
    EXPECT_THAT(tarn.wrong, HasSubstr("port9/bridge"));
}

// --- redirects and settings
// -----------------------------------------------------------------------

struct RedirectTest : testing::Test {
    fake::Switch tarn;
    RedirectTest() {
        tarn.proc.files["redirectprotocolenable"] = "arp\nipv4\n";
        tarn.proc.files["redirectprotocoldisable"] = "flowd\n";
    }
};

TEST_F(RedirectTest, are_shown_with_their_state) {
    tarn.line("show redirects");
    EXPECT_EQ(tarn.printed, "arp                  enabled\nipv4                 enabled\n"
                            "flowd                disabled\n");
    tarn.printed.clear();
    tarn.session.json = true;
    tarn.line("show redirects");
    EXPECT_EQ(json::parse(tarn.printed)[2], (json{{"name", "flowd"}, {"enabled", false}}));
}

TEST_F(RedirectTest, an_unknown_one_is_refused_before_anything_is_written) {
    EXPECT_EQ(tarn.line("redirect enable nobody"), REFUSED);
    EXPECT_EQ(tarn.wrong, "there is no redirect 'nobody'; there are: arp ipv4 flowd");
    EXPECT_TRUE(tarn.proc.writes.empty());
}

TEST_F(RedirectTest, one_that_stays_as_it_was_is_told) {
    EXPECT_EQ(tarn.line("redirect enable flowd"), REFUSED);
    EXPECT_THAT(tarn.wrong, HasSubstr("did not enable 'flowd'"));
}

TEST_F(RedirectTest, is_written_as_a_line) {
    tarn.proc.on_write = [this](const std::string &, const std::string &) {
        tarn.proc.files["redirectprotocoldisable"] = "arp\nflowd\n";
        tarn.proc.files["redirectprotocolenable"] = "ipv4\n";
    };
    EXPECT_EQ(tarn.line("redirect disable arp"), DONE) << tarn.wrong;
    EXPECT_EQ(tarn.proc.writes, std::vector<std::string>{"redirectprotocoldisable: arp\n"});
}

TEST(tarnctl_set, lines_go_to_their_files) {
    fake::Switch tarn;
    for (const char *line :
         {"counters clear", "counters hide arp", "debug log 3", "debug vlan 10", "debug posts 1",
          "debug burst 5", "debug interval 250", "openflow port port1 1", "vlan shut-all port1 1",
          "arp security clear", "proc write pktdebug 1 2"})
        EXPECT_EQ(tarn.line(line), DONE) << line << tarn.wrong;
    EXPECT_EQ(tarn.proc.writes,
              (std::vector<std::string>{
                  "clearpktcount: 0\n", "hidecounter: arp\n", "pktdebug: 3\n", "pktdebugvlan: 10\n",
                  "pktdebugpostenable: 1\n", "pktdebugratelimitburst: 5\n",
                  "pktdebugratelimitinterval: 250\n", "port1/openflow: 1\n",
                  "port1/disablevlans: 1\n", "arpseccnt: 0\n", "pktdebug: 1 2\n"}));
}

TEST(tarnctl_trace, says_what_is_wanted) {
    fake::Switch tarn;
    EXPECT_EQ(tarn.line("trace"), DONE);
    EXPECT_EQ(tarn.line("trace port p1 redirect arp drops count 2"), DONE);
    tarn.session.json = true;
    EXPECT_EQ(tarn.line("trace --port p1 --drops"), DONE);
    EXPECT_EQ(tarn.traces,
              (std::vector<std::string>{"trace", "trace port p1 redirect arp drops count 2",
                                        "trace json port p1 drops"}));
}

TEST(tarnctl_explain, says_the_frame_to_the_switch) {
    fake::Switch tarn;
    std::vector<std::string> said;
    tarn.session.explain = [&](const std::string &order) {
        said.push_back(order);
        return "lacp\n";
    };
    EXPECT_EQ(tarn.line("explain p1 0180c2 000002"), DONE);
    EXPECT_EQ(tarn.printed, "lacp\n");
    tarn.session.json = true;
    EXPECT_EQ(tarn.line("explain 5001 0180c2"), DONE);
    EXPECT_EQ(said,
              (std::vector<std::string>{"explain p1 0180c2 000002", "explain json 5001 0180c2"}));
    EXPECT_EQ(tarn.line("explain p1"), WRONG);
}

TEST(tarnctl_sockets, are_shown_as_they_are_and_as_json) {
    for (const char *words : {"sockets", "show sockets"}) {
        fake::Switch tarn;
        tarn.socket_list = "Family  Name  Lost\n46      LACP  3\n";
        EXPECT_EQ(tarn.line(words), DONE);
        EXPECT_EQ(tarn.printed, tarn.socket_list);
        tarn.session.json = true;
        tarn.printed.clear();
        EXPECT_EQ(tarn.line(words), DONE);
        EXPECT_EQ(nlohmann::json::parse(tarn.printed),
                  nlohmann::json::parse(R"([{"family": 46, "name": "LACP", "lost": 3}])"));
    }
}

TEST(tarnctl_sockets, are_offered_and_described) {
    EXPECT_THAT(complete({"soc"}, {}), testing::ElementsAre("sockets"));
    EXPECT_THAT(help({"sockets"}), testing::HasSubstr("tarnctl sockets"));
    EXPECT_THAT(manual(), testing::HasSubstr(".B sockets\n"));
}

TEST(tarnctl_chip, gets_the_rest_of_the_line) {
    fake::Switch tarn;
    EXPECT_EQ(tarn.line("chip vlan 5001 10 tagged"), DONE);
    EXPECT_EQ(tarn.chip_lines, std::vector<std::string>{"vlan 5001 10 tagged"});
    EXPECT_EQ(tarn.printed, "done\n");
    EXPECT_EQ(tarn.line("chip show"), DONE);
    EXPECT_EQ(tarn.chip_lines.back(), "show");
    tarn.session.json = true;
    EXPECT_EQ(tarn.line("chip show ports"), DONE);
    EXPECT_EQ(tarn.chip_lines.back(), "-j show ports");
}

TEST(tarnctl_chip, has_the_words_of_the_chip) {
    for (const chip_word &word : CHIP_WORDS) {
        std::string text = help({"chip", word.name});
        std::string usage = std::string("tarnctl chip ") + word.name;
        if (*word.arguments != '\0')
            usage += std::string(" ") + word.arguments;
        EXPECT_THAT(text, StartsWith(usage + "\n"));
        EXPECT_THAT(text, HasSubstr(word.help));
    }
    EXPECT_THAT(help({"chip"}), HasSubstr("tarnctl chip mac MAC VIDS\n"));
    fake::Switch tarn;
    EXPECT_EQ(tarn.line("chip fly away"), WRONG);
    EXPECT_THAT(tarn.wrong, StartsWith("unknown word 'fly' after 'chip': say one of port, noport"));
    EXPECT_TRUE(tarn.chip_lines.empty());
}

TEST(tarnctl_chip, is_read_by_the_names_of_its_ports) {
    Chip chip = parse_chip("port 5001 dev1 link up pvid 10 learn on trusted off auth off name p1 "
                           "mirror 5002 rx 3 tx 4\n"
                           "vlan 10 p1 tagged 5002 untagged\n"
                           "fdb 02:00:00:00:00:01 10 learned p1\n");
    EXPECT_EQ(chip.ports[0].mirror, 5002u);
    EXPECT_EQ(chip.ports[0].counts.size(), 2u) << "rx and tx";
    EXPECT_EQ(chip.vlans[10], (std::map<std::uint32_t, bool>{{5001, true}, {5002, false}}));
    EXPECT_EQ(chip.addresses[0].ports, std::vector<std::uint32_t>{5001});
}

TEST(tarnctl_interfaces, are_said_one_by_one_or_several_at_once) {
    fake::Switch tarn;
    EXPECT_EQ(tarn.line("vlan member add 5001,5003,5001 10"), DONE);
    ASSERT_EQ(tarn.sent.size(), 2u);
    fake::Switch one, other;
    one.line("vlan member add 5001 10");
    other.line("vlan member add 5003 10");
    auto behind_the_number = [](const fake::Bytes &message) {
        return fake::Bytes(message.begin() + 16, message.end());
    };
    EXPECT_EQ(behind_the_number(tarn.sent[0]), behind_the_number(one.sent[0]));
    EXPECT_EQ(behind_the_number(tarn.sent[1]), behind_the_number(other.sent[0]));
    EXPECT_EQ(tarn.line("vlan member add 5001,nobody 10"), WRONG);
    EXPECT_EQ(tarn.sent.size(), 2u);
    tarn.replies = {{0}, {0}, {0}, {-22}};
    EXPECT_EQ(tarn.line("vlan pvid 5001,5002 10"), REFUSED);
    EXPECT_THAT(tarn.wrong, StartsWith("vlan pvid (interface 5002) (VLAN 10): "));
}

// --- events
// ---------------------------------------------------------------------------------------

client::Event event(std::uint8_t command, const fake::Wire &wire) {
    return {command, wire.attributes()};
}

const Names NAMES{{5001, "port1"}};

TEST(tarnctl_events, an_address_is_told_on_one_line) {
    auto added = event(72, fake::Wire(72)
                               .hex(9, "020000000901")
                               .u32(1, 5001)
                               .u16(4, 10)
                               .u8(6, 1)
                               .u8(62, 3)
                               .u32(53, 5000)
                               .hex(52, "c0000202"));
    EXPECT_EQ(event_line(added, NAMES),
              "fdb-add mac 02:00:00:00:09:01 ifindex 5001 interface port1 vid 10 state 1 fdb_event "
              "moved-source vxlan_vni 5000 vxlan_remote_addr 192.0.2.2\n");
    json shown = json::parse(event_json(added, {}));
    EXPECT_EQ(shown["event"], "fdb-add");
    EXPECT_EQ(shown["vid"], 10);
    EXPECT_EQ(shown["fdb_event"], "moved-source");
}

TEST(tarnctl_events, a_denial_of_service_match) {
    auto match = event(74, fake::Wire(74).u32(1, 5001).u8(59, 7).u16(60, 0x800).hex(
                               61, "4500001400000000400600000102030405060708"));
    EXPECT_EQ(event_line(match, {}),
              "dos-match ifindex 5001 dos_reason 7 ethertype 0x0800 dos_header "
              "4500001400000000400600000102030405060708\n");
}

TEST(tarnctl_events, a_violation_of_arp_security) {
    auto violation = event(75, fake::Wire(75)
                                   .u32(1, 5001)
                                   .u16(4, 10)
                                   .hex(11, "c0000209")
                                   .u8(28, 4)
                                   .hex(9, "020000000901"));
    EXPECT_EQ(
        event_line(violation, {}),
        "arp-violation ifindex 5001 vid 10 ipv4_addr 192.0.2.9 arpsec_reason mac-mismatch mac "
        "02:00:00:00:09:01\n");
}

TEST(tarnctl_events, unknown_ones_are_told_by_number) {
    EXPECT_EQ(event_line(event(99, fake::Wire(99).hex(63, "0a0b")), {}),
              "event-99 attribute_63 0a0b\n");
}

// --- help, completion, the manual page
// ------------------------------------------------------------

TEST(tarnctl_help, every_topic_is_listed_and_every_row_has_one) {
    std::string all = help({});
    for (const Topic &topic : topics())
        EXPECT_THAT(all, HasSubstr("  " + std::string(topic.word) + " "));
    for (const Subcommand &row : subcommands()) {
        std::string first(row.words.substr(0, row.words.find(' ')));
        EXPECT_TRUE(std::any_of(topics().begin(), topics().end(), [&](const Topic &topic) {
            return topic.word == first;
        })) << row.words;
    }
    for (const Topic &topic : topics())
        EXPECT_FALSE(rows_under({std::string(topic.word)}).empty()) << topic.word;
}

TEST(tarnctl_help, each_level_shows_what_is_below_it) {
    EXPECT_THAT(help({"vlan"}), HasSubstr("tarnctl vlan member add PORT VIDS [tagged]"));
    EXPECT_THAT(help({"vlan", "member"}), HasSubstr("tarnctl vlan member del PORT VIDS"));
    EXPECT_THAT(help({"vlan", "member"}), testing::Not(HasSubstr("vlan pvid")));
    EXPECT_THAT(help({"vlan", "member", "add"}), HasSubstr("example: tarnctl vlan member add"));
    EXPECT_THROW(help({"vlan", "nonsense"}), WordError);
}

TEST(tarnctl_help, is_given_for_words_that_ask_for_it) {
    fake::Switch tarn;
    EXPECT_EQ(tarn.line("help vlan pvid"), DONE);
    EXPECT_THAT(tarn.printed, HasSubstr("tarnctl vlan pvid PORT VID"));
    EXPECT_EQ(tarn.line("vlan pvid --help"), DONE);
    EXPECT_TRUE(tarn.sent.empty());
}

TEST(tarnctl_help, no_line_is_too_long) {
    for (const Subcommand &row : subcommands()) {
        std::istringstream lines(help(words_of(std::string(row.words))));
        for (std::string line; std::getline(lines, line);)
            EXPECT_LE(line.size(), 120u) << line;
    }
}

TEST(tarnctl_completion, the_script_and_the_tool_know_every_row) {
    std::string script = completion_script();
    std::size_t from = script.find('\'') + 1;
    auto rows = split(script.substr(from, script.find('\'', from) - from), '\n');
    for (const Subcommand &row : subcommands()) {
        EXPECT_THAT(rows, testing::Contains(std::string(row.words)));
        Words words = words_of(std::string(row.words));
        for (std::size_t count = 1; count <= words.size(); count++) {
            Words begun(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(count));
            EXPECT_THAT(complete(begun, {}), testing::Contains(words[count - 1])) << row.words;
        }
    }
}

TEST(tarnctl_completion, offers_arguments_values_and_names) {
    const Known known{{"port1", "lag1"}, {"arp"}};
    using Offer = std::vector<std::string>;
    EXPECT_EQ(complete({"lag", "attach", ""}, known), (Offer{"port1", "lag1"}));
    EXPECT_EQ(complete({"lag", "attach", "p"}, known), (Offer{"port1"}));
    EXPECT_EQ(complete({"link", "set", "port1", "du"}, known), (Offer{"duplex"}));
    EXPECT_EQ(complete({"link", "set", "port1", "duplex", ""}, known), (Offer{"half", "full"}));
    EXPECT_EQ(complete({"vlan", "filter", "port1", ""}, known), (Offer{"on", "off"}));
    EXPECT_EQ(complete({"stp", "state", "port1", "f"}, known), (Offer{"forwarding"}));
    EXPECT_EQ(complete({"redirect", "enable", ""}, known), (Offer{"arp"}));
    EXPECT_THAT(complete({"vlan", "member", "add", "port1", "10", "t"}, known),
                testing::ElementsAre("tagged"));
    EXPECT_EQ(complete({"vlan", "member", "add", "port1", "10", "tagged", ""}, known), (Offer{}));
    EXPECT_EQ(complete({"nonsense", ""}, known), (Offer{}));
}

TEST(tarnctl_manual, mentions_every_row_and_option) {
    std::string page = manual();
    auto minus = [](std::string text) {
        for (std::size_t at = 0; (at = text.find('-', at)) != std::string::npos; at += 2)
            text.insert(at, "\\");
        return text;
    };
    for (const Subcommand &row : subcommands())
        EXPECT_THAT(page, HasSubstr("\n.B " + minus(std::string(row.words)))) << row.words;
    for (const Option &option : options())
        EXPECT_THAT(page, HasSubstr(minus(std::string(option.word))));
    EXPECT_THAT(page, HasSubstr("\n.TH TARNCTL 8"));
}

// The manual page's own example, from the first line to the last.
TEST(tarnctl_manual, its_example_works) {
    std::string page = manual();
    std::size_t at = page.find(".SH EXAMPLES");
    ASSERT_NE(at, std::string::npos);
    Batch batch;
    batch.tarn.proc.files = {{"ifdb", ""}, {"port2/bridge", ""}}; // nobody can be asked
    std::istringstream lines(page.substr(at));
    bool example = false;
    for (std::string line; std::getline(lines, line);) {
        std::erase(line, '\\');
        if (line == ".EX" || line == ".EE")
            example = line == ".EX";
        else if (example && !line.starts_with("show")) { // there is no switch to show
            EXPECT_EQ(batch.tarn.line(line), DONE) << line << ": " << batch.tarn.wrong;
        }
    }
    EXPECT_GT(batch.tarn.sent.size(), 100u);
}

// --- options
// --------------------------------------------------------------------------------------

TEST(tarnctl_options, stand_before_or_behind_the_words) {
    Settings settings = read_options({"-j", "show", "interfaces", "--proc", "/tmp"});
    EXPECT_TRUE(settings.json);
    EXPECT_EQ(settings.proc, "/tmp");
    EXPECT_EQ(settings.words, (Words{"show", "interfaces"}));
}

TEST(tarnctl_options, wait_with_or_without_a_number) {
    EXPECT_EQ(read_options({"show", "interfaces"}).wait, 0);
    EXPECT_EQ(read_options({"--wait", "show", "interfaces"}).wait, 10);
    EXPECT_EQ(read_options({"show", "interfaces", "--wait"}).wait, 10);
    Settings settings = read_options({"--wait", "3", "vlan", "add", "4"});
    EXPECT_EQ(settings.wait, 3);
    EXPECT_EQ(settings.words, (Words{"vlan", "add", "4"}));
}

TEST(tarnctl_options, that_nobody_knows_are_refused) {
    EXPECT_THROW(read_options({"--jsn", "show"}), WordError);
    EXPECT_THROW(read_options({"--socket"}), WordError);
    EXPECT_EQ(read_options({"--", "--jsn"}).words, Words{"--jsn"});
}

} // namespace
