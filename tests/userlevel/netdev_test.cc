// What leaves by a device of the module, by the rules of Linux 6.1 for one without a queue.
#include "kernel/netdev.h"

#include "control.h"
#include "kernel/errno.h"
#include "kernel/memory.h"
#include "kernel/preempt.h"
#include "kernel/skb.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <thread>

namespace {

constexpr int CONGESTED = 2; // NET_XMIT_CN
const std::vector<u8> FRAME(60, 0x5A);

int start(net_device *) {
    return 0;
}

class OwnDevice : public ::testing::Test {
protected:
    OwnDevice() : devices_{make("own0"), make("own1")} {
        sent = [](auto *, auto *) { return 0; };
    }
    ~OwnDevice() override {
        for (net_device *device : devices_) {
            unregister_netdev(device);
            free_netdev(device);
        }
        EXPECT_EQ(said(), "");
        EXPECT_EQ(userlevel::describe(userlevel::leaked_since(before_)), "");
    }

    // What becomes of a frame; the frame itself is consumed for it.
    static inline std::function<int(sk_buff *, net_device *)> sent;

    static int transmit(sk_buff *skb, net_device *device) {
        int result = sent(skb, device);
        consume_skb(skb);
        return result;
    }
    static int send(net_device *device) {
        sk_buff *skb = userlevel::frame_make(FRAME);
        skb_set_dev(skb, device);
        return dev_queue_xmit(skb);
    }
    static std::string said() {
        std::string all;
        for (const auto &line : userlevel::log_take())
            all += line.text;
        return all;
    }
    net_device *own(std::size_t which = 0) { return devices_.at(which); }

private:
    static net_device *make(const char *name) {
        static constexpr netdev_ops ops{.open = start,
                                        .stop = start,
                                        .start_xmit = transmit,
                                        .set_rx_mode = nullptr,
                                        .set_mac_address = nullptr,
                                        .do_ioctl = nullptr,
                                        .change_mtu = nullptr,
                                        .get_stats = nullptr};
        net_device *device = alloc_etherdev_mqs(0, 1, 1);
        netdev_set_name(device, name);
        netdev_set_ops(device, &ops, nullptr);
        EXPECT_EQ(register_netdev(device), 0);
        EXPECT_EQ(netdev_set_flags_by_name(name, IFF_UP), 0);
        return device;
    }

    userlevel::snapshot before_ = userlevel::take_snapshot();
    std::vector<net_device *> devices_;
};

TEST_F(OwnDevice, transmits_at_once_and_its_result_is_the_answer) {
    std::vector<u8> seen;
    for (int result : {0, 1, -EINVAL}) {
        sent = [&](sk_buff *skb, net_device *device) {
            EXPECT_EQ(device, own());
            seen.assign(skb_data(skb), skb_data(skb) + skb_len(skb));
            return result;
        };
        EXPECT_EQ(send(own()), result);
        EXPECT_EQ(std::exchange(seen, {}), FRAME);
    }
}

TEST_F(OwnDevice, is_congested_while_it_is_down_or_without_carrier) {
    sent = [](sk_buff *, net_device *) {
        ADD_FAILURE() << "it transmits";
        return 0;
    };
    netif_carrier_off(own());
    EXPECT_EQ(send(own()), CONGESTED);
    netif_carrier_on(own());
    EXPECT_EQ(netdev_set_flags_by_name("own0", 0), 0);
    EXPECT_EQ(send(own()), CONGESTED);
    netif_stop_queue(own()); // nobody asks for that first
    EXPECT_EQ(send(own()), CONGESTED);
    userlevel::work_run();
}

TEST_F(OwnDevice, that_is_stopped_keeps_nothing) {
    netif_stop_queue(own());
    EXPECT_EQ(send(own()), -ENETDOWN);
    EXPECT_EQ(said(), "Virtual device own0 asks to queue packet!\n");
    netif_wake_queue(own());
    EXPECT_EQ(send(own()), 0);
}

TEST_F(OwnDevice, is_not_come_back_to) {
    int inner = 0, others = 0;
    sent = [&](sk_buff *, net_device *device) {
        others += device == own(1);
        inner = send(own(device == own()));
        return 0;
    };
    EXPECT_EQ(send(own()), 0); // to the second, and from there not to the first
    EXPECT_EQ(inner, 0);
    EXPECT_EQ(others, 1);
    EXPECT_EQ(said(), "Dead loop on virtual device own0, fix it urgently!\n");
    sent = [](sk_buff *, net_device *) { return 0; };
    EXPECT_EQ(send(own()), 0); // a later one goes on
}

TEST_F(OwnDevice, hands_on_what_it_sends_by_a_device_of_somebody_elses) {
    net_device *other = userlevel::netdev_create("eth7");
    sent = [&](sk_buff *skb, net_device *) {
        sk_buff *copy = skb_clone(skb, GFP_ATOMIC);
        skb_set_dev(copy, other);
        return dev_queue_xmit(copy);
    };
    auto &record = userlevel::netdev_recorded(other);
    record.queue_result = 1;
    EXPECT_EQ(send(own()), 1);
    EXPECT_EQ(record.sent.at(0).bytes, FRAME);
    unregister_netdev(other);
    free_netdev(other);
}

class OwnDeviceThreads : public OwnDevice {};

TEST_F(OwnDeviceThreads, is_not_freed_while_somebody_holds_it) {
    net_device *held = dev_get_by_name("own0");
    bool gone = false;
    std::thread remover([&] {
        unregister_netdev(held);
        __atomic_store_n(&gone, true, __ATOMIC_RELEASE);
    });
    while (net_device *again = dev_get_by_name("own0"))
        dev_put(again);
    EXPECT_FALSE(__atomic_load_n(&gone, __ATOMIC_ACQUIRE));
    EXPECT_EQ(send(held), CONGESTED); // it has been closed
    dev_put(held);
    remover.join();
    EXPECT_EQ(register_netdev(held), 0); // for the end
}

TEST_F(OwnDeviceThreads, is_not_freed_while_somebody_has_bottom_halves_off) {
    net_device *device = own();
    std::atomic<bool> off = false, gone = false;
    std::thread frame([&] {
        local_bh_disable();
        off = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_FALSE(gone);
        EXPECT_STREQ(netdev_name(device), "own0");
        local_bh_enable();
    });
    while (!off)
        std::this_thread::yield();
    unregister_netdev(device);
    gone = true;
    frame.join();
    EXPECT_EQ(register_netdev(device), 0); // for the end
}

// Each reads what the other takes away, and frees when nobody can read it any more.
TEST_F(OwnDeviceThreads, what_is_read_with_bottom_halves_off_is_freed_when_they_are_on_again) {
    int *shared = new int(1);
    std::atomic<bool> stop = false;
    std::vector<std::thread> readers;
    for (int k = 0; k < 3; k++)
        readers.emplace_back([&] {
            while (!stop) {
                local_bh_disable();
                EXPECT_EQ(*__atomic_load_n(&shared, __ATOMIC_ACQUIRE), 1);
                local_bh_enable();
            }
        });
    for (int turn = 0; turn < 300; turn++) {
        int *old = __atomic_exchange_n(&shared, new int(1), __ATOMIC_ACQ_REL);
        userlevel::wait_for_bottom_halves();
        *old = 0;
        delete old;
        if (turn % 50 == 0) // threads come and go
            std::thread([&] {
                local_bh_disable();
                EXPECT_EQ(*__atomic_load_n(&shared, __ATOMIC_ACQUIRE), 1);
                local_bh_enable();
            }).join();
    }
    stop = true;
    for (std::thread &reader : readers)
        reader.join();
    delete shared;
}

TEST_F(OwnDeviceThreads, nobody_waits_for_itself) {
    local_bh_disable();
    EXPECT_DEATH(userlevel::wait_for_bottom_halves(), "kernel BUG");
    local_bh_enable();
}

} // namespace
