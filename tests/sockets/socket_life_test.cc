// How sockets come and go, who waits on them, and how much they keep.
#include "sockets/socket_test.h"

#include "kernel/locks.h"
#include "pkt/pkt_calls.h"
#include "sockets/socket.h"

#include <thread>

using ::testing::IsEmpty;

namespace {

const Bytes LACPDU = Frame().to("01:80:c2:00:00:02").type(0x8809).padded();

class SocketLife : public SocketTest {
protected:
    static int try_open(int family, int type = SOCK_RAW) {
        struct socket *made = nullptr;
        return userlevel::socket_open(family, type, 0, &made);
    }
};

TEST_F(SocketLife, the_namespace_comes_before_the_rights_and_both_before_the_type) {
    userlevel::socket_caller(false, false);
    EXPECT_EQ(try_open(TARN_AF_LACP, SOCK_STREAM), -EAFNOSUPPORT);
    userlevel::socket_caller(false, true);
    EXPECT_EQ(try_open(TARN_AF_LACP, SOCK_STREAM), -EPERM);
    userlevel::socket_caller(true, true);
    EXPECT_EQ(try_open(TARN_AF_LACP, SOCK_STREAM), -ESOCKTNOSUPPORT);
}

TEST_F(SocketLife, a_record_without_memory_is_enobufs) {
    userlevel::fail_allocation(2); // the first is the socket that user space holds
    EXPECT_EQ(try_open(TARN_AF_LACP), -ENOBUFS);
    userlevel::fail_allocation(2);
    EXPECT_EQ(try_open(TARN_AF_TESTD), -ENOBUFS);
}

TEST_F(SocketLife, a_record_may_wait_for_memory) {
    userlevel::snapshot before = userlevel::take_snapshot();
    struct socket *one = open(TARN_AF_LACP);
    for (const userlevel::object &object : userlevel::leaked_since(before)) {
        EXPECT_EQ(object.flags & __GFP_DIRECT_RECLAIM, __GFP_DIRECT_RECLAIM) << object.kind;
    }
    close(one);
}

TEST_F(SocketLife, an_open_socket_has_three_references_and_a_closed_one_keeps_one) {
    struct socket *one = open(TARN_AF_LACP, 0x1234);
    sock *sk = one->sk;
    EXPECT_EQ(refcount_read(&sk->refs), 3);
    EXPECT_EQ(one->state, 1);
    EXPECT_EQ(sk->family, 46);
    EXPECT_EQ(sk->protocol, 0x1234);
    EXPECT_FALSE(sk->dead);
    close(one);
    EXPECT_EQ(refcount_read(&sk->refs), 1);
    EXPECT_TRUE(sk->dead);
    EXPECT_EQ(sk->socket, nullptr);
    EXPECT_EQ(sk->pprev, nullptr);
}

TEST_F(SocketLife, close_drops_what_waits_to_be_read) {
    struct socket *one = open(TARN_AF_LACP);
    sock *sk = one->sk;
    for (int i = 0; i < 5; i++)
        receive(LACPDU);
    EXPECT_GT(sk_rmem_alloc(sk), 0);
    close(one);
    EXPECT_EQ(sk_rmem_alloc(sk), 0);
    EXPECT_EQ(sk->first, nullptr);
}

TEST_F(SocketLife, a_second_release_finds_nothing_to_do) {
    struct socket *one = open(TARN_AF_LACP);
    rwlock_t lock{};
    EXPECT_EQ(tarn_socket_release(one, nullptr), -EINVAL);
    tarn_socket_destruct(one->sk, nullptr);
    EXPECT_FALSE(one->sk->dead);
    EXPECT_NE(one->sk, nullptr);
    EXPECT_EQ(one->ops->release(one), 0);
    EXPECT_EQ(one->sk, nullptr);
    EXPECT_EQ(one->ops->release(one), 0);
    EXPECT_EQ(tarn_socket_release(one, &lock), 0);
    msghdr msg{};
    EXPECT_EQ(one->ops->sendmsg(one, &msg, 0), -EINVAL);
    EXPECT_EQ(one->ops->recvmsg(one, &msg, 0, MSG_DONTWAIT), -EINVAL);
}

// Nobody drops the last reference; should somebody, the record has to go in one piece.
TEST_F(SocketLife, a_destructor_ends_a_record_that_was_closed_before) {
    rwlock_t lock{};
    std::size_t before = userlevel::live().size();
    struct socket *one = nullptr;
    ASSERT_EQ(userlevel::socket_open(TARN_AF_LACP, SOCK_RAW, 0, &one), 0);
    sock *sk = one->sk;
    userlevel::socket_close(one);
    tarn_socket_destruct(sk, &lock);
    EXPECT_EQ(userlevel::live().size(), before);
    tarn_socket_destruct(nullptr, &lock);
}

TEST_F(SocketLife, a_destructor_does_what_close_does) {
    rwlock_t lock{};
    struct socket *one = open(TARN_AF_LACP), *other = open(TARN_AF_LACP);
    sock *sk = one->sk;
    receive(LACPDU);
    EXPECT_GT(sk_rmem_alloc(sk), 0);
    tarn_socket_destruct(sk, &lock);
    EXPECT_EQ(refcount_read(&sk->refs), 1);
    EXPECT_TRUE(sk->dead);
    EXPECT_EQ(sk_rmem_alloc(sk), 0);
    receive(LACPDU);
    EXPECT_TRUE(has_frame(other));
    EXPECT_EQ(sk->first, nullptr);
    one->sk = nullptr;
}

TEST_F(SocketLife, a_frame_must_stay_below_the_limit_with_what_is_there) {
    struct socket *one = open(TARN_AF_LACP);
    sock *sk = one->sk;
    sk_buff *skb = userlevel::frame_make(LACPDU);
    int size = static_cast<int>(skb_truesize(skb));
    sk->rcvbuf = 1000 + size;
    sk->rmem_alloc = 1000;
    EXPECT_EQ(tarn_socket_post_skb(sk, skb), -1);
    EXPECT_EQ(skb->sk, nullptr);
    sk->rcvbuf++;
    EXPECT_EQ(tarn_socket_post_skb(sk, skb), 0);
    EXPECT_EQ(sk_rmem_alloc(sk), 1000 + size);
    sk->rmem_alloc -= 1000;
    EXPECT_TRUE(has_frame(one));
}

TEST_F(SocketLife, a_queued_frame_is_the_sockets_and_no_devices) {
    struct socket *one = open(TARN_AF_LACP), *before = open(TARN_AF_LACP);
    sk_buff *skb = userlevel::frame_make(LACPDU);
    skb_set_dev(skb, vlan1()->netdev);
    EXPECT_EQ(tarn_socket_post_skb(before->sk, skb), 0);
    EXPECT_EQ(skb->sk, before->sk);
    EXPECT_EQ(skb_dev(skb), nullptr);
    // And leaves it for the next owner.
    before->sk->first = before->sk->last = nullptr;
    EXPECT_EQ(tarn_socket_post_skb(one->sk, skb), 0);
    EXPECT_EQ(sk_rmem_alloc(before->sk), 0);
    EXPECT_EQ(skb->sk, one->sk);
}

// A clone for each with room, none for a full one, and the bytes are everybody's.
TEST_F(SocketLife, a_frame_costs_one_clone_for_each_socket_with_room) {
    std::vector<struct socket *> all(100);
    for (struct socket *&one : all)
        one = open(TARN_AF_LACP);
    for (std::size_t i = 0; i < all.size(); i += 4)
        all[i]->sk->rcvbuf = 0;
    userlevel::snapshot before = userlevel::take_snapshot();
    u64 made = userlevel::allocations_made();
    receive(LACPDU);
    std::map<std::string, int> alive;
    for (const userlevel::object &object : userlevel::leaked_since(before))
        alive[object.kind]++;
    EXPECT_EQ(alive["sk_buff"], 75);
    EXPECT_EQ(alive["skb data"], 1);
    EXPECT_EQ(userlevel::allocations_made() - made, 75u + 2); // the frame itself is two
    for (std::size_t i = 0; i < all.size(); i++) {
        EXPECT_EQ(has_frame(all[i]), i % 4 != 0) << i;
        EXPECT_EQ(sk_drops(all[i]->sk), i % 4 == 0) << i;
        read(all[i]);
    }
}

TEST_F(SocketLife, a_reader_waits_for_a_frame) {
    struct socket *one = open(TARN_AF_LACP);
    Reading got{};
    std::thread reader([&] { got = read(one, 100, 0); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    receive(LACPDU);
    reader.join();
    EXPECT_EQ(got.result, 46);
}

TEST_F(SocketLife, a_poll_waits_for_a_frame) {
    struct socket *one = open(TARN_AF_LACP);
    EXPECT_EQ(userlevel::socket_poll(one, POLLIN | POLLOUT, 0), POLLOUT);
    EXPECT_EQ(userlevel::socket_poll(one, POLLIN, 10), 0);
    short events = 0;
    std::thread waiter([&] { events = userlevel::socket_poll(one, POLLIN, 5000); });
    receive(LACPDU);
    waiter.join();
    EXPECT_EQ(events, POLLIN);
}

TEST_F(SocketLife, who_wants_to_be_told_of_frames_is_told_of_those_that_are_there) {
    struct socket *lacp = open(TARN_AF_LACP);
    int told = 0;
    auto count = [](void *argument) { ++*static_cast<int *>(argument); };
    userlevel::socket_on_ready(lacp, count, &told);
    EXPECT_EQ(told, 0);
    receive(LACPDU);
    EXPECT_EQ(told, 1);
    userlevel::socket_on_ready(lacp, count, &told);
    EXPECT_EQ(told, 2);
    EXPECT_EQ(read(lacp).data.size(), 46u);
    userlevel::socket_on_ready(lacp, count, &told);
    EXPECT_EQ(told, 2);
}

TEST_F(SocketLife, a_socket_may_be_told_never_to_wait) {
    struct socket *one = open(TARN_AF_LACP);
    userlevel::socket_set_nonblocking(one, true);
    EXPECT_EQ(read(one, 100, 0).result, -EINVAL);
}

TEST_F(SocketLife, a_read_to_nowhere_is_efault_and_the_frame_is_gone) {
    struct socket *one = open(TARN_AF_LACP);
    receive(LACPDU);
    iovec nowhere{nullptr, 100};
    msghdr msg{};
    msg.msg_iov = &nowhere;
    msg.msg_iovlen = 1;
    EXPECT_EQ(userlevel::socket_recvmsg(one, &msg, MSG_DONTWAIT), -EFAULT);
    EXPECT_FALSE(has_frame(one));
}

// The layer above always has a name for recvmsg, and none for read.
TEST_F(SocketLife, a_read_without_a_name_still_says_how_long_it_is) {
    struct socket *one = open(TARN_AF_LACP), *lldp = open(TARN_AF_LLDP);
    receive(LACPDU);
    receive(Frame().to("01:80:c2:00:00:0e").type(0x88CC).padded());
    Bytes data(100);
    iovec buffer{data.data(), data.size()};
    msghdr msg{};
    msg.msg_iov = &buffer;
    msg.msg_iovlen = 1;
    EXPECT_EQ(one->ops->recvmsg(one, &msg, data.size(), MSG_DONTWAIT), 46);
    EXPECT_EQ(msg.msg_namelen, 16u);
    buffer = {data.data(), data.size()};
    msg.msg_iov = &buffer;
    msg.msg_iovlen = 1;
    EXPECT_EQ(lldp->ops->recvmsg(lldp, &msg, data.size(), MSG_DONTWAIT), 60);
    EXPECT_EQ(msg.msg_namelen, 36u);
}

TEST_F(SocketLife, no_family_has_options_of_its_own) {
    struct socket *one = open(TARN_AF_LACP);
    int value = 100000;
    socklen_t length = sizeof(value);
    EXPECT_EQ(userlevel::socket_setsockopt(one, 46, 1, &value, length), -EOPNOTSUPP);
    EXPECT_EQ(userlevel::socket_getsockopt(one, 46, 1, &value, &length), -EOPNOTSUPP);
    EXPECT_EQ(userlevel::socket_other(one), -EOPNOTSUPP);
    EXPECT_EQ(userlevel::socket_setsockopt(one, SOL_SOCKET, SO_RCVBUF, &value, length), 0);
    EXPECT_EQ(userlevel::socket_getsockopt(one, SOL_SOCKET, SO_RCVBUF, &value, &length), 0);
    EXPECT_EQ(value, 200000);
    length = 0; // who only asks whether there is such
    EXPECT_EQ(userlevel::socket_getsockopt(one, SOL_SOCKET, SO_RCVBUF, nullptr, &length), 0);
    EXPECT_EQ(length, 0u);
}

TEST_F(SocketLife, a_family_that_nobody_registered_does_not_open) {
    for (int family : {45, 49, 58, 59, 64, 71})
        EXPECT_EQ(userlevel::socket_open(family, SOCK_RAW, 0, nullptr), -EAFNOSUPPORT) << family;
}

} // namespace
