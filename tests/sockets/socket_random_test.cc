// Daemons that do anything on every family: open, send, read, ask, set, wait and close, while
// frames come in, ports go up and down, and memory fails. Nothing is left behind.
//
// TARN_RANDOM_CALLS sets how many (200000 unless said otherwise), TARN_RANDOM_SEED the seed.
#include "sockets/socket_test.h"
#include "support/chance.h"

#include "kernel/netdev.h"
#include "sockets/sockets.h"

namespace {

constexpr u32 ROUND = 1024; // calls, before all sockets are closed
constexpr i64 HEADERS = 18; // at most, before the data of a frame

class SocketRandom : public SocketTest, protected Chance {
protected:
    SocketRandom() {
        add_port(2);
        add_aggregator_over(add_port(3), 4501);
        add_vlan(2);
        driver().keep = false;
        driver().answer = [this](const fake_driver::Sent &) { return refuses_; };
        configure([this] {
            enable_redirect_by_name("isis", 1);
            tarn_udld_enable(1);
            for (int family = 0; family < AF_MAX + 32; family++)
                if (struct socket *one = opened(family)) {
                    families_.push_back(family);
                    close(one);
                }
        });
        sockets_.resize(2 * families_.size());
    }

    static struct socket *opened(int family) {
        struct socket *one = nullptr;
        userlevel::socket_open(family, SOCK_RAW, 0, &one);
        return one;
    }
    // With the reference that a closed socket leaves behind on purpose: there is one, and no other.
    static void close(struct socket *&one) {
        if (!one)
            return;
        sock *sk = socket_sk(one);
        EXPECT_EQ(userlevel::socket_close(one), 0);
        EXPECT_EQ(refcount_read(sk_refcnt(sk)), 1);
        sock_put(sk);
        one = nullptr;
    }

    // --- what happens beside --------------------------------------------------------------------

    void deliver() {
        Frame frame;
        frame.to(pick({"01:80:c2:00:00:00", "01:80:c2:00:00:02", "01:80:c2:00:00:0e",
                       "01:80:c2:00:00:14", "01:80:c2:00:00:21", "01:15:4e:00:00:01",
                       "01:00:0c:cc:cc:cc", "ff:ff:ff:ff:ff:ff", "02:00:00:00:00:01"}));
        frame.type(pick<u16>({0x0007, 0x8809, 0x88CC, 0x88E3, 0x8902, 0x88F7, 0x9000, 0x0111}));
        const Bytes bytes = frame.bytes(noise(below(80)));
        tarn_rx_meta meta{};
        meta.flags = one_in(4) ? 8 : 0;
        sk_buff *skb = userlevel::frame_make(bytes, pick({0u, 16u, 64u}));
        if (skb &&
            rxtx_hw_packet_recv(skb, pick({5001u, 5002u, 5003u}), pick({1u, 2u}), &meta) != 0)
            kfree_skb(skb);
    }

    void change() {
        tarn_if *port = tarn_ifmgr_lookup_by_index(pick({5001u, 5002u, 5003u, 4501u}));
        port->flags = pick<u32>({TARN_IF_LINK, TARN_IF_LINK, TARN_IF_LINK, IFF_UP});
        tarn_ifmgr_if_ref_put(port);
        refuses_ = one_in(4) ? pick({static_cast<u32>(-ENODEV), 1u}) : 0;
        enable_redirect_by_name("vlan_local", static_cast<u8>(below(2)));
    }

    // --- the calls ------------------------------------------------------------------------------

    Bytes address() {
        const u32 ifindex = pick({5001u, 5001u, 5001u, 5002u, 5002u, 4501u, 301u, 9999u});
        Bytes name = one_in(2) ? l2_name(ifindex)
                               : vlan_name(ifindex, pick<u16>({0, 1, 2, 4095, 60000}),
                                           static_cast<u8>(below(4)));
        if (one_in(8))
            name = noise(below(129));
        else if (one_in(8))
            name.resize(below(129));
        return name;
    }

    void send_any(struct socket *one) {
        const Bytes data = noise(pick({46u, below(64), below(64), below(1500), 1500u, 1501u}));
        i64 result = send(one, address(), data);
        sent_ += result > 0;
        if (result >= 0 && refuses_ == 0) {
            EXPECT_GE(result, static_cast<i64>(data.size()));
            EXPECT_LE(result, static_cast<i64>(data.size()) + HEADERS);
        }
    }

    void read_any(struct socket *one) {
        const std::size_t size = pick({0u, 8u, 64u, 2048u});
        const Reading got =
            read(one, size, MSG_DONTWAIT | pick({0, 0, int{MSG_PEEK}, int{MSG_TRUNC}}));
        read_ += got.result > 0;
        if (!(got.flags & MSG_TRUNC)) {
            EXPECT_LE(got.result, static_cast<i64>(size));
        }
    }

    void set_any(struct socket *one) {
        const Bytes value = noise(pick({0u, 1u, 4u, 4u, 4u, 8u, 600u}));
        userlevel::socket_setsockopt(one, pick({SOL_SOCKET, 0, 46, 63, 269}),
                                     static_cast<int>(below(64)), value.data(),
                                     static_cast<socklen_t>(value.size()));
    }

    void get_any(struct socket *one) {
        Bytes value(pick({0u, 1u, 4u, 4u, 8u, 600u}));
        auto length = static_cast<socklen_t>(value.size());
        userlevel::socket_getsockopt(one, pick({SOL_SOCKET, 0, 46, 63, 269}),
                                     static_cast<int>(below(64)), value.data(), &length);
        EXPECT_LE(length, value.size());
    }

    void call() {
        const u32 which = below(static_cast<u32>(sockets_.size()));
        struct socket *&one = sockets_[which];
        if (!one) {
            one = opened(families_[which % families_.size()]);
            return;
        }
        switch (below(16)) {
        case 0:
            return close(one);
        case 1:
            return set_any(one);
        case 2:
            return get_any(one);
        case 3:
            userlevel::socket_poll(one, POLLIN | POLLOUT, 0);
            return;
        case 4:
            EXPECT_LT(userlevel::socket_other(one), 0);
            return;
        case 5:
        case 6:
        case 7:
        case 8:
            return send_any(one);
        default:
            return read_any(one);
        }
    }

    void end_of_round() {
        userlevel::fail_allocation(0);
        for (struct socket *&one : sockets_)
            close(one);
        userlevel::work_run();
        expect_nothing_leaked();
    }

    std::vector<int> families_;
    std::vector<struct socket *> sockets_; // two of each family, or null
    u32 refuses_ = 0;                      // what the chip answers
    u64 sent_ = 0, read_ = 0;
};

TEST_F(SocketRandom, calls_leave_nothing_behind) {
    userlevel::log_keep(false);
    ASSERT_GE(families_.size(), 21u);
    Counted calls("calls", "TARN_RANDOM_CALLS", 200000);
    while (calls.go_on()) {
        if (one_in(3))
            deliver();
        if (one_in(64))
            change();
        if (one_in(16))
            userlevel::fail_allocation(1 + below(4));
        call();
        userlevel::fail_allocation(0);
        if (calls.done() % ROUND == 0)
            end_of_round();
        ASSERT_FALSE(HasFailure()) << "seed " << seed_ << ", call " << calls.done();
    }
    end_of_round();
    EXPECT_LT(calls.grown_kb(), MOST_KB);
    EXPECT_GT(sent_, calls.wanted() / 64);
    EXPECT_GT(read_, calls.wanted() / 64);
    userlevel::log_keep(true);
    log();
}

} // namespace
