// The rules of netlink that the family lives by: finding it, acknowledgements, several messages.
#include "control/nl_client.h"

namespace {

struct NlRules : SwitchTest {
    Client client;

    nl_message question(u8 command, u16 flags, u16 type) {
        nl_message message;
        nl_message_start(&message, type, command, flags, 0x01020304);
        message.u.header.nlmsg_len = message.length;
        return message;
    }
    std::vector<Bytes> ask(nl_message &message) {
        client.send({message.u.bytes, message.length});
        return client.take();
    }
    std::vector<Bytes> ask_for_family(const Bytes &name, u16 flags = 0) {
        nl_message message = question(CTRL_CMD_GETFAMILY, flags, GENL_ID_CTRL);
        nl_message_put(&message, CTRL_ATTR_FAMILY_NAME, name.data(),
                       static_cast<unsigned>(name.size()));
        message.u.header.nlmsg_len = message.length;
        return ask(message);
    }
};

TEST_F(NlRules, the_family_is_found_by_its_name) {
    auto answers = ask_for_family({'t', 'a', 'r', 'n', 'f', 'w', 'd', 0});
    ASSERT_EQ(answers.size(), 1u);
    const Bytes &answer = answers[0];
    nlmsghdr header;
    std::memcpy(&header, answer.data(), sizeof(header));
    EXPECT_EQ(header.nlmsg_type, GENL_ID_CTRL);
    EXPECT_EQ(header.nlmsg_seq, 0x01020304u);
    EXPECT_EQ(header.nlmsg_pid, client.portid());
    EXPECT_EQ(header.nlmsg_len, answer.size());
    EXPECT_EQ(answer[NLMSG_HDRLEN], CTRL_CMD_NEWFAMILY);
    EXPECT_EQ(answer[NLMSG_HDRLEN + 1], 2) << "the controller's version";

    std::vector<unsigned> order;
    std::map<unsigned, u32> words;
    unsigned ops = 0;
    Client::each_attribute(answer, NLMSG_HDRLEN + GENL_HDRLEN, answer.size(),
                           [&](unsigned type, std::size_t at, std::size_t length) {
                               order.push_back(type);
                               if (length == 4)
                                   std::memcpy(&words[type], &answer[at], 4);
                               if (type == CTRL_ATTR_OPS)
                                   Client::each_attribute(
                                       answer, at, at + length,
                                       [&](unsigned, std::size_t, std::size_t) { ops++; });
                           });
    EXPECT_THAT(order,
                ::testing::ElementsAre(CTRL_ATTR_FAMILY_NAME, CTRL_ATTR_FAMILY_ID,
                                       CTRL_ATTR_VERSION, CTRL_ATTR_HDRSIZE, CTRL_ATTR_MAXATTR,
                                       CTRL_ATTR_OPS, CTRL_ATTR_MCAST_GROUPS));
    EXPECT_EQ(words[CTRL_ATTR_VERSION], 1u);
    EXPECT_EQ(words[CTRL_ATTR_HDRSIZE], 0u);
    EXPECT_EQ(words[CTRL_ATTR_MAXATTR], 62u);
    EXPECT_EQ(ops, 79u);
}

TEST_F(NlRules, another_family_is_not_found) {
    auto answers = ask_for_family({'t', 'a', 'r', 'n', 0});
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(Client::error_of(answers[0]), -ENOENT);
}

TEST_F(NlRules, a_name_without_an_end_is_refused) {
    auto answers = ask_for_family({'t', 'a', 'r', 'n', 'f', 'w', 'd'});
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(Client::error_of(answers[0]), -EINVAL);
}

TEST_F(NlRules, the_family_is_answered_before_it_is_acknowledged) {
    auto answers = ask_for_family({'t', 'a', 'r', 'n', 'f', 'w', 'd', 0}, NLM_F_ACK);
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_EQ(Client::error_of(answers[1]), 0);
}

TEST_F(NlRules, families_are_not_dumped) {
    nl_message message = question(CTRL_CMD_GETFAMILY, NLM_F_DUMP, GENL_ID_CTRL);
    auto answers = ask(message);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(Client::error_of(answers[0]), -EOPNOTSUPP);
}

TEST_F(NlRules, success_is_told_only_to_who_asks) {
    nl_message quiet = question(TARNFWD_CMD_IPV4_MC_FLOODING_GROUP_FLUSH, 0, client.family);
    EXPECT_THAT(ask(quiet), ::testing::IsEmpty());
    nl_message loud = question(TARNFWD_CMD_IPV4_MC_FLOODING_GROUP_FLUSH, NLM_F_ACK, client.family);
    auto answers = ask(loud);
    ASSERT_EQ(answers.size(), 1u);
    // An acknowledgement of success repeats the header alone, and says so.
    nlmsghdr header;
    std::memcpy(&header, answers[0].data(), sizeof(header));
    EXPECT_EQ(header.nlmsg_flags, NLM_F_CAPPED);
    EXPECT_EQ(answers[0].size(), 36u);
}

TEST_F(NlRules, an_error_is_told_also_to_who_does_not_ask) {
    nl_message message = question(TARNFWD_CMD_L2_FDB_SET, 0, client.family);
    auto answers = ask(message);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(Client::error_of(answers[0]), -EINVAL);
    EXPECT_EQ(answers[0].size(), 40u) << "with the whole message";
}

TEST_F(NlRules, errors_are_cut_for_who_wants_them_so) {
    ASSERT_EQ(client.option(NETLINK_CAP_ACK, 1), 0);
    nl_message message = question(TARNFWD_CMD_L2_FDB_SET, 0, client.family);
    auto answers = ask(message);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].size(), 36u);
}

TEST_F(NlRules, what_is_no_request_is_not_run) {
    nl_message message = question(TARNFWD_CMD_L2_FDB_SET, 0, client.family);
    message.u.header.nlmsg_flags = 0;
    EXPECT_THAT(ask(message), ::testing::IsEmpty());
    message.u.header.nlmsg_flags = NLM_F_ACK;
    auto answers = ask(message);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(Client::error_of(answers[0]), 0);
}

TEST_F(NlRules, control_messages_are_passed_over) {
    nl_message message = question(0, NLM_F_ACK, NLMSG_NOOP);
    auto answers = ask(message);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(Client::error_of(answers[0]), 0);
}

TEST_F(NlRules, a_family_that_nobody_has_is_told) {
    nl_message message = question(0, 0, 0x7777);
    auto answers = ask(message);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(Client::error_of(answers[0]), -ENOENT);
}

TEST_F(NlRules, a_message_without_a_generic_header_is_refused) {
    nl_message message = question(0, 0, client.family);
    message.length = message.u.header.nlmsg_len = NLMSG_HDRLEN;
    auto answers = ask(message);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(Client::error_of(answers[0]), -EINVAL);
}

TEST_F(NlRules, a_message_that_claims_more_than_there_is_ends_the_datagram) {
    nl_message message = question(TARNFWD_CMD_L2_FDB_SET, 0, client.family);
    message.u.header.nlmsg_len = message.length + 1;
    EXPECT_THAT(ask(message), ::testing::IsEmpty());
    message.u.header.nlmsg_len = NLMSG_HDRLEN - 1;
    EXPECT_THAT(ask(message), ::testing::IsEmpty());
}

TEST_F(NlRules, several_messages_in_a_datagram_are_answered_in_order) {
    nl_message refused = question(TARNFWD_CMD_L2_FDB_SET, NLM_F_ACK, client.family);
    nl_message done = question(TARNFWD_CMD_IPV4_MC_FLOODING_GROUP_FLUSH, NLM_F_ACK, client.family);
    Bytes datagram(refused.u.bytes, refused.u.bytes + refused.length);
    datagram.insert(datagram.end(), done.u.bytes, done.u.bytes + done.length);
    client.send(datagram);
    auto answers = client.take();
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_EQ(Client::error_of(answers[0]), -EINVAL);
    EXPECT_EQ(Client::error_of(answers[1]), 0);
}

TEST_F(NlRules, reserved_bits_are_looked_at_only_above_the_last_command) {
    ASSERT_EQ(client.option(NETLINK_EXT_ACK, 1), 0);
    nl_message known = question(TARNFWD_CMD_L2_FDB_SET, 0x400, client.family);
    known.u.bytes[NLMSG_HDRLEN + 2] = 1;
    auto answers = ask(known);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].size(), 40u) << "no text: it is the command that refuses";

    nl_message unknown = question(TARNFWD_CMD_MAX + 1, 0, client.family);
    unknown.u.bytes[NLMSG_HDRLEN + 2] = 1;
    answers = ask(unknown);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(Client::error_of(answers[0]), -EINVAL);
    EXPECT_NE(std::string(answers[0].begin(), answers[0].end())
                  .find("genlmsghdr.reserved field is not 0"),
              std::string::npos);
}

// The bytes that a kernel sends, worked out from its sources by hand: header, error, the message,
// then text, offset and policy.
TEST_F(NlRules, an_extended_acknowledgement_is_byte_for_byte_a_kernels) {
    ASSERT_EQ(client.option(NETLINK_EXT_ACK, 1), 0);
    nl_message message = question(TARNFWD_CMD_IF_DELLINK, 0, client.family);
    const u8 two[2] = {1, 2};
    nl_message_put(&message, TARNFWD_ATTR_IFINDEX, two, 2);
    message.u.header.nlmsg_len = message.length;
    auto answers = ask(message);
    ASSERT_EQ(answers.size(), 1u);
    Bytes expected = {124,  0,    0,    0,   2, 0, 0, 2, 4, 3, 2, 1, 0, 0, 0, 0, // header, ACK_TLVS
                      0xEA, 0xFF, 0xFF, 0xFF};                                   // -EINVAL
    std::memcpy(&expected[12], std::array<u32, 1>{client.portid()}.data(), 4);
    expected.insert(expected.end(), message.u.bytes, message.u.bytes + message.length);
    for (u8 byte : {29, 0, 1, 0})
        expected.push_back(byte);
    for (char each : std::string("invalid attribute length"))
        expected.push_back(static_cast<u8>(each));
    const Bytes rest = {
        0,  0, 0, 0,    8,    0,    2,    0,    20, 0, 0, 0, // the end of the text, offset
        36, 0, 4, 0x80,                                      // policy, a nest
        12, 0, 4, 0,    0,    0,    0,    0,    0,  0, 0, 0, // least
        12, 0, 5, 0,    0xFF, 0xFF, 0xFF, 0xFF, 0,  0, 0, 0, // most
        8,  0, 1, 0,    4,    0,    0,    0};                // u32
    expected.insert(expected.end(), rest.begin(), rest.end());
    EXPECT_EQ(answers[0], expected);
}

TEST_F(NlRules, groups_that_are_not_there_cannot_be_joined) {
    EXPECT_EQ(client.option(NETLINK_ADD_MEMBERSHIP, client.group + 1), -EINVAL);
    EXPECT_EQ(client.option(NETLINK_ADD_MEMBERSHIP, 33, NETLINK_USERSOCK), -EINVAL);
    EXPECT_EQ(client.option(NETLINK_ADD_MEMBERSHIP, 0, NETLINK_USERSOCK), -EINVAL);
    EXPECT_EQ(client.option(99, 1), -EINVAL);
}

} // namespace
