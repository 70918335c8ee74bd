// Commands in random order, with memory that fails: nothing may be left over.
#include "control/nl_client.h"

#include <random>

namespace {

struct NlRandom : SwitchTest {
    Client client;
    std::mt19937 random{20261121};

    u32 below(u32 bound) { return static_cast<u32>(random() % bound); }

    // A value that has a meaning often enough: a few interfaces, a few VLANs.
    void put(nl_message &message, unsigned number) {
        static constexpr u32 IFINDICES[] = {0, 301, 302, 303, 5001, 5002, 5003, 6001, 9999};
        nl_attribute attribute = nl_attribute_of(number);
        u8 value[512] = {};
        std::memcpy(value, attribute.value, attribute.length);
        u32 word = IFINDICES[below(std::size(IFINDICES))];
        if (attribute.length == 4 && attribute.kind == NL_INTEGER) {
            std::memcpy(value, &word, 4);
        } else if (attribute.kind == NL_INTEGER) {
            value[0] = static_cast<u8>(below(6));
            value[1] = 0;
        } else if (attribute.kind == NL_BITMAP) {
            value[0] = static_cast<u8>(random());
        } else if (attribute.kind == NL_TEXT) {
            value[0] = static_cast<u8>('a' + below(3));
        }
        nl_message_put(&message, number, value, attribute.length);
    }

    void send_one() {
        const nl_case &each = nl_cases[below(NL_CASES)];
        nl_message message;
        nl_message_start(&message, client.family, each.command, NLM_F_ACK, 1);
        for (u8 number : each.needs)
            if (number && below(50) != 0)
                put(message, number);
        if (each.command == TARNFWD_CMD_IF_NEWLINK) {
            if (below(10) != 0)
                put(message, TARNFWD_ATTR_MAC);
            if (below(2) == 0)
                put(message, TARNFWD_ATTR_PORT_KIND);
        }
        message.u.header.nlmsg_len = message.length;
        client.send({message.u.bytes, message.length});
        client.answer();
        userlevel::work_run();
    }

    std::map<std::string, int> objects() {
        std::map<std::string, int> count;
        for (const userlevel::object &each : userlevel::live())
            count[each.kind]++;
        return count;
    }
    void delete_all() {
        for (u32 ifindex = 1; ifindex < 10000; ifindex++)
            Command(TARNFWD_CMD_IF_DELLINK).ifindex(ifindex).to(client);
        userlevel::work_run();
    }
    void expect_no_references() {
        for (tarn_avl_node *node = tarn_avl_first_node(p_tarn_if_db->tree); node;
             node = tarn_avl_next_node(node)) {
            auto *ifp = static_cast<tarn_if *>(node->info);
            EXPECT_EQ(refcount_read(&ifp->refcnt), 0) << ifp->ifindex;
            EXPECT_EQ(ifp->parents, nullptr) << ifp->ifindex;
            EXPECT_EQ(ifp->children, nullptr) << ifp->ifindex;
        }
    }
};

TEST_F(NlRandom, commands_leave_no_reference_and_no_buffer_behind) {
    configure([&] {
        userlevel::log_keep(false);
        for (int i = 0; i < 20000; i++)
            send_one();
        delete_all();
        userlevel::neigh_flushes_take();
        userlevel::log_keep(true);
        log();
    });
    expect_no_references();
    auto left = objects();
    EXPECT_EQ(left["sk_buff"], 0);
}

TEST_F(NlRandom, commands_leave_nothing_behind_when_memory_fails) {
    configure([&] {
        userlevel::log_keep(false);
        userlevel::fail_allocations_at_random(3000, 7);
        for (int i = 0; i < 20000; i++)
            send_one();
        userlevel::fail_allocations_at_random(0, 0);
        delete_all();
        userlevel::neigh_flushes_take();
        userlevel::log_keep(true);
        log();
    });
    expect_no_references();
    auto left = objects();
    EXPECT_EQ(left["sk_buff"], 0);
}

} // namespace
