// Random frames with random metadata, on a switch that changes now and then.
//
// TARN_RANDOM_SEED sets the seed.
#pragma once

#include "support/chance.h"
#include "support/redirect_seams.h"
#include "support/switch_test.h"

#include "redirects/redirects.h"

class RandomFrames : public SwitchTest, protected Chance {
protected:
    void add_interfaces() {
        tarn_if *routed = add_port(2);
        routed->if_flags |= TARN_IF_F_L3_SWITCHPORT;
        tarn_if *member = add_port(3);
        add_port(4)->vlan_disabled_bmp[0] = ~0u;
        tarn_if *aggregator = add_aggregator_over(member, 4501);
        aggregator->if_flags |= TARN_IF_F_AGG_DYNAMIC;
        add_vlan(2)->if_flags |= TARN_IF_F_VLAN_LOCAL;
        add_vlan(20)->if_flags |= TARN_IF_F_NO_VLAN_MEMBER_CHECK;
    }

    // Redirects of the test's own decide anything at all, legal or not.
    void decide_anything() {
        for (u32 slot : {27u, 48u})
            probe(slot).match = [this](tarn_pkt_info &, redirect_instruct &instruct) {
                if (one_in(2))
                    return;
                instruct.flags = below(0x80);
                instruct.reason = below(24);
                instruct.flood_cos = below(8);
            };
    }

    // Headers that the parsers know, then anything; cut anywhere.
    Bytes frame() {
        Frame frame;
        frame.to(pick({"02:00:00:00:00:01", "01:00:5e:00:00:0d", "33:33:00:00:00:13",
                       "01:80:c2:00:00:00", "01:80:c2:00:00:02", "01:80:c2:00:00:0e",
                       "01:80:c2:00:00:21", "01:80:c2:00:00:14", "01:15:4e:00:00:01",
                       "01:00:0c:cc:cc:cc", "09:00:2b:00:00:05", "00:e0:2b:00:00:04",
                       "00:00:f4:27:71:01", "00:0c:25:0a:8c:01", "ff:ff:ff:ff:ff:ff"}));
        frame.from(pick({"02:00:00:00:00:99", "02:00:00:00:00:01", "00:00:00:00:00:00",
                         "ff:ff:ff:ff:ff:ff", "03:00:00:00:00:01"}));
        for (u32 tags = below(4); tags > 0; tags--)
            frame.tag(static_cast<u16>(draw()));
        body(frame);
        Bytes bytes = frame.bytes(noise(below(one_in(50) ? 9300 : 64)));
        if (one_in(4))
            bytes.resize(below(static_cast<u32>(bytes.size()) + 1));
        for (u32 flips = below(4); flips > 0 && !bytes.empty(); flips--)
            bytes[below(static_cast<u32>(bytes.size()))] = static_cast<u8>(draw());
        return bytes;
    }

    void body(Frame &frame) {
        switch (below(4)) {
        case 0:
            frame.ipv4({.protocol = pick<u8>({103, 112, 17, 6}),
                        .destination = {pick<u8>({192, 239}), 0, 0, static_cast<u8>(below(4))},
                        .fragment = static_cast<u16>(one_in(2) ? 0 : draw()),
                        .ttl = pick<u8>({0, 1, 64})});
            if (one_in(2)) // from a listed host
                frame.bytes({0x30, 0x39, pick({0, 1}), pick({80, 187, 22}), 0, 8, 0, 0});
            break;
        case 1:
            frame.ipv6({.next = pick<u8>({0, 43, 44, 51, 59, 60, 58, 17, 103, 112}),
                        .destination = {0xFF, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                        pick<u8>({0x13, 0x16, 2})}});
            if (one_in(2))
                frame.bytes(
                    {pick({58, 17, 60, 44, 59, 0}), static_cast<int>(below(4)), 5, 2, 0, 0, 1, 0});
            break;
        default:
            frame.type(pick<u16>({0x8863, 0x8864, 0x88F7, 0x8809, 0x88CC, 0x8892, 0x8902, 0x9000,
                                  0x8035, 0x0806, 0x0026, 0x86DD, 0x0800, 0x8100}));
        }
    }

    tarn_rx_meta meta() {
        tarn_rx_meta meta{};
        meta.replicated = one_in(8);
        meta.debug = one_in(2);
        meta.queue = below(8);
        meta.code = below(12);
        meta.flags = below(0x200);
        if (one_in(3))
            meta.flags = 0;
        if (one_in(3))
            meta.code = 0;
        meta.extra = static_cast<u32>(draw());
        meta.rx_flags = static_cast<u8>(below(2));
        meta.flood_except[0] = one_in(2) ? FLOOD_NO_EXCEPTION : below(6000);
        meta.local = one_in(8);
        meta.local_post_kernel = one_in(2);
        return meta;
    }

    u32 offer() {
        Bytes bytes = frame();
        sk_buff *skb = userlevel::frame_make(bytes, pick({0u, 4u, 64u}));
        sk_buff *held = one_in(16) ? skb_clone(skb, GFP_ATOMIC) : nullptr;
        frame_set_port_word(skb, pick({0u, 301u, 4394u, 5001u, 5002u, 7777u}));
        if (one_in(8))
            userlevel::fail_allocation(1 + below(3));
        tarn_rx_meta about = meta();
        u32 result =
            rxtx_hw_packet_recv(skb, pick({5001u, 5002u, 5003u, 5004u, 301u, 9u}),
                                pick({1u, 2u, 20u, 0u, 4095u, 4096u, 0xFFFFFFFFu}), &about);
        userlevel::fail_allocation(0);
        EXPECT_LE(result, 1u);
        if (result == 1)
            kfree_skb(skb);
        if (held) {
            EXPECT_EQ(Bytes(skb_data(held), skb_data(held) + skb_len(held)), bytes);
            kfree_skb(held);
        }
        return result;
    }

    // Another switch now and then.
    void change() {
        for (u32 slot = 0; slot < REDIRECT_SLOTS; slot++)
            if (packet_redirects[slot] && one_in(8))
                enable_redirect(slot, static_cast<u8>(below(2)));
        tarn_rmirror_set_mirror_vlan(20, one_in(2));
        calls().flood_result = pick({0, 0, -EINVAL, 1});
        calls().xmit_result = pick({0u, static_cast<u32>(-ENODEV)});
        calls().stack_slave = static_cast<u8>(below(2));
        tarn_pkt_debug = below(4);
        tarn_pkt_low_mem_normal_return = one_in(8);
        slave_only_debug_override = one_in(8);
        port1()->ingress_filter = static_cast<u8>(below(2));
        port1()->openflow = one_in(4);
        port1()->stp_state[0] = pick({3u, 3u, 4u});
        change_redirects();
    }

    // What the redirects ask others, and what a daemon sets of them.
    void change_redirects() {
        redirect_seams::Answers &answers = redirect_seams::answers();
        answers.ipv4_type = answers.ipv6_type = pick({0, 1, 2, 3, 4});
        answers.ipv4_routing = one_in(4);
        answers.ipv6_routing = one_in(4);
        answers.arp_check = pick<std::optional<i32>>({std::nullopt, 0, -EINVAL});
        answers.master_pending = one_in(4);
        answers.subnet_vlans = {{below(2), 20}};
        tarn_update_mcast_limits(pick({0u, 1u, 10u, 1000u, 0xFFFFFFFFu}));
        const u32 host = 0x010200C0; // 192.0.2.1, as in a packet
        if (one_in(2))
            tarn_vornappsd_add_ip_address(&host);
        else
            tarn_vornappsd_remove_ip_address(&host);
        if (one_in(2))
            tarn_mcdrop_flooding_group_add(0, 1, below(4) << 24 | 239);
        else
            tarn_mcdrop_flooding_group_flush();
        if (one_in(2))
            watch_.reset();
        else
            watch_.emplace([this](const redirect_event &event) { events_ += event.length != 1; });
        remember(); // tables keep what they have; frames may not
    }

    void forget_calls() {
        calls().floods.clear();
        calls().sent.clear();
        calls().kernel.clear();
        calls().replicated.clear();
        calls().dos.clear();
        calls().order.clear();
        redirect_seams::answers().arp_checks.clear();
        log();
    }

    u64 events_ = 0;
    std::optional<userlevel::trace_watch> watch_;
};
