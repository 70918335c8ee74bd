// Frames on several threads through the throttles and the limiter: the words they share are meant
// to race, and no more than a few frames come of it.
#include "redirects/redirects_test.h"

#include "redirects/nd_limit.h"
#include "redirects/redirects.h"
#include "redirects/throttle.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

namespace {

class ThrottleThreads : public Redirects {
protected:
    static constexpr u32 THREADS = 4, FRAMES = 5000;

    template <typename Offer>
    u32 on_threads(Offer offer) {
        std::atomic<u32> passed = 0;
        std::vector<std::thread> threads;
        for (u32 t = 0; t < THREADS; t++)
            threads.emplace_back([&, t] {
                sk_buff *skb = userlevel::frame_make(Frame().padded().build());
                for (u32 n = 0; n < FRAMES; n++) {
                    tarn_pkt_info info = passing(n % 2 ? 0x0800 : 0x86DD);
                    info.skb = skb;
                    info.ttl = info.hop_limit = 1;
                    info.ip_proto = info.ipv6_next_header = 17;
                    u32 source = n % 50 + t;
                    std::memcpy(info.src_ip, &source, sizeof(source));
                    passed += offer(info);
                }
                kfree_skb(skb);
            });
        for (std::thread &thread : threads)
            thread.join();
        return passed;
    }
};

TEST_F(ThrottleThreads, the_unicast_throttle_may_be_asked_on_all_of_them) {
    userlevel::clock_stop(1000000);
    u32 passed = on_threads([](tarn_pkt_info &info) { return tarn_ucdrop_throttle_ok(&info); });
    EXPECT_GT(passed, 0u);
    EXPECT_LT(passed, THREADS * FRAMES / 4);
}

TEST_F(ThrottleThreads, the_multicast_throttle_may_be_set_meanwhile) {
    userlevel::clock_stop(1000000);
    std::atomic<bool> done = false;
    std::thread daemon([&] {
        for (u32 limit = 0; !done; limit = (limit + 7) % 300)
            tarn_update_mcast_limits(limit);
    });
    on_threads([](tarn_pkt_info &info) {
        return info.ethertype == 0x0800 ? tarn_throttle_ipv4_unreg_mc(&info)
                                        : tarn_throttle_ipv6_unreg_mc(&info, true);
    });
    done = true;
    daemon.join();
}

TEST_F(ThrottleThreads, neighbour_discovery_is_counted_on_all_of_them) {
    userlevel::clock_stop(1000000);
    u32 passed = on_threads([](tarn_pkt_info &info) { return nd_limit_ok(&info); });
    EXPECT_GE(passed, 101u);
    EXPECT_LE(passed, 101u * THREADS);
}

// Those of the flow tap, which has no lock, are put together beside each other.
TEST_F(ThrottleThreads, samples_are_put_together_one_at_a_time) {
    std::atomic<u32> inside = 0, together = 0, samples = 0;
    answers().on_broadcast = [&] {
        together += inside++ != 0;
        samples++;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        inside--;
    };
    auto post_all = [&](const char *name) {
        std::vector<std::thread> threads;
        for (u32 t = 0; t < THREADS; t++)
            threads.emplace_back([&] {
                tarn_post_info info{.rx_port = port1(), .code = 8};
                for (u32 n = 0; n < 50; n++)
                    kfree_skb(redirect(name).post(userlevel::frame_make(Frame().padded().build()),
                                                  &info));
            });
        for (std::thread &thread : threads)
            thread.join();
    };
    post_all("sflow");
    EXPECT_EQ(samples, 50 * THREADS);
    EXPECT_EQ(together, 0u);
    post_all("flowd");
    EXPECT_GT(together, 0u);
}

TEST_F(ThrottleThreads, flooding_groups_change_while_frames_ask_for_them) {
    std::atomic<bool> done = false;
    std::thread daemon([&] {
        for (u32 n = 0; !done; n++) {
            tarn_mcdrop_flooding_group_add(0, 1, n % 7);
            if (n % 3 == 0)
                tarn_mcdrop_flooding_group_remove(0, 1, n % 7);
            if (n % 50 == 0)
                tarn_mcdrop_flooding_group_flush();
        }
    });
    on_threads([&](tarn_pkt_info &info) {
        redirect_instruct instruct{};
        info.mac_multicast = info.mac_ipv4_mc = 1;
        info.vlan_if = vlan1();
        redirect("mcdrop").match(&info, &instruct);
        return instruct.flags != 0;
    });
    done = true;
    daemon.join();
    tarn_mcdrop_flooding_group_flush();
    remember(); // the table is a new one
}

} // namespace
