// "l2drop": frames whose source address cannot be real.
#include "support/switch_test.h"

namespace {

struct Row {
    const char *source;
    u32 reason; // 0: not stopped
};

void PrintTo(const Row &row, std::ostream *out) {
    *out << row.source;
}

class L2Drop : public SwitchTest, public ::testing::WithParamInterface<Row> {};

TEST_P(L2Drop, decides_by_the_source_address) {
    receive(Frame().from(GetParam().source).padded());
    EXPECT_EQ(redirect("l2drop").inspects, 1u);
    EXPECT_EQ(redirect("l2drop").stops, GetParam().reason ? 1u : 0u);
    for (u32 reason = 0; reason < REDIRECT_REASONS; reason++)
        EXPECT_EQ(redirect("l2drop").stop_reasons[reason],
                  GetParam().reason && reason == GetParam().reason ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Sources, L2Drop,
                         ::testing::Values(Row{"ff:ff:ff:ff:ff:ff", 1}, // and not 2
                                           Row{"ff:ff:ff:ff:ff:fe", 2}, Row{"01:00:00:00:00:00", 2},
                                           Row{"03:11:22:33:44:55", 2}, Row{"00:00:00:00:00:00", 3},
                                           Row{"00:00:00:00:00:01", 0}, Row{"02:00:00:00:00:00", 0},
                                           Row{"fe:ff:ff:ff:ff:ff", 0}),
                         [](const auto &row) {
                             std::string name = row.param.source;
                             std::erase(name, ':');
                             return name;
                         });

using L2DropFrames = SwitchTest;

TEST_F(L2DropFrames, sees_every_class_of_frame) {
    for (u16 type : {0x0800, 0x0806, 0x86DD, 0x88CC})
        receive(Frame().from("ff:ff:ff:ff:ff:ff").type(type).padded());
    EXPECT_EQ(redirect("l2drop").stop_reasons[1], 4u);
}

TEST_F(L2DropFrames, looks_behind_a_tag_that_was_stripped) {
    receive(Frame().from("ff:ff:ff:ff:ff:ff").tag(1).padded());
    EXPECT_EQ(redirect("l2drop").stop_reasons[1], 1u);
}

TEST_F(L2DropFrames, a_frame_without_a_source_has_a_source_of_zero) {
    for (std::size_t length : {0u, 1u, 6u})
        receive(Frame().cut(length));
    EXPECT_EQ(redirect("l2drop").stop_reasons[3], 3u);
    // Seven bytes hold the first of the source: what is not there reads 0.
    receive(Frame().from("00:11:22:33:44:55").cut(7));
    EXPECT_EQ(redirect("l2drop").stop_reasons[3], 4u);
    receive(Frame().from("ff:ff:ff:ff:ff:ff").cut(11));
    EXPECT_EQ(redirect("l2drop").stop_reasons[2], 1u);
}

} // namespace
