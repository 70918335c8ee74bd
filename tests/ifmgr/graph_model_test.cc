// The bind graph, the counts and the memberships against a model, over random operations.
//
// The model knows lists and sets and no counts: what counts is counted anew each time. Half of the
// rounds let allocations fail; there only what must hold in spite of that is asked for.
#include "support/graph_test.h"

#include <algorithm>
#include <deque>
#include <random>
#include <set>

namespace {

constexpr u32 PORTS = 8, AGGREGATORS = 3, VLANS = 6;
constexpr u32 NODES = PORTS + AGGREGATORS + VLANS;
constexpr u32 FIRST_VID = 11;
constexpr u32 ROUNDS = 20, OPERATIONS = 5000;

enum Kind { PORT, AGGREGATOR, VLAN };

struct Node {
    Kind kind;
    u32 ifindex;
    u32 vid;
    tarn_if *ifp = nullptr; // null: never made, or destroyed
    bool deleted = false;   // somebody still holds it
    bool link = false;
    bool always_up = false;
    std::vector<u32> parents, children, upstream;
    std::set<u32> member, tagged, disabled;
    bool live() const { return ifp && !deleted; }
};

class Model {
public:
    Model() {
        for (u32 i = 0; i < PORTS; i++)
            nodes.push_back({PORT, 101 + i, 0});
        for (u32 i = 0; i < AGGREGATORS; i++)
            nodes.push_back({AGGREGATOR, 201 + i, 0});
        for (u32 i = 0; i < VLANS; i++)
            nodes.push_back({VLAN, TARN_IF_VLAN_BASE + FIRST_VID + i, FIRST_VID + i});
    }

    std::vector<Node> nodes;

    u32 vlan_of(u32 vid) const { return PORTS + AGGREGATORS + vid - FIRST_VID; }

    bool is_bound(u32 parent, u32 child) const {
        return has(nodes[parent].children, child) && has(nodes[child].parents, parent);
    }
    void bind(u32 parent, u32 child) {
        auto &children = nodes[parent].children;
        auto &parents = nodes[child].parents;
        children.insert(children.begin(), child);
        parents.insert(parents.begin(), parent);
    }
    void unbind(u32 parent, u32 child) {
        remove_first(nodes[parent].children, child);
        remove_first(nodes[child].parents, parent);
    }

    void add_member(u32 port, u32 vid, bool tagged) {
        u32 vlan = vlan_of(vid);
        u32 child = port;
        const auto &parents = nodes[port].parents;
        if (!parents.empty() && nodes[parents[0]].kind == AGGREGATOR)
            child = parents[0];
        if (nodes[vlan].live() && !is_bound(vlan, child))
            bind(vlan, child);
        nodes[port].member.insert(vid);
        if (tagged)
            nodes[port].tagged.insert(vid);
    }
    void delete_member(u32 port, u32 vid) {
        bool there = nodes[vlan_of(vid)].live();
        if (there)
            unbind(vlan_of(vid), port);
        if (there || nodes[port].member.count(vid))
            clear_bits(port, vid);
    }
    void attach(u32 aggregator, u32 port) {
        if (has(nodes[aggregator].children, port))
            return;
        bind(aggregator, port);
        for (u32 parent : std::vector(nodes[port].parents)) {
            if (nodes[parent].kind != VLAN)
                continue;
            unbind(parent, port);
            if (!is_bound(parent, aggregator))
                bind(parent, aggregator);
        }
    }
    void detach(u32 aggregator, u32 port) {
        for (u32 parent : std::vector(nodes[aggregator].parents))
            bind(parent, port);
        unbind(aggregator, port);
        if (nodes[aggregator].children.empty())
            leave_vlans(aggregator);
    }

    // The record's destructor has run.
    void destroy(u32 id) {
        Node &node = nodes[id];
        if (node.kind == VLAN)
            for (u32 child : std::vector(node.children))
                clear_bits(child, node.vid);
        else
            leave_all(id);
        cut_off(id);
        node.member.clear();
        node.tagged.clear();
        node.disabled.clear();
        node.ifp = nullptr;
        node.deleted = false;
    }
    // Off all lists. The bits of ports stay.
    void cut_off(u32 id) {
        for (u32 child : std::vector(nodes[id].children))
            unbind(id, child);
        for (u32 parent : std::vector(nodes[id].parents))
            unbind(parent, id);
        nodes[id].upstream.clear();
    }

    u32 count(u32 id) const {
        if (nodes[id].children.empty())
            return nodes[id].kind == PORT && nodes[id].link;
        u32 sum = 0;
        for (u32 child : nodes[id].children)
            sum += count(child);
        return sum;
    }

private:
    static bool has(const std::vector<u32> &list, u32 id) {
        return std::find(list.begin(), list.end(), id) != list.end();
    }
    static void remove_first(std::vector<u32> &list, u32 id) {
        auto found = std::find(list.begin(), list.end(), id);
        if (found != list.end())
            list.erase(found);
    }
    void clear_bits(u32 port, u32 vid) {
        nodes[port].member.erase(vid);
        nodes[port].tagged.erase(vid);
        nodes[port].disabled.erase(vid);
    }
    void leave_vlans(u32 aggregator) {
        for (u32 parent : std::vector(nodes[aggregator].parents))
            if (nodes[parent].kind == VLAN)
                unbind(parent, aggregator);
    }
    void leave_all(u32 port) {
        for (u32 vid : std::set(nodes[port].member))
            delete_member(port, vid);
        for (u32 parent : std::vector(nodes[port].parents)) {
            if (nodes[parent].kind != AGGREGATOR)
                continue;
            unbind(parent, port);
            if (nodes[parent].children.empty())
                leave_vlans(parent);
        }
    }
};

// One switch, driven at random.
class Round {
public:
    Round(u64 seed, bool exact) : random(seed), exact_(exact) {}

    void step() {
        static constexpr void (Round::*OPERATION[])() = {
            &Round::create,     &Round::create,     &Round::create,        &Round::remove,
            &Round::link,       &Round::link,       &Round::link,          &Round::link,
            &Round::attach,     &Round::attach,     &Round::detach,        &Round::add_member,
            &Round::add_member, &Round::add_member, &Round::delete_member, &Round::disable,
            &Round::upstream,   &Round::hold,       &Round::let_go,        &Round::let_go,
            &Round::work};
        (this->*OPERATION[below(std::size(OPERATION))])();
        if (said.size() > 25)
            said.pop_front();
        notice_ends();
    }

    // Everybody lets go, and all is deleted.
    void end() {
        userlevel::fail_allocations_at_random(0, 0);
        while (!held.empty())
            let_go();
        for (u32 id = 0; id < NODES; id++)
            if (model.nodes[id].live())
                remove(id);
        work();
        notice_ends();
    }

    std::string problems() {
        std::string all = graph_problems();
        if (!exact_)
            return all.empty() ? "" : all + told();
        for (u32 id = 0; id < NODES; id++)
            all += problems_of(id);
        return all.empty() ? "" : all + told();
    }

private:
    Model model;
    std::mt19937_64 random;
    bool exact_;
    bool settled = true;
    std::vector<tarn_if *> held;
    std::deque<std::string> said;

    u32 below(std::size_t limit) { return static_cast<u32>(random() % limit); }
    u32 any(Kind kind) {
        if (kind == PORT)
            return below(PORTS);
        return kind == AGGREGATOR ? PORTS + below(AGGREGATORS) : PORTS + AGGREGATORS + below(VLANS);
    }
    u32 any_port() { return below(PORTS + AGGREGATORS); }
    u32 any_vid() { return FIRST_VID + below(VLANS); }
    void say(const std::string &what, u32 a, u32 b = 0, u32 c = 0) {
        said.push_back(what + " " + std::to_string(a) + " " + std::to_string(b) + " " +
                       std::to_string(c));
        settled = false;
    }
    std::string told() const {
        std::string all = "after:\n";
        for (const std::string &one : said)
            all += "  " + one + "\n";
        return all;
    }

    void create() {
        u32 id = below(NODES);
        switch (model.nodes[id].kind) {
        case PORT:
            return create_port(id);
        case AGGREGATOR:
            return create_aggregator(id);
        case VLAN:
            return create_vlan(id);
        }
    }
    // What is live stays; what is deleted and held is torn down for the new one.
    void created(u32 id, i32 result) {
        Node &node = model.nodes[id];
        if (node.live())
            return;
        const tarn_avl_node *place = tarn_avl_lookup(p_tarn_if_db->tree, &node.ifindex);
        auto *now = place ? static_cast<tarn_if *>(place->info) : nullptr;
        bool replaced = node.ifp && node.ifp != now;
        if (node.ifp && (replaced || result == 0))
            model.destroy(id);
        if (result == 0)
            node.ifp = now;
        node.link = false;
    }
    void create_port(u32 id) {
        bool was_live = model.nodes[id].live();
        u32 flags = below(2) ? LINK : NO_LINK;
        u8 routed = below(4) == 0;
        say("create port", id, flags, routed);
        std::string name = "p" + std::to_string(id);
        created(id, tarn_ifmgr_switchport_create(name.c_str(), ADDRESS, flags, 0,
                                                 model.nodes[id].ifindex, routed));
        if (!was_live)
            model.nodes[id].link = flags == LINK;
    }
    void create_aggregator(u32 id) {
        u32 type = below(2) ? TARN_AGG_TYPE_STATIC : TARN_AGG_TYPE_DYNAMIC;
        say("create aggregator", id, type);
        std::string name = "lag" + std::to_string(id);
        created(id,
                tarn_ifmgr_aggregator_add(name.c_str(), ADDRESS, type, model.nodes[id].ifindex));
    }
    // A VLAN that is there is replaced, and its ports keep their bits.
    void create_vlan(u32 id) {
        Node &node = model.nodes[id];
        u32 options = below(4) == 0 ? TARN_VLAN_OPTION_ALWAYS_UP : 0;
        say("create vlan", id, options);
        tarn_if *made = nullptr;
        if (tarn_ifmgr_vlan_create(ADDRESS, 6, &made, static_cast<u16>(node.vid), options) != 0) {
            if (node.ifp && tarn_ifmgr_lookup_by_index(node.ifindex) == nullptr)
                forget(id);
            else if (node.ifp)
                tarn_ifmgr_if_ref_put(node.ifp);
            return;
        }
        model.cut_off(id);
        node.ifp = made;
        node.deleted = false;
        node.always_up = options != 0;
    }
    void forget(u32 id) {
        model.cut_off(id);
        model.nodes[id].ifp = nullptr;
        model.nodes[id].deleted = false;
    }

    void remove() {
        u32 id = below(NODES);
        if (model.nodes[id].live())
            remove(id);
    }
    void remove(u32 id) {
        say("delete", id);
        tarn_if *found = tarn_ifmgr_lookup_by_index(model.nodes[id].ifindex);
        model.nodes[id].deleted = true;
        tarn_ifmgr_delete_interface(found);
        tarn_ifmgr_if_ref_put(found);
    }
    // Records whose last reference has gone.
    void notice_ends() {
        for (u32 id = 0; id < NODES; id++)
            if (model.nodes[id].deleted && !(model.nodes[id].ifp->if_flags & TARN_IF_F_VALID))
                model.destroy(id);
    }

    void link() {
        u32 id = any(PORT);
        Node &node = model.nodes[id];
        if (!node.live())
            return;
        u32 flags = below(2) ? LINK : below(2) ? NO_LINK : DOWN;
        say("link", id, flags);
        u32 was_up = (node.ifp->flags & TARN_IF_LINK) == TARN_IF_LINK;
        node.ifp->flags = flags;
        _tarn_ifmgr_if_hold(node.ifp);
        tarn_ifmgr_L2_link_state_check(node.ifp, was_up);
        _tarn_ifmgr_if_put(node.ifp);
        node.link = flags == LINK;
    }
    void attach() {
        u32 aggregator = any(AGGREGATOR), port = any(PORT);
        say("attach", aggregator, port);
        i32 result = tarn_ifmgr_aggregator_port_attach(model.nodes[aggregator].ifindex,
                                                       model.nodes[port].ifindex);
        if (result == 0)
            model.attach(aggregator, port);
    }
    void detach() {
        u32 aggregator = any(AGGREGATOR);
        if (!model.nodes[aggregator].live() || model.nodes[aggregator].children.empty())
            return;
        const auto &children = model.nodes[aggregator].children;
        u32 port = children[below(children.size())];
        if (!model.nodes[port].live() ||
            !tarn_ifmgr_isbound(model.nodes[aggregator].ifp, model.nodes[port].ifp))
            return;
        say("detach", aggregator, port);
        tarn_ifmgr_aggregator_port_detach(model.nodes[aggregator].ifp, model.nodes[port].ifp);
        model.detach(aggregator, port);
    }
    void add_member() {
        u32 port = any_port(), vid = any_vid(), tagged = below(2);
        say("add", port, vid, tagged);
        if (tarn_vlan_add_vlan_to_port(model.nodes[port].ifindex, vid, tagged) == 0)
            model.add_member(port, vid, tagged);
    }
    void delete_member() {
        u32 port = any_port(), vid = any_vid();
        say("take", port, vid);
        if (tarn_vlan_delete_vlan_from_port(model.nodes[port].ifindex, vid) == 0)
            model.delete_member(port, vid);
    }
    void disable() {
        u32 port = any_port(), vid = any_vid();
        say("disable", port, vid);
        if (tarn_vlan_set_vlan_port_disabled(model.nodes[port].ifindex, vid, 1) == 0)
            model.nodes[port].disabled.insert(vid);
    }
    void upstream() {
        u32 vlan = any(VLAN), port = any_port();
        Node &node = model.nodes[vlan];
        if (!node.live() || !model.nodes[port].live())
            return;
        say("upstream", vlan, port);
        tarn_if *ifp = model.nodes[port].ifp;
        auto found = std::find(node.upstream.begin(), node.upstream.end(), port);
        if (found != node.upstream.end()) {
            tarn_ifmgr_vlan_upstream_if_delete(node.ifp, ifp);
            node.upstream.erase(found);
        } else if (tarn_ifmgr_vlan_upstream_if_add(node.ifp, ifp)) {
            node.upstream.insert(node.upstream.begin(), port);
        }
    }

    void hold() {
        u32 id = below(NODES);
        if (held.size() > 5)
            return;
        if (tarn_if *ifp = tarn_ifmgr_lookup_by_index(model.nodes[id].ifindex)) {
            say("hold", id);
            held.push_back(ifp);
        }
    }
    // As a frame does: in process context, or where nobody may sleep.
    void let_go() {
        if (held.empty())
            return;
        std::swap(held[below(held.size())], held.back());
        say("let go", held.back()->ifindex);
        bool atomic = below(2);
        if (atomic)
            local_bh_disable();
        tarn_ifmgr_if_ref_put(held.back());
        if (atomic)
            local_bh_enable();
        held.pop_back();
    }
    void work() {
        userlevel::work_run();
        settled = true;
        said.push_back("work");
    }

    template <typename Expected, typename Actual>
    static std::string differs(const char *what, u32 id, const Expected &expected,
                               const Actual &actual) {
        if (expected == actual)
            return "";
        return std::string(what) + " of " + std::to_string(id) + ": " +
               ::testing::PrintToString(actual) + ", not " + ::testing::PrintToString(expected) +
               "\n";
    }
    std::vector<tarn_if *> records(const std::vector<u32> &ids) const {
        std::vector<tarn_if *> all;
        for (u32 id : ids)
            all.push_back(model.nodes[id].ifp);
        return all;
    }
    static std::vector<u32> list(const std::set<u32> &vids) { return {vids.begin(), vids.end()}; }

    std::string problems_of(u32 id) {
        const Node &node = model.nodes[id];
        tarn_if *found = tarn_ifmgr_lookup_by_index(node.ifindex);
        tarn_ifmgr_if_ref_put(found);
        std::string all = differs("lookup", id, node.live() ? node.ifp : nullptr, found);
        if (!node.ifp)
            return all;
        const tarn_if *ifp = node.ifp;
        all += differs("parents", id, records(node.parents), named_by(ifp->parents));
        all += differs("children", id, records(node.children), named_by(ifp->children));
        all += differs("upstream", id, node.upstream.size(), named_by(ifp->upstream_ifs).size());
        all += differs("members", id, list(node.member), vids_in(ifp->vlan_member_bmp));
        all += differs("tagged", id, list(node.tagged), vids_in(ifp->vlan_tagged_bmp));
        all += differs("disabled", id, list(node.disabled), vids_in(ifp->vlan_disabled_bmp));
        all += differs("count", id, model.count(id), u32{ifp->oper_count});
        if (settled)
            all += settled_problems_of(id);
        return all;
    }
    std::string settled_problems_of(u32 id) {
        const Node &node = model.nodes[id];
        i32 expected = !node.deleted;
        expected += static_cast<i32>(std::count(held.begin(), held.end(), node.ifp));
        std::string all = differs("references", id, expected, refcount_read(&node.ifp->refcnt));
        if (node.kind == VLAN)
            all += differs("running", id, node.always_up || model.count(id) != 0,
                           (dev_get_flags(node.ifp->netdev) & IFF_RUNNING) != 0);
        return all;
    }
};

class GraphModel : public GraphTest, public ::testing::WithParamInterface<bool> {
protected:
    // An installation gives back what was replaced before.
    void sweep() {
        tarn_ifmgr_aggregator_add("lag", ADDRESS, TARN_AGG_TYPE_STATIC, 299);
        tarn_if *lag = tarn_ifmgr_lookup_by_index(299);
        tarn_ifmgr_delete_interface(lag);
        tarn_ifmgr_if_ref_put(lag);
    }
    // Without what is used again when it is wanted: nodes of the tree, records of ports.
    static std::size_t alive() {
        std::size_t spare = 0;
        for (const tarn_avl_node *node = p_tarn_if_db->tree->free_nodes; node; node = node->right)
            spare++;
        for (const tarn_if *ifp = tarn_ifmgr_replaced; ifp; ifp = ifp->replaced_next)
            spare++;
        return userlevel::live().size() - spare - 2 * all_records().size();
    }
};

TEST_P(GraphModel, random_operations_keep_the_graph_whole) {
    bool exact = GetParam();
    userlevel::log_keep(false);
    std::size_t before = alive();
    for (u64 seed = 1; seed <= ROUNDS / 2; seed++) {
        Round round(seed, exact);
        if (!exact)
            userlevel::fail_allocations_at_random(65536 / 20, seed);
        for (u32 i = 1; i <= OPERATIONS; i++) {
            round.step();
            if (i % 8 == 0) {
                ASSERT_EQ(round.problems(), "") << "seed " << seed << ", operation " << i;
            }
        }
        round.end();
        ASSERT_EQ(round.problems(), "") << "seed " << seed << ", the end";
        sweep();
        ASSERT_EQ(alive(), before) << "seed " << seed;
        for (tarn_if *ifp : all_records())
            ASSERT_EQ(refcount_read(&ifp->refcnt), ifp == port1() || ifp == vlan1()) << ifp->name;
    }
    userlevel::log_take();
    userlevel::log_keep(true);
    userlevel::neigh_flushes_take();
    remember();
}
INSTANTIATE_TEST_SUITE_P(Memory, GraphModel, ::testing::Values(true, false), [](const auto &row) {
    return row.param ? "is_there" : "fails_now_and_then";
});

} // namespace
