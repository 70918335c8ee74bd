// The switch as a whole: what is shown of it, and that what is shown makes it again.
#include "tarnctl/fake_switch.h"
#include "tarnctl/real_switch.h"

#include "tarnctl/show.h"
#include "tarnctl/table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace tarnctl;
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

constexpr const char *BATCH = "link add port p1 ifindex 5001 mac 02:00:00:00:01:01 up broadcast\n"
                              "link add port p2 ifindex 5002 mac 02:00:00:00:01:02 up\n"
                              "link add port p3 ifindex 5003 mac 02:00:00:00:01:03\n"
                              "link add port r4 ifindex 5004 mac 02:00:00:00:01:04 up routed\n"
                              "link add port p5 ifindex 5005 mac 02:00:00:00:01:05 up\n"
                              "link add lag lag1 ifindex 4501 mac 02:00:00:00:02:01 mode dynamic\n"
                              "vlan add 10,20-22 mac 02:00:00:00:00:01\n"
                              "vlan add 30 mac 02:00:00:00:00:03 local always-up\n"
                              "vlan options 22 no-member-check\n"
                              "lag attach p2 lag1\n"
                              "lag attach p5 lag1\n"
                              "vlan member add p1 10\n"
                              "vlan member add p1 20-22 tagged\n"
                              "vlan member add lag1 10 tagged\n"
                              "vlan pvid p1 10\n"
                              "link routed r4 4000\n"
                              "stp state p1 forwarding instance all\n"
                              "stp state p1 learning instance 5,7\n"
                              "stp state lag1 forwarding instance 0\n"
                              "arp mac-disparity vlan10 on\n"
                              "redirect disable pppoe\n"
                              "redirect enable ptp\n";

constexpr const char *DEVICES = "chip port 5001 dev1\n"
                                "chip port 5002 dev2\n"
                                "chip port 5004 dev3\n"
                                "chip learn 5001 off\n"
                                "chip static 02:00:00:00:09:01 10 5001\n"
                                "chip group 01:00:5e:01:02:03 10 5002\n"
                                "chip age 100\n";

std::string whole() {
    return std::string(BATCH) + DEVICES;
}

// What a switch of a process of its own shows, once it has been told the batch.
std::string running_after(const std::string &batch) {
    int ends[2];
    if (pipe(ends) != 0)
        return "no pipe";
    pid_t child = fork();
    if (child == 0) {
        real::Switch tarn;
        std::string shown = tarn.batch(batch) == DONE && tarn.line("show running") == DONE
                                ? tarn.printed
                                : "wrong: " + tarn.wrong;
        if (!tarn.has_devices)
            shown = "no devices";
        _exit(write(ends[1], shown.data(), shown.size()) < 0);
    }
    close(ends[1]);
    std::string shown;
    char buffer[4096];
    for (ssize_t length; (length = read(ends[0], buffer, sizeof(buffer))) > 0;)
        shown.append(buffer, static_cast<std::size_t>(length));
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return shown;
}

TEST(tarnctl_running, makes_the_same_switch_again) {
    std::string first = running_after(whole());
    if (first == "no devices")
        GTEST_SKIP() << first;
    EXPECT_THAT(first, Not(HasSubstr("wrong: ")));
    EXPECT_EQ(running_after(first), first);
    for (const char *line : {"link add port p1 ifindex 5001 mac 02:00:00:00:13:89 up broadcast\n",
                             "link add lag lag1 ifindex 4501 mac 02:00:00:00:11:95 mode dynamic\n",
                             "vlan add 10,20-22 mac 02:00:00:00:00:01\n",
                             "vlan add 30 mac 02:00:00:00:00:03 local always-up\n",
                             "vlan options 22 no-member-check\n",
                             "lag attach p2 lag1\n",
                             "vlan member add p1 10\n",
                             "vlan member add p1 20-22 tagged\n",
                             "vlan member add lag1 10 tagged\n",
                             "vlan pvid p1 10\n",
                             "stp state p1 learning instance 5,7\n",
                             "stp state lag1 forwarding instance 0\n",
                             "arp mac-disparity vlan10 on\n",
                             "link routed r4 4000\n",
                             "redirect disable pppoe\n",
                             "redirect enable ptp\n",
                             "chip port 5002 dev2\n",
                             "chip learn 5001 off\n",
                             "chip static 02:00:00:00:09:01 10 5001\n",
                             "chip group 01:00:5e:01:02:03 10 5002\n",
                             "chip age 100\n"})
        EXPECT_THAT(first, HasSubstr(line));
}

// What a switch of flags and files shows, of which the core keeps some yet to come.
TEST(tarnctl_running, tells_flags_and_authentication_as_lines) {
    fake::Switch tarn;
    tarn.proc.files = {{"ifdb", "Interface  IfIndex  Flags  Oper cnt.  Ref cnt. IfFlags\n"
                                "======\n"
                                "vlan10      310      11043           1       1  590a0\n"
                                "  Children: p1 \n"
                                "eth0        407         41           1       1  1000\n"
                                "p1          5001        41           1       1  1040\n"},
                       {"p1/bridge", "00: Blocking\n01: Forwarding\n"},
                       {"p1/auth", "state=Auto\nmethod=MAC Dot1x \nguest-vlan=0\n"},
                       {"redirectprotocolenable", "arp\nptp\n"},
                       {"redirectprotocoldisable", "flowd\n"}};
    tarn.session.brief = true;
    tarn.session.chip = [](const std::string &) -> std::string { throw ProcError("none"); };
    EXPECT_EQ(tarn.line("show running"), DONE) << tarn.wrong;
    EXPECT_EQ(tarn.printed, "link add ethernet eth0 ifindex 407 mac 02:00:00:00:01:97 up running\n"
                            "link add port p1 ifindex 5001 mac 02:00:00:00:13:89 up running\n"
                            "vlan add 10\n"
                            "vlan member add p1 10 # tagged or not is not told\n"
                            "stp state p1 forwarding instance 1\n"
                            "auth port p1 auto method mac,dot1x\n"
                            "dhcp snooping vlan 10 on\n"
                            "arp security vlan 10 on\n"
                            "dhcp flood 10 off\n"
                            "mroute ipv4 add vlan10\n"
                            "mroute ipv6 add vlan10\n"
                            "dhcp trust p1 on\n"
                            "redirect enable ptp\n");
}

TEST(tarnctl_running, of_a_new_switch_is_empty) {
    real::Switch tarn;
    tarn.session.brief = true;
    EXPECT_EQ(tarn.shown("show running"), "");
    tarn.session.brief = false;
    EXPECT_THAT(tarn.shown("show running"), testing::StartsWith("# Not told by a switch"));
    tarn.session.json = true;
    EXPECT_EQ(tarn.shown("show running"), "[]\n");
}

class Shown : public testing::Test {
protected:
    void SetUp() override {
        if (!tarn.has_devices)
            GTEST_SKIP() << "no devices of its own";
        tarn.tell(whole());
        tarn.tell("link set p1 up running broadcast\n");
    }
    json as_json(const std::string &line) {
        tarn.session.json = true;
        return json::parse(tarn.shown(line));
    }
    real::Switch tarn;
};

using tarnctl_shown = Shown;

TEST_F(tarnctl_shown, interfaces_with_all_that_is_known_of_them) {
    std::string shown = tarn.shown("show interfaces");
    EXPECT_THAT(shown, testing::ContainsRegex("NAME +STATE +IFINDEX +DEVICE +SPEED +MAC +PVID +"
                                              "UNTAGGED +TAGGED +STP +LAG/PORTS\n"));
    EXPECT_THAT(
        shown, testing::ContainsRegex("p1 +up +5001 +dev1 +[-0-9]+ +- +10 +10 +20-22 +mixed +-\n"));
    EXPECT_THAT(shown, testing::ContainsRegex("p2 +no-link +5002 +dev2 .* lag1\n"));
    EXPECT_THAT(shown, testing::ContainsRegex("p3 +down +5003 +- "));
    EXPECT_THAT(shown, testing::ContainsRegex("vlan10 +up +310 +- +- +02:00:00:00:00:01 "));
    EXPECT_THAT(tarn.shown("show interfaces p1"), Not(HasSubstr("p2")));
    EXPECT_EQ(tarn.line("show interfaces p9"), REFUSED);
}

TEST_F(tarnctl_shown, interfaces_as_json) {
    json all = as_json("show interfaces p1");
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0]["name"], "p1");
    EXPECT_EQ(all[0]["state"], "up");
    EXPECT_EQ(all[0]["pvid"], 10);
    EXPECT_EQ(all[0]["vlans"], json::parse(R"({"untagged": [10], "tagged": [20, 21, 22]})"));
    EXPECT_EQ(all[0]["stp"]["learning"], json({5, 7}));
    EXPECT_EQ(as_json("show interfaces p2")[0]["lag"], "lag1");
    EXPECT_FALSE(all[0].contains("statistics"));
    tarn.session.statistics = true;
    tarn.session.rate_time = std::chrono::milliseconds(1);
    EXPECT_EQ(as_json("show interfaces p1")[0]["statistics"]["rx_per_second"], 0.0);
}

TEST_F(tarnctl_shown, counts_and_rates) {
    tarn.session.statistics = true;
    tarn.session.rate_time = std::chrono::milliseconds(1);
    std::string shown = tarn.shown("show interfaces");
    EXPECT_THAT(shown, HasSubstr("RX/S"));
    EXPECT_THAT(shown, testing::ContainsRegex("p1 +up +[0-9]+ +[0-9]+ +[0-9]+ +[0-9]+ +"));
    EXPECT_THAT(shown, Not(HasSubstr("p3")));
}

TEST_F(tarnctl_shown, vlans_with_their_ports) {
    std::string shown = tarn.shown("show vlans");
    EXPECT_THAT(shown, testing::ContainsRegex("10 +up +02:00:00:00:00:01 +p1 +lag1 +- +arp-mac"));
    EXPECT_THAT(shown,
                testing::ContainsRegex("30 +[-a-z]+ +02:00:00:00:00:03 .*local,always-up\n"));
    tarn.session.brief = true;
    EXPECT_THAT(tarn.shown("show vlans"), testing::ContainsRegex("\n20 +up +p1\n"));
    json all = as_json("show vlans");
    ASSERT_EQ(all.size(), 5u);
    EXPECT_EQ(all[0]["untagged"], json({"p1"}));
    EXPECT_EQ(all[0]["tagged"], json({"lag1"}));
}

TEST_F(tarnctl_shown, addresses_of_the_chip) {
    std::string shown = tarn.shown("show fdb");
    EXPECT_THAT(shown, testing::ContainsRegex("02:00:00:00:09:01 +10 +static +p1\n"));
    EXPECT_THAT(shown, testing::ContainsRegex("02:00:00:00:00:01 +10 +own +-\n"));
    EXPECT_THAT(tarn.shown("show fdb vlan 20"), Not(HasSubstr("02:00:00:00:09:01")));
    EXPECT_EQ(as_json("show fdb port p1"),
              json::parse(R"([{"mac": "02:00:00:00:09:01", "vid": 10, "kind": "static",)"
                          R"( "ports": ["p1"]}])"));
}

TEST_F(tarnctl_shown, aggregators_and_spanning_tree) {
    EXPECT_THAT(tarn.shown("show lag"),
                testing::ContainsRegex("lag1 +[-a-z]+ +dynamic +p5,p2 +p5,p2\n"));
    std::string shown = tarn.shown("show stp p1");
    EXPECT_THAT(shown, testing::ContainsRegex("p1 +forwarding +0-4,6,8-63\n"));
    EXPECT_THAT(shown, testing::ContainsRegex("p1 +learning +5,7\n"));
    EXPECT_EQ(as_json("show lag")[0]["ports"], json({"p5", "p2"}));
    EXPECT_EQ(as_json("show stp p1")[0]["states"]["learning"], json({5, 7}));
}

TEST_F(tarnctl_shown, what_changes_is_found) {
    Facts before = facts_of(tarn.session);
    EXPECT_TRUE(changes(before, facts_of(tarn.session)).empty());
    tarn.tell("link set p1 down\n"
              "stp state p1 blocking instance 2-4\n"
              "vlan del 30\n"
              "vlan add 40\n"
              "vlan member add p3 40\n"
              "vlan pvid p1 20\n"
              "lag detach p2 lag1\n"
              "redirect enable pppoe\n");
    std::string all;
    for (const Change &one : changes(before, facts_of(tarn.session)))
        all += one.fact + ": " + one.before + ">" + one.now + "\n";
    for (const char *line :
         {"link p1: up>down\n", "stp p1 instance 2-4: forwarding>blocking\n", "vlan 30: up>\n",
          "vlan 40: >no-link\n", "member p3 of vlan 40: >yes\n", "pvid p1: 10>20\n",
          "lag lag1 port p2: yes>\n", "redirect pppoe: disabled>enabled\n"})
        EXPECT_THAT(all, HasSubstr(line));
}

TEST(tarnctl_table, fits_the_terminal_and_has_colours) {
    Table table({"NAME", "VLANS"});
    table.row({{"p1", Colour::name}, {"10,20,30,40,50,60,70,80"}});
    EXPECT_EQ(table.text(0, false), "NAME  VLANS\np1    10,20,30,40,50,60,70,80\n");
    EXPECT_EQ(table.text(20, false), "NAME  VLANS\np1    10,20,30,40,\n      50,60,70,80\n");
    EXPECT_EQ(table.text(5, false), table.text(11, false)); // what is whole stays so
    EXPECT_EQ(table.text(0, true), "NAME  VLANS\n\033[36mp1\033[0m    10,20,30,40,50,60,70,80\n");
}

} // namespace
