// Every command, asked in every wrong way.
#include "control/nl_client.h"

namespace {

struct NlCases : SwitchTest {};

std::string hex(const Bytes &bytes) {
    std::string text;
    for (u8 byte : bytes) {
        char two[3];
        std::snprintf(two, sizeof(two), "%02x", byte);
        text += two;
    }
    return text;
}

TEST_F(NlCases, every_command_in_every_variation_gets_the_expected_acknowledgement) {
    Client client;
    ASSERT_EQ(client.option(NETLINK_EXT_ACK, 1), 0);
    u32 sequence = 100, sent = 0;
    for (const nl_case &each : nl_cases)
        for (int v = 0; v < NL_VARIATIONS; v++) {
            auto variation = static_cast<nl_variation>(v);
            for (unsigned i = 0; i < nl_case_indices(&each, variation); i++) {
                nl_message message;
                nl_case_build(&message, &each, variation, i, client.family, ++sequence);
                nl_expected expected = nl_expect(&each, variation, i);
                client.send({message.u.bytes, message.length});
                auto answers = client.take();
                ASSERT_EQ(answers.size(), 1u) << each.name;
                const char *wrong =
                    nl_case_judge(&message, &expected, answers[0].data(), answers[0].size());
                EXPECT_EQ(wrong, nullptr) << each.name << ", " << nl_variation_name(variation)
                                          << " (" << i << "): " << (wrong ? wrong : "") << "\n"
                                          << hex(answers[0]);
                sent++;
            }
        }
    EXPECT_GT(sent, 79u * 8);
    log();      // failed creations tell themselves; another test reads them
    remember(); // tables keep the nodes of what was added and removed
}

TEST_F(NlCases, there_are_79_commands_and_their_numbers_are_those_of_the_header) {
    EXPECT_EQ(NL_CASES, 79u);
    std::set<unsigned> numbers;
    for (const nl_case &each : nl_cases)
        numbers.insert(each.command);
    EXPECT_EQ(numbers.size(), NL_CASES);
    for (unsigned event :
         {TARNFWD_CMD_L2_FDB_ADD, TARNFWD_CMD_DOS_MATCH, TARNFWD_CMD_DHCPSN_ARPSEC_VIOLATION})
        EXPECT_FALSE(numbers.contains(event));
}

// Also those that events alone carry.
TEST_F(NlCases, a_number_beside_what_a_command_asks_for_must_be_whole) {
    Client client;
    for (unsigned number = 1; number <= TARNFWD_ATTR_MAX; number++) {
        const nl_attribute attribute = nl_attribute_of(number);
        if (attribute.kind != NL_INTEGER || number == TARNFWD_ATTR_IFINDEX)
            continue;
        const Bytes whole(attribute.length);
        auto beside = [&](const Bytes &value) {
            return Command(TARNFWD_CMD_IF_DELLINK)
                .ifindex(9999)
                .bytes(static_cast<tarnfwd_attr>(number), value)
                .to(client);
        };
        EXPECT_EQ(beside(whole), 0) << number;
        EXPECT_EQ(beside(Bytes(attribute.length - 1)), -EINVAL) << number;
    }
}

TEST_F(NlCases, numbers_that_are_no_command_are_not_supported) {
    Client client;
    std::set<unsigned> commands;
    for (const nl_case &each : nl_cases)
        commands.insert(each.command);
    for (unsigned number = 0; number < 256; number++)
        if (!commands.contains(number)) {
            EXPECT_EQ(Command(static_cast<tarnfwd_cmd>(number)).to(client), -EOPNOTSUPP) << number;
        }
}

} // namespace
