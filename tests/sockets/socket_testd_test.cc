// Frames of the loop test that come by the IP stack.
#include "sockets/socket_test.h"

#include "ifmgr/tarn_ifmgr_create.h"
#include "kernel/netdev.h"
#include "pkt/pkt_post.h"

using ::testing::ElementsAre;

namespace {

const Bytes LOOPED = Frame().type(0x9000).bytes({1, 2, 3}).padded();

class Testd : public SocketTest {
protected:
    // Its handler, as the IP stack has it: the newest before one of ours.
    packet_type *handler() {
        static packet_type ours{};
        if (!ours.next)
            dev_add_pack(&ours);
        return ours.next;
    }
    // A frame as the IP stack hands it over: its header is pulled.
    static sk_buff *pulled(u32 headroom = 64) {
        sk_buff *skb = userlevel::frame_make(LOOPED, headroom);
        skb_pull(skb, ETH_HLEN);
        return skb;
    }
    i32 take(sk_buff *skb, net_device *device) {
        packet_type *type = handler();
        return type->handler(skb, device, type, device);
    }
};

TEST_F(Testd, takes_what_comes_through_the_ip_stack_too) {
    struct socket *testd = open(TARN_AF_TESTD), *other = open(TARN_AF_TESTD);
    auto &record = userlevel::netdev_recorded(vlan1()->netdev);
    for (struct socket *one : {testd, other})
        EXPECT_FALSE(has_frame(one));
    EXPECT_EQ(tarn_eth_drv_post_kernel_pkt(vlan1(), userlevel::frame_make(LOOPED)), 0);
    for (struct socket *one : {testd, other}) {
        Reading reading = read(one);
        EXPECT_EQ(reading.data, Bytes(LOOPED.begin() + 14, LOOPED.end()));
        EXPECT_EQ(address_of(reading).ifindex, 301u);
        EXPECT_EQ(address_of(reading).vid, 0);
        EXPECT_EQ(Bytes(reading.address.begin(), reading.address.begin() + 14),
                  Bytes(LOOPED.begin(), LOOPED.begin() + 14));
    }
    EXPECT_EQ(record.received.at(0).bytes, LOOPED);
}

TEST_F(Testd, takes_what_comes_in_on_an_ethernet_interface) {
    net_device *device = configure([] {
        net_device *made = userlevel::netdev_create("eth7");
        const u8 hwaddr[6] = {2, 0, 0, 0, 7, 1};
        EXPECT_EQ(tarn_ifmgr_ethernet_create("eth7", hwaddr, IFF_UP, made->ifindex,
                                             TARN_IF_TYPE_ETHERNET),
                  0);
        return made;
    });
    struct socket *testd = open(TARN_AF_TESTD);
    userlevel::netdev_receive(device, Frame().type(0x9001).padded().build());
    EXPECT_FALSE(has_frame(testd));
    userlevel::netdev_receive(device, LOOPED);
    Reading reading = read(testd);
    EXPECT_EQ(reading.data, Bytes(LOOPED.begin() + 14, LOOPED.end()));
    EXPECT_EQ(address_of(reading).ifindex, device->ifindex);
    EXPECT_EQ(address_of(reading).vid, 0);
    EXPECT_THAT(userlevel::netdev_recorded(device).sent, ::testing::IsEmpty());
}

TEST_F(Testd, drops_frames_of_another_type) {
    struct socket *testd = open(TARN_AF_TESTD);
    packet_type other = *handler();
    other.ethertype = cpu_to_be16(0x9001);
    EXPECT_EQ(other.handler(pulled(), vlan1()->netdev, &other, vlan1()->netdev), -EINVAL);
    EXPECT_THAT(log(), ElementsAre("4 packet failed looptest type test 0x9001 - drop"));
    EXPECT_FALSE(has_frame(testd));
    EXPECT_EQ(dropped(), 1u);
}

TEST_F(Testd, drops_frames_of_devices_that_the_switch_does_not_know) {
    struct socket *testd = open(TARN_AF_TESTD);
    net_device *stranger = configure([] { return userlevel::netdev_create("eth7"); });
    EXPECT_EQ(take(pulled(), stranger), -EINVAL);
    EXPECT_THAT(log(), ElementsAre("4 Unknown interface eth7 - drop"));
    EXPECT_FALSE(has_frame(testd));
    EXPECT_EQ(dropped(), 1u);
}

TEST_F(Testd, leaves_a_shared_frame_to_its_other_owner) {
    struct socket *testd = open(TARN_AF_TESTD);
    sk_buff *skb = pulled(0);
    skb->users++;
    EXPECT_EQ(take(skb, vlan1()->netdev), 0);
    EXPECT_EQ(read(testd).data, Bytes(LOOPED.begin() + 14, LOOPED.end()));
    EXPECT_EQ(bytes_of(static_cast<const sk_buff *>(skb)),
              Bytes(LOOPED.begin() + 14, LOOPED.end()));
    kfree_skb(skb);
}

TEST_F(Testd, without_memory_loses_the_frame) {
    struct socket *testd = open(TARN_AF_TESTD);
    sk_buff *shared = pulled(), *own = pulled();
    shared->users++;
    handler();
    userlevel::fail_allocation(1);
    EXPECT_EQ(take(shared, vlan1()->netdev), -ENOMEM);
    EXPECT_THAT(log(), ElementsAre("4 Out of memory cloning skb"));
    userlevel::fail_allocation(1);
    EXPECT_EQ(take(own, vlan1()->netdev), -ENOMEM);
    EXPECT_FALSE(has_frame(testd));
    kfree_skb(shared);
}

TEST_F(Testd, a_full_socket_loses_the_frame_and_the_next_gets_it) {
    struct socket *next = open(TARN_AF_TESTD), *full = open(TARN_AF_TESTD);
    full->sk->rcvbuf = 1;
    EXPECT_EQ(take(pulled(), vlan1()->netdev), 0);
    EXPECT_FALSE(has_frame(full));
    EXPECT_EQ(read(next).data.size(), LOOPED.size() - 14);
}

} // namespace
