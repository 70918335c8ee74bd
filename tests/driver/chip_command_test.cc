#include "chip_test.h"
#include "chip_words.h"

#include <algorithm>
#include <cstring>

using Words = ChipTest;

namespace {

constexpr int INVALID = -22, NO_DEVICE = -19, EXISTS = -17, NO_ENTRY = -2, NO_MEMORY = -12;

const std::string NO_PORT = "open it with 'port PORT DEVICE'; 'show ports' lists them\n";

} // namespace

TEST_F(Words, an_empty_line_does_nothing) {
    EXPECT_EQ(tell(""), "");
    EXPECT_EQ(tell(" \t\n"), "");
}

TEST_F(Words, blanks_and_a_line_end_do_not_matter) {
    tell("  pvid\t101   7 \n");
    EXPECT_NE(tell("show ports").find("pvid 7"), std::string::npos);
}

TEST_F(Words, an_unknown_word_is_named) {
    EXPECT_EQ(refuse("prot 5 eth0", INVALID), "unknown word 'prot': 'help' lists the words\n");
}

TEST_F(Words, a_wrong_number_of_words_shows_how_it_is_used) {
    EXPECT_EQ(refuse("port 5", INVALID), "wrong number of words after 'port': port PORT DEVICE\n");
    EXPECT_EQ(refuse("vlan 101 1 tagged now", INVALID),
              "wrong number of words after 'vlan': vlan PORT VIDS tagged|untagged\n");
    EXPECT_EQ(refuse("vlan 1 2 3 4 5 6 7 8 9", INVALID),
              "wrong number of words after 'vlan': vlan PORT VIDS tagged|untagged\n");
    EXPECT_EQ(refuse("port 5 a-device-name-of-more-than-thirty-two-bytes", INVALID),
              "wrong number of words after 'port': port PORT DEVICE\n");
}

TEST_F(Words, help_lists_every_word) {
    std::string help = tell("help");
    for (const chip_word &word : CHIP_WORDS) {
        std::string usage = word.name;
        if (*word.arguments != '\0')
            usage += std::string(" ") + word.arguments;
        EXPECT_NE(help.find(usage + ": " + word.help + "\n"), std::string::npos) << word.name;
    }
    EXPECT_EQ(std::count(help.begin(), help.end(), '\n'), std::ssize(CHIP_WORDS));
}

// Each by a line that it alone understands.
TEST_F(Words, each_word_does_its_own) {
    const std::map<std::string, std::string> lines{{"port", "port 105 p5"},
                                                   {"noport", "noport 104"},
                                                   {"learn", "learn 101 off"},
                                                   {"trusted", "trusted 101 on"},
                                                   {"mac", "mac 02:00:00:00:00:01 1"},
                                                   {"nomac", "nomac 02:00:00:00:00:01 1"},
                                                   {"static", "static 02:00:00:00:00:02 1 101"},
                                                   {"nostatic", "nostatic 02:00:00:00:00:02 1"},
                                                   {"group", "group 01:00:5e:01:02:03 1 101"},
                                                   {"nogroup", "nogroup 01:00:5e:01:02:03 1"},
                                                   {"fdb", "fdb flush"},
                                                   {"age", "age 7"},
                                                   {"flood", "flood software"},
                                                   {"trap", "trap arp off"},
                                                   {"filter", "filter 88b5"},
                                                   {"sflow", "sflow 9"},
                                                   {"show", "show settings"},
                                                   {"link", "link 101 down"},
                                                   {"vlan", "vlan 101 7 tagged"},
                                                   {"novlan", "novlan 101 7"},
                                                   {"pvid", "pvid 101 9"},
                                                   {"help", "help"}};
    for (const chip_word &word : CHIP_WORDS)
        tell(lines.at(word.name));
    EXPECT_EQ(tell("show settings"), "age 7\nflood software\nunknown-multicast on\nsflow 9\nfilter "
                                     "88b5\n");
    std::string ports = tell("show ports");
    EXPECT_NE(ports.find("port 101 p1 link down pvid 9 learn off trusted on"), std::string::npos);
    EXPECT_EQ(ports.find("port 104"), std::string::npos);
    EXPECT_NE(ports.find("port 105 p5"), std::string::npos);
    EXPECT_EQ(tell("show fdb"), "");
    EXPECT_NE(tell("show traps").find("trap arp off"), std::string::npos);
    EXPECT_EQ(tell("show vlans").find("vlan 7"), std::string::npos);
}

TEST_F(Words, a_port_goes_by_its_name_in_the_switch_too) {
    home.facts.ports[105] = {};
    std::strcpy(home.facts.ports[105].name, "uplink");
    EXPECT_EQ(refuse("port nobody p5", NO_DEVICE),
              "no port 'nobody': tell the switch of it first, or give its ifindex\n");
    tell("port uplink p5");
    EXPECT_NE(tell("show ports")
                  .find("port 105 p5 link down pvid 0 learn on trusted off auth off "
                        "name uplink rx"),
              std::string::npos);
    tell("learn uplink off");
    tell("static 02:00:00:00:00:0a 1 uplink");
    EXPECT_EQ(tell("show fdb"), "fdb 02:00:00:00:00:0a 1 static uplink\n");
    EXPECT_EQ(refuse("port uplink p6", EXISTS),
              "port in use 'uplink': take it away first with 'noport PORT'\n");
    tell("noport uplink");
    EXPECT_EQ(refuse("noport uplink", NO_DEVICE), "no port 'uplink': " + NO_PORT);
}

TEST_F(Words, vlans_are_said_as_lists_and_ranges) {
    tell("vlan 101 2,4-6,4094 tagged");
    tell("vlan 102 5-6 untagged");
    tell("novlan 101 5,4094");
    EXPECT_EQ(tell("show vlans"), "vlan 1 101 untagged 102 untagged 103 untagged 104 untagged\n"
                                  "vlan 2 101 tagged\nvlan 4 101 tagged\nvlan 5 102 untagged\n"
                                  "vlan 6 101 tagged 102 untagged\n");
    tell("mac 02:00:00:00:00:01 3-4");
    tell("static 02:00:00:00:00:02 4 101");
    std::string fdb = tell("show fdb");
    EXPECT_NE(fdb.find("fdb 02:00:00:00:00:01 3 own\n"), std::string::npos);
    EXPECT_NE(fdb.find("fdb 02:00:00:00:00:01 4 own\n"), std::string::npos);
    refuse("nostatic 02:00:00:00:00:02 4-5", NO_ENTRY);
    tell("nomac 02:00:00:00:00:01 3-4");
    EXPECT_EQ(tell("show fdb"), "");
    tell("group 01:00:5e:01:02:03 1-2 101");
    tell("group 01:00:5e:01:02:03 2 102");
    tell("nogroup 01:00:5e:01:02:03 1-2 101");
    EXPECT_EQ(tell("show fdb"), "fdb 01:00:5e:01:02:03 2 group 102\n");
    for (const char *bad : {"0", "4095", "1-4095", "0-2", "5-4", "1-", "-1", "1,", ",1", "1,,2",
                            "1-2-3", "1x", "x", "1-x", "99999999999999999999", "1.5"})
        EXPECT_EQ(refuse(std::string("vlan 101 ") + bad + " tagged", INVALID),
                  "bad VIDS '" + std::string(bad) +
                      "': give numbers from 1 to 4094, such as 10,20-30\n");
}

TEST_F(Words, everything_is_shown_as_json_too) {
    tell("filter 88b5 806");
    tell("static 02:00:00:00:00:0a 1 101");
    home.facts.ports[102] = {};
    std::strcpy(home.facts.ports[102].name, "a\"\\\x01\xff");
    home.facts.ports[102].routed = 1;
    home.facts.ports[102].routed_vid = 4000;
    home.follower.port(102);
    EXPECT_EQ(tell("-j show settings"),
              "{\"age\":300,\"flood\":\"hardware\",\"unknown-multicast\":\"on\",\"sflow\":0,"
              "\"filter\":[\"88b5\",\"806\"]}\n");
    EXPECT_EQ(tell("-j show fdb"), "[\n{\"mac\":\"02:00:00:00:00:0a\",\"vlan\":1,\"kind\":"
                                   "\"static\",\"ports\":[{\"port\":101}]}]\n");
    EXPECT_EQ(tell(" -j  show vlans "),
              "[\n{\"vlan\":1,\"ports\":[{\"port\":101,\"frames\":\"untagged\"},"
              "{\"port\":103,\"frames\":\"untagged\"},{\"port\":104,\"frames\":\"untagged\"}]},"
              "\n{\"vlan\":4000,\"ports\":[{\"port\":\"a\\u0022\\u005c\\u0001\\u00ff\","
              "\"frames\":\"untagged\"}]}]\n");
    std::string ports = tell("-j show ports");
    EXPECT_NE(ports.find("{\"port\":101,\"device\":\"p1\",\"link\":\"up\",\"pvid\":1,"
                         "\"learn\":\"on\",\"trusted\":\"off\",\"auth\":\"off\",\"rx\":0,"
                         "\"tx\":0,\"learned\":0,\"moved\":0},"),
              std::string::npos)
        << ports;
    EXPECT_NE(ports.find("\"routed\":4000"), std::string::npos) << ports;
    EXPECT_NE(tell("-j show traps").find("{\"name\":\"arp\",\"does\":\"copy\",\"cpu_code\":23,"),
              std::string::npos);
    std::string all = tell("-j show");
    EXPECT_TRUE(all.starts_with("{\"settings\":{\"age\":300,")) << all;
    for (const char *view : {"],\"vlans\":[", "],\"traps\":[", "],\"fdb\":[", "},\"ports\":["})
        EXPECT_NE(all.find(view), std::string::npos) << view;
    EXPECT_EQ(tell("-j age 300"), "");
    EXPECT_TRUE(tell("-j help").starts_with(
        "[\n{\"word\":\"port\",\"arguments\":\"PORT DEVICE\",\"help\":\"opens"));
}

TEST_F(Words, json_that_does_not_fit_is_refused_and_not_cut) {
    char reply[200];
    EXPECT_EQ(chip_command("-j show", reply, sizeof(reply)), -90);
    EXPECT_STREQ(reply, "too long for one reply: ask for less, or for words\n");
}

TEST_F(Words, a_port_is_refused_with_a_reason) {
    for (const char *port : {"0", "4294967295", "99999999999", "1x"})
        EXPECT_EQ(refuse(std::string("port ") + port + " p9", NO_DEVICE),
                  std::string("no port '") + port +
                      "': tell the switch of it first, or give its ifindex\n");
    EXPECT_EQ(refuse("port 101 p9", EXISTS),
              "port in use '101': take it away first with 'noport PORT'\n");
    EXPECT_EQ(refuse("port 109 p1", EXISTS),
              "device in use 'p1': it is a port already; see 'show ports'\n");
    EXPECT_EQ(refuse("port 109 abcdefghijklmnop", INVALID),
              "bad DEVICE 'abcdefghijklmnop': a device name has at most 15 characters\n");
    home.missing = {"p9"};
    EXPECT_EQ(refuse("port 109 p9", NO_DEVICE),
              "cannot open 'p9' (error 19): give an Ethernet device that exists and is free\n");
    home.missing.clear();
    tell("port 4294967294 abcdefghijklmno");
}

TEST_F(Words, the_chip_has_64_ports) {
    for (int i = 5; i <= 64; i++)
        tell("port " + std::to_string(100 + i) + " p" + std::to_string(i));
    EXPECT_EQ(refuse("port 200 p65", NO_MEMORY),
              "no room for port '200': the chip has 64; take one away first\n");
    for (int i = 5; i <= 64; i++)
        tell("vlan " + std::to_string(100 + i) + " 1 tagged");
    receive(101, Frame().padded());
    EXPECT_EQ(home.sent.size(), 63u);
    home.sent.clear();
    tell("noport 133");
    tell("port 200 p65");
}

TEST_F(Words, words_about_a_port_want_one_that_is_there) {
    for (const char *line : {"noport 99", "link 99 up", "learn 99 on", "trusted 99 on",
                             "vlan 99 1 tagged", "novlan 99 1", "pvid 99 1"})
        EXPECT_EQ(refuse(line, NO_DEVICE), "no port '99': " + NO_PORT) << line;
    EXPECT_EQ(refuse("static 02:00:00:00:00:01 1 99", NO_DEVICE), "no port '99': " + NO_PORT);
    EXPECT_EQ(refuse("group 03:00:00:00:00:01 1 99", NO_DEVICE), "no port '99': " + NO_PORT);
    EXPECT_EQ(refuse("nogroup 03:00:00:00:00:01 1 99", NO_DEVICE), "no port '99': " + NO_PORT);
    EXPECT_EQ(refuse("noport x", NO_DEVICE), "no port 'x': " + NO_PORT);
}

TEST_F(Words, a_choice_names_what_can_be_chosen) {
    EXPECT_EQ(refuse("link 101 on", INVALID), "bad choice 'on': say 'up' or 'down'\n");
    EXPECT_EQ(refuse("learn 101 up", INVALID), "bad choice 'up': say 'on' or 'off'\n");
    EXPECT_EQ(refuse("trusted 101 up", INVALID), "bad choice 'up': say 'on' or 'off'\n");
    EXPECT_EQ(refuse("vlan 101 1 both", INVALID),
              "bad choice 'both': say 'tagged' or 'untagged'\n");
    EXPECT_EQ(refuse("flood both", INVALID), "bad choice 'both': say 'software' or 'hardware'\n");
    EXPECT_EQ(refuse("fdb show", INVALID), "bad choice 'show': say 'fdb flush'\n");
    EXPECT_EQ(refuse("trap arp maybe", INVALID),
              "bad choice 'maybe': say 'on', 'off', 'copy' or, where the CPU alone may have it, "
              "'only'\n");
    EXPECT_EQ(refuse("trap sample only", INVALID),
              "bad choice 'only': say 'on', 'off', 'copy' or, where the CPU alone may have it, "
              "'only'\n");
    EXPECT_EQ(refuse("show all", INVALID),
              "nothing called 'all': say settings, ports, vlans, traps, fdb, or 'show' alone for "
              "all\n");
}

TEST_F(Words, numbers_have_their_limits) {
    EXPECT_EQ(refuse("pvid 101 4095", INVALID), "bad VID '4095': give a number from 0 to 4094\n");
    tell("pvid 101 0");
    tell("vlan 101 4094 tagged");
    EXPECT_EQ(refuse("age 1000001", INVALID),
              "bad SECONDS '1000001': give a number up to 1000000, or 0 to keep addresses for "
              "ever\n");
    EXPECT_EQ(refuse("sflow -1", INVALID),
              "bad RATE '-1': give N to sample one frame in N, or 0 for none\n");
    EXPECT_EQ(refuse("filter 10000", INVALID),
              "bad TYPE '10000': give an Ethernet type such as 88b5\n");
    EXPECT_EQ(refuse("trap none on", NO_ENTRY), "no trap 'none': 'show traps' lists them\n");
}

TEST_F(Words, addresses_are_checked) {
    for (const char *bad : {"02:00:00:00:00", "02:00:00:00:00:0", "02:00:00:00:00:00:00",
                            "2:0:0:0:0:0", "02-00-00-00-00-00", "0g:00:00:00:00:00"})
        EXPECT_EQ(refuse(std::string("mac ") + bad + " 1", INVALID),
                  std::string("bad MAC '") + bad + "': write it as 02:00:00:00:00:01\n");
    EXPECT_EQ(refuse("mac 03:00:00:00:00:01 1", INVALID),
              "bad MAC '03:00:00:00:00:01': this is the address of a group\n");
    EXPECT_EQ(refuse("group 02:00:00:00:00:01 1 101", INVALID),
              "bad MAC '02:00:00:00:00:01': a group has an odd first byte\n");
    EXPECT_EQ(refuse("mac 02:00:00:00:00:01 0", INVALID),
              "bad VIDS '0': give numbers from 1 to 4094, such as 10,20-30\n");
}

TEST_F(Words, a_told_address_is_taken_away_as_what_it_was_told) {
    tell("mac 02:00:00:00:00:01 1");
    tell("mac 02:00:00:00:00:01 1"); // again is no harm
    EXPECT_EQ(refuse("static 02:00:00:00:00:01 1 101", EXISTS),
              "address in use '02:00:00:00:00:01': it was told as another kind; take that away "
              "first ('show fdb' lists it)\n");
    EXPECT_EQ(refuse("nostatic 02:00:00:00:00:01 1", NO_ENTRY),
              "not told '02:00:00:00:00:01': 'show fdb' lists what there is\n");
    tell("nomac 02:00:00:00:00:01 1");
    refuse("nomac 02:00:00:00:00:01 1", NO_ENTRY);
    tell("static 02:00:00:00:00:01 1 101");
    tell("static 02:00:00:00:00:01 1 102"); // moves it
    EXPECT_EQ(tell("show fdb"), "fdb 02:00:00:00:00:01 1 static 102\n");
    tell("nostatic 02:00:00:00:00:01 1");
    EXPECT_EQ(tell("show fdb"), "");
}

TEST_F(Words, a_group_is_taken_away_port_by_port_or_whole) {
    tell("group 01:00:5e:01:02:03 1 101");
    tell("group 01:00:5e:01:02:03 1 102");
    EXPECT_EQ(tell("show fdb"), "fdb 01:00:5e:01:02:03 1 group 101 102\n");
    refuse("nogroup 01:00:5e:01:02:03 1 103", NO_ENTRY);
    tell("nogroup 01:00:5e:01:02:03 1 101");
    tell("nogroup 01:00:5e:01:02:03 1 102");
    EXPECT_EQ(tell("show fdb"), "");
    tell("group 01:00:5e:01:02:03 1 101");
    tell("group 01:00:5e:01:02:03 1 102");
    tell("nogroup 01:00:5e:01:02:03 1");
    EXPECT_EQ(tell("show fdb"), "");
    refuse("nogroup 01:00:5e:01:02:03 1", NO_ENTRY);
}

TEST_F(Words, too_many_told_addresses_are_refused_in_the_end) {
    int result = 0, told = 0;
    char reply[200] = "";
    for (int i = 0; i < 9000 && result == 0; i++, told++) {
        char line[64];
        std::snprintf(line, sizeof(line), "mac 02:00:00:00:%02x:%02x 1", i >> 8, i & 0xFF);
        result = chip_command(line, reply, sizeof(reply));
    }
    EXPECT_EQ(result, NO_MEMORY);
    EXPECT_GT(told, 1000);
    EXPECT_NE(std::strstr(reply, "too many told addresses share its place; take one away"),
              nullptr);
}

TEST_F(Words, a_flush_forgets_what_was_learned_and_nothing_told) {
    tell("mac 02:00:00:00:00:01 1");
    receive(101, Frame().from("02:00:00:00:00:0a").padded());
    home.sent.clear();
    tell("fdb flush");
    EXPECT_EQ(tell("show fdb"), "fdb 02:00:00:00:00:01 1 own\n");
}

TEST_F(Words, leaving_a_vlan_forgets_what_was_learned_there) {
    tell("vlan 101 2 tagged");
    receive(101, Frame().from("02:00:00:00:00:0a").padded());
    receive(101, Frame().from("02:00:00:00:00:0a").tag(2).padded());
    home.sent.clear();
    tell("novlan 101 1");
    EXPECT_EQ(tell("show fdb"), "fdb 02:00:00:00:00:0a 2 learned 101\n");
}

TEST_F(Words, the_state_is_shown_whole_and_in_parts) {
    tell("vlan 102 5 tagged");
    tell("age 60");
    tell("sflow 100");
    tell("filter 88B5");
    EXPECT_EQ(tell("show settings"),
              "age 60\nflood hardware\nunknown-multicast on\nsflow 100\nfilter 88b5\n");
    EXPECT_EQ(tell("show vlans"),
              "vlan 1 101 untagged 102 untagged 103 untagged 104 untagged\nvlan 5 102 tagged\n");
    std::string ports = tell("show ports");
    EXPECT_EQ(ports.substr(0, ports.find('\n')),
              "port 101 p1 link up pvid 1 learn on trusted off auth off rx 0 tx 0 learned 0 moved "
              "0");
    std::string traps = tell("show traps");
    EXPECT_NE(traps.find("trap multicast-ipv4 copy cpu_code 29 code 5 flags 0 queue 2 hits 0\n"),
              std::string::npos);
    EXPECT_EQ(tell("show"),
              tell("show settings") + ports + tell("show vlans") + traps + tell("show fdb"));
}

TEST_F(Words, frames_that_were_lost_on_the_way_to_the_chip_are_shown) {
    EXPECT_EQ(counter(102, "drop-arrival"), 0u);
    home.lost["p2"] = 7;
    EXPECT_EQ(counter(102, "drop-arrival"), 7u);
    EXPECT_EQ(counter(101, "drop-arrival"), 0u);
    home.lost.clear();
}

TEST_F(Words, a_reply_that_does_not_fit_ends_after_a_whole_line_and_says_so) {
    std::string all = tell("show traps");
    for (std::size_t size = 0; size <= all.size() + 1; size++) {
        std::vector<char> reply(size + 1, '#');
        EXPECT_EQ(chip_command("show traps", reply.data(), size), 0);
        EXPECT_EQ(reply[size], '#'); // nothing behind the end
        if (size == 0)
            continue;
        std::string text = reply.data();
        if (text.empty() || text == all)
            continue;
        const std::string cut = "(more did not fit)\n";
        ASSERT_TRUE(text.ends_with(cut)) << text;
        ASSERT_TRUE(all.starts_with(text.substr(0, text.size() - cut.size())));
        char before = text.size() > cut.size() ? text[text.size() - cut.size() - 1] : '\n';
        ASSERT_EQ(before, '\n');
    }
    std::vector<char> reply(all.size() + 40);
    chip_command("show traps", reply.data(), reply.size());
    EXPECT_EQ(reply.data(), all);
}

TEST_F(Words, a_new_start_has_nothing_of_the_old_state) {
    tell("mac 02:00:00:00:00:01 1");
    tell("trap arp off");
    tell("flood software");
    tell("age 7");
    home.callbacks.unknown_multicast_flood_set(0);
    chip_stop();
    chip_start();
    EXPECT_EQ(tell("show ports") + tell("show vlans") + tell("show fdb"), "");
    EXPECT_EQ(tell("show settings"),
              "age 300\nflood hardware\nunknown-multicast on\nsflow 0\nfilter 0\n");
    EXPECT_NE(tell("show traps").find("trap arp copy"), std::string::npos);
    EXPECT_NE(home.callbacks.flood_except, nullptr);
}
