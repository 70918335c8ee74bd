// Random frames down every way out of the switch, and up to the IP stack and to sockets, while
// everything that can go wrong does: whatever happens, every frame is accounted for, and nothing is
// read or written outside a buffer (the address sanitizer looks, in its build).
//
// TARN_RANDOM_FRAMES sets how many (100000 unless said otherwise), TARN_RANDOM_SEED the seed.
#include "support/chance.h"
#include "support/transmit_test.h"

#include "ifmgr/tarn_ifmgr_create.h"
#include "ifmgr/tarn_ifmgr_settings.h"
#include "kernel/locks.h"
#include "kernel/netdev.h"
#include "kernel/preempt.h"
#include "pkt/pkt_post.h"
#include "vlan/vlan_member.h"

namespace {

constexpr u32 PORTS = 5;          // 5001 and on; the last but one is routed and has a device
constexpr u32 ROUTED = 4;         // born routed
constexpr u32 AGGREGATOR = 4501;  // over port 3
constexpr u32 ETHERNET = 7;       // a device of the kernel's own
constexpr u32 WITHOUT_DEVICE = 8; // an Ethernet interface that has none
constexpr u32 SOCKETS = 3;

class RandomTransmit : public TransmitTest, protected Chance {
protected:
    RandomTransmit() {
        driver().keep = false;
        driver().answer = [this](const fake_driver::Sent &) { return answer(); };
        features().socket_post = [this](sock *sk, sk_buff *skb) { return queue(sk, skb); };
        configure([&] { build(); });
        fake_driver::attach();
    }

    // --- the switch -----------------------------------------------------------------------------

    void build() {
        device_ = userlevel::netdev_create("eth7");
        const u8 address[6] = {2, 0, 0, 0, 3, 1};
        tarn_ifmgr_ethernet_create("eth7", address, TARN_IF_LINK, ETHERNET, TARN_IF_TYPE_ETHERNET);
        tarn_ifmgr_ethernet_create("eth8", address, TARN_IF_LINK, WITHOUT_DEVICE,
                                   TARN_IF_TYPE_ETHERNET);
        plain_switch::add_vlan(20);
        for (u32 k = 2; k <= PORTS; k++)
            if (k != ROUTED)
                add_port_again(k);
        const u8 routed[6] = {2, 0, 0, 0, 1, ROUTED};
        tarn_ifmgr_switchport_create("port4", routed, TARN_IF_LINK, 0, 5000 + ROUTED, 1);
        tarn_ifmgr_aggregator_add("lag1", address, TARN_AGG_TYPE_STATIC, AGGREGATOR);
        tarn_ifmgr_aggregator_port_attach(AGGREGATOR, 5003);
        userlevel::work_run();
    }

    void add_port_again(u32 k) {
        tarn_if *port = plain_switch::add_port(k);
        plain_switch::add_member(port, 1);
        plain_switch::add_member(port, 20);
    }

    // A port vanishes as by a command, and is back at once or after a while.
    void port_goes_or_comes() {
        configure([&] {
            if (tarn_if *there = tarn_ifmgr_lookup_by_index(5000 + PORTS)) {
                tarn_ifmgr_delete_interface(there);
                _tarn_ifmgr_if_put(there);
                userlevel::work_run();
            }
            if (one_in(2))
                add_port_again(PORTS);
        });
    }

    void change_interface(u32 ifindex) {
        tarn_if *ifp = tarn_ifmgr_lookup_by_index(ifindex);
        if (!ifp)
            return;
        ifp->mirror_ifindex = pick({0u, 0u, 0u, 5001u, 5002u, 5005u, 7u, 4501u, 9999u});
        ifp->openflow = one_in(4);
        ifp->auth_state = pick({3u, 3u, 4u});
        ifp->stp_state[0] = one_in(3) ? below(5) : u32{TARN_STP_FORWARDING};
        ifp->flags = pick<u32>({TARN_IF_LINK, TARN_IF_LINK, IFF_UP, 0});
        ifp->vlan_tagged_bmp[0] = static_cast<u32>(draw());
        ifp->vlan_disabled_bmp[0] = one_in(4) ? static_cast<u32>(draw()) : 0;
        ifp->if_flags ^= one_in(4) ? TARN_IF_F_DHCPSN_TRUSTED : 0;
        if (ifp->type == TARN_IF_TYPE_VLAN)
            ifp->if_flags ^= one_in(4) ? TARN_IF_F_VLAN_LOCAL : 0;
        ifp->tx_failure_cb = one_in(2) ? failed : nullptr;
        tarn_ifmgr_if_ref_put(ifp);
    }

    // Another switch now and then.
    void change() {
        for (u32 ifindex : {5001u, 5002u, 5003u, 5004u, 5005u, AGGREGATOR, ETHERNET, 301u, 320u})
            change_interface(ifindex);
        tarn_tx_discard_all_set(one_in(6));
        tarn_pkt_debug = one_in(4) ? below(4) : 0;
        features().outer_vlans.clear();
        if (one_in(2))
            features().outer_vlans = {{1, pick({20u, 21u})}, {0x503, 20}, {0, 1}};
        if (one_in(3))
            features().management_vlan = 20;
        else
            features().management_vlan.reset();
        userlevel::netdev_recorded(device_).queue_result = pick({0, 0, -ENOMEM, 1, 2});
        pick_driver();
        port_goes_or_comes();
    }

    void pick_driver() {
        switch (below(6)) {
        case 0:
            fake_driver::detach();
            break;
        case 1:
        case 2:
            fake_driver::attach();
            break;
        default:
            fake_driver::attach_without_flood();
        }
        driver().flood_result = pick({0, 0, -EOPNOTSUPP, -EINVAL, 1});
        driver().hold = one_in(2);
    }

    u32 answer() {
        seen_.offered++;
        return one_in(8) ? pick({static_cast<u32>(-ENODEV), 1u, 0x7FFFFFFFu}) : 0;
    }

    // --- sockets --------------------------------------------------------------------------------

    i32 queue(sock *sk, sk_buff *skb) {
        if (one_in(8))
            return pick({-ENOMEM, -1});
        sk->rmem_alloc += static_cast<int>(skb_truesize(skb));
        queued_.emplace_back(sk, skb);
        seen_.queued++;
        return 0;
    }

    void read_sockets() {
        for (auto [sk, skb] : queued_) {
            sk->rmem_alloc -= static_cast<int>(skb_truesize(skb));
            consume_skb(skb);
        }
        queued_.clear();
        for (sock &sk : sockets_)
            EXPECT_EQ(sk.rmem_alloc, 0);
    }

    // --- frames ---------------------------------------------------------------------------------

    Bytes bytes() {
        Frame frame;
        frame.to(pick({"02:00:00:00:00:01", "01:00:5e:00:00:0d", "ff:ff:ff:ff:ff:ff"}));
        frame.from(pick({"02:00:00:00:00:99", "02:00:00:00:00:01"}));
        for (u32 tags = below(3); tags > 0; tags--)
            frame.tag(one_in(2) ? u16{0x0305} : static_cast<u16>(draw()));
        frame.type(pick<u16>({0x0800, 0x86DD, 0x88CC, 0x0806}));
        Bytes all = frame.bytes(noise(below(one_in(50) ? 9300 : 64)));
        if (one_in(4))
            all.resize(below(static_cast<u32>(all.size()) + 1));
        return all;
    }

    // An interface with a reference, or null.
    tarn_if *any_port() {
        return tarn_ifmgr_lookup_by_index(pick(
            {5001u, 5002u, 5003u, 5004u, 5005u, AGGREGATOR, ETHERNET, WITHOUT_DEVICE, 301u, 9u}));
    }
    tarn_if *any_vlan() { return tarn_ifmgr_lookup_by_index(pick({301u, 301u, 320u, 5004u, 9u})); }

    // Which of those that come back are freed by whoever called.
    void free_unless_taken(u32 result, sk_buff *skb) {
        if (result != 0)
            kfree_skb(skb);
    }

    void send(sk_buff *skb) {
        tarn_if *port = any_port(), *vlan_if = any_vlan();
        u32 cos = below(8), queue = below(300);
        u8 enable = static_cast<u8>(below(2));
        skb->priority = below(10);
        switch (below(9)) {
        case 0:
            if (vlan_if)
                _tarn_eth_drv_tx(vlan_if, skb);
            else
                kfree_skb(skb);
            break;
        case 1:
            free_unless_taken(static_cast<u32>(_tarn_eth_drv_svi_tx(vlan_if, skb, cos, queue)),
                              skb);
            break;
        case 2:
            free_unless_taken(tarn_start_xmit(port, vlan_if, skb, cos, queue, enable, one_in(2)),
                              skb);
            break;
        case 3: {
            const u32 except[2] = {below(6000), below(4)};
            free_unless_taken(tarn_flood_except_port(port, pick({1u, 20u, 21u, 0u, 4096u}),
                                                     one_in(2) ? except : nullptr, skb, cos, queue,
                                                     enable),
                              skb);
            break;
        }
        case 4:
            free_unless_taken(
                tarn_flood_trusted_except_port(port, pick({1u, 20u, 21u}), skb, cos, queue, enable),
                skb);
            break;
        case 5:
            if (port && vlan_if)
                free_unless_taken(static_cast<u32>(tarn_forward_with_dest_mac(skb, port, vlan_if)),
                                  skb);
            else
                kfree_skb(skb);
            break;
        case 6:
            tarn_pkt_post_to_kernel(port, one_in(2) ? port : nullptr, vlan_if, skb, below(5000));
            break;
        case 7:
            tarn_pkt_post_packet(skb, one_in(2) ? &sockets_[0] : nullptr,
                                 one_in(2) ? &list_ : nullptr, one_in(2) ? &lock_ : nullptr);
            kfree_skb(skb);
            break;
        case 8:
            if (vlan_if && vlan_if->netdev)
                tarn_eth_dev_send(skb, vlan_if->netdev);
            else
                kfree_skb(skb);
            break;
        }
        tarn_ifmgr_if_ref_put(port);
        tarn_ifmgr_if_ref_put(vlan_if);
    }

    // As the IP stack does.
    void tarn_eth_dev_send(sk_buff *skb, net_device *device) {
        local_bh_disable();
        netdev_get_ops(device)->start_xmit(skb, device);
        local_bh_enable();
    }

    // Through the pipeline: a redirect of the test's own decides on floods, resends and posts.
    void receive_one(sk_buff *skb) {
        tarn_rx_meta meta{};
        meta.debug = one_in(2);
        meta.flood_except[0] = one_in(2) ? FLOOD_NO_EXCEPTION : below(6000);
        frame_set_port_word(skb, pick({0u, 301u, 5001u, 5003u, 5005u, 4501u, 7u, 9u}));
        u32 result = rxtx_hw_packet_recv(skb, pick({5001u, 5002u, 5003u, 5004u, 5005u, 9u}),
                                         pick({1u, 20u, 21u, 0u}), &meta);
        free_unless_taken(result, skb);
    }

    void one_frame() {
        const Bytes what = bytes();
        sk_buff *skb = userlevel::frame_make(what, pick({0u, 3u, 4u, 64u}));
        sk_buff *held = one_in(8) ? skb_clone(skb, GFP_ATOMIC) : nullptr;
        if (one_in(4))
            userlevel::fail_allocation(1 + below(8));
        if (one_in(4))
            receive_one(skb);
        else
            send(skb);
        userlevel::fail_allocation(0);
        if (!held)
            return;
        EXPECT_EQ(bytes_of(held), what) << "whoever shares the bytes still reads them";
        kfree_skb(held);
    }

    // What the devices and the sockets hold is all that is alive.
    void account() {
        auto frames = userlevel::leaked_since(clean_);
        auto buffers = std::count_if(frames.begin(), frames.end(), [](const auto &object) {
            return std::string(object.kind) == "sk_buff";
        });
        EXPECT_EQ(static_cast<size_t>(buffers), driver().held.size() + queued_.size());
        read_sockets();
        fake_driver::release();
        userlevel::work_run();
        auto &recorded = userlevel::netdev_recorded(device_);
        seen_.by_device += recorded.sent.size();
        seen_.failures += failures.size();
        seen_.stack_sent += features().stack_sent.size();
        recorded.sent.clear();
        failures.clear();
        features().stack_sent.clear();
        userlevel::neigh_flushes_take();
        log();
        expect_nothing_leaked();
        EXPECT_EQ(preempt_count(), 0u);
        clean_ = userlevel::take_snapshot();
    }

    // What has happened at all: a test of nothing would pass.
    struct {
        u64 offered, queued, by_device, failures, stack_sent;
    } seen_{};

    net_device *device_ = nullptr;
    userlevel::snapshot clean_;

    sock sockets_[SOCKETS] = {{.rmem_alloc = 0, .rcvbuf = 200000, .next = &sockets_[1]},
                              {.rmem_alloc = 0, .rcvbuf = 3000, .next = &sockets_[2]},
                              {.rmem_alloc = 0, .rcvbuf = 50000, .next = nullptr}};
    sk_list list_{&sockets_[0]};
    rwlock_t lock_{};
    std::vector<std::pair<sock *, sk_buff *>> queued_;
};

TEST_F(RandomTransmit, frames_are_all_accounted_for) {
    for (u32 slot : {27u, 48u}) {
        probe(slot).match = [this](tarn_pkt_info &, redirect_instruct &instruct) {
            if (one_in(2))
                return;
            instruct.flags = below(0x80);
            instruct.reason = below(20);
            instruct.flood_cos = below(8);
            instruct.flood_queue = below(8);
        };
        probe(slot).post = [this](sk_buff *skb, tarn_post_info &) {
            tarn_pkt_post_packet(skb, nullptr, &list_, &lock_);
            return skb;
        };
    }
    clean_ = userlevel::take_snapshot();

    Counted frames("frames", "TARN_RANDOM_FRAMES", 100000);
    while (frames.go_on()) {
        if (frames.done() % 64 == 0) {
            account();
            change();
            clean_ = userlevel::take_snapshot();
            ASSERT_FALSE(HasFailure()) << "seed " << seed_ << ", frame " << frames.done();
        }
        one_frame();
    }
    account();
    EXPECT_LT(frames.grown_kb(), MOST_KB);
    const u64 all = frames.wanted();
    if (all >= 10000) {
        EXPECT_GT(seen_.offered, all / 4) << "to the driver";
        EXPECT_GT(seen_.queued, all / 100) << "on sockets";
        EXPECT_GT(seen_.by_device, all / 100);
        EXPECT_GT(seen_.failures, all / 100);
        EXPECT_GT(seen_.stack_sent, 0u);
        EXPECT_GT(netdev_stats(vlan1()->netdev)->rx_packets, all / 200) << "to the IP stack";
        EXPECT_GT(netdev_stats(vlan1()->netdev)->rx_dropped, 0u);
    }
}

} // namespace
