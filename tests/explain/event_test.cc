// Events in words, as lines of JSON, and read back from the kernel's trace.
#include "explain/event.h"
#include "pkt/pkt_info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using explain::Event;

namespace {

Event ipv4(u32 flags, u32 reason) {
    return {.port = "port1",
            .vid = 10,
            .ethertype = 0x0800,
            .length = 60,
            .source = {2, 0, 0, 0, 0, 0x99},
            .destination = {2, 0, 0, 0, 0, 1},
            .redirect = "ipv4",
            .slot = 41,
            .flags = flags,
            .reason = reason};
}

TEST(Event, a_decision_reads_as_a_line) {
    EXPECT_EQ(line_of(ipv4(REDIRECT_STOP | REDIRECT_POST_KERNEL, 4)),
              "port1 vid 10 02:00:00:00:00:99 > 02:00:00:00:00:01 IPv4 60 bytes  ipv4: stop, post "
              "to the IP stack; reason 4: to the IP stack");
}

TEST(Event, the_rule_and_its_numbers_follow) {
    Event event = ipv4(REDIRECT_STOP, 1);
    event.rule = "gate: memory is short";
    event.number = "bytes free";
    event.measured = 4096;
    event.limit = 20971520;
    EXPECT_THAT(line_of(event),
                ::testing::EndsWith("; why: gate: memory is short, bytes free 4096, limit "
                                    "20971520"));
    event.flags = 0;
    event.number = "";
    EXPECT_THAT(line_of(event),
                ::testing::EndsWith("ipv4: no decision; why: gate: memory is short"));
}

TEST(Event, the_pipeline_speaks_for_itself) {
    Event event{.ethertype = 0x9000, .rule = "nobody stopped it"};
    EXPECT_EQ(line_of(event), "- vid 0 00:00:00:00:00:00 > 00:00:00:00:00:00 0x9000 0 bytes  "
                              "pipeline: nobody stopped it");
}

TEST(Event, a_drop_is_a_frame_that_nobody_has) {
    EXPECT_TRUE(is_drop(ipv4(REDIRECT_STOP, 5)));
    EXPECT_TRUE(explain::is_drop({.rule = "nobody stopped it"}));
    for (u32 flag : {REDIRECT_POST_KERNEL, REDIRECT_POST_KERNEL_PORT, REDIRECT_FLOOD_L2,
                     REDIRECT_STACK_REPLICATE, REDIRECT_POST_USERSPACE})
        EXPECT_FALSE(is_drop(ipv4(REDIRECT_STOP | flag, 1))) << flag;
    EXPECT_FALSE(is_drop(ipv4(0, 0)));
    EXPECT_FALSE(is_drop(ipv4(REDIRECT_POST_USERSPACE, 0)));
}

TEST(Event, a_filter_wants_what_it_names) {
    Event drop = ipv4(REDIRECT_STOP, 5), pass = ipv4(REDIRECT_STOP | REDIRECT_POST_KERNEL, 4);
    EXPECT_TRUE((explain::Filter{}.wants(pass)));
    EXPECT_TRUE((explain::Filter{.port = "port1", .redirect = "ipv4", .drops = true}.wants(drop)));
    EXPECT_FALSE((explain::Filter{.drops = true}.wants(pass)));
    EXPECT_FALSE((explain::Filter{.port = "port2"}.wants(drop)));
    EXPECT_FALSE((explain::Filter{.redirect = "ipv6"}.wants(drop)));
}

TEST(Event, names_that_fill_their_room_are_read_to_its_end) {
    const char port[] = "0123456789abcdefXXXX", redirect[] = "0123456789abcdefghijXXXX";
    redirect_event event{.port = port, .redirect = redirect};
    Event copy = explain::copy_of(event);
    EXPECT_EQ(copy.port, "0123456789abcdef");
    EXPECT_EQ(copy.redirect, "0123456789abcdefghij");
}

TEST(Event, json_carries_all_of_it) {
    Event event = ipv4(REDIRECT_STOP, 2);
    event.rule = "throttle: no token is left";
    event.number = "tokens";
    event.limit = 100;
    auto line = nlohmann::json::parse(json_of(event));
    EXPECT_EQ(line["redirect"], "ipv4");
    EXPECT_EQ(line["slot"], 41);
    EXPECT_EQ(line["reason"], 2);
    EXPECT_EQ(line["words"], "for the master only, throttled");
    EXPECT_EQ(line["rule"], event.rule);
    EXPECT_EQ(line["measured"], 0);
    EXPECT_EQ(line["limit"], 100);
    EXPECT_EQ(line["drop"], true);
    EXPECT_EQ(line["src"], "02:00:00:00:00:99");
    EXPECT_FALSE(nlohmann::json::parse(json_of(ipv4(0, 0))).contains("measured"));
}

constexpr const char *KERNEL_LINE =
    "     tarn_chip/0-71      [001] ...1.    12.345678: redirect: frame=00000000f00dcafe port=p1 "
    "ifindex=5001 vid=10 type=0x86dd len=86 dst=33:33:ff:00:00:fe src=02:00:00:00:00:99 "
    "redirect=ipv6 slot=44 flags=0x04 reason=2 rule=\"neighbour discovery is over its limit\" "
    "number=\"frames in this second\" measured=101 limit=100\n";

TEST(Event, a_line_of_the_kernels_trace_is_read_back) {
    auto event = explain::parse_trace_line(KERNEL_LINE);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->frame, 0xF00DCAFEu);
    EXPECT_EQ(event->port, "p1");
    EXPECT_EQ(event->ifindex, 5001u);
    EXPECT_EQ(event->vid, 10u);
    EXPECT_EQ(event->ethertype, 0x86DDu);
    EXPECT_EQ(event->length, 86u);
    EXPECT_EQ(event->source[5], 0x99);
    EXPECT_EQ(event->destination[5], 0xFE);
    EXPECT_EQ(event->redirect, "ipv6");
    EXPECT_EQ(event->slot, 44u);
    EXPECT_EQ(event->flags, u32{REDIRECT_STOP});
    EXPECT_EQ(event->reason, 2u);
    EXPECT_EQ(event->rule, "neighbour discovery is over its limit");
    EXPECT_EQ(event->number, "frames in this second");
    EXPECT_EQ(event->measured, 101u);
    EXPECT_EQ(event->limit, 100u);
}

TEST(Event, other_lines_of_the_trace_are_passed_over) {
    EXPECT_FALSE(explain::parse_trace_line(""));
    EXPECT_FALSE(explain::parse_trace_line("# tracer: nop"));
    EXPECT_FALSE(explain::parse_trace_line("x-1 [000] 1.0: sched_switch: prev=redirect"));
    const std::string whole = KERNEL_LINE;
    std::size_t last = whole.find(" limit=");
    for (std::size_t length = 0; length <= last; length++)
        EXPECT_FALSE(explain::parse_trace_line(whole.substr(0, length))) << length;
}

TEST(Event, a_dash_in_the_trace_is_no_name) {
    std::string line = KERNEL_LINE;
    line.replace(line.find("port=p1"), 7, "port=-");
    line.replace(line.find("redirect=ipv6"), 13, "redirect=-");
    auto event = explain::parse_trace_line(line);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->port, "");
    EXPECT_EQ(event->redirect, "");
}

} // namespace
