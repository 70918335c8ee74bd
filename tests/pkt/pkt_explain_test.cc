// What is told of a frame on its way, to whoever watches; and that nobody else notices.
#include "support/switch_test.h"

#include "pkt/pkt_explain.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class Explain : public SwitchTest {
protected:
    // One line for each event.
    std::vector<std::string> told(const Bytes &frame, const Arrival &arrival = {}) {
        std::vector<std::string> lines;
        userlevel::trace_watch watch([&](const redirect_event &event) {
            std::string line = event.redirect ? event.redirect : "-";
            line += " " + std::to_string(event.flags) + "/" + std::to_string(event.reason);
            if (event.rule)
                line += std::string(" ") + event.rule;
            if (event.number)
                line += std::string(" ") + event.number + " " + std::to_string(event.measured) +
                        "/" + std::to_string(event.limit);
            lines.push_back(line);
            last = event;
            last_port = event.port ? event.port : "";
        });
        receive(frame, arrival);
        return lines;
    }
    redirect_event last{};
    std::string last_port;
};

TEST_F(Explain, a_decision_is_told_with_the_frame) {
    EXPECT_THAT(told(Frame().ipv4({}).padded()), ElementsAre("ipv4 20/4"));
    EXPECT_EQ(last_port, "port1");
    EXPECT_EQ(last.ifindex, 5001u);
    EXPECT_EQ(last.vid, 1u);
    EXPECT_EQ(last.ethertype, 0x0800u);
    EXPECT_EQ(last.length, 60u);
    EXPECT_EQ(last.slot, 41u);
    EXPECT_EQ(Bytes(last.destination, last.destination + 6), (Bytes{2, 0, 0, 0, 0, 1}));
    EXPECT_EQ(Bytes(last.source, last.source + 6), (Bytes{2, 0, 0, 0, 0, 0x99}));
}

TEST_F(Explain, every_decision_of_the_chain_is_told_in_order) {
    EXPECT_THAT(told(Frame().ipv4({.protocol = 103, .fragment = 0x2000})),
                ElementsAre("dos 1/0", "pim 2/0", "ipv4 20/4"));
}

TEST_F(Explain, the_rule_behind_a_reason_is_told) {
    port1()->ingress_filter = 1;
    EXPECT_THAT(told(Frame().ipv4({}), {.vid = 2}),
                ElementsAre("ipv4 4/1 gate: the port is no member of the VLAN and filters on "
                            "ingress"));
}

TEST_F(Explain, a_frame_that_nobody_stops_is_told_at_the_end) {
    EXPECT_THAT(told(Frame()), ElementsAre("- 0/0 nobody stopped it"));
}

TEST_F(Explain, a_refusal_is_told) {
    probe(27).match = [](tarn_pkt_info &, redirect_instruct &instruct) {
        instruct.flags = REDIRECT_STOP | REDIRECT_POST_KERNEL | REDIRECT_RESEND_L2;
    };
    EXPECT_THAT(
        told(Frame()),
        ElementsAre("probe 28/0", "- 0/0 refused: what was asked for cannot be done together"));
    log();
}

TEST_F(Explain, frames_that_are_not_classified_are_told) {
    EXPECT_THAT(told(Frame().tag(5).ipv4({}), {.port = 0, .vid = 7}),
                ElementsAre("- 0/0 no interface has the number it came from"));
    EXPECT_EQ(last.vid, 7u);
    EXPECT_EQ(last.ethertype, 0x0800u);
    EXPECT_EQ(last.ifindex, 0u);
    port1()->type = TARN_IF_TYPE_VLAN;
    EXPECT_THAT(told(Frame()), ElementsAre("- 0/0 the interface it came from is no port"));
    EXPECT_EQ(last_port, "port1");
    port1()->type = TARN_IF_TYPE_SWITCHPORT;
    log();
}

TEST_F(Explain, a_local_frame_has_no_port) {
    Arrival local;
    local.meta.local = 1;
    EXPECT_THAT(told(Frame(), local), ElementsAre("vlan_local 4/1"));
    EXPECT_EQ(last_port, "");
}

TEST_F(Explain, an_empty_frame_can_be_told) {
    EXPECT_THAT(told(Bytes{}), ElementsAre("l2drop 4/3"));
    EXPECT_EQ(last.length, 0u);
}

// A word on a decision that was not taken belongs to that redirect alone.
TEST_F(Explain, a_word_does_not_stick_to_the_next_redirect) {
    probe(27).match = [](tarn_pkt_info &info, redirect_instruct &) {
        explain(&info, "a word", "things", 1, 2);
    };
    EXPECT_THAT(told(Frame().type(0x8863)),
                ElementsAre("probe 0/0 a word things 1/2", "pppoe 20/2"));
}

TEST_F(Explain, watching_changes_nothing_of_what_becomes_of_a_frame) {
    for (const Bytes &frame :
         {Frame().build(), Frame().ipv4({}).build(), Frame().ipv6({}).build(),
          Frame().from("ff:ff:ff:ff:ff:ff").build(), Frame().ipv4({.protocol = 103}).build()}) {
        calls().order.clear();
        receive(frame);
        auto plain = std::exchange(calls().order, {});
        told(frame);
        EXPECT_EQ(calls().order, plain);
    }
}

TEST_F(Explain, nobody_is_asked_while_nobody_watches) {
    probe(27).match = [](tarn_pkt_info &info, redirect_instruct &) {
        EXPECT_EQ(info.why, nullptr);
    };
    EXPECT_FALSE(trace_redirect_wanted());
    receive(Frame());
    int events = 0;
    {
        userlevel::trace_watch one([&](const redirect_event &) { events++; });
        userlevel::trace_watch two([&](const redirect_event &) { events++; });
        EXPECT_TRUE(trace_redirect_wanted());
        probe(27).match = nullptr;
        receive(Frame());
    }
    EXPECT_EQ(events, 2);
    EXPECT_FALSE(trace_redirect_wanted());
    receive(Frame());
    EXPECT_EQ(events, 2);
}

} // namespace
