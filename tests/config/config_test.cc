// The words of tarnctl against the real switch: in the process, and over its socket.
#include "config/config.h"

#include "control.h"
#include "events/tarnfwd_nl_event.h"
#include "machine/netlink_server.h"
#include "module/tarn_module.h"
#include "tarnctl/help.h"
#include "tarnctl/session.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

class tarnctl_switch : public testing::Test {
protected:
    tarnctl_switch()
        : folder_(fs::temp_directory_path() / ("tarnctl-" + std::to_string(getpid()))) {
        fs::create_directories(folder_);
        EXPECT_EQ(init_module(), 0);
    }
    ~tarnctl_switch() override { fs::remove_all(folder_); }

    std::string path(const std::string &name) const { return folder_ / name; }

    std::string apply(const std::string &text) {
        std::ofstream(path("config")) << text;
        testing::internal::CaptureStdout();
        std::string wrong = config::apply(path("config"));
        printed = testing::internal::GetCapturedStdout();
        userlevel::work_run();
        return wrong;
    }

    static std::string ifdb() { return userlevel::proc_read("tarn/ifdb").text; }

    std::string printed;

private:
    fs::path folder_;
};

// The blocks of example lines of the manual page.
std::vector<std::string> examples() {
    std::string page = tarnctl::manual();
    std::istringstream lines(page.substr(page.find(".SH EXAMPLES")));
    std::vector<std::string> all;
    bool inside = false;
    for (std::string line; std::getline(lines, line);) {
        std::erase(line, '\\');
        if (line == ".EX")
            all.emplace_back();
        if (line == ".EX" || line == ".EE")
            inside = line == ".EX";
        else if (inside)
            all.back() += line + "\n";
    }
    return all;
}

TEST_F(tarnctl_switch, the_manual_s_example_builds_an_aggregator_and_takes_it_away) {
    auto blocks = examples();
    ASSERT_EQ(blocks.size(), 2u);
    EXPECT_EQ(apply(blocks[0]), "");
    EXPECT_THAT(printed, HasSubstr("port2,port1\n"));
    EXPECT_THAT(printed, HasSubstr("00: Blocking\n"));
    EXPECT_THAT(ifdb(), HasSubstr("vlan20"));
    EXPECT_EQ(apply(blocks[1]), "");
    EXPECT_EQ(ifdb(), "Interface  IfIndex  Flags  Oper cnt.  Ref cnt. IfFlags\n"
                      "======================================================\n");
}

TEST_F(tarnctl_switch, stops_at_the_line_that_it_refuses) {
    std::string wrong = apply("vlan add 10\nlink routed 4711 10\nvlan add 11\n");
    EXPECT_THAT(wrong, HasSubstr("config:2: link routed: "));
    EXPECT_THAT(wrong, HasSubstr("there is no interface 4711; there are: VLANs 10"));
    EXPECT_THAT(ifdb(), HasSubstr("vlan10"));
    EXPECT_THAT(ifdb(), testing::Not(HasSubstr("vlan11")));
}

TEST_F(tarnctl_switch, names_of_the_switch_are_known_to_the_next_batch) {
    EXPECT_EQ(apply("link add port p1 ifindex 5001 mac 02:00:00:00:01:01 up running\n"), "");
    EXPECT_EQ(apply("vlan filter p1 on\nlink del p1\n"), "");
}

TEST_F(tarnctl_switch, redirects_go_on_and_off_by_name) {
    EXPECT_EQ(apply("redirect disable pppoe\nredirect enable ptp\nshow redirects\n"), "");
    EXPECT_THAT(printed, HasSubstr("pppoe                disabled\n"));
    EXPECT_THAT(printed, HasSubstr("ptp                  enabled\n"));
    EXPECT_THAT(apply("redirect disable nobody\n"), HasSubstr("there is no redirect 'nobody'"));
}

TEST_F(tarnctl_switch, every_view_of_the_switch_can_be_shown) {
    EXPECT_EQ(apply("link add port p1 ifindex 5001 mac 02:00:00:00:01:01\n"), "");
    for (const tarnctl::Subcommand &row : tarnctl::subcommands()) {
        bool members = row.file == "{}/members"; // there while it has any
        if (row.action != tarnctl::Action::show || members)
            continue;
        std::string line(row.words);
        EXPECT_EQ(apply(line + (row.arguments.empty() ? "\n" : " p1\n")), "") << line;
    }
}

TEST_F(tarnctl_switch, a_chip_that_is_not_there_is_said) {
    EXPECT_THAT(apply("chip show\n"), HasSubstr("config:1: chip: there is no chip here"));
    EXPECT_THAT(config::apply(path("nowhere")), HasSubstr("cannot be read"));
}

TEST_F(tarnctl_switch, answers_over_its_socket_as_in_the_process) {
    ASSERT_EQ(machine::netlink_serve(path("netlink")), "");
    auto client = client::find(path("netlink"));
    EXPECT_THAT(client->where(), HasSubstr("netlink"));
    struct {
        client::Message message;
        int error;
    } commands[] = {
        {client::Message(81).u32(1, 4711).u16(4, 10), -203},
        {client::Message(1).u32(1, 4711).u32(45, 0), -1},
        {client::Message(73), -22},
        {client::Message(68).u8(6, 0), 0},
    };
    for (const auto &one : commands)
        EXPECT_EQ(client->command(one.message).error, one.error);
    // An integer of a wrong size: the switch says of which attribute.
    client::Answer answer = client->command(client::Message(68).u32(6, 0));
    EXPECT_EQ(answer.error, -22);
    EXPECT_NE(answer.text, "");
    EXPECT_EQ(answer.about, 6);
    machine::netlink_end();
}

TEST_F(tarnctl_switch, sends_events_to_who_joined) {
    ASSERT_EQ(machine::netlink_serve(path("netlink")), "");
    auto client = client::find(path("netlink"));
    client->listen();
    const std::uint8_t header[20] = {0x45};
    tarnfwd_nl_send_dos_match(5001, 7, 0x0800, header);
    auto event = client->next_event(5000);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->command, 74);
    ASSERT_EQ(event->attributes().size(), 4u);
    EXPECT_EQ(event->attributes()[0].number_value(), 5001u);
    EXPECT_FALSE(client->next_event(0));
    machine::netlink_end();
}

} // namespace
