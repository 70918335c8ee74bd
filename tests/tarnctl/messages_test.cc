// Words to bytes.
#include "tarnctl/cases.h"

#include <gtest/gtest.h>
#include <set>

namespace {

using fake::Bytes;
using tarnctl::Action;
using tarnctl::Subcommand;

std::vector<Bytes> without_sequence(std::vector<Bytes> messages) {
    for (Bytes &message : messages)
        std::memset(message.data() + 8, 0, 4);
    return messages;
}

std::vector<Bytes> done(const std::vector<fake::Wire> &wires) {
    std::vector<Bytes> messages;
    for (const fake::Wire &wire : wires)
        messages.push_back(wire.done(0));
    return messages;
}

std::string row_of_line(const char *line) {
    std::size_t used;
    return std::string(tarnctl::row_of(tarnctl::words_of(line), used).words);
}

TEST(tarnctl_messages, each_line_is_sent_byte_for_byte) {
    for (const Case &one : cases()) {
        fake::Switch tarn;
        tarn.session.replace = true; // nobody can be asked
        EXPECT_EQ(tarn.line(one.line), tarnctl::DONE) << one.line << ": " << tarn.wrong;
        EXPECT_EQ(without_sequence(tarn.sent), done(one.messages)) << one.line;
    }
}

TEST(tarnctl_messages, every_row_that_sends_a_command_has_a_line_here) {
    std::set<std::string> tried;
    for (const Case &one : cases())
        tried.insert(row_of_line(one.line));
    for (const Subcommand &row : tarnctl::subcommands()) {
        bool sends = row.action == Action::message;
        EXPECT_EQ(sends, tried.contains(std::string(row.words))) << row.words;
    }
}

TEST(tarnctl_messages, all_79_commands_have_words) {
    std::set<int> commands;
    for (const Case &one : cases())
        for (const fake::Wire &wire : one.messages)
            commands.insert(wire.done(0)[16]);
    std::set<int> wanted;
    for (int command = 0; command <= 81; command++)
        if (command != 72 && command != 74 && command != 75)
            wanted.insert(command);
    EXPECT_EQ(wanted.size(), 79u);
    EXPECT_EQ(commands, wanted);
}

TEST(tarnctl_messages, every_example_in_the_help_is_understood) {
    for (const Subcommand &row : tarnctl::subcommands()) {
        if (row.example.empty())
            continue;
        fake::Switch tarn;
        tarn.session.replace = true;
        for (const char *name : {"port1", "port2", "lag1", "vlan10"})
            tarn.session.names[name] = 5001;
        EXPECT_EQ(tarn.line(std::string(row.example)), tarnctl::DONE) << row.example << tarn.wrong;
        EXPECT_EQ(row_of_line(std::string(row.example).c_str()), row.words);
    }
}

TEST(tarnctl_messages, sequence_numbers_run_on) {
    fake::Switch tarn;
    tarn.line("vlan del 10,11");
    ASSERT_EQ(tarn.sent.size(), 2u);
    EXPECT_EQ(fake::sequence_of(tarn.sent[1]), fake::sequence_of(tarn.sent[0]) + 1);
}

// --- names
// ----------------------------------------------------------------------------------------

std::uint32_t ifindex_sent(const fake::Switch &tarn) {
    std::uint32_t ifindex = 0;
    if (!tarn.sent.empty())
        std::memcpy(&ifindex, tarn.sent.back().data() + 24, 4);
    return ifindex;
}

TEST(tarnctl_names, one_declared_before_is_known) {
    fake::Switch tarn;
    tarn.line("link add port p9 ifindex 5009 mac 02:00:00:00:01:01");
    EXPECT_EQ(tarn.line("link del p9"), tarnctl::DONE) << tarn.wrong;
    EXPECT_EQ(ifindex_sent(tarn), 5009u);
}

TEST(tarnctl_names, one_that_the_switch_refused_is_not) {
    fake::Switch tarn;
    tarn.replies = {{-22}};
    tarn.line("link add port p9 ifindex 5009 mac 02:00:00:00:01:01");
    EXPECT_EQ(tarn.line("link del p9"), tarnctl::WRONG);
}

TEST(tarnctl_names, the_listing_of_the_switch_comes_before_the_machine) {
    fake::Switch tarn;
    tarn.proc.files["ifdb"] = "Interface  IfIndex  Flags  Oper cnt.  Ref cnt. IfFlags\n"
                              "======================================================\n"
                              "lo          4711        43           0       1  1000\n"
                              "vlan10      312       1043           0       1  1000\n";
    tarn.line("link del lo");
    EXPECT_EQ(ifindex_sent(tarn), 4711u);
    tarn.line("link del vlan10");
    EXPECT_EQ(ifindex_sent(tarn), 312u);
}

TEST(tarnctl_names, a_vlan_has_its_number_and_a_device_the_machine_s) {
    fake::Switch tarn;
    tarn.line("link del vlan4094");
    EXPECT_EQ(ifindex_sent(tarn), 4394u);
    tarn.line("link del lo");
    EXPECT_EQ(ifindex_sent(tarn), 1u);
}

TEST(tarnctl_names, what_only_looks_like_a_vlan_is_unknown) {
    for (const char *name : {"vlan", "vlan4095", "vlan0", "vlan010", "vlan1x"}) {
        fake::Switch tarn;
        EXPECT_EQ(tarn.line(std::string("link del ") + name), tarnctl::WRONG) << name;
    }
}

} // namespace
