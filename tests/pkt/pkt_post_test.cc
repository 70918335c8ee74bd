// Delivery: to the IP stack and to sockets.
#include "support/transmit_test.h"

#include "kernel/locks.h"
#include "kernel/netdev.h"
#include "kernel/preempt.h"
#include "kernel/sock.h"
#include "kernel/time.h"
#include "pkt/pkt_post.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

// --- to the IP stack ----------------------------------------------------------------------------

class KernelPost : public TransmitTest {
protected:
    KernelPost() {
        recorded(); // from here on
        userlevel::clock_stop(4711);
    }

    net_device *device() { return vlan1()->netdev; }
    userlevel::netdev_record &recorded() { return userlevel::netdev_recorded(device()); }
    net_device_stats &stats() { return *netdev_stats(device()); }

    // The frame's port word behind a post; a reference of the test's own keeps the frame that long.
    u32 post(tarn_if *rx_port, tarn_if *l2_port, tarn_if *l3_if, const Bytes &bytes = plain()) {
        sk_buff *skb = frame(bytes);
        frame_set_port_word(skb, 0xDEAD);
        skb->users++;
        EXPECT_EQ(tarn_pkt_post_to_kernel(rx_port, l2_port, l3_if, skb, 7), 0u);
        EXPECT_EQ(skb->users, 1) << "the post consumes the frame";
        u32 word = frame_port_word(skb);
        consume_skb(skb);
        return word;
    }
};

TEST_F(KernelPost, hands_the_frame_to_the_device) {
    post(port1(), port1(), vlan1(), Frame().type(0x88CC).bytes({1, 2, 3}));
    ASSERT_THAT(recorded().received, SizeIs(1));
    EXPECT_EQ(recorded().received[0].bytes, Bytes(Frame().type(0x88CC).bytes({1, 2, 3})));
    EXPECT_EQ(recorded().received[0].protocol, cpu_to_be16(0x88CC));
    EXPECT_EQ(vlan1()->last_rx, 4711u);
    EXPECT_EQ(stats().rx_packets, 1u);
    EXPECT_EQ(stats().rx_bytes, 17u);
    EXPECT_EQ(stats().multicast, 0u);
    EXPECT_EQ(stats().rx_dropped, 0u);
}

TEST_F(KernelPost, the_port_word_names_the_port_that_the_frame_came_in_by) {
    tarn_if *aggregator = add_aggregator_over(port1(), 4501);
    EXPECT_EQ(post(port1(), aggregator, vlan1()), 4501u);
    EXPECT_EQ(post(port1(), nullptr, vlan1()), 5001u);
    EXPECT_EQ(post(nullptr, aggregator, vlan1()), 0u);
    EXPECT_EQ(post(nullptr, nullptr, vlan1()), 0u);
}

TEST_F(KernelPost, counts_groups_but_not_broadcasts_as_multicast) {
    struct Row {
        const char *to;
        u32 multicast;
    };
    for (Row row :
         {Row{"01:00:5e:00:00:01", 1}, Row{"ff:ff:ff:ff:ff:ff", 0}, Row{"ff:ff:ff:ff:ff:fe", 1},
          Row{"fe:ff:ff:ff:ff:ff", 0}, Row{"02:00:00:00:00:01", 0}, Row{"03:00:00:00:00:00", 1}}) {
        u64 before = stats().multicast;
        post(port1(), port1(), vlan1(), Frame().to(row.to).padded());
        EXPECT_EQ(stats().multicast - before, row.multicast) << row.to;
    }
    EXPECT_EQ(stats().rx_packets, 6u);
    EXPECT_EQ(stats().rx_bytes, 360u);
}

TEST_F(KernelPost, an_interface_that_is_down_counts_and_drops_the_frame) {
    vlan1()->flags &= ~IFF_UP;
    dropped();
    sk_buff *skb = frame(Frame().to("01:00:5e:00:00:01").padded());
    EXPECT_EQ(tarn_pkt_post_to_kernel(port1(), port1(), vlan1(), skb, 7), 0u);
    EXPECT_EQ(dropped(), 1u);
    EXPECT_EQ(stats().rx_packets, 1u);
    EXPECT_EQ(stats().rx_bytes, 60u);
    EXPECT_EQ(stats().multicast, 1u);
    EXPECT_EQ(stats().rx_dropped, 1u);
    EXPECT_THAT(recorded().received, IsEmpty());
    EXPECT_EQ(vlan1()->last_rx, 0u);
}

TEST_F(KernelPost, up_is_what_the_interface_says_running_or_not) {
    vlan1()->flags = IFF_UP;
    post(port1(), port1(), vlan1());
    EXPECT_THAT(recorded().received, SizeIs(1));
}

TEST_F(KernelPost, a_device_that_goes_meanwhile_is_an_error) {
    net_device *going = device();
    features().counters_asked = [this](net_device *) { vlan1()->netdev = nullptr; };
    dropped();
    sk_buff *skb = frame();
    EXPECT_EQ(tarn_pkt_post_to_kernel(port1(), port1(), vlan1(), skb, 7), 0u);
    EXPECT_EQ(dropped(), 1u);
    EXPECT_THAT(log(), ElementsAre("3 Error posting packet to the TCP/IP stack\n"));
    EXPECT_EQ(netdev_stats(going)->rx_packets, 1u);
    EXPECT_EQ(netdev_stats(going)->rx_dropped, 1u);
    vlan1()->netdev = going;
}

// Whoever frees a device waits for those who have bottom halves off.
TEST_F(KernelPost, the_device_cannot_go_while_it_takes_the_frame) {
    u32 depth = 0;
    features().counters_asked = [&](net_device *) { depth = preempt_count(); };
    post(port1(), port1(), vlan1());
    EXPECT_NE(depth, 0u);
    EXPECT_EQ(preempt_count(), 0u);
    post(port1(), port1(), nullptr);
    EXPECT_EQ(preempt_count(), 0u);
    log();
}

TEST_F(KernelPost, without_an_interface_or_its_device_drops_the_frame_and_says_so) {
    tarn_if *port = port1();
    dropped();
    EXPECT_EQ(post(port, port, nullptr), 5001u) << "the port word is written first";
    EXPECT_EQ(post(port, port, port), 5001u);
    EXPECT_EQ(post(nullptr, nullptr, nullptr), 0u);
    EXPECT_THAT(log(),
                ElementsAre("2 Interface port1, vid 7, layer 3 interface not specified\n",
                            "2 Interface port1, vid 7, layer 3 interface not specified\n",
                            "2 Interface portUnknown, vid 7, layer 3 interface not specified\n"));
    sk_buff *skb = frame();
    EXPECT_EQ(tarn_pkt_post_to_kernel(port, port, nullptr, skb, 0xFFFFFFFF), 0u);
    EXPECT_EQ(dropped(), 1u);
    EXPECT_THAT(log(), ElementsAre("2 Interface port1, vid -1, layer 3 interface not specified\n"));
}

TEST_F(KernelPost, a_name_that_fills_its_place_ends_there) {
    std::fill(std::begin(port1()->name), std::end(port1()->name), 'x');
    post(port1(), port1(), nullptr);
    EXPECT_THAT(log(), ElementsAre("2 Interface xxxxxxxxxxxxxxxx, vid 7, layer 3 interface not "
                                   "specified\n"));
}

TEST_F(KernelPost, a_runt_goes_up_as_it_is) {
    for (u32 length : {0u, 6u, 13u, 14u}) {
        post(port1(), port1(), vlan1(), Bytes(length, 0x02));
        ASSERT_THAT(recorded().received, testing::Not(IsEmpty()));
        EXPECT_EQ(recorded().received.back().bytes, Bytes(length, 0x02));
    }
}

TEST_F(KernelPost, by_itself_needs_a_device_and_leaves_the_frame_without) {
    sk_buff *skb = frame();
    EXPECT_EQ(tarn_eth_drv_post_kernel_pkt(port1(), skb), -EINVAL);
    EXPECT_EQ(bytes_of(skb), plain());
    EXPECT_EQ(port1()->last_rx, 0u);
    EXPECT_EQ(tarn_eth_drv_post_kernel_pkt(vlan1(), skb), 0);
    EXPECT_THAT(recorded().received, SizeIs(1));
    EXPECT_EQ(stats().rx_packets, 0u) << "counted further up";
}

// --- to sockets ---------------------------------------------------------------------------------

class SocketPost : public TransmitTest {
protected:
    SocketPost() {
        features().socket_post = [this](sock *sk, sk_buff *skb) {
            asked_.push_back(sk);
            preempt_ = preempt_count();
            if (result_ >= 0)
                got_.push_back(skb);
            return result_;
        };
        skb_ = frame();
        room_ = static_cast<int>(skb_truesize(skb_)) + 1;
        for (sock &sk : sockets_)
            sk.rcvbuf = room_;
        sockets_[0].next = &sockets_[1];
        sockets_[1].next = &sockets_[2];
        list_.first = &sockets_[0];
    }
    ~SocketPost() override {
        forget();
        kfree_skb(skb_);
    }

    u32 post(sock *sk, const sk_list *list, rwlock_t *lock = nullptr) {
        u32 result = tarn_pkt_post_packet(skb_, sk, list, lock);
        EXPECT_EQ(bytes_of(skb_), plain()) << "the frame stays with the caller";
        return result;
    }
    void forget() {
        for (sk_buff *skb : got_)
            kfree_skb(skb);
        got_.clear();
        asked_.clear();
    }

    sock sockets_[3]{};
    sk_list list_{};
    rwlock_t lock_{};
    sk_buff *skb_ = nullptr;
    int room_ = 0;
    i32 result_ = 0;
    std::vector<sock *> asked_;
    std::vector<sk_buff *> got_;
    u32 preempt_ = 0;
};

TEST_F(SocketPost, one_socket_gets_a_clone) {
    EXPECT_EQ(post(&sockets_[0], nullptr), 0u);
    ASSERT_THAT(got_, SizeIs(1));
    EXPECT_THAT(asked_, ElementsAre(&sockets_[0]));
    EXPECT_NE(got_[0], skb_);
    EXPECT_EQ(skb_data(got_[0]), skb_data(skb_)) << "which shares the bytes";
    EXPECT_EQ(skb_len(got_[0]), skb_len(skb_));
}

TEST_F(SocketPost, each_socket_of_a_list_gets_a_clone_of_its_own_in_order) {
    EXPECT_EQ(post(nullptr, &list_), 0u);
    EXPECT_THAT(asked_, ElementsAre(&sockets_[0], &sockets_[1], &sockets_[2]));
    ASSERT_THAT(got_, SizeIs(3));
    EXPECT_NE(got_[0], got_[1]);
    EXPECT_NE(got_[1], got_[2]);
}

TEST_F(SocketPost, a_list_goes_before_a_single_socket) {
    sock single{.rmem_alloc = 0, .rcvbuf = room_, .next = nullptr};
    EXPECT_EQ(post(&single, &list_), 0u);
    EXPECT_THAT(asked_, ElementsAre(&sockets_[0], &sockets_[1], &sockets_[2]));
    forget();
    sk_list empty{};
    EXPECT_EQ(post(&single, &empty), 0u);
    EXPECT_THAT(asked_, IsEmpty());
}

TEST_F(SocketPost, without_a_socket_nothing_happens) {
    u64 before = userlevel::allocations_made();
    sk_list empty{};
    EXPECT_EQ(post(nullptr, nullptr), 0u);
    EXPECT_EQ(post(nullptr, nullptr, &lock_), 0u);
    EXPECT_EQ(post(nullptr, &empty, &lock_), 0u);
    EXPECT_THAT(asked_, IsEmpty());
    EXPECT_EQ(userlevel::allocations_made(), before);
}

TEST_F(SocketPost, does_not_follow_the_list_of_a_single_socket) {
    EXPECT_EQ(post(&sockets_[0], nullptr), 0u);
    EXPECT_THAT(asked_, SizeIs(1));
}

TEST_F(SocketPost, a_socket_without_room_is_passed_over_at_no_cost_and_the_next_is_not) {
    int truesize = static_cast<int>(skb_truesize(skb_));
    struct Row {
        int used, limit;
        bool gets;
    };
    for (Row row :
         {Row{0, truesize + 1, true}, Row{0, truesize, false}, Row{1, truesize + 1, false},
          Row{1000, truesize + 1001, true}, Row{1000, truesize + 1000, false}, Row{0, 0, false},
          Row{5000, 0x7FFFFFFF, true}, Row{0x7FFFFFF0, 0x7FFFFFFF, false}}) {
        sockets_[0].rmem_alloc = row.used;
        sockets_[0].rcvbuf = row.limit;
        u64 before = userlevel::allocations_made();
        EXPECT_EQ(post(nullptr, &list_), 0u);
        EXPECT_EQ(userlevel::allocations_made() - before, row.gets ? 3u : 2u);
        EXPECT_EQ(asked_.front() == &sockets_[0], row.gets) << row.used << " of " << row.limit;
        EXPECT_EQ(asked_.back(), &sockets_[2]);
        forget();
    }
}

TEST_F(SocketPost, a_clone_that_cannot_be_made_costs_that_socket_its_frame) {
    userlevel::fail_allocation(2);
    EXPECT_EQ(post(nullptr, &list_), 0u);
    EXPECT_THAT(asked_, ElementsAre(&sockets_[0], &sockets_[2]));
    forget();
    userlevel::fail_allocation(1);
    EXPECT_EQ(post(&sockets_[0], nullptr), 0u);
    EXPECT_THAT(asked_, IsEmpty());
}

TEST_F(SocketPost, a_clone_that_is_refused_is_freed) {
    result_ = -12;
    u64 before = userlevel::skbs_ended().irq;
    EXPECT_EQ(post(nullptr, &list_), 0u);
    EXPECT_THAT(asked_, SizeIs(3));
    EXPECT_EQ(userlevel::skbs_ended().irq - before, 3u);
}

TEST_F(SocketPost, a_positive_answer_has_taken_the_clone) {
    result_ = 1;
    EXPECT_EQ(post(&sockets_[0], nullptr), 0u);
    EXPECT_THAT(got_, SizeIs(1));
}

TEST_F(SocketPost, holds_the_lock_of_the_list_for_reading_and_lets_it_go) {
    auto *hook = &features().socket_post;
    *hook = [this](sock *, sk_buff *) {
        preempt_ = preempt_count();
        EXPECT_NE(pthread_rwlock_trywrlock(&lock_.lock), 0) << "held";
        read_lock_bh(&lock_); // for reading
        read_unlock_bh(&lock_);
        return -1;
    };
    EXPECT_EQ(post(nullptr, &list_, &lock_), 0u);
    EXPECT_NE(preempt_, 0u) << "bottom halves are off";
    EXPECT_EQ(preempt_count(), 0u);
    write_lock_bh(&lock_);
    write_unlock_bh(&lock_);
}

TEST_F(SocketPost, a_single_socket_may_have_a_lock_too) {
    EXPECT_EQ(post(&sockets_[0], nullptr, &lock_), 0u);
    EXPECT_NE(preempt_, 0u);
    forget();
    EXPECT_EQ(post(&sockets_[0], nullptr, nullptr), 0u);
    EXPECT_EQ(preempt_, 0u);
}

// --- headers ------------------------------------------------------------------------------------

class HeaderOf : public TransmitTest {
protected:
    // The offset of the header, or -1.
    static std::ptrdiff_t ipv4(const Bytes &bytes) { return offset(bytes, tarn_pkt_ipv4); }
    static std::ptrdiff_t ipv6(const Bytes &bytes) { return offset(bytes, tarn_pkt_ipv6); }

private:
    static std::ptrdiff_t offset(const Bytes &bytes, const u8 *(*find)(const sk_buff *)) {
        sk_buff *skb = frame(bytes);
        const u8 *found = find(skb);
        std::ptrdiff_t at = found ? found - skb_data(skb) : -1;
        kfree_skb(skb);
        return at;
    }
};

TEST_F(HeaderOf, ipv4_is_behind_at_most_one_tag) {
    EXPECT_EQ(ipv4(Frame().ipv4({})), 14);
    EXPECT_EQ(ipv4(Frame().tag(1).ipv4({})), 18);
    EXPECT_EQ(ipv4(Frame().tag(1).tag(2).ipv4({})), -1);
    EXPECT_EQ(ipv4(Frame().tag(1, 0x88A8).ipv4({})), -1);
    EXPECT_EQ(ipv4(Frame().tag(1).tag(2, 0x88A8).ipv4({})), -1);
    EXPECT_EQ(ipv4(Frame().ipv6({})), -1);
    EXPECT_EQ(ipv4(Frame().tag(1).ipv6({})), -1);
    EXPECT_EQ(ipv4(Frame().type(0x0806).padded()), -1);
}

TEST_F(HeaderOf, ipv6_is_behind_at_most_one_tag) {
    EXPECT_EQ(ipv6(Frame().ipv6({})), 14);
    EXPECT_EQ(ipv6(Frame().tag(1).ipv6({})), 18);
    EXPECT_EQ(ipv6(Frame().tag(1).tag(2).ipv6({})), -1);
    EXPECT_EQ(ipv6(Frame().tag(1, 0x88A8).ipv6({})), -1);
    EXPECT_EQ(ipv6(Frame().ipv4({})), -1);
    EXPECT_EQ(ipv6(Frame().tag(1).ipv4({})), -1);
}

TEST_F(HeaderOf, frames_that_end_before_their_type_have_none) {
    for (u32 length : {0u, 11u, 12u, 13u}) {
        EXPECT_EQ(ipv6(Frame().ipv6({}).cut(length)), -1) << length;
        EXPECT_EQ(ipv6(Frame().tag(1).ipv6({}).cut(length + 4)), -1) << length;
    }
    EXPECT_EQ(ipv4(Bytes{}), -1);
}

} // namespace
