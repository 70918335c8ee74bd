#include "support/graph_test.h"

#include <algorithm>
#include <cstring>

Bitmap::Bitmap(std::initializer_list<u32> vids) {
    for (u32 vid : vids)
        words[vid / 32] |= 1u << (vid % 32);
}

std::vector<u32> vids_in(const u32 *bitmap) {
    std::vector<u32> vids;
    for (u32 vid = 0; vid < TARN_VLAN_COUNT; vid++)
        if (bitmap[vid / 32] >> (vid % 32) & 1)
            vids.push_back(vid);
    return vids;
}

std::vector<tarn_if *> all_records() {
    std::vector<tarn_if *> all;
    for (tarn_avl_node *node = tarn_avl_first_node(p_tarn_if_db->tree); node;
         node = tarn_avl_next_node(node))
        all.push_back(static_cast<tarn_if *>(node->info));
    return all;
}

std::vector<tarn_if *> named_by(const tarn_ifmgr_list_node *list) {
    std::vector<tarn_if *> all;
    for (; list; list = list->next)
        all.push_back(list->ifp);
    return all;
}

namespace {

std::string named(const tarn_if *ifp) {
    return std::string(ifp->name, strnlen(ifp->name, sizeof(ifp->name)));
}

template <typename Range>
auto how_often(const Range &range, const tarn_if *ifp) {
    return std::count(range.begin(), range.end(), ifp);
}

bool is_destroyed(const tarn_if *ifp) {
    return refcount_read(&ifp->refcnt) == 0 && !(ifp->if_flags & TARN_IF_F_VALID);
}

std::string binding_problems(const tarn_if *ifp, const std::vector<tarn_if *> &all) {
    std::string problems;
    auto children = named_by(ifp->children);
    auto parents = named_by(ifp->parents);
    for (tarn_if *child : children)
        if (how_often(all, child) == 0)
            problems += named(ifp) + " has a child that is in no database\n";
        else if (how_often(named_by(child->parents), ifp) != how_often(children, child))
            problems += named(ifp) + " is bound to its child " + named(child) + " one way\n";
    for (tarn_if *parent : parents)
        if (how_often(all, parent) == 0)
            problems += named(ifp) + " has a parent that is in no database\n";
        else if (how_often(named_by(parent->children), ifp) != how_often(parents, parent))
            problems += named(ifp) + " is bound to its parent " + named(parent) + " one way\n";
    if (is_destroyed(ifp) && (ifp->children || ifp->parents || ifp->upstream_ifs))
        problems += named(ifp) + " is destroyed and still bound\n";
    tarn_if *first = parents.empty() ? nullptr : parents.front();
    if (first && first->type != TARN_IF_TYPE_SWITCHPORT)
        first = nullptr;
    if (ifp->aggregator != first)
        problems += named(ifp) + " does not know its aggregator\n";
    return problems;
}

std::size_t nodes_of(const tarn_if *ifp) {
    return named_by(ifp->children).size() + named_by(ifp->parents).size() +
           named_by(ifp->upstream_ifs).size();
}

std::size_t nodes_alive() {
    auto live = userlevel::live();
    return static_cast<std::size_t>(
        std::count_if(live.begin(), live.end(), [](const userlevel::object &object) {
            return std::strcmp(object.kind, "ifmgr_free_list") == 0;
        }));
}

} // namespace

std::string graph_problems() {
    auto all = all_records();
    std::string problems;
    std::size_t nodes = named_by(update_data.list).size();
    for (const tarn_if *ifp : all) {
        problems += binding_problems(ifp, all);
        nodes += nodes_of(ifp);
    }
    if (nodes != nodes_alive())
        problems += std::to_string(nodes_alive()) + " list nodes are alive, " +
                    std::to_string(nodes) + " are on a list\n";
    return problems;
}

std::string count_problems() {
    std::string problems;
    for (const tarn_if *ifp : all_records()) {
        if (is_destroyed(ifp))
            continue;
        u32 expected = 0;
        for (const tarn_if *child : named_by(ifp->children))
            expected += child->oper_count;
        if (!ifp->children && ifp->type == TARN_IF_TYPE_SWITCHPORT)
            expected = (ifp->flags & TARN_IF_LINK) == TARN_IF_LINK;
        if (ifp->oper_count != expected)
            problems += named(ifp) + " counts " + std::to_string(ifp->oper_count) + ", not " +
                        std::to_string(expected) + "\n";
    }
    return problems;
}

GraphTest::~GraphTest() {
    settle();
    if (!graph_is_broken_on_purpose) {
        EXPECT_EQ(graph_problems(), "");
    }
}

tarn_if *GraphTest::port_with(u32 ifindex, u32 flags, u8 with_netdev) {
    return configure([&] {
        std::string name = "p" + std::to_string(ifindex);
        EXPECT_EQ(
            tarn_ifmgr_switchport_create(name.c_str(), ADDRESS, flags, 0, ifindex, with_netdev), 0);
        settle();
        tarn_if *port = tarn_ifmgr_lookup_by_index(ifindex);
        tarn_ifmgr_if_ref_put(port);
        return port;
    });
}

tarn_if *GraphTest::aggregator(u32 ifindex, u32 type) {
    return configure([&] {
        std::string name = "lag" + std::to_string(ifindex);
        EXPECT_EQ(tarn_ifmgr_aggregator_add(name.c_str(), ADDRESS, type, ifindex), 0);
        tarn_if *made = tarn_ifmgr_lookup_by_index(ifindex);
        tarn_ifmgr_if_ref_put(made);
        return made;
    });
}

tarn_if *GraphTest::vlan(u32 vid, u32 options) {
    return configure([&] {
        tarn_if *made = nullptr;
        EXPECT_EQ(
            tarn_ifmgr_vlan_create(ADDRESS, sizeof(ADDRESS), &made, static_cast<u16>(vid), options),
            0);
        settle();
        return made;
    });
}

tarn_if *GraphTest::ethernet(u32 ifindex, const char *name, u32 flags) {
    return configure([&] {
        EXPECT_EQ(tarn_ifmgr_ethernet_create(name, ADDRESS, flags, ifindex, TARN_IF_TYPE_ETHERNET),
                  0);
        tarn_if *made = tarn_ifmgr_lookup_by_index(ifindex);
        tarn_ifmgr_if_ref_put(made);
        return made;
    });
}

void GraphTest::bind(tarn_if *parent, tarn_if *child) {
    configure([&] {
        EXPECT_EQ(tarn_ifmgr_bind(parent, child), 0);
        settle();
    });
}

void GraphTest::add_member(tarn_if *port, u32 vid, u32 tagged) {
    configure([&] {
        EXPECT_EQ(tarn_vlan_add_vlan_to_port(port->ifindex, vid, tagged), 0);
        settle();
    });
}

void GraphTest::attach(tarn_if *aggregator, tarn_if *port) {
    configure([&] {
        EXPECT_EQ(tarn_ifmgr_aggregator_port_attach(aggregator->ifindex, port->ifindex), 0);
        settle();
    });
}

void GraphTest::set_flags(tarn_if *port, u32 flags) {
    u32 was_up = (port->flags & TARN_IF_LINK) == TARN_IF_LINK;
    port->flags = flags;
    tarn_ifmgr_L2_link_state_check(port, was_up);
}

u32 GraphTest::settle() {
    return userlevel::work_run();
}

void GraphTest::remove(tarn_if *ifp) {
    expect_nothing_leaked();
    auto before = userlevel::take_snapshot();
    tarn_if *found = tarn_ifmgr_lookup_by_index(ifp->ifindex);
    ASSERT_EQ(found, ifp);
    tarn_ifmgr_delete_interface(found);
    tarn_ifmgr_if_ref_put(found);
    settle();
    EXPECT_EQ(userlevel::describe(userlevel::leaked_since(before)), "");
    remember();
}

std::vector<tarn_if *> GraphTest::waiting() {
    return named_by(update_data.list);
}
