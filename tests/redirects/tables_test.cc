// The tables that redirects look into, against plain sets: over random additions and removals, and
// with frames that ask beside the changes.
#include "redirects/redirects_test.h"
#include "support/chance.h"

#include "redirects/flooding_group.h"
#include "redirects/redirects.h"
#include "vlan/l2_fdb_block.h"

#include <atomic>
#include <cstring>
#include <set>
#include <thread>
#include <tuple>

namespace {

constexpr u32 STEPS = 20000;
constexpr u32 LISTED = 0x010200C0; // 192.0.2.1, as in a packet

class Tables : public Redirects, protected Chance {
protected:
    // As in a packet, some of them as far apart as words can be.
    u32 address() {
        return pick<u32>({0x00, 0x01, 0x7F, 0x80, 0xEF, 0xFF}) | below(2) << 8 | below(64) << 26;
    }
};
using TableThreads = Tables;

// --- flooding groups -----------------------------------------------------------------------------

struct FloodingGroups : Tables {
    ~FloodingGroups() override {
        tarn_mcdrop_flooding_group_flush();
        remember(); // the table keeps the nodes of what was in it
    }
};

TEST_F(FloodingGroups, of_a_whole_octet_are_removed_again) {
    auto group = [](u32 host) { return 239u | 1u << 8 | 1u << 16 | host << 24; };
    for (u32 host = 1; host <= 254; host++)
        ASSERT_EQ(tarn_mcdrop_flooding_group_add(0, 1, group(host)), 0);
    for (u32 host = 1; host <= 254; host++)
        EXPECT_EQ(tarn_mcdrop_flooding_group_remove(0, 1, group(host)), 0) << host;
    EXPECT_FALSE(flooding_group_any());
}

// Of one FIB, and one group of many FIBs: what most have in common would put the others in order.
TEST_F(FloodingGroups, are_what_their_model_is) {
    for (bool many_fibs : {false, true}) {
        std::multiset<std::tuple<u32, u16, u32>> model;
        for (u32 step = 0; step < STEPS; step++) {
            u32 word = address(), fib = many_fibs ? word : LISTED;
            u32 group = many_fibs ? LISTED : word;
            u16 vid = static_cast<u16>(1 + below(2));
            auto found = model.find({fib, vid, group});
            ASSERT_EQ(flooding_group_lookup(fib, vid, group), found != model.end()) << step;
            if (below(2)) {
                ASSERT_EQ(tarn_mcdrop_flooding_group_add(fib, vid, group), 0);
                model.insert({fib, vid, group});
            } else {
                ASSERT_EQ(tarn_mcdrop_flooding_group_remove(fib, vid, group),
                          found != model.end() ? 0 : -1)
                    << step;
                if (found != model.end())
                    model.erase(found);
            }
            ASSERT_EQ(flooding_group_any(), !model.empty());
        }
        EXPECT_GT(model.size(), 200u);
        tarn_mcdrop_flooding_group_flush();
    }
}

TEST_F(TableThreads, a_flooding_group_is_found_while_others_come_and_go) {
    tarn_mcdrop_flooding_group_add(0, 1, LISTED);
    std::atomic<bool> done = false;
    std::atomic<u32> lost = 0;
    std::thread frames([&] {
        while (!done)
            lost += !flooding_group_lookup(0, 1, LISTED);
    });
    for (u32 step = 0; step < STEPS; step++) {
        u32 group = address();
        if (below(2) && group != LISTED)
            tarn_mcdrop_flooding_group_add(0, 1, group);
        else if (group != LISTED)
            tarn_mcdrop_flooding_group_remove(0, 1, group);
    }
    done = true;
    frames.join();
    EXPECT_EQ(lost, 0u);
    tarn_mcdrop_flooding_group_flush();
    remember();
}

// --- hosts whose Web traffic is taken ------------------------------------------------------------

struct WebHosts : Tables {
    WebHosts() {
        Bytes web = Frame().ipv4({.protocol = 6}).bytes({0x30, 0x39, 0, 80}).padded();
        skb_ = userlevel::frame_make(web);
        remember();
    }
    ~WebHosts() override {
        kfree_skb(skb_);
        remember(); // the list keeps the nodes of what was in it
    }
    // On any thread.
    bool is_listed(u32 host) {
        static const packet_redirect *const vornappsd = packet_redirects[33];
        tarn_pkt_info info = passing(0x0800);
        info.skb = skb_;
        info.ip_proto = 6;
        std::memcpy(info.src_ip, &host, sizeof(host));
        redirect_instruct instruct{};
        vornappsd->match(&info, &instruct);
        if (instruct.pre_post_arg)
            vornappsd->pre_post_modify(nullptr, &instruct.pre_post_arg);
        return instruct.flags != 0;
    }
    void forget(const std::set<u32> &hosts) {
        for (u32 host : hosts)
            tarn_vornappsd_remove_ip_address(&host);
    }

    sk_buff *skb_;
};
using WebHostThreads = WebHosts;

TEST_F(WebHosts, are_what_their_model_is) {
    std::set<u32> model;
    for (u32 step = 0; step < STEPS; step++) {
        u32 host = address();
        ASSERT_EQ(is_listed(host), model.contains(host)) << step;
        if (below(2)) {
            tarn_vornappsd_add_ip_address(&host);
            model.insert(host);
        } else {
            tarn_vornappsd_remove_ip_address(&host);
            model.erase(host);
        }
    }
    EXPECT_GT(model.size(), 200u);
    forget(model);
    EXPECT_FALSE(is_listed(*model.begin()));
}

TEST_F(WebHostThreads, one_is_listed_while_others_come_and_go) {
    tarn_vornappsd_add_ip_address(&LISTED);
    std::atomic<bool> done = false;
    std::atomic<u32> lost = 0;
    std::thread frames([&] {
        while (!done)
            lost += !is_listed(LISTED);
    });
    std::set<u32> others;
    for (u32 step = 0; step < STEPS; step++) {
        u32 host = address();
        if (host == LISTED)
            continue;
        others.insert(host);
        if (below(2))
            tarn_vornappsd_add_ip_address(&host);
        else
            tarn_vornappsd_remove_ip_address(&host);
    }
    done = true;
    frames.join();
    EXPECT_EQ(lost, 0u);
    others.insert(LISTED);
    forget(others);
}

// --- stations that are blocked -------------------------------------------------------------------

struct BlockedStations : Tables {
    struct Pair {
        u8 mac[6];
        u16 vid;
        auto key() const { return std::pair(Bytes(std::begin(mac), std::end(mac)), vid); }
    };
    BlockedStations() {
        answers().block_bucket = 7; // all in one list
    }
    Pair pair() {
        Pair one{.mac = {2, 0, 0, 0, static_cast<u8>(below(2) * 0x80), static_cast<u8>(below(8))},
                 .vid = static_cast<u16>(1 + below(3))};
        return one;
    }
};
using BlockedStationThreads = BlockedStations;

TEST_F(BlockedStations, are_what_their_model_is) {
    configure([&] { tarn_l2_fdb_block_remove(pair().mac, 1); });
    std::set<std::pair<Bytes, u16>> model;
    for (u32 step = 0; step < STEPS; step++) {
        Pair one = pair();
        bool is_there = model.contains(one.key());
        ASSERT_EQ(tarn_l2_fdb_block_exists(one.mac, one.vid), is_there ? 1 : 0) << step;
        if (below(2)) {
            ASSERT_EQ(tarn_l2_fdb_block_add(one.mac, one.vid), is_there ? -1 : 0);
            model.insert(one.key());
        } else {
            ASSERT_EQ(tarn_l2_fdb_block_remove(one.mac, one.vid), is_there ? 0 : -1);
            model.erase(one.key());
        }
        ASSERT_EQ(packet_redirects[8]->enabled, model.empty() ? 0 : 1);
    }
    for (const auto &[mac, vid] : model)
        EXPECT_EQ(tarn_l2_fdb_block_remove(mac.data(), vid), 0);
    remember(); // the table itself
}

TEST_F(BlockedStationThreads, one_is_blocked_while_others_come_and_go) {
    const Pair blocked{.mac = {2, 0, 0, 0, 1, 1}, .vid = 1};
    ASSERT_EQ(tarn_l2_fdb_block_add(blocked.mac, 1), 0);
    std::atomic<bool> done = false;
    std::atomic<u32> lost = 0;
    std::thread frames([&] {
        while (!done)
            lost += !tarn_l2_fdb_block_exists(blocked.mac, 1);
    });
    for (u32 step = 0; step < STEPS; step++) {
        Pair one = pair();
        if (below(2))
            tarn_l2_fdb_block_add(one.mac, one.vid);
        else
            tarn_l2_fdb_block_remove(one.mac, one.vid);
    }
    done = true;
    frames.join();
    EXPECT_EQ(lost, 0u);
    for (u8 high : {0x00, 0x80})
        for (u8 low = 0; low < 8; low++)
            for (u16 vid = 1; vid <= 3; vid++) {
                const u8 mac[6] = {2, 0, 0, 0, high, low};
                tarn_l2_fdb_block_remove(mac, vid);
            }
    EXPECT_EQ(tarn_l2_fdb_block_remove(blocked.mac, 1), 0);
    remember();
}

} // namespace
