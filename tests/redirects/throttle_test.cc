// The two throttles: by example, against a model over random times and flows, and at a million
// flows.
#include "redirects/redirects_test.h"

#include "redirects/redirects.h"
#include "redirects/throttle.h"

#include <cstring>
#include <random>
#include <rapidcheck.h>

namespace {

constexpr u32 IPV4 = 0x0800, IPV6 = 0x86DD;
constexpr u64 WORDS = 1ull << 32; // the clock of the throttles has 32 bits

// What makes a flow, and the frame that it comes with.
struct Flow {
    std::array<u8, 12> macs{2, 0, 0, 0, 0, 1, 2, 0, 0, 0, 0, 0x99};
    std::array<u8, 16> source{192, 0, 2, 1};
    std::array<u8, 16> destination{239, 1, 2, 3};
    u32 vid = 1, code = 5;
    u32 ethertype = IPV4;
    auto operator<=>(const Flow &) const = default;

    // IPv6 has the whole addresses, IPv4 their first words.
    Flow key() const {
        Flow key = *this;
        if (ethertype == IPV4)
            for (std::size_t i = 4; i < 16; i++)
                key.source[i] = key.destination[i] = 0;
        return key;
    }
};

u32 little_endian(const u8 *at) {
    return at[0] | at[1] << 8 | at[2] << 16 | static_cast<u32>(at[3]) << 24;
}

u32 slot_of(const Flow &flow) {
    u32 hash = little_endian(flow.source.data());
    hash ^= flow.code;
    if (flow.ethertype == IPV4)
        hash ^= flow.vid;
    hash ^= little_endian(flow.destination.data()) & 0x80FF;
    hash ^= little_endian(flow.macs.data() + 2);
    hash ^= little_endian(flow.macs.data() + 8);
    return hash % 1009;
}

class Throttle : public Redirects {
protected:
    Throttle() {
        at(1000000);
        remember(); // the frame
    }
    ~Throttle() override { kfree_skb(frame_); }

    void at(u64 jiffies) { userlevel::clock_stop(jiffies); }

    tarn_pkt_info info_of(const Flow &flow) {
        std::memcpy(skb_data(frame_), flow.macs.data(), flow.macs.size());
        tarn_pkt_info info = passing(flow.ethertype);
        info.skb = frame_;
        info.rx_vid = flow.vid;
        info.code = flow.code;
        std::memcpy(info.src_ip, flow.source.data(), 16);
        std::memcpy(info.dst_ip, flow.destination.data(), 16);
        info.ip_proto = info.ipv6_next_header = 17;
        info.ttl = info.hop_limit = 1;
        info.why = &why;
        return info;
    }
    bool unicast(const Flow &flow) {
        tarn_pkt_info info = info_of(flow);
        return tarn_ucdrop_throttle_ok(&info);
    }
    // Whether it may pass, the same way round.
    bool multicast(const Flow &flow) {
        tarn_pkt_info info = info_of(flow);
        return flow.ethertype == IPV4 ? !tarn_throttle_ipv4_unreg_mc(&info)
                                      : !tarn_throttle_ipv6_unreg_mc(&info, false);
    }
    static Flow numbered(u32 n, u32 ethertype = IPV4) {
        Flow flow{.ethertype = ethertype};
        std::memcpy(flow.source.data(), &n, sizeof(n));
        return flow;
    }
    // Another flow in the slot of that one.
    static Flow neighbour_of(const Flow &flow) {
        Flow other = flow;
        do {
            u32 source = little_endian(other.source.data()) + 1;
            std::memcpy(other.source.data(), &source, sizeof(source));
        } while (slot_of(other) != slot_of(flow));
        return other;
    }

    sk_buff *frame_ = userlevel::frame_make(Frame().padded().build());
};

using Unicast = Throttle;

TEST_F(Unicast, a_flow_passes_once_in_100_jiffies) {
    Flow flow;
    EXPECT_TRUE(unicast(flow));
    EXPECT_FALSE(unicast(flow));
    at(1000099);
    EXPECT_FALSE(unicast(flow));
    EXPECT_STREQ(why.number, "jiffies since then");
    EXPECT_EQ(why.measured, 99u);
    at(1000100);
    EXPECT_TRUE(unicast(flow));
}

TEST_F(Unicast, tokens_come_while_a_flow_is_held_back) {
    for (u32 n = 0; n < 100; n++)
        ASSERT_TRUE(unicast(numbered(n)));
    Flow last = numbered(99);
    for (u32 since = 1; since <= 10; since++) {
        at(1000000 + since);
        EXPECT_FALSE(unicast(last));
    }
    for (u32 n = 100; n < 110; n++)
        EXPECT_TRUE(unicast(numbered(n)));
    EXPECT_FALSE(unicast(numbered(110)));
}

TEST_F(Unicast, concerns_udp_that_has_run_out_alone) {
    for (int i = 0; i < 200; i++) { // each of them as often as it likes
        tarn_pkt_info info = info_of({});
        info.ttl = 2;
        ASSERT_TRUE(tarn_ucdrop_throttle_ok(&info));
        info = info_of({});
        info.ip_proto = 6;
        ASSERT_TRUE(tarn_ucdrop_throttle_ok(&info));
        for (u16 fragment : {0x2000, 0x0001, 0x1FFF}) {
            info = info_of({});
            info.ip_frag_off = cpu_to_be16(fragment);
            ASSERT_TRUE(tarn_ucdrop_throttle_ok(&info));
        }
        info = info_of({.ethertype = IPV6});
        info.hop_limit = 2;
        ASSERT_TRUE(tarn_ucdrop_throttle_ok(&info));
        info = info_of({.ethertype = IPV6});
        info.ipv6_next_header = 58;
        ASSERT_TRUE(tarn_ucdrop_throttle_ok(&info));
        ASSERT_TRUE(unicast({.ethertype = 0x0806}));
    }
    tarn_pkt_info info = info_of({});
    info.ip_frag_off = cpu_to_be16(0x4000); // "do not fragment" is none
    EXPECT_TRUE(tarn_ucdrop_throttle_ok(&info));
    EXPECT_FALSE(tarn_ucdrop_throttle_ok(&info));
    info = info_of(numbered(5));
    info.ttl = 0;
    EXPECT_TRUE(tarn_ucdrop_throttle_ok(&info));
    EXPECT_FALSE(tarn_ucdrop_throttle_ok(&info));
}

TEST_F(Unicast, ipv6_has_no_fragments) {
    tarn_pkt_info info = info_of({.ethertype = IPV6});
    info.ip_frag_off = cpu_to_be16(0x2001);
    EXPECT_TRUE(tarn_ucdrop_throttle_ok(&info));
    EXPECT_FALSE(tarn_ucdrop_throttle_ok(&info)) << "held back like any other";
}

TEST_F(Unicast, what_does_not_concern_it_costs_no_token) {
    for (u32 n = 0; n < 99; n++)
        ASSERT_TRUE(unicast(numbered(n)));
    tarn_pkt_info tcp = info_of({});
    tcp.ip_proto = 6;
    for (int i = 0; i < 500; i++)
        ASSERT_TRUE(tarn_ucdrop_throttle_ok(&tcp));
    EXPECT_TRUE(unicast(numbered(1000)));
    EXPECT_FALSE(unicast(numbered(1001)));
}

TEST_F(Unicast, without_a_token_not_even_a_new_flow_passes) {
    for (u32 n = 0; n < 100; n++)
        ASSERT_TRUE(unicast(numbered(n))) << n;
    EXPECT_FALSE(unicast(numbered(500)));
    EXPECT_STREQ(why.rule, "throttle: no token is left");
    at(1000001); // a token comes with each jiffy
    EXPECT_TRUE(unicast(numbered(500)));
    EXPECT_FALSE(unicast(numbered(501)));
}

TEST_F(Unicast, the_families_have_a_bucket_each) {
    for (u32 n = 0; n < 100; n++)
        ASSERT_TRUE(unicast(numbered(n)));
    for (u32 n = 0; n < 100; n++)
        ASSERT_TRUE(unicast(numbered(n, IPV6)));
    EXPECT_FALSE(unicast(numbered(500, IPV6)));
}

TEST_F(Unicast, two_flows_in_one_slot_evict_each_other) {
    Flow one, other = neighbour_of(one);
    u32 passed = 0;
    for (int i = 0; i < 60; i++)
        passed += unicast(one) + unicast(other);
    EXPECT_EQ(passed, 100u);
}

TEST_F(Unicast, a_flow_is_all_of_its_parts) {
    for (u32 ethertype : {IPV4, IPV6}) {
        Flow flow{.ethertype = ethertype};
        ASSERT_TRUE(unicast(flow));
        Flow other = flow;
        other.macs[0] ^= 2; // outside the hash: the same slot
        EXPECT_TRUE(unicast(other));
        other.macs[6] ^= 2;
        EXPECT_TRUE(unicast(other));
        other.destination[2] ^= 1;
        EXPECT_TRUE(unicast(other));
        other.source[15] ^= 1;
        EXPECT_EQ(unicast(other), ethertype == IPV6);
        other.destination[4] ^= 1;
        EXPECT_EQ(unicast(other), ethertype == IPV6);
        if (ethertype == IPV6) {
            other.vid++; // not in the hash of IPv6
            EXPECT_TRUE(unicast(other));
        }
        EXPECT_FALSE(unicast(other));
    }
}

TEST_F(Unicast, the_slot_is_the_documented_hash_of_the_flow) {
    // Flows whose slots differ remember each other; those in one slot forget.
    std::mt19937 random(1);
    for (int i = 0; i < 200; i++) {
        at(2000000 + 1000ull * static_cast<u64>(i));
        Flow one = numbered(static_cast<u32>(random()));
        one.vid = random() % 4096;
        one.code = random() % 12;
        Flow other = one;
        other.destination = {static_cast<u8>(random()), static_cast<u8>(random()), 1, 1};
        other.macs[4] = static_cast<u8>(random());
        other.vid = random() % 4096;
        if (i % 2)
            other = neighbour_of(one);
        unicast(one);
        unicast(other);
        EXPECT_EQ(unicast(one), slot_of(one) == slot_of(other) && one != other) << i;
    }
}

// Every bit of a flow is either in the hash, and leads to another slot, or not, and leads to the
// same one: there the first flow is forgotten, and passes again.
TEST_F(Unicast, the_hash_takes_these_bits_and_no_others) {
    u64 now = 2000000;
    u32 in_hash = 0;
    auto expect_shared = [&](Flow other) {
        at(now += 1000);
        const Flow one;
        unicast(one);
        unicast(other);
        bool shared = slot_of(one) == slot_of(other);
        in_hash += !shared;
        EXPECT_EQ(unicast(one), shared);
    };
    for (u32 bit = 0; bit < 96; bit++) {
        Flow other;
        other.macs[bit / 8] ^= static_cast<u8>(1 << bit % 8);
        expect_shared(other);
    }
    for (u32 bit = 0; bit < 32; bit++) {
        Flow other;
        other.source[bit / 8] ^= static_cast<u8>(1 << bit % 8);
        expect_shared(other);
        other = {};
        other.destination[bit / 8] ^= static_cast<u8>(1 << bit % 8);
        expect_shared(other);
        other = {};
        other.vid ^= 1u << bit;
        expect_shared(other);
        other = {};
        other.code ^= 1u << bit;
        expect_shared(other);
    }
    EXPECT_EQ(in_hash, 32u + 32 + 32 + 9 + 32 + 32);
}

using Multicast = Throttle;

// Of what each limit makes; see tarn_update_mcast_limits.
TEST_F(Multicast, a_limit_is_a_number_of_frames_a_second) {
    struct Row {
        u32 limit, interval, bucket;
    };
    u64 now = 2000000;
    for (Row row :
         {Row{1, 100, 1}, Row{3, 34, 3}, Row{10, 10, 10}, Row{99, 2, 99}, Row{100, 1, 100},
          Row{1000, 1, 1000}, Row{0xFFFFFFFF, 1, 3000}, Row{0xFFFFFF9D, 1, 3000}}) {
        tarn_update_mcast_limits(row.limit);
        now += 1000000;
        at(now);
        u32 flows = 0;
        for (u32 n = 0; n < 3000; n++)
            flows += multicast(numbered(n * 7919));
        EXPECT_EQ(flows, row.bucket) << row.limit;
        if (flows == 3000)
            continue;
        u32 later = 0; // a token comes with each interval
        for (u32 jiffy = 1; jiffy <= 10 * row.interval; jiffy++) {
            at(now + jiffy);
            later += multicast(numbered(77777 + jiffy));
            EXPECT_FALSE(multicast(numbered(99999 + jiffy))) << row.limit;
        }
        EXPECT_EQ(later, 10u) << row.limit;
        now += 10 * row.interval;
    }
}

TEST_F(Multicast, at_load_ten_frames_pass_and_a_flow_every_20_jiffies) {
    for (u32 n = 0; n < 10; n++)
        EXPECT_TRUE(multicast(numbered(n)));
    EXPECT_FALSE(multicast(numbered(10)));
    at(1000019);
    EXPECT_FALSE(multicast(numbered(9)));
    EXPECT_EQ(why.measured, 19u);
    EXPECT_EQ(why.limit, 20u);
    at(1000020);
    EXPECT_TRUE(multicast(numbered(9)));
}

TEST_F(Multicast, after_any_setting_a_flow_passes_every_50_jiffies) {
    tarn_update_mcast_limits(0);
    tarn_update_mcast_limits(100);
    EXPECT_TRUE(multicast({}));
    at(1000049);
    EXPECT_FALSE(multicast({}));
    at(1000050);
    EXPECT_TRUE(multicast({}));
}

TEST_F(Multicast, a_limit_of_0_is_none_and_leaves_the_buckets_alone) {
    for (u32 n = 0; n < 10; n++)
        ASSERT_TRUE(multicast(numbered(n)));
    tarn_update_mcast_limits(0);
    for (u32 n = 0; n < 1000; n++) {
        at(1000000 + n);
        ASSERT_TRUE(multicast(numbered(1)));
        ASSERT_TRUE(multicast(numbered(1, IPV6)));
    }
    at(1000000);
    tarn_update_mcast_limits(10);
    EXPECT_FALSE(multicast(numbered(999))); // still empty
}

TEST_F(Multicast, a_lower_limit_cuts_the_bucket_with_the_next_frame) {
    tarn_update_mcast_limits(20);
    EXPECT_TRUE(multicast(numbered(0))); // 19 left
    tarn_update_mcast_limits(5);
    u32 passed = 0;
    for (u32 n = 1; n < 30; n++)
        passed += multicast(numbered(n));
    EXPECT_EQ(passed, 5u);
    at(1000019);
    EXPECT_FALSE(multicast(numbered(100)));
    at(1000020);
    EXPECT_TRUE(multicast(numbered(100)));
}

TEST_F(Multicast, a_loud_flow_leaves_the_tokens_to_others) {
    EXPECT_TRUE(multicast(numbered(0)));
    for (int i = 0; i < 1000; i++)
        ASSERT_FALSE(multicast(numbered(0)));
    for (u32 n = 1; n < 10; n++)
        EXPECT_TRUE(multicast(numbered(n))) << n;
}

TEST_F(Multicast, two_flows_in_one_slot_pass_until_the_bucket_is_empty) {
    Flow one, other = neighbour_of(one);
    u32 passed = 0;
    for (int i = 0; i < 10; i++)
        passed += multicast(one) + multicast(other);
    EXPECT_EQ(passed, 10u);
}

TEST_F(Multicast, part_of_an_interval_is_not_lost) {
    for (u32 n = 0; n < 10; n++)
        ASSERT_TRUE(multicast(numbered(n)));
    u32 passed = 0; // asked every 7 jiffies, tokens come every 10
    for (u32 i = 1; i <= 100; i++) {
        at(1000000 + 7 * i);
        passed += multicast(numbered(1000 + i));
    }
    EXPECT_EQ(passed, 70u);
}

TEST_F(Multicast, ipv4_fragments_are_never_held_back) {
    for (int i = 0; i < 100; i++)
        for (u16 fragment : {0x2000, 0x0001, 0x1FFF}) {
            tarn_pkt_info info = info_of({});
            info.ip_frag_off = cpu_to_be16(fragment);
            ASSERT_FALSE(tarn_throttle_ipv4_unreg_mc(&info));
        }
    for (u32 n = 0; n < 10; n++) // nor did they cost a token
        ASSERT_TRUE(multicast(numbered(n)));
}

TEST_F(Multicast, ipv6_has_no_fragments) {
    tarn_pkt_info info = info_of({.ethertype = IPV6});
    info.ip_frag_off = cpu_to_be16(0x2001);
    EXPECT_FALSE(tarn_throttle_ipv6_unreg_mc(&info, false));
    EXPECT_TRUE(tarn_throttle_ipv6_unreg_mc(&info, false)) << "held back like any other";
    for (u32 n = 1; n < 10; n++) // nine tokens are left
        ASSERT_TRUE(multicast(numbered(n, IPV6)));
    EXPECT_FALSE(multicast(numbered(10, IPV6)));
}

TEST_F(Multicast, three_udp_ports_are_held_back_for_snooping_alone) {
    for (u32 n = 0; n < 10; n++)
        ASSERT_TRUE(multicast(numbered(n, IPV6)));
    for (u16 port : {546, 547, 5355}) {
        tarn_pkt_info info = info_of({.ethertype = IPV6});
        info.udp_dport = cpu_to_be16(port);
        EXPECT_FALSE(tarn_throttle_ipv6_unreg_mc(&info, false)) << port;
        EXPECT_TRUE(tarn_throttle_ipv6_unreg_mc(&info, true)) << port;
        info.ipv6_next_header = 6;
        EXPECT_TRUE(tarn_throttle_ipv6_unreg_mc(&info, false)) << port;
    }
    for (u16 port : {545, 548, 5354, 5356, 0}) {
        tarn_pkt_info info = info_of({.ethertype = IPV6});
        info.udp_dport = cpu_to_be16(port);
        EXPECT_TRUE(tarn_throttle_ipv6_unreg_mc(&info, false)) << port;
    }
}

// --- against a model
// --------------------------------------------------------------------------------

// A throttle as its rules say it, with a clock that never wraps.
struct Model {
    u64 tokens, size, interval, gap;
    u64 last = 0;
    struct Passed {
        Flow flow;
        u64 at;
    };
    std::map<u32, Passed> slots{};

    bool may_pass(const Flow &flow, u64 now) {
        u64 since = (now - last) % WORDS;
        tokens = std::min((tokens + since / interval) % WORDS, size);
        last = now - since % interval;
        if (tokens == 0)
            return false;
        auto [slot, is_new] = slots.try_emplace(slot_of(flow), Passed{flow.key(), now});
        if (!is_new && slot->second.flow == flow.key() && (now - slot->second.at) % WORDS < gap)
            return false;
        slot->second = {flow.key(), now};
        tokens--;
        return true;
    }
};

// Times that matter, the whole way around the clock among them.
u64 step(u32 choice) {
    constexpr u64 STEPS[] = {0,  0,  0,  0,  0,  1,  1,   2,   9,         10,        11,
                             19, 20, 49, 50, 51, 99, 100, 101, 1000,      4096,      99999,
                             0,  0,  1,  1,  5,  7,  0,   33,  WORDS / 2, WORDS - 3, WORDS + 5};
    return STEPS[choice % std::size(STEPS)];
}

// Few enough that flows come again and share slots.
Flow flow_of(u32 choice, u32 ethertype) {
    Flow flow{.ethertype = ethertype};
    flow.source[0] = static_cast<u8>(choice & 3);
    flow.destination[1] = static_cast<u8>((choice >> 2 & 1) << 7);
    flow.destination[7] = static_cast<u8>(choice >> 3 & 1);
    flow.macs[11] = static_cast<u8>(choice >> 4 & 3);
    flow.vid = 1 + (choice >> 6 & 1);
    flow.code = choice >> 7 & 1 ? 5 : 5 ^ 1009; // the same slot now and then
    flow.macs[0] = choice >> 8 & 1 ? 2 : 6;
    return flow;
}

// One step of a run: how much later, which flow, of which family, under which limit.
struct Step {
    u32 later, flow, family, limit;
};
std::vector<Step> any_steps() {
    auto any = *rc::gen::container<std::vector<std::tuple<u32, u32, u32, u32>>>(
        rc::gen::tuple(rc::gen::arbitrary<u32>(), rc::gen::inRange(0u, 512u),
                       rc::gen::inRange(0u, 2u), rc::gen::inRange(0u, 60u)));
    std::vector<Step> steps;
    for (auto [later, flow, family, limit] : any)
        steps.push_back({later, flow, family, limit});
    return steps;
}

// The throttles keep their state from one run to the next, and so do the models.
TEST_F(Unicast, does_as_its_model_over_random_times_and_flows) {
    Model models[2] = {{.tokens = 100, .size = 100, .interval = 1, .gap = 100},
                       {.tokens = 100, .size = 100, .interval = 1, .gap = 100}};
    u64 now = 0xFFFF8AD0, frames = 0, held_back = 0;
    EXPECT_TRUE(rc::check([&] {
        for (const Step &one : any_steps()) {
            now += step(one.later);
            at(now);
            // In bursts, so that buckets run out.
            for (u32 i = 0; i < 1 + one.limit * (one.later % 7 == 0); i++) {
                Flow flow = flow_of(one.flow + i / 2 * 37, one.family ? IPV6 : IPV4);
                bool expected = models[one.family].may_pass(flow, now);
                frames++;
                held_back += !expected;
                RC_ASSERT(unicast(flow) == expected);
            }
        }
    }));
    EXPECT_GT(now, 2 * WORDS); // all around the clock
    EXPECT_GT(held_back, frames / 20);
    EXPECT_LT(held_back, frames);
}

TEST_F(Multicast, does_as_its_model_over_random_times_flows_and_limits) {
    Model models[2] = {{.tokens = 10, .size = 10, .interval = 10, .gap = 20},
                       {.tokens = 10, .size = 10, .interval = 10, .gap = 20}};
    constexpr u32 LIMITS[] = {0, 1, 3, 10, 50, 99, 100, 101, 1000, 0xFFFFFF9D};
    bool limited = true;
    u64 now = 0xFFFF8AD0, frames = 0, held_back = 0;
    EXPECT_TRUE(rc::check([&] {
        for (const Step &one : any_steps()) {
            now += step(one.later);
            at(now);
            if (one.limit < std::size(LIMITS)) {
                u32 limit = LIMITS[one.limit];
                tarn_update_mcast_limits(limit);
                limited = limit != 0;
                for (Model &model : models)
                    if (limited) {
                        model.size = limit;
                        model.interval = std::max<u64>(1, (u64{limit} + 99) / limit);
                        model.gap = 50;
                    }
            }
            for (u32 i = 0; i < 1 + one.limit * (one.later % 7 == 0); i++) {
                Flow flow = flow_of(one.flow + i / 2 * 37, one.family ? IPV6 : IPV4);
                bool expected = !limited || models[one.family].may_pass(flow, now);
                frames++;
                held_back += !expected;
                RC_ASSERT(multicast(flow) == expected);
            }
        }
    }));
    EXPECT_GT(now, 2 * WORDS);
    EXPECT_GT(held_back, frames / 20);
    EXPECT_LT(held_back, frames);
}

// The limiter of neighbour discovery, in the same way.
TEST_F(Throttle, neighbour_discovery_does_as_its_model_over_random_times) {
    u64 now = 0xFFFF8AD0, start = 0, count = 0;
    EXPECT_TRUE(rc::check([&] {
        for (const Step &one : any_steps()) {
            now += step(one.later);
            at(now);
            for (u32 i = 0; i < one.limit; i++) {
                bool opens = (now - start) % WORDS > 100;
                if (opens)
                    start = now, count = 0;
                bool expected = opens || count <= 100;
                count += expected;
                tarn_pkt_info info = passing(IPV6);
                info.ipv6_next_header = 58;
                info.icmpv6_type = static_cast<u8>(133 + i % 4);
                info.ipv6_parsed = 1;
                RC_ASSERT((decide("ipv6", info).reason == 6) == expected);
            }
        }
    }));
    EXPECT_GT(now, 2 * WORDS);
}

// --- a million flows
// --------------------------------------------------------------------------------

class Million : public Throttle {
protected:
    template <typename MayPass>
    u64 offer(u32 ethertype, MayPass may_pass) {
        u64 passed = 0, before = userlevel::allocations_made();
        auto memory = userlevel::take_snapshot();
        for (u32 n = 0; n < 1000000; n++) {
            at(1000000 + n / 1000);
            passed += may_pass(numbered(n * 2654435761u, ethertype));
        }
        EXPECT_EQ(userlevel::allocations_made(), before);
        EXPECT_EQ(userlevel::describe(userlevel::leaked_since(memory)), "");
        return passed;
    }
};

// 1000 new flows a jiffy: what passes is what the bucket gives, and memory stays as it is.
TEST_F(Million, flows_pass_the_unicast_throttle_at_the_rate_of_its_bucket) {
    for (u32 ethertype : {IPV4, IPV6})
        EXPECT_EQ(offer(ethertype, [&](const Flow &flow) { return unicast(flow); }), 100u + 999u);
}

TEST_F(Million, flows_pass_the_multicast_throttle_at_the_rate_of_its_bucket) {
    tarn_update_mcast_limits(10);
    for (u32 ethertype : {IPV4, IPV6}) {
        u64 passed = offer(ethertype, [&](const Flow &flow) { return multicast(flow); });
        EXPECT_GE(passed, 10u + 99u);
        EXPECT_LE(passed, 10u + 100u);
    }
}

} // namespace
