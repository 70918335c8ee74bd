// Commands in random order, with memory that fails: nothing may be left over.
//
// TARN_RANDOM_COMMANDS sets how many (20000 unless said otherwise), TARN_RANDOM_SEED the seed.
#include "control/nl_client.h"
#include "support/chance.h"

#include <algorithm>

namespace {

constexpr u64 ROUND = 2500;               // commands, before all is deleted
constexpr std::size_t MOST_OBJECTS = 300; // alive then

struct NlRandom : SwitchTest, Chance {
    Client client;

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
            value[0] = static_cast<u8>(draw());
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
        obeyed_ += client.answer() == 0;
        userlevel::work_run();
    }

    // What hangs on an interface goes with it; afterwards nobody refers to any.
    void delete_all() {
        for (u32 ifindex : interfaces())
            Command(TARNFWD_CMD_IF_DELLINK).ifindex(ifindex).to(client);
        userlevel::work_run();
        userlevel::neigh_flushes_take();
    }
    static std::vector<u32> interfaces() {
        std::vector<u32> all;
        each_record([&](const tarn_if *ifp) { all.push_back(ifp->ifindex); });
        return all;
    }
    template <typename Each>
    static void each_record(Each each) {
        for (tarn_avl_node *node = tarn_avl_first_node(p_tarn_if_db->tree); node;
             node = tarn_avl_next_node(node))
            each(static_cast<tarn_if *>(node->info));
    }

    void expect_no_references() {
        each_record([](const tarn_if *ifp) {
            EXPECT_EQ(refcount_read(&ifp->refcnt), 0) << ifp->ifindex;
            EXPECT_EQ(ifp->parents, nullptr) << ifp->ifindex;
            EXPECT_EQ(ifp->children, nullptr) << ifp->ifindex;
        });
    }

    // Records wait for those of their number, and tables have room for what a draw can name.
    static void expect_no_growth() {
        const std::vector<userlevel::object> all = userlevel::live();
        EXPECT_LT(all.size(), MOST_OBJECTS) << userlevel::describe(all);
        for (const userlevel::object &each : all)
            EXPECT_STRNE(each.kind, "sk_buff");
    }

    void send_many(u32 chance_of_failure) {
        userlevel::log_keep(false);
        userlevel::fail_allocations_at_random(chance_of_failure, seed_);
        Counted commands("commands", "TARN_RANDOM_COMMANDS", 20000);
        while (commands.go_on()) {
            send_one();
            if (commands.done() % ROUND == ROUND - 1)
                end_of_round(chance_of_failure);
            ASSERT_FALSE(HasFailure()) << "seed " << seed_ << ", command " << commands.done();
        }
        end_of_round(0);
        EXPECT_LT(commands.grown_kb(), MOST_KB);
        EXPECT_GT(obeyed_, commands.wanted() / 4);
        userlevel::log_keep(true);
        log();
    }

    void end_of_round(u32 chance_of_failure) {
        userlevel::fail_allocations_at_random(0, 0);
        delete_all();
        expect_no_references();
        expect_no_growth();
        remember();
        userlevel::fail_allocations_at_random(chance_of_failure, draw());
    }

    u64 obeyed_ = 0;
};

TEST_F(NlRandom, commands_leave_nothing_behind) {
    send_many(0);
}

TEST_F(NlRandom, commands_leave_nothing_behind_when_memory_fails) {
    send_many(3000);
}

} // namespace
