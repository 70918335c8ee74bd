// The devices of layer 3 interfaces.
#include "support/transmit_test.h"

#include "ifmgr/tarn_if_device.h"
#include "ifmgr/tarn_ifmgr_create.h"
#include "ifmgr/tarn_ifmgr_settings.h"
#include "kernel/netdev.h"
#include "netdev.h"
#include "pkt/pkt_info.h"
#include "pkt/pkt_l3dev.h"
#include "pkt/pkt_l3dev_ops.h"
#include "pkt/pkt_redirect.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <thread>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

constexpr u32 NOT_A_TYPE = 9;

class L3Device : public TransmitTest {
protected:
    // An interface that is in no database.
    struct Interface : tarn_if {
        Interface(u32 type_, const char *name_, u32 number) : tarn_if{} {
            type = type_;
            memcpy(name, name_, strlen(name_));
            if (type_ == TARN_IF_TYPE_VLAN)
                vid = static_cast<u16>(number);
            else
                ifindex = number;
        }
    };
    Interface vlan_{TARN_IF_TYPE_VLAN, "vlan77", 77};
    Interface port_{TARN_IF_TYPE_SWITCHPORT, "port77", 5077};
    Interface other_{NOT_A_TYPE, "other77", 6077};

    net_device *make(tarn_if &ifp, const u8 *hwaddr = nullptr, u32 length = 0) {
        return configure([&] {
            ifp.netdev = tarn_eth_drv_create_netdevice(&ifp, hwaddr, length);
            return ifp.netdev;
        });
    }

    static Bytes address_of(const net_device *device) {
        return Bytes(netdev_addr(device), netdev_addr(device) + 6);
    }
    static tarn_eth_priv *priv(const net_device *device) {
        return static_cast<tarn_eth_priv *>(netdev_priv(device));
    }
    static bool is_registered(const net_device *device) {
        auto all = userlevel::netdevs();
        return std::find(all.begin(), all.end(), device) != all.end();
    }
};

// --- creation -----------------------------------------------------------------------------------

TEST_F(L3Device, of_a_vlan_has_the_vlans_number_and_vid) {
    net_device *device = make(vlan_);
    ASSERT_NE(device, nullptr);
    EXPECT_TRUE(is_registered(device));
    EXPECT_STREQ(netdev_name(device), "vlan77");
    EXPECT_EQ(netdev_ifindex(device), 377u);
    EXPECT_EQ(priv(device)->ifp, &vlan_);
    EXPECT_EQ(priv(device)->vid, 77u);
    EXPECT_EQ(device->max_mtu, 9216u);
    EXPECT_LE(device->min_mtu, 64u) << "64 must be possible";
    EXPECT_EQ(device->hard_header_len, 16u);
    EXPECT_EQ(netdev_priv_flags(device) & IFF_NO_QUEUE, 0x80000u);
    EXPECT_EQ(device->ops, &tarn_eth_other_ops);
    EXPECT_EQ(device->ethtool_ops, nullptr);
}

TEST_F(L3Device, of_a_port_has_the_ports_number_and_no_vid) {
    port_.vid = 12;
    net_device *device = make(port_);
    ASSERT_NE(device, nullptr);
    EXPECT_STREQ(netdev_name(device), "port77");
    EXPECT_EQ(netdev_ifindex(device), 5077u);
    EXPECT_EQ(priv(device)->ifp, &port_);
    EXPECT_EQ(priv(device)->vid, 0u);
    EXPECT_EQ(device->max_mtu, 9216u);
    EXPECT_LE(device->min_mtu, 64u);
    EXPECT_EQ(device->hard_header_len, 16u);
    EXPECT_EQ(netdev_priv_flags(device) & IFF_NO_QUEUE, 0x80000u);
    EXPECT_EQ(device->ops, &tarn_eth_port_ops);
    EXPECT_EQ(device->ethtool_ops, &tarn_eth_port_ethtool_ops);
}

TEST_F(L3Device, of_another_type_keeps_what_the_kernel_gave) {
    other_.vid = 12;
    net_device *device = make(other_);
    ASSERT_NE(device, nullptr);
    EXPECT_NE(netdev_ifindex(device), 6077u);
    EXPECT_EQ(device->max_mtu, 1500u);
    EXPECT_EQ(device->min_mtu, 68u);
    EXPECT_EQ(device->hard_header_len, 16u);
    EXPECT_EQ(priv(device)->vid, 0u);
    EXPECT_EQ(device->ops, &tarn_eth_other_ops);
    EXPECT_EQ(device->ethtool_ops, nullptr);
}

TEST_F(L3Device, tables_differ_in_time_stamp_control_alone) {
    EXPECT_EQ(tarn_eth_port_ops.do_ioctl, tarn_eth_do_ioctl);
    EXPECT_EQ(tarn_eth_other_ops.do_ioctl, nullptr);
    for (const netdev_ops *ops : {&tarn_eth_port_ops, &tarn_eth_other_ops}) {
        EXPECT_EQ(ops->open, tarn_eth_dev_open);
        EXPECT_EQ(ops->stop, tarn_eth_dev_close);
        EXPECT_EQ(ops->start_xmit, tarn_eth_dev_xmit);
        EXPECT_EQ(ops->set_rx_mode, tarn_eth_dev_set_mc_list);
        EXPECT_EQ(ops->set_mac_address, tarn_eth_dev_set_mac_addr);
        EXPECT_EQ(ops->change_mtu, tarn_eth_dev_change_mtu);
        EXPECT_EQ(ops->get_stats(vlan1()->netdev), netdev_stats(vlan1()->netdev));
    }
}

TEST_F(L3Device, a_name_of_16_bytes_is_cut_at_15) {
    memcpy(port_.name, "abcdefghijklmnop", 16);
    net_device *device = make(port_);
    ASSERT_NE(device, nullptr);
    EXPECT_STREQ(netdev_name(device), "abcdefghijklmno");
}

TEST_F(L3Device, has_the_address_that_it_is_given) {
    const u8 address[15] = {2, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14};
    EXPECT_EQ(address_of(make(vlan_, address, 6)), (Bytes{2, 1, 2, 3, 4, 5}));
    EXPECT_EQ(address_of(make(vlan_, address, 14)), (Bytes{2, 1, 2, 3, 4, 5}));
    EXPECT_EQ(address_of(make(vlan_, address, 4)), (Bytes{2, 1, 2, 3, 0, 0})) << "filled up";
    EXPECT_EQ(address_of(make(vlan_, address, 6)), (Bytes{2, 1, 2, 3, 4, 5}));
    EXPECT_EQ(address_of(make(vlan_, address, 15)), Bytes(6)) << "too long: ignored";
    EXPECT_EQ(address_of(make(vlan_, address, 0)), Bytes(6));
    EXPECT_EQ(address_of(make(vlan_, nullptr, 6)), Bytes(6));
}

TEST_F(L3Device, has_carrier_only_as_a_port_with_link) {
    for (u32 flags : {0x0u, 0x1u, 0x40u, 0x41u, 0x1043u, 0x1042u}) {
        bool link = (flags & 0x41) == 0x41;
        for (tarn_if *ifp : {static_cast<tarn_if *>(&vlan_), static_cast<tarn_if *>(&port_),
                             static_cast<tarn_if *>(&other_)}) {
            ifp->flags = flags;
            EXPECT_EQ(netif_carrier_ok(make(*ifp)), link && ifp == &port_)
                << ifp->name << " with " << flags;
        }
    }
    configure([] { userlevel::work_run(); });
}

TEST_F(L3Device, without_memory_there_is_none) {
    userlevel::fail_allocation(1);
    EXPECT_EQ(tarn_eth_drv_create_netdevice(&vlan_, nullptr, 0), nullptr);
    EXPECT_EQ(dev_get_by_name("vlan77"), nullptr);
}

TEST_F(L3Device, whose_number_is_taken_is_freed_again) {
    configure([] {
        net_device *taken = alloc_etherdev_mqs(0, 1, 1);
        netdev_set_name(taken, "taken");
        netdev_set_ifindex(taken, 377);
        EXPECT_EQ(register_netdev(taken), 0);
    });
    EXPECT_EQ(tarn_eth_drv_create_netdevice(&vlan_, nullptr, 0), nullptr);
    EXPECT_EQ(dev_get_by_name("vlan77"), nullptr);
}

// --- adoption -----------------------------------------------------------------------------------

TEST_F(L3Device, that_exists_is_adopted_and_not_registered_again) {
    const u8 address[6] = {2, 9, 9, 9, 9, 9};
    net_device *device = make(vlan_);
    size_t before = userlevel::netdevs().size();
    Interface again(TARN_IF_TYPE_VLAN, "vlan77", 78);
    EXPECT_EQ(make(again, address, 6), device);
    EXPECT_EQ(userlevel::netdevs().size(), before);
    EXPECT_EQ(device->references, 0) << "the reference of the search has been given back";
    EXPECT_EQ(priv(device)->ifp, &again);
    EXPECT_EQ(priv(device)->vid, 78u);
    EXPECT_EQ(address_of(device), Bytes(address, address + 6));
    EXPECT_EQ(netdev_ifindex(device), 377u) << "the number of a registered device stays";
}

TEST_F(L3Device, that_is_adopted_gets_the_tables_and_the_carrier_of_its_interface) {
    net_device *device = make(vlan_);
    Interface port(TARN_IF_TYPE_SWITCHPORT, "vlan77", 5078);
    port.flags = 0x41;
    EXPECT_EQ(make(port), device);
    EXPECT_EQ(device->ops, &tarn_eth_port_ops);
    EXPECT_EQ(device->ethtool_ops, &tarn_eth_port_ethtool_ops);
    EXPECT_EQ(priv(device)->vid, 0u);
    EXPECT_TRUE(netif_carrier_ok(device));
    EXPECT_EQ(make(vlan_), device);
    EXPECT_EQ(device->ops, &tarn_eth_other_ops);
    EXPECT_EQ(device->ethtool_ops, nullptr);
    EXPECT_FALSE(netif_carrier_ok(device));
    configure([] { userlevel::work_run(); });
}

// Whoever destroys it would leave the other with a pointer to freed memory.
TEST_F(L3Device, that_is_adopted_leaves_the_interface_that_had_it) {
    net_device *device = make(vlan_);
    EXPECT_EQ(make(vlan_), device);
    EXPECT_EQ(vlan_.netdev, device) << "by itself it may be adopted";
    Interface again(TARN_IF_TYPE_VLAN, "vlan77", 77);
    EXPECT_EQ(make(again), device);
    EXPECT_EQ(vlan_.netdev, device) << "of one that is replaced the database takes it";
    Interface other(TARN_IF_TYPE_VLAN, "vlan77", 78), port(TARN_IF_TYPE_SWITCHPORT, "vlan77", 5);
    EXPECT_EQ(make(other), device);
    EXPECT_EQ(again.netdev, nullptr);
    EXPECT_EQ(make(port), device);
    EXPECT_EQ(other.netdev, nullptr);
    EXPECT_EQ(port.netdev, device);
}

// The old interface may be freed next.
using L3DeviceThreads = L3Device;

TEST_F(L3DeviceThreads, that_is_adopted_waits_for_transmits_by_the_interface_that_had_it) {
    net_device *device = make(vlan_);
    std::atomic<bool> sending = false, sent = false;
    driver().answer = [&](const fake_driver::Sent &) {
        sending = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        sent = true;
        return 0u;
    };
    std::thread ip_stack([&] { userlevel::netdev_transmit(device, plain()); });
    while (!sending)
        std::this_thread::yield();
    Interface again(TARN_IF_TYPE_VLAN, "vlan77", 77);
    again.netdev = tarn_eth_drv_create_netdevice(&again, nullptr, 0);
    EXPECT_TRUE(sent);
    EXPECT_EQ(again.netdev, device);
    ip_stack.join();
}

// Whoever waits for RTNL waits for what its holder does, and finds what it left.
TEST_F(L3DeviceThreads, that_goes_while_somebody_waits_for_rtnl_is_not_used_any_more) {
    const u8 address[6] = {2, 0, 0, 0, 0, 9};
    i32 (*const calls[])(tarn_if *) = {
        [](tarn_if *ifp) { return tarn_os_l3_if_flags_set(ifp, IFF_UP | IFF_RUNNING); },
        [](tarn_if *ifp) { return tarn_os_l3_if_flags_unset(ifp, IFF_UP | IFF_RUNNING); },
        [](tarn_if *ifp) {
            const u8 another[6] = {2, 0, 0, 0, 0, 10};
            return tarn_os_l3_if_hwaddr_set(ifp, 6, another);
        }};
    for (auto call : calls) {
        vlan_.netdev = tarn_eth_drv_create_netdevice(&vlan_, address, 6);
        rtnl_lock();
        std::thread other([&] { EXPECT_EQ(call(&vlan_), -EINVAL); });
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        tarn_os_l3_if_unconfigure(&vlan_);
        rtnl_unlock();
        other.join();
        userlevel::work_run();
    }
}

// By frames that still have the old record of the VLAN.
TEST_F(L3DeviceThreads, that_goes_with_a_later_record_is_asked_nothing_any_more) {
    const u8 address[16] = {};
    std::atomic<bool> stop = false;
    std::atomic<tarn_if *> newest = nullptr;
    userlevel::log_keep(false);
    const std::function<void(tarn_if *)> questions[] = {
        [](tarn_if *vlan) {
            tarn_pkt_info info{.l3_if = vlan};
            redirect_instruct instruct{};
            packet_redirects[0]->match(&info, &instruct); // whether a bridge has it
        },
        [&](tarn_if *vlan) {
            tarn_eth_has_ipv4_address(vlan);
            tarn_eth_has_ipv6_address(vlan);
            tarn_eth_subnet_match(0, vlan);
            tarn_eth_addr_same(0, vlan);
            tarn_eth_subnet6_match(address, vlan);
        }};
    std::vector<std::thread> frames;
    for (const auto &question : questions)
        frames.emplace_back([&] {
            while (!stop) {
                tarn_if *vlan = tarn_ifmgr_lookup_by_vid(77);
                for (tarn_if *first = newest; vlan && newest == first && !stop;)
                    question(vlan);
                tarn_ifmgr_if_ref_put_later(vlan);
            }
        });
    for (u32 round = 0; round < 200; round++) {
        tarn_if *made = nullptr;
        for (u32 twice = 0; twice < 2; twice++) {
            EXPECT_EQ(tarn_ifmgr_vlan_create(address, 6, &made, 77, 0), 0);
            std::this_thread::yield();
        }
        tarn_ifmgr_delete_interface(made);
        newest = made;
        userlevel::work_run();
    }
    stop = true;
    for (std::thread &one : frames)
        one.join();
    userlevel::work_run();
    userlevel::log_keep(true);
    log();
    remember();
}

TEST_F(L3DeviceThreads, of_an_ethernet_interface_may_go_at_any_time) {
    userlevel::log_keep(false);
    std::atomic<bool> stop = false;
    const u8 address[6] = {2, 0, 0, 0, 0, 9};
    std::thread commands([&] {
        while (!stop) {
            tarn_ifmgr_ethernet_create("eth7", address, 0, 9007, TARN_IF_TYPE_ETHERNET);
            tarn_ifmgr_set_hwaddr(9007, 6, address);
            if (tarn_if *eth = tarn_ifmgr_lookup_by_index(9007)) {
                if (net_device *device = tarn_if_device_hold(eth)) {
                    EXPECT_STREQ(netdev_name(device), "eth7");
                    dev_put(device);
                }
                tarn_ifmgr_if_ref_put(eth);
                tarn_ifmgr_delete_interface(eth);
            }
        }
    });
    for (u32 round = 0; round < 300; round++) {
        net_device *device = userlevel::netdev_create("eth7");
        std::this_thread::yield();
        unregister_netdev(device);
        free_netdev(device);
    }
    stop = true;
    commands.join();
    userlevel::work_run();
    userlevel::log_keep(true);
    log();
    remember();
}

// A look-up, and the record that keeps its result, are one for who tells of a device that goes.
TEST_F(L3DeviceThreads, of_an_ethernet_interface_is_looked_up_under_rtnl) {
    static std::atomic<bool> looked_up, had_lock;
    looked_up = had_lock = false;
    static constexpr userlevel::netdev_back the_back{.find = [](const char *) -> net_device * {
        looked_up = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_FALSE(had_lock);
        return nullptr;
    }};
    std::thread other([] {
        while (!looked_up)
            std::this_thread::yield();
        rtnl_lock();
        had_lock = true;
        rtnl_unlock();
    });
    userlevel::netdev_use_back(&the_back);
    const u8 address[6] = {2, 0, 0, 0, 0, 9};
    configure([&] {
        EXPECT_EQ(tarn_ifmgr_ethernet_create("eth7", address, 0, 9007, TARN_IF_TYPE_ETHERNET), 0);
    });
    userlevel::netdev_use_back(nullptr);
    other.join();
    EXPECT_TRUE(had_lock);
}

TEST_F(L3Device, of_a_vlan_is_not_that_of_a_routed_port_by_its_name) {
    const u8 address[6] = {2, 0, 0, 0, 0, 9};
    configure([&] {
        EXPECT_EQ(tarn_ifmgr_switchport_create("vlan10", address, 0x1043, 0, 5009, 1), 0);
        userlevel::work_run();
    });
    tarn_if *port = tarn_ifmgr_lookup_by_index(5009), *made = nullptr;
    net_device *device = port->netdev;
    EXPECT_EQ(tarn_ifmgr_vlan_create(nullptr, 0, &made, 10, 0), TARN_ERR_NETDEV);
    EXPECT_EQ(made, nullptr);
    EXPECT_EQ(tarn_ifmgr_lookup_by_vid(10), nullptr);
    EXPECT_EQ(tarn_ifmgr_lookup_by_index(5009), port);
    EXPECT_EQ(port->netdev, device);
    EXPECT_TRUE(is_registered(device));
    EXPECT_EQ(device->references, 0);
    EXPECT_EQ(priv(device)->ifp, port);
    EXPECT_EQ(priv(device)->vid, 0u);
    EXPECT_TRUE(netif_carrier_ok(device));
    tarn_ifmgr_if_ref_put(port);
    tarn_ifmgr_if_ref_put(port);
}

// One that has the VLAN's number besides: the VLAN takes its place, and its device.
TEST_F(L3Device, of_a_routed_port_with_name_and_number_of_a_vlan_becomes_the_vlans) {
    const u8 address[6] = {2, 0, 0, 0, 0, 9};
    configure([&] {
        EXPECT_EQ(tarn_ifmgr_switchport_create("vlan10", address, 0x1043, 0, 310, 1), 0);
        userlevel::work_run();
    });
    EXPECT_EQ(userlevel::proc_read("tarn/vlan10/bridge").result, 0);
    net_device *device = nullptr;
    configure([&] {
        tarn_if *made = nullptr, *port = tarn_ifmgr_lookup_by_index(310);
        device = port->netdev;
        tarn_ifmgr_if_ref_put(port);
        EXPECT_EQ(tarn_ifmgr_vlan_create(nullptr, 0, &made, 10, 0), 0);
        EXPECT_EQ(made->netdev, device);
        EXPECT_EQ(priv(device)->vid, 10u);
    });
    EXPECT_NE(userlevel::proc_read("tarn/vlan10/bridge").result, 0); // of the port that was
}

TEST_F(L3Device, of_a_port_by_the_name_of_a_vlan_leaves_the_vlan_none) {
    const u8 address[6] = {2, 0, 0, 0, 0, 9};
    configure([&] { EXPECT_EQ(tarn_ifmgr_switchport_create("vlan1", address, 0, 0, 5009, 1), 0); });
    EXPECT_EQ(vlan1()->netdev, nullptr);
    configure([&] {
        tarn_if *port = tarn_ifmgr_lookup_by_index(5009);
        tarn_ifmgr_delete_interface(port);
        _tarn_ifmgr_if_put(port);
        userlevel::work_run();
    });
    receive(Frame().padded()); // and nobody looks at the device that went
    EXPECT_EQ(tarn_os_l3_if_flags_set(vlan1(), IFF_UP), -EINVAL);
    log();
}

// The destructor of the last one waits for a context that may sleep when its VLAN comes back.
TEST_F(L3Device, of_a_vlan_that_comes_back_before_its_destructor_ran_is_another) {
    tarn_if *vlan = add_vlan(20);
    configure([&] {
        local_bh_disable();
        tarn_ifmgr_if_ref_get(vlan);
        tarn_ifmgr_delete_interface(vlan);
        _tarn_ifmgr_if_put(vlan);
        local_bh_enable();
        tarn_if *again = nullptr;
        EXPECT_EQ(tarn_ifmgr_vlan_create(nullptr, 0, &again, 20, 0), 0);
        userlevel::work_run();
        EXPECT_TRUE(is_registered(again->netdev));
        EXPECT_EQ(priv(again->netdev)->ifp, again);
    });
}

TEST_F(L3Device, of_somebody_else_is_not_adopted) {
    net_device *foreign = configure([] { return userlevel::netdev_create("port77"); });
    u32 ifindex = netdev_ifindex(foreign);
    EXPECT_EQ(tarn_eth_drv_create_netdevice(&port_, nullptr, 0), nullptr);
    EXPECT_EQ(foreign->references, 0);
    EXPECT_EQ(foreign->ops, nullptr);
    EXPECT_EQ(netdev_ifindex(foreign), ifindex);
    EXPECT_TRUE(netif_carrier_ok(foreign));
}

// --- configuration and its end ------------------------------------------------------------------

TEST_F(L3Device, its_number_is_told_when_asked_for) {
    u32 number = 0;
    configure([&] { vlan_.netdev = tarn_os_l3_if_configure(&vlan_, nullptr, 0, &number); });
    EXPECT_NE(vlan_.netdev, nullptr);
    EXPECT_EQ(number, 377u);
    configure([&] { port_.netdev = tarn_os_l3_if_configure(&port_, nullptr, 0, nullptr); });
    EXPECT_NE(port_.netdev, nullptr);
}

TEST_F(L3Device, that_cannot_be_had_has_no_number) {
    u32 number = 4711;
    userlevel::fail_allocation(1);
    EXPECT_EQ(tarn_os_l3_if_configure(&vlan_, nullptr, 0, &number), nullptr);
    EXPECT_EQ(number, 4711u);
}

struct Seen {
    unsigned long event;
    bool stopped, carrier;
    u32 flags;
    bool operator==(const Seen &) const = default;
};
std::vector<Seen> seen;
const net_device *watched = nullptr;

// Writes down how a device ends.
void watch(const net_device *device) {
    static notifier_block block{
        .notifier_call =
            [](notifier_block *, unsigned long event, void *info) {
                net_device *it = netdev_notifier_info_to_dev(info);
                if (it == watched)
                    seen.push_back({event, it->stopped, netif_carrier_ok(it), it->flags & 1});
                return 0;
            },
        .next = nullptr,
        .priority = 0};
    watched = device;
    register_netdevice_notifier(&block);
}

TEST_F(L3Device, that_is_open_ends_stopped_closed_and_unregistered) {
    vlan_.netdev = tarn_eth_drv_create_netdevice(&vlan_, nullptr, 0);
    EXPECT_EQ(tarn_os_l3_if_flags_set(&vlan_, IFF_UP | IFF_RUNNING), 0);
    EXPECT_TRUE(netif_carrier_ok(vlan_.netdev));
    watch(vlan_.netdev);
    EXPECT_EQ(tarn_os_l3_if_unconfigure(&vlan_), 0);
    EXPECT_THAT(seen, ElementsAre(Seen{NETDEV_DOWN, true, false, 0},
                                  Seen{NETDEV_UNREGISTER, true, false, 0}))
        << "an open device is closed on the way";
    EXPECT_EQ(dev_get_by_name("vlan77"), nullptr);
    userlevel::work_run();
}

TEST_F(L3Device, that_ends_is_its_interfaces_no_more) {
    static tarn_if *owner;
    static bool told;
    static notifier_block block{.notifier_call =
                                    [](notifier_block *, unsigned long event, void *) {
                                        told |= event == NETDEV_UNREGISTER;
                                        EXPECT_EQ(owner->netdev, nullptr);
                                        return 0;
                                    },
                                .next = nullptr,
                                .priority = 0};
    vlan_.netdev = tarn_eth_drv_create_netdevice(&vlan_, nullptr, 0);
    owner = &vlan_;
    register_netdevice_notifier(&block);
    EXPECT_EQ(tarn_os_l3_if_unconfigure(&vlan_), 0);
    EXPECT_TRUE(told);
}

TEST_F(L3Device, that_was_never_opened_ends_stopped_and_unregistered) {
    vlan_.netdev = tarn_eth_drv_create_netdevice(&vlan_, nullptr, 0);
    netif_carrier_on(vlan_.netdev);
    vlan_.netdev->stopped = false;
    watch(vlan_.netdev);
    EXPECT_EQ(tarn_os_l3_if_unconfigure(&vlan_), 0);
    EXPECT_THAT(seen, ElementsAre(Seen{NETDEV_UNREGISTER, true, false, 0}));
    userlevel::work_run();
}

TEST_F(L3Device, of_a_type_that_has_none_is_left_alone) {
    make(vlan_);
    vlan_.type = 1;
    EXPECT_EQ(tarn_os_l3_if_unconfigure(&vlan_), 0);
    EXPECT_TRUE(is_registered(vlan_.netdev));
    vlan_.type = NOT_A_TYPE;
    configure([&] { EXPECT_EQ(tarn_os_l3_if_unconfigure(&vlan_), 0); });
    EXPECT_EQ(dev_get_by_name("vlan77"), nullptr) << "of any other type not";
}

TEST_F(L3Device, that_is_none_can_be_unconfigured) {
    EXPECT_EQ(tarn_os_l3_if_unconfigure(&vlan_), 0);
    EXPECT_EQ(tarn_eth_drv_destroy_netdevice(nullptr), 0);
}

// --- open, close, transmit ----------------------------------------------------------------------

TEST_F(L3Device, opening_clears_the_stop_bit_and_closing_sets_it) {
    net_device *device = make(vlan_);
    EXPECT_EQ(tarn_eth_dev_close(device), 0);
    EXPECT_TRUE(device->stopped);
    EXPECT_EQ(tarn_eth_dev_open(device), 0);
    EXPECT_FALSE(device->stopped);
}

TEST_F(L3Device, what_the_ip_stack_sends_leaves_on_the_vlan_and_wakes_the_queue) {
    net_device *device = vlan1()->netdev;
    device->stopped = true;
    userlevel::netdev_transmit(device, plain(), 5);
    ASSERT_THAT(driver().sent, SizeIs(1));
    EXPECT_EQ(driver().sent[0].vid, 1u);
    EXPECT_EQ(driver().sent[0].ifindex, 0u);
    EXPECT_EQ(driver().sent[0].cos, 5u);
    EXPECT_EQ(driver().sent[0].bytes, plain());
    EXPECT_FALSE(device->stopped);
}

TEST_F(L3Device, the_frame_names_the_device_by_then) {
    net_device *device = vlan1()->netdev;
    driver().hold = true;
    sk_buff *skb = frame();
    EXPECT_EQ(tarn_eth_dev_xmit(skb, device), 0);
    EXPECT_EQ(skb_dev(skb), device);
    fake_driver::release();
}

TEST_F(L3Device, a_frame_that_cannot_be_sent_is_gone_and_no_failure) {
    driver().xmit_result = static_cast<u32>(-ENODEV);
    vlan1()->netdev->stopped = true;
    dropped();
    EXPECT_EQ(tarn_eth_dev_xmit(frame(), vlan1()->netdev), 0);
    EXPECT_EQ(dropped(), 1u);
    EXPECT_FALSE(vlan1()->netdev->stopped);
}

TEST_F(L3Device, a_frame_on_a_device_without_interface_is_dropped_and_reported) {
    net_device *device = make(vlan_);
    priv(device)->ifp = nullptr;
    device->stopped = true;
    dropped();
    EXPECT_EQ(tarn_eth_dev_xmit(frame(), device), -EINVAL);
    EXPECT_EQ(dropped(), 1u);
    EXPECT_TRUE(device->stopped) << "the queue is not woken";
    EXPECT_THAT(driver().sent, IsEmpty());
    char text[128];
    snprintf(text, sizeof(text), "4 Bad ifp (%p) or priv (%p), dropping packet\n",
             static_cast<void *>(nullptr), static_cast<void *>(priv(device)));
    EXPECT_THAT(log(), ElementsAre(text));
    priv(device)->ifp = &vlan_;
}

TEST_F(L3Device, on_the_management_vlan_a_frame_takes_the_way_of_the_stack) {
    features().management_vlan = 1;
    for (u32 slot : {0u, 39u, 9u, 21u, 30u})
        if (packet_redirects[slot]) {
            packet_redirects[slot]->modify_tx = [](tarn_if *, sk_buff *skb) {
                ADD_FAILURE() << "a hook was asked";
                return skb;
            };
            enable_redirect(slot, 1);
        }
    vlan1()->netdev->stopped = true;
    EXPECT_EQ(tarn_eth_dev_xmit(frame(), vlan1()->netdev), 0);
    EXPECT_THAT(driver().sent, IsEmpty());
    ASSERT_THAT(features().stack_sent, SizeIs(1));
    EXPECT_EQ(features().stack_sent[0].bytes, plain());
    EXPECT_EQ(features().stack_sent[0].reserved, 0u);
    EXPECT_FALSE(vlan1()->netdev->stopped);
}

TEST_F(L3Device, on_another_vlan_than_the_management_vlan_it_does_not) {
    features().management_vlan = 2;
    EXPECT_EQ(tarn_eth_dev_xmit(frame(), vlan1()->netdev), 0);
    EXPECT_THAT(driver().sent, SizeIs(1));
    EXPECT_THAT(features().stack_sent, IsEmpty());
}

// The private number counts, not the interface's.
TEST_F(L3Device, a_routed_port_of_that_vid_is_not_the_management_vlan) {
    tarn_if *port = &port_;
    port->vid = 7;
    port->if_flags = TARN_IF_F_L3_SWITCHPORT;
    features().management_vlan = 7;
    EXPECT_EQ(tarn_eth_dev_xmit(frame(), make(*port)), 0);
    EXPECT_THAT(driver().sent, SizeIs(1));
    EXPECT_EQ(driver().sent[0].vid, 7u);
    EXPECT_THAT(features().stack_sent, IsEmpty());
}

// --- counters, multicast, MTU -------------------------------------------------------------------

TEST_F(L3Device, counters_are_the_devices_own) {
    EXPECT_EQ(tarn_eth_dev_get_stats(vlan1()->netdev), netdev_stats(vlan1()->netdev));
    EXPECT_EQ(tarn_eth_dev_get_stats(nullptr), nullptr);
}

TEST_F(L3Device, multicast_filters_are_not_its_business) {
    tarn_eth_dev_set_mc_list(vlan1()->netdev);
    tarn_eth_dev_set_mc_list(nullptr);
}

TEST_F(L3Device, takes_an_mtu_from_64_to_9216) {
    net_device *device = make(port_);
    netdev_set_mtu(device, 1500);
    for (int bad : {63, 9217, 0, -1, 64 - 0x7FFFFFFF}) {
        EXPECT_EQ(tarn_eth_dev_change_mtu(device, bad), -ERANGE) << bad;
        EXPECT_EQ(netdev_mtu(device), 1500u);
    }
    for (int good : {64, 9216, 1500}) {
        EXPECT_EQ(tarn_eth_dev_change_mtu(device, good), 0) << good;
        EXPECT_EQ(netdev_mtu(device), static_cast<u32>(good));
    }
}

// --- address ------------------------------------------------------------------------------------

class L3Address : public L3Device {
protected:
    L3Address() {
        const u8 first[6] = {2, 1, 1, 1, 1, 1};
        device_ = make(vlan_, first, 6);
        memcpy(netdev_perm_addr(device_), first, 6);
    }
    int set(const char *text) {
        netdev_address wanted{.family = netdev_type(device_), .data = {}};
        Mac address = mac(text);
        std::copy(address.begin(), address.end(), wanted.data);
        return tarn_eth_dev_set_mac_addr(device_, &wanted);
    }
    Bytes permanent() { return Bytes(netdev_perm_addr(device_), netdev_perm_addr(device_) + 6); }
    static Bytes bytes(const char *text) {
        Mac address = mac(text);
        return Bytes(address.begin(), address.end());
    }
    net_device *device_;
};

TEST_F(L3Address, an_ordinary_one_is_taken_for_good) {
    for (const char *text : {"02:00:00:00:00:07", "00:00:5e:00:03:01", "00:00:5e:00:00:01",
                             "00:00:5e:01:01:01", "00:01:5e:00:01:01", "00:00:5f:00:01:01",
                             "00:00:5e:00:11:01", "00:00:5e:00:12:01", "02:00:5e:00:01:01"}) {
        EXPECT_EQ(set(text), 0) << text;
        EXPECT_EQ(address_of(device_), bytes(text));
        EXPECT_EQ(permanent(), bytes(text)) << text;
    }
    EXPECT_EQ(preempt_count(), 0u);
}

TEST_F(L3Address, a_virtual_router_address_leaves_the_permanent_one) {
    for (const char *text :
         {"00:00:5e:00:01:01", "00:00:5e:00:02:01", "00:00:5e:00:01:ff", "00:00:5e:00:02:00"}) {
        EXPECT_EQ(set(text), 0) << text;
        EXPECT_EQ(address_of(device_), bytes(text));
        EXPECT_EQ(permanent(), bytes("02:01:01:01:01:01"));
    }
}

TEST_F(L3Address, of_a_group_or_zero_is_refused) {
    for (const char *text :
         {"00:00:00:00:00:00", "01:00:5e:00:00:01", "ff:ff:ff:ff:ff:ff", "03:00:00:00:00:01"}) {
        EXPECT_EQ(set(text), -EADDRNOTAVAIL) << text;
        EXPECT_EQ(address_of(device_), bytes("02:01:01:01:01:01"));
        EXPECT_EQ(permanent(), bytes("02:01:01:01:01:01"));
    }
}

TEST_F(L3Address, is_set_through_the_device) {
    const u8 wanted[6] = {2, 5, 5, 5, 5, 5};
    EXPECT_EQ(tarn_os_l3_if_hwaddr_set(&vlan_, 6, wanted), 0);
    EXPECT_EQ(address_of(device_), Bytes(wanted, wanted + 6));
    const u8 group[6] = {3, 5, 5, 5, 5, 5};
    EXPECT_EQ(tarn_os_l3_if_hwaddr_set(&vlan_, 6, group), -EADDRNOTAVAIL)
        << "what the device answers";
    const u8 more[20] = {2, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6};
    EXPECT_EQ(tarn_os_l3_if_hwaddr_set(&vlan_, 20, more), 0) << "and not past its record";
    EXPECT_EQ(address_of(device_), Bytes(more, more + 6));
    EXPECT_EQ(tarn_os_l3_if_hwaddr_set(&vlan_, 3, wanted), 0);
    EXPECT_EQ(address_of(device_), (Bytes{2, 5, 5, 0, 0, 0}));
}

int told_family = -1;

TEST_F(L3Address, is_asked_for_with_the_family_of_the_device_under_the_rtnl_lock) {
    static const netdev_ops asking{
        .set_mac_address = [](net_device *, const netdev_address *address) {
            told_family = address->family;
            return -7;
        }};
    const u8 wanted[6] = {2, 5, 5, 5, 5, 5};
    device_->ops = &asking;
    device_->type = 24;
    EXPECT_EQ(tarn_os_l3_if_hwaddr_set(&vlan_, 6, wanted), -7);
    EXPECT_EQ(told_family, 24);
    rtnl_lock(); // would stop here, were it still held
    rtnl_unlock();
}

TEST_F(L3Address, without_a_device_that_takes_one_cannot_be_set) {
    const u8 wanted[6] = {2, 5, 5, 5, 5, 5};
    static const netdev_ops without{};
    device_->ops = &without;
    EXPECT_EQ(tarn_os_l3_if_hwaddr_set(&vlan_, 6, wanted), -EINVAL);
    EXPECT_EQ(tarn_os_l3_if_hwaddr_set(&port_, 6, wanted), -EINVAL);
}

TEST_F(L3Address, of_a_device_of_somebody_else_is_set_too) {
    net_device *foreign = configure([] { return userlevel::netdev_create("eth7"); });
    tarn_if *ethernet = add_ethernet("eth7", 7);
    const u8 wanted[6] = {2, 5, 5, 5, 5, 5};
    EXPECT_EQ(tarn_ifmgr_set_hwaddr(7, 6, wanted), 0);
    EXPECT_EQ(address_of(foreign), Bytes(wanted, wanted + 6));
    EXPECT_EQ(Bytes(ethernet->hwaddr, ethernet->hwaddr + 6), Bytes(wanted, wanted + 6));
}

// --- time stamps --------------------------------------------------------------------------------

class TimeStamps : public L3Device {
protected:
    static constexpr int SET = 0x89B0, GET = 0x89B1;
    struct Config {
        i32 flags, tx_type, rx_filter;
        bool operator==(const Config &) const = default;
    };
    TimeStamps() { device_ = make(port_); }
    int request(int command, Config *config) {
        ifreq request{.name = {}, .data = config};
        return tarn_eth_do_ioctl(device_, &request, command);
    }
    net_device *device_;
};

TEST_F(TimeStamps, are_answered_and_nothing_is_programmed) {
    struct Row {
        Config config;
        int result;
        Config after;
    };
    for (const Row &row :
         {Row{{0, 0, 0}, 0, {0, 0, 0}}, Row{{0, 1, 0}, 0, {0, 1, 0}}, Row{{0, 1, 1}, 0, {0, 1, 12}},
          Row{{0, 0, 12}, 0, {0, 0, 12}}, Row{{0, 0, 14}, 0, {0, 0, 12}},
          Row{{7, 1, 14}, 0, {7, 1, 12}}, Row{{0, 2, 0}, -ERANGE, {0, 2, 0}},
          Row{{0, -1, 0}, -ERANGE, {0, -1, 0}}, Row{{0, 0, 15}, -ERANGE, {0, 0, 15}},
          Row{{0, 0, -1}, -ERANGE, {0, 0, -1}}}) {
        Config config = row.config;
        EXPECT_EQ(request(SET, &config), row.result)
            << row.config.tx_type << " " << row.config.rx_filter;
        EXPECT_EQ(config, row.after);
    }
}

TEST_F(TimeStamps, on_unreadable_memory_are_a_fault) {
    EXPECT_EQ(request(SET, nullptr), -EFAULT);
    EXPECT_EQ(request(GET, nullptr), -EFAULT);
}

TEST_F(TimeStamps, on_memory_that_cannot_be_written_are_a_fault_when_they_are_set) {
    features().user_memory_read_only = true;
    Config config{0, 1, 1};
    EXPECT_EQ(request(SET, &config), -EFAULT);
    config.tx_type = 2;
    EXPECT_EQ(request(SET, &config), -ERANGE) << "which is found first";
    EXPECT_EQ(request(GET, &config), 0) << "nothing is written";
    log();
}

TEST_F(TimeStamps, without_an_interface_cannot_be_set_but_asked_for) {
    priv(device_)->ifp = nullptr;
    Config config{0, 1, 1};
    EXPECT_EQ(request(SET, &config), -ENODEV);
    EXPECT_EQ(request(SET, nullptr), -ENODEV) << "before the memory is read";
    EXPECT_EQ(request(GET, &config), 0);
    log();
    priv(device_)->ifp = &port_;
}

TEST_F(TimeStamps, are_not_told_and_the_log_says_so) {
    Config config{0, 9, 99};
    EXPECT_EQ(request(GET, &config), 0);
    EXPECT_EQ(config, (Config{0, 9, 99}));
    EXPECT_THAT(log(), ElementsAre("6 tarn_eth_hwtstamp_get:241 Ignored IOCTL command "
                                   "SIOCGHWTSTAMP\n"));
    config.flags = 1;
    EXPECT_EQ(request(GET, &config), -EOPNOTSUPP);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(TimeStamps, are_all_that_a_device_can_be_asked) {
    Config config{0, 0, 0};
    for (int command : {0x89AF, 0x89B2, 0x8914, 0, -1})
        EXPECT_EQ(request(command, &config), -EOPNOTSUPP);
}

TEST_F(TimeStamps, are_made_in_software) {
    ethtool_ts info{.so_timestamping = 0, .phc_index = 5};
    EXPECT_EQ(tarn_eth_port_ethtool_ops.get_ts_info(device_, &info), 0);
    EXPECT_EQ(info.so_timestamping, 95u);
    EXPECT_EQ(info.phc_index, -1);
}

TEST_F(L3Device, tells_the_link_of_its_port) {
    net_device *device = make(port_);
    struct Row {
        u32 speed;
        u8 duplex;
        u32 told;
    };
    for (Row row : {Row{0, 0, 10000}, Row{0, 1, 10000}, Row{100, 1, 100}, Row{40000, 0, 40000}}) {
        port_.speed = row.speed;
        port_.duplex = row.duplex;
        ethtool_link link{.speed = 1, .duplex = 9, .port = 9, .autoneg = 9};
        EXPECT_EQ(tarn_eth_port_ethtool_ops.get_link_ksettings(device, &link), 0);
        EXPECT_EQ(link.speed, row.told);
        EXPECT_EQ(link.duplex, row.duplex);
        EXPECT_EQ(link.port, 0);
        EXPECT_EQ(link.autoneg, 0);
    }
}

TEST_F(L3Device, without_an_interface_tells_a_default_link) {
    net_device *device = make(port_);
    priv(device)->ifp = nullptr;
    ethtool_link link{.speed = 1, .duplex = 9, .port = 9, .autoneg = 9};
    EXPECT_EQ(tarn_ethtool_get_link_ksettings(device, &link), 0);
    EXPECT_EQ(link.speed, 10000u);
    EXPECT_EQ(link.duplex, 0);
    priv(device)->ifp = &port_;
}

// --- addresses of the IP stack ------------------------------------------------------------------

class L3Queries : public L3Device {
protected:
    static constexpr u32 ip(u32 a, u32 b, u32 c, u32 d) {
        return cpu_to_be32(a << 24 | b << 16 | c << 8 | d);
    }
    L3Queries() { device_ = make(vlan_); }
    userlevel::netdev_record &stack() { return userlevel::netdev_recorded(device_); }
    net_device *device_;
};

TEST_F(L3Queries, an_interface_without_addresses_has_none) {
    const u8 any[16] = {};
    EXPECT_EQ(tarn_eth_has_ipv4_address(&vlan_), 0u);
    EXPECT_EQ(tarn_eth_has_ipv6_address(&vlan_), 0u);
    EXPECT_EQ(tarn_eth_subnet_match(0, &vlan_), 0u);
    EXPECT_EQ(tarn_eth_addr_same(0, &vlan_), 0u);
    EXPECT_EQ(tarn_eth_subnet6_match(any, &vlan_), 0u);
}

TEST_F(L3Queries, an_ipv4_address_is_found_and_so_is_its_subnet) {
    stack().ipv4 = {{ip(10, 0, 0, 1), ip(255, 0, 0, 0)}, {ip(192, 0, 2, 9), ip(255, 255, 255, 0)}};
    EXPECT_EQ(tarn_eth_has_ipv4_address(&vlan_), 1u);
    EXPECT_EQ(tarn_eth_addr_same(ip(192, 0, 2, 9), &vlan_), 1u);
    EXPECT_EQ(tarn_eth_addr_same(ip(10, 0, 0, 1), &vlan_), 1u);
    EXPECT_EQ(tarn_eth_addr_same(ip(192, 0, 2, 8), &vlan_), 0u);
    EXPECT_EQ(tarn_eth_subnet_match(ip(192, 0, 2, 255), &vlan_), 1u);
    EXPECT_EQ(tarn_eth_subnet_match(ip(10, 255, 255, 255), &vlan_), 1u);
    EXPECT_EQ(tarn_eth_subnet_match(ip(192, 0, 3, 9), &vlan_), 0u);
    EXPECT_EQ(tarn_eth_has_ipv6_address(&vlan_), 0u);
}

TEST_F(L3Queries, a_subnet_of_all_takes_any_address) {
    stack().ipv4 = {{ip(10, 0, 0, 1), 0}};
    EXPECT_EQ(tarn_eth_subnet_match(ip(203, 0, 113, 5), &vlan_), 1u);
    stack().ipv4 = {{ip(10, 0, 0, 1), 0xFFFFFFFF}};
    EXPECT_EQ(tarn_eth_subnet_match(ip(10, 0, 0, 2), &vlan_), 0u);
    EXPECT_EQ(tarn_eth_subnet_match(ip(10, 0, 0, 1), &vlan_), 1u);
}

TEST_F(L3Queries, an_ipv6_record_counts_as_an_address) {
    stack().ipv6 = true;
    EXPECT_EQ(tarn_eth_has_ipv6_address(&vlan_), 1u);
    EXPECT_EQ(tarn_eth_has_ipv4_address(&vlan_), 0u);
}

TEST_F(L3Queries, an_ipv6_prefix_covers_its_addresses) {
    stack().prefixes = {{{0x20, 0x01, 0x0D, 0xB8}, 32}};
    const u8 inside[16] = {0x20, 0x01, 0x0D, 0xB8, 1}, outside[16] = {0x20, 0x01, 0x0D, 0xB9, 1};
    EXPECT_EQ(tarn_eth_subnet6_match(inside, &vlan_), 1u);
    EXPECT_EQ(tarn_eth_subnet6_match(outside, &vlan_), 0u);
}

TEST_F(L3Queries, an_interface_that_is_none_or_not_layer_3_or_has_no_device_has_no_address) {
    stack().ipv4 = {{ip(10, 0, 0, 1), 0}};
    stack().ipv6 = true;
    stack().prefixes = {{{}, 0}};
    const u8 any[16] = {};
    Interface port(TARN_IF_TYPE_SWITCHPORT, "vlan77", 1), empty(TARN_IF_TYPE_VLAN, "none", 1);
    port.netdev = device_;
    for (const tarn_if *ifp : {static_cast<tarn_if *>(&port), static_cast<tarn_if *>(&empty),
                               static_cast<tarn_if *>(nullptr)}) {
        EXPECT_EQ(tarn_eth_has_ipv4_address(ifp), 0u);
        EXPECT_EQ(tarn_eth_has_ipv6_address(ifp), 0u);
        EXPECT_EQ(tarn_eth_subnet_match(ip(10, 0, 0, 1), ifp), 0u);
        EXPECT_EQ(tarn_eth_addr_same(ip(10, 0, 0, 1), ifp), 0u);
        EXPECT_EQ(tarn_eth_subnet6_match(any, ifp), 0u);
    }
    Interface ethernet(TARN_IF_TYPE_ETHERNET, "vlan77", 1);
    ethernet.netdev = device_;
    port.if_flags = TARN_IF_F_L3_SWITCHPORT;
    for (const tarn_if *ifp : {static_cast<tarn_if *>(&port), static_cast<tarn_if *>(&ethernet)}) {
        EXPECT_EQ(tarn_eth_has_ipv4_address(ifp), 1u);
        EXPECT_EQ(tarn_eth_has_ipv6_address(ifp), 1u);
        EXPECT_EQ(tarn_eth_subnet_match(ip(10, 0, 0, 1), ifp), 1u);
        EXPECT_EQ(tarn_eth_addr_same(ip(10, 0, 0, 1), ifp), 1u);
        EXPECT_EQ(tarn_eth_subnet6_match(any, ifp), 1u);
    }
}

} // namespace
