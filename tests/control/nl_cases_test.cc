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

TEST_F(NlCases, every_command_with_everything_it_needs_for_a_port_that_is_there_ends_cleanly) {
    Client client;
    // Only that it answers and leaves nothing behind: the tests of each command look at more.
    configure([&] {
        for (const nl_case &each : nl_cases) {
            nl_message message;
            nl_message_start(&message, client.family, each.command, NLM_F_ACK, 1);
            for (u8 number : each.needs) {
                if (!number)
                    break;
                nl_attribute attribute = nl_attribute_of(number);
                u32 ifindex = port1()->ifindex;
                u16 vid = 1;
                const void *value = number == TARNFWD_ATTR_IFINDEX ? &ifindex
                                    : number == TARNFWD_ATTR_VID   ? &vid
                                                                   : attribute.value;
                nl_message_put(&message, number, value, attribute.length);
            }
            if (each.command == TARNFWD_CMD_IF_DELLINK || each.command == TARNFWD_CMD_IF_DELETE_SVI)
                continue;
            message.u.header.nlmsg_len = message.length;
            client.send({message.u.bytes, message.length});
            client.answer();
            userlevel::work_run();
        }
        log();
    });
    EXPECT_EQ(refcount_read(&port1()->refcnt), 1);
}

} // namespace
