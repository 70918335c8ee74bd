// A control daemon in a test: sends messages of the control family, and keeps what it is told.
#pragma once

#include "control/nl_cases.h"
#include "netlink.h"
#include "support/switch_test.h"

#include <cstring>
#include <set>

class Client {
public:
    Client()
        : socket_([this](std::span<const u8> message) {
              messages.emplace_back(message.begin(), message.end());
          }) {
        find_family();
    }

    std::vector<Bytes> messages; // what has come since they were last taken
    std::vector<Bytes> take() { return std::exchange(messages, {}); }

    u16 family = 0;
    u32 group = 0;

    void send(std::span<const u8> datagram) { socket_.send(datagram); }
    int option(u32 name, u32 value, u32 protocol = NETLINK_GENERIC) {
        return socket_.set_option(protocol, name, value);
    }
    void join() { EXPECT_EQ(option(NETLINK_ADD_MEMBERSHIP, group), 0); }
    u32 portid() const { return socket_.portid(); }

    // The error of the only answer.
    int answer() {
        auto all = take();
        EXPECT_EQ(all.size(), 1u) << "one acknowledgement";
        return all.size() == 1 ? error_of(all[0]) : 1;
    }
    static int error_of(const Bytes &message) {
        int error = 1;
        if (message.size() >= NLMSG_HDRLEN + sizeof(error))
            std::memcpy(&error, &message[NLMSG_HDRLEN], sizeof(error));
        return error;
    }

private:
    void find_family() {
        nl_message question;
        nl_message_start(&question, GENL_ID_CTRL, CTRL_CMD_GETFAMILY, 0, 1);
        nl_message_put(&question, CTRL_ATTR_FAMILY_NAME, TARNFWD_NL_FAMILY,
                       sizeof(TARNFWD_NL_FAMILY));
        question.u.header.nlmsg_len = question.length;
        send({question.u.bytes, question.length});
        for (const Bytes &message : take())
            read_family(message);
        EXPECT_NE(family, 0) << "no family is called " TARNFWD_NL_FAMILY;
    }
    void read_family(const Bytes &message) {
        each_attribute(message, NLMSG_HDRLEN + GENL_HDRLEN, message.size(),
                       [&](unsigned type, std::size_t at, std::size_t length) {
                           if (type == CTRL_ATTR_FAMILY_ID)
                               std::memcpy(&family, &message[at], sizeof(family));
                           if (type == CTRL_ATTR_MCAST_GROUPS)
                               read_group(message, at, at + length);
                       });
    }
    void read_group(const Bytes &message, std::size_t from, std::size_t to) {
        each_attribute(message, from, to, [&](unsigned, std::size_t at, std::size_t length) {
            each_attribute(message, at, at + length,
                           [&](unsigned type, std::size_t value, std::size_t) {
                               if (type == CTRL_ATTR_MCAST_GRP_ID)
                                   std::memcpy(&group, &message[value], sizeof(group));
                           });
        });
    }

public:
    template <typename Each>
    static void each_attribute(const Bytes &message, std::size_t from, std::size_t to, Each each) {
        while (from + NLA_HDRLEN <= to) {
            nlattr header;
            std::memcpy(&header, &message[from], sizeof(header));
            ASSERT_GE(header.nla_len, NLA_HDRLEN);
            ASSERT_LE(from + header.nla_len, to);
            each(header.nla_type & NLA_TYPE_MASK, from + NLA_HDRLEN,
                 std::size_t{header.nla_len} - NLA_HDRLEN);
            from += NLA_ALIGN(header.nla_len);
        }
    }

private:
    userlevel::netlink_socket socket_;
};

// One command, put together word by word: Command(TARNFWD_CMD_IF_UPDATE).word(...).bytes(...).
class Command {
public:
    explicit Command(tarnfwd_cmd number) {
        nl_message_start(&message_, 0, static_cast<u8>(number), NLM_F_ACK, 7);
    }

    Command &byte(tarnfwd_attr number, u8 value) { return put(number, value); }
    Command &half(tarnfwd_attr number, u16 value) { return put(number, value); }
    Command &word(tarnfwd_attr number, u32 value) { return put(number, value); }
    Command &bytes(tarnfwd_attr number, const Bytes &value) {
        nl_message_put(&message_, number, value.data(), static_cast<unsigned>(value.size()));
        return *this;
    }
    Command &text(tarnfwd_attr number, const std::string &value) {
        nl_message_put(&message_, number, value.c_str(), static_cast<unsigned>(value.size() + 1));
        return *this;
    }
    Command &ifindex(u32 value) { return word(TARNFWD_ATTR_IFINDEX, value); }
    Command &vid(u16 value) { return half(TARNFWD_ATTR_VID, value); }
    Command &state(u8 value) { return byte(TARNFWD_ATTR_STATE, value); }
    Command &mac() { return bytes(TARNFWD_ATTR_MAC, {2, 0, 0, 0, 7, 7}); }

    // Sends it; the error of its acknowledgement.
    int to(Client &client) {
        message_.u.header.nlmsg_type = client.family;
        message_.u.header.nlmsg_len = message_.length;
        client.send({message_.u.bytes, message_.length});
        return client.answer();
    }

private:
    template <typename Value>
    Command &put(tarnfwd_attr number, Value value) {
        nl_message_put(&message_, number, &value, sizeof(value));
        return *this;
    }

    nl_message message_;
};
