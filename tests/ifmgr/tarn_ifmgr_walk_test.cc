// Walks of the whole graph above and below an interface.
#include "support/graph_test.h"

#include "ifmgr/tarn_ifmgr_walk.h"

#include <chrono>

using ::testing::ElementsAre;

namespace {

constexpr u32 LEVELS = TARN_IFMGR_MAX_LEVELS;

struct Step {
    const tarn_if *ifp;
    u32 ways, level;
    bool operator==(const Step &) const = default;
};
void PrintTo(const Step &step, std::ostream *out) {
    *out << step.ifp->name << ", " << step.ways << " ways, level " << step.level;
}

class Walk : public GraphTest {
protected:
    static std::vector<Step> steps(tarn_if *(*walk)(tarn_if *), tarn_if *from) {
        std::vector<Step> all;
        tarn_ifmgr_change_begin();
        for (tarn_if *at = walk(from); at; at = at->walk_next)
            all.push_back({at, at->walk_ways, at->walk_level});
        tarn_ifmgr_change_end();
        return all;
    }
    static std::vector<Step> up(tarn_if *from) { return steps(tarn_ifmgr_walk_up, from); }
    static std::vector<Step> down(tarn_if *from) { return steps(tarn_ifmgr_walk_down, from); }

    // Each under the next, the last on top.
    std::vector<tarn_if *> chain(u32 first, u32 count) {
        std::vector<tarn_if *> all;
        for (u32 k = 0; k < count; k++) {
            all.push_back(aggregator(first + k));
            if (k > 0)
                bind(all[k], all[k - 1]);
        }
        return all;
    }
};

TEST_F(Walk, of_one_alone_is_itself) {
    tarn_if *port = port_with(77);
    EXPECT_THAT(up(port), ElementsAre(Step{port, 1, 0}));
    EXPECT_THAT(down(port), ElementsAre(Step{port, 1, 0}));
}

TEST_F(Walk, finishes_with_a_parent_before_the_next_of_the_list) {
    tarn_if *v10 = vlan(10), *v11 = vlan(11), *v12 = vlan(12), *port = port_with(77);
    tarn_if *a = aggregator(7001), *b = aggregator(7002);
    bind(v12, b);
    bind(v11, a);
    bind(v10, a);
    bind(b, port);
    bind(a, port);
    EXPECT_THAT(up(port), ElementsAre(Step{port, 1, 0}, Step{a, 1, 1}, Step{v10, 1, 2},
                                      Step{v11, 1, 2}, Step{b, 1, 1}, Step{v12, 1, 2}));
    EXPECT_THAT(down(v12), ElementsAre(Step{v12, 1, 0}, Step{b, 1, 1}, Step{port, 1, 2}));
}

TEST_F(Walk, comes_once_after_all_through_which_it_can_be_come_to) {
    tarn_if *v10 = vlan(10), *a = aggregator(7001), *b = aggregator(7002), *port = port_with(77);
    bind(v10, port);
    bind(v10, a);
    bind(a, b);
    bind(a, port);
    bind(b, port);
    // port is under b, a and v10; b under a; a under v10.
    EXPECT_THAT(up(port),
                ElementsAre(Step{port, 1, 0}, Step{b, 1, 1}, Step{a, 2, 2}, Step{v10, 3, 3}));
    EXPECT_THAT(down(v10),
                ElementsAre(Step{v10, 1, 0}, Step{a, 1, 1}, Step{b, 1, 2}, Step{port, 3, 3}));
    for (u32 flags : {LINK, NO_LINK, LINK}) {
        set_flags(port, flags);
        EXPECT_EQ(v10->oper_count, flags == LINK ? 3 : 0);
        EXPECT_EQ(count_problems(), "");
    }
    settle();
}

TEST_F(Walk, one_bound_twice_is_come_to_once_in_two_ways) {
    tarn_if *v10 = vlan(10), *port = port_with(77);
    bind(v10, port);
    bind(v10, port);
    EXPECT_THAT(up(port), ElementsAre(Step{port, 1, 0}, Step{v10, 2, 1}));
    set_flags(port, LINK);
    EXPECT_EQ(v10->oper_count, 2);
    settle();
}

// --- eight levels --------------------------------------------------------------------------------

TEST_F(Walk, no_more_than_eight_levels_stand_above_one_another_whichever_end_grows) {
    auto grown_up = chain(7000, LEVELS + 1);
    EXPECT_EQ(tarn_ifmgr_bind(aggregator(7100), grown_up.back()), TARN_ERR_WRONG_TYPE);
    EXPECT_EQ(tarn_ifmgr_bind(grown_up.front(), port_with(77)), TARN_ERR_WRONG_TYPE);
    auto grown_down = chain(7200, LEVELS);
    tarn_if *port = port_with(78, LINK);
    bind(grown_down.front(), port);
    EXPECT_EQ(grown_down.back()->oper_count, 1); // eight levels up
    EXPECT_EQ(tarn_ifmgr_bind(port, port_with(79)), TARN_ERR_WRONG_TYPE);
    EXPECT_EQ(tarn_ifmgr_aggregator_port_attach(78, 79), TARN_ERR_WRONG_TYPE);
    EXPECT_EQ(port->children, nullptr);
    forget_log();
}

TEST_F(Walk, two_halves_are_joined_when_they_are_eight_levels_together) {
    for (u32 above = 0; above <= LEVELS; above++) {
        u32 below = LEVELS - 1 - above; // and the binding between them
        if (above == LEVELS)
            break;
        auto upper = chain(8000 + 100 * above, above + 1);
        auto lower = chain(9000 + 100 * above, below + 1);
        bind(upper.front(), lower.back());
        EXPECT_EQ(up(lower.front()).back(), (Step{upper.back(), 1, LEVELS}));
        EXPECT_EQ(tarn_ifmgr_bind(aggregator(8050 + 100 * above), upper.back()),
                  TARN_ERR_WRONG_TYPE);
    }
    auto upper = chain(20000, 5), lower = chain(20100, 5); // four levels each
    EXPECT_EQ(tarn_ifmgr_bind(upper.front(), lower.back()), TARN_ERR_WRONG_TYPE);
    EXPECT_EQ(upper.front()->children, nullptr);
    settle();
}

// --- many ways -----------------------------------------------------------------------------------

// Twelve to the seventh lead up through it: nobody can follow them one by one.
TEST_F(Walk, a_graph_of_eight_layers_of_twelve_ports_changes_at_once) {
    constexpr u32 LAYERS = 8, WIDTH = 12;
    std::vector<std::vector<tarn_if *>> layers(LAYERS);
    for (u32 layer = 0; layer < LAYERS; layer++)
        for (u32 k = 0; k < WIDTH; k++)
            layers[layer].push_back(port_with(10000 + 100 * layer + k));
    auto start = std::chrono::steady_clock::now();
    for (u32 layer = 1; layer < LAYERS; layer++)
        for (tarn_if *parent : layers[layer])
            for (tarn_if *child : layers[layer - 1])
                ASSERT_EQ(tarn_ifmgr_bind(parent, child), 0);
    for (u32 flags : {LINK, NO_LINK, LINK})
        set_flags(layers[0][0], flags);
    std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    EXPECT_LT(taken.count(), 2.0);
    EXPECT_EQ(layers[1][0]->oper_count, 1);
    EXPECT_EQ(layers[2][0]->oper_count, 12);
    EXPECT_EQ(layers[3][0]->oper_count, 144);
    EXPECT_EQ(layers[4][0]->oper_count, 12 * 144 % 256); // a byte wraps
    EXPECT_EQ(layers[7][0]->oper_count, 0);              // 12 to the sixth is a multiple of 256
    set_flags(layers[0][0], NO_LINK);
    for (u32 layer = 1; layer < LAYERS; layer++)
        EXPECT_EQ(layers[layer][11]->oper_count, 0) << layer;
    settle();
    remember();
}

} // namespace
