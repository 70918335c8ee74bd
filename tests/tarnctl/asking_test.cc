// What is said to a switch that is so already, or stands otherwise.
#include "tarnctl/real_switch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace tarnctl;
using testing::HasSubstr;
using testing::Not;

constexpr const char *PORTS = "link add port p1 ifindex 5001 mac 02:00:00:00:01:01 up\n"
                              "link add port p2 ifindex 5002 mac 02:00:00:00:01:02 up\n"
                              "link add port p3 ifindex 5003 mac 02:00:00:00:01:03 up\n"
                              "link add lag lag1 ifindex 4501 mac 02:00:00:00:02:01\n"
                              "vlan add 10,20-22 mac 02:00:00:00:00:01\n"
                              "vlan member add p1 10\n"
                              "vlan member add p1 20-22 tagged\n"
                              "vlan pvid p1 10\n"
                              "stp state p1 forwarding instance all\n"
                              "stp state p2 learning\n"
                              "lag attach p2 lag1\n"
                              "redirect disable pppoe\n";

constexpr const char *DEVICES = "chip port 5001 dev1\n"
                                "chip port 5002 dev2\n";

TEST(tarnctl_asking, a_batch_said_twice_changes_nothing_and_says_so) {
    real::Switch tarn;
    if (!tarn.has_devices)
        GTEST_SKIP() << "no devices of its own";
    const std::string batch = std::string(PORTS) + DEVICES;
    ASSERT_EQ(tarn.batch(batch), DONE) << tarn.wrong;
    EXPECT_EQ(tarn.printed, "");
    std::string before = tarn.state();
    EXPECT_EQ(tarn.batch(batch), DONE) << tarn.wrong;
    EXPECT_EQ(tarn.state(), before);
    EXPECT_EQ(tarn.session.told, 0u) << tarn.printed;
    std::istringstream lines(batch);
    std::istringstream said(tarn.printed);
    for (std::string line, answer; std::getline(lines, line);) {
        ASSERT_TRUE(std::getline(said, answer));
        EXPECT_THAT(answer, HasSubstr("is already ")) << line;
    }
    EXPECT_THAT(tarn.printed, HasSubstr("batch: all of it is already so: nothing was changed\n"));
}

struct Said {
    const char *line;
    Status status;
    const char *words; // in what is printed, or in what is wrong
};

constexpr Said SAID[] = {
    {"vlan add 10", DONE, "vlan add: VLAN 10 is already there\n"},
    {"vlan add 10,20-22", DONE, "vlan add: each of VLANs 10,20-22 is already there\n"},
    {"vlan add 10 local", REFUSED, "vlan add: VLAN 10 is there, and is not local; --replace makes"},
    {"vlan add 10 always-up", REFUSED, "VLAN 10 is there, and is not always up"},
    {"vlan del 11", REFUSED, "vlan del: there is no VLAN 11; there are: 10,20-22; 'vlan add'"},
    {"vlan options 11 always-up", REFUSED, "there is no VLAN 11"},
    {"vlan options 10", DONE, "vlan10 is already so"},
    {"vlan pvid p1 11", REFUSED, "there is no VLAN 11"},
    {"vlan member add p1 11", REFUSED, "there is no VLAN 11"},
    {"vlan member add p1 11-13 tagged", REFUSED, "there are no VLANs 11-13"},
    {"vlan member add vlan10 10", REFUSED, "vlan10 is a VLAN, and no port or aggregator"},
    {"vlan member del p3 10", REFUSED, "p3 is no member of VLAN 10; it is one of none"},
    {"vlan member del p1 10,11", REFUSED, "there is no VLAN 11"},
    {"stp vlan add 11 instance 1", REFUSED, "there is no VLAN 11"},
    {"stp state p1 forwarding", DONE, "p1 is already forwarding in instance 0\n"},
    {"stp state vlan10 forwarding", REFUSED, "vlan10 is a VLAN"},
    {"link add port p1 ifindex 5001 mac 02:00:00:00:01:01", DONE, "p1 is already there"},
    {"link add port p1 ifindex 5009 mac 02:00:00:00:01:09", REFUSED,
     "the name p1 is taken, by the interface with ifindex 5001"},
    {"link add port p9 ifindex 5001 mac 02:00:00:00:01:09", REFUSED,
     "the ifindex 5001 is taken, by p1"},
    {"link add lag p1 ifindex 5001 mac 02:00:00:00:01:09", REFUSED, "p1 is there, and is no aggr"},
    {"link add lag lag1 ifindex 4501 mac 02:00:00:00:02:01 mode dynamic", REFUSED,
     "lag1 is there, and is a static aggregator"},
    {"link del 4711", REFUSED, "link del: there is no interface 4711; there are: "},
    {"link set 0 up", REFUSED, "there is no interface 0; there are: "},
    {"lag attach 0 0", REFUSED, "there is no interface 0"},
    {"link del vlan11", REFUSED, "there is no VLAN 11"},
    {"link del p4", WRONG, "there is no interface 'p4'; did you mean 'p"},
    {"link set p1 up", DONE, "p1 is already so"},
    {"link routed p1 0", DONE, "p1 is already a switch port"},
    {"lag attach p2 lag1", DONE, "p2 is already in lag1"},
    {"lag attach p1 p2", REFUSED, "p2 is no aggregator; there are: lag1"},
    {"lag attach lag1 lag1", REFUSED, "lag1 is no port: it is an aggregator"},
    {"lag detach p1 lag1", REFUSED, "p1 is not in lag1; it is in none"},
    {"lag del p1", REFUSED, "p1 is no aggregator"},
    {"lag show p1", REFUSED, "lag show: p1 is no aggregator"},
    {"stp show vlan10", REFUSED, "vlan10 is a VLAN, and no port or aggregator"},
    {"stp show p11", REFUSED, "there is no interface 'p11'; did you mean 'p1'?"},
    {"redirect disable pppoe", DONE, "pppoe is already disabled"},
    {"redirect disable pppoa", REFUSED, "there is no redirect 'pppoa'; did you mean 'pppoe'?"},
    {"trace port p9", REFUSED, "there is no interface 'p9'"},
    {"trace --redirect arpp", REFUSED, "there is no redirect 'arpp'; did you mean 'arp'?"},
    {"link add prot p9 ifindex 5009 mac 02:00:00:00:01:09", WRONG,
     "unknown word 'prot' after 'link add'; did you mean 'port'? Say one of"},
    {"proc read nothing", REFUSED, "nothing: No such file or directory"},
};

TEST(tarnctl_asking, what_is_so_is_said_and_what_contradicts_is_refused) {
    real::Switch tarn;
    tarn.tell(PORTS);
    std::string before = tarn.state();
    for (const Said &one : SAID) {
        EXPECT_EQ(tarn.line(one.line), one.status) << one.line << ": " << tarn.wrong;
        EXPECT_THAT(one.status == DONE ? tarn.printed : tarn.wrong, HasSubstr(one.words))
            << one.line;
        EXPECT_EQ(tarn.state(), before) << one.line;
    }
}

// What only the chip tells.
constexpr Said CHIP_SAID[] = {
    {"vlan add 10 mac 02:00:00:00:00:09", REFUSED,
     "VLAN 10 is there, with the MAC 02:00:00:00:00:"},
    {"vlan member add p1 10,20 tagged", REFUSED, "p1 is an untagged member of VLAN 10; --replace"},
    {"vlan member add p1 20-22", REFUSED, "p1 is a tagged member of VLANs 20-22; --replace"},
    {"vlan member add p1 10", DONE, "p1 is already an untagged member of VLAN 10\n"},
    {"vlan pvid p1 10", DONE, "the PVID of p1 is already 10"},
    {"chip port 5001 dev1", DONE, "port 5001 is already on dev1"},
    {"chip port 5001 dev2", REFUSED, "port in use"},
    {"link mac vlan10 02:00:00:00:00:01", DONE, "vlan10 is already of that MAC address"},
};

TEST(tarnctl_asking, so_is_what_only_the_chip_tells) {
    real::Switch tarn;
    if (!tarn.has_devices)
        GTEST_SKIP() << "no devices of its own";
    tarn.tell(std::string(PORTS) + DEVICES + "link set p1 up running\n");
    std::string before = tarn.state();
    for (const Said &one : CHIP_SAID) {
        EXPECT_EQ(tarn.line(one.line), one.status) << one.line << ": " << tarn.wrong;
        EXPECT_THAT(one.status == DONE ? tarn.printed : tarn.wrong, HasSubstr(one.words))
            << one.line;
        EXPECT_EQ(tarn.state(), before) << one.line;
    }
    EXPECT_EQ(tarn.line("link set p1 up"), REFUSED);
    EXPECT_THAT(tarn.wrong, HasSubstr("p1 has link, as its device dev1 has"));
}

TEST(tarnctl_asking, of_a_range_what_is_missing_is_made) {
    real::Switch tarn;
    tarn.tell(PORTS);
    EXPECT_EQ(tarn.line("vlan add 9-23"), DONE) << tarn.wrong;
    EXPECT_EQ(tarn.printed, "vlan add: each of VLANs 10,20-22 is already there\n");
    EXPECT_THAT(tarn.shown("show interfaces"), HasSubstr("vlan23"));
    EXPECT_THAT(userlevel::proc_read("tarn/ifdb").text, HasSubstr("Children: p1 \n"));
}

TEST(tarnctl_asking, of_several_vlans_those_that_are_there_are_taken_away) {
    real::Switch tarn;
    tarn.tell(PORTS);
    EXPECT_EQ(tarn.line("vlan del 20-23"), REFUSED);
    EXPECT_THAT(tarn.wrong, HasSubstr("there is no VLAN 23; there are: 10,20-22"));
    EXPECT_THAT(userlevel::proc_read("tarn/ifdb").text, Not(HasSubstr("vlan20")));
}

TEST(tarnctl_asking, who_means_it_replaces_what_stands) {
    real::Switch tarn;
    tarn.tell(PORTS);
    tarn.session.replace = true;
    tarn.tell("vlan add 10\n"
              "link add lag p1 ifindex 5001 mac 02:00:00:00:01:09\n"
              "link add lag lag2 ifindex 4502 mac 02:00:00:00:02:02\n"
              "lag attach p2 lag2\n");
    std::string ifdb = userlevel::proc_read("tarn/ifdb").text;
    EXPECT_THAT(ifdb, Not(HasSubstr("Children: p1")));
    EXPECT_EQ(tarn.line("lag show lag2"), DONE) << tarn.wrong;
    EXPECT_EQ(tarn.printed, "p2\n");
    EXPECT_EQ(tarn.line("lag show lag1"), REFUSED);
}

TEST(tarnctl_asking, a_member_is_tagged_anew_by_who_means_it) {
    real::Switch tarn;
    if (!tarn.has_devices)
        GTEST_SKIP() << "no devices of its own";
    tarn.tell(std::string(PORTS) + DEVICES);
    tarn.session.replace = true;
    tarn.tell("vlan member add p1 10,20-22\n");
    EXPECT_THAT(tarn.state(), HasSubstr("vlan 20 p1 untagged\n"));
    tarn.tell("vlan member add p1 10 tagged\n");
    EXPECT_THAT(tarn.state(), HasSubstr("vlan 10 p1 tagged\n"));
}

TEST(tarnctl_asking, already_is_an_object_in_json) {
    real::Switch tarn;
    tarn.tell(PORTS);
    tarn.session.json = true;
    EXPECT_EQ(tarn.shown("vlan add 10"), "{\"already\":\"vlan add: VLAN 10 is already there\"}\n");
}

TEST(tarnctl_asking, a_vlan_is_not_made_blindly) {
    real::Switch tarn;
    tarn.session.proc = []() -> ProcTree & { throw ProcMissing("no proc tree"); };
    EXPECT_EQ(tarn.line("vlan add 10"), WRONG);
    EXPECT_EQ(tarn.wrong, "vlan add: one that is there would lose its members, and the switch "
                          "cannot be asked (--proc or --control says where; --replace makes it all "
                          "the same): no proc tree");
    tarn.session.replace = true;
    EXPECT_EQ(tarn.line("vlan add 10"), DONE) << tarn.wrong;
}

TEST(tarnctl_asking, an_address_must_be_one_station_s) {
    real::Switch tarn;
    for (const char *line : {"link add port p1 ifindex 5001 mac ", "vlan add 10 mac ",
                             "link mac 5001 ", "link add lag l1 ifindex 4501 mac "}) {
        EXPECT_EQ(tarn.line(std::string(line) + "01:00:00:00:00:01"), WRONG);
        EXPECT_THAT(tarn.wrong, HasSubstr("that is the address of a group"));
        EXPECT_EQ(tarn.line(std::string(line) + "00:00:00:00:00:00"), WRONG);
        EXPECT_THAT(tarn.wrong, HasSubstr("that is no station's address"));
    }
}

} // namespace
