// Subscribers, and events of devices.
#include "support/graph_test.h"

#include "ifmgr/tarn_ifmgr_event.h"
#include "module/tarn_module.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr unsigned long CHANGE_MTU = 7;

class Event : public GraphTest {
protected:
    // An event of a device of that ifindex, as the chain of the kernel gives it.
    int event(net_device *device, unsigned long what) {
        struct {
            net_device *device;
        } info{device};
        return tarn_ifmgr_device_event(&tarn_ifmgr_device_notifier, what, &info);
    }
};

// --- subscribers
// -----------------------------------------------------------------------------------

std::vector<u32> told, told_second;
void subscriber(u32 vid) {
    told.push_back(vid);
}
void second(u32 vid) {
    told_second.push_back(vid);
}

// The database alone: no start has subscribed.
TEST(Subscribers, there_is_one_and_it_stays) {
    ASSERT_EQ(tarn_ifmgr_notifications_register(subscriber), 0);
    userlevel::log_take();
    EXPECT_EQ(tarn_ifmgr_notifications_register(second), -EINVAL);
    auto lines = userlevel::log_take();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, 3);
    EXPECT_EQ(lines[0].text, "Too many interface manager subscribers\n");
    EXPECT_EQ(tarn_ifmgr_notifications_register(subscriber), -EINVAL); // nor itself again
    userlevel::log_take();
    tarn_ifmgr_notify_vlan_created(10);
    tarn_ifmgr_notify_vlan_created(65535);
    EXPECT_THAT(told, ElementsAre(10, 65535));
    EXPECT_THAT(told_second, IsEmpty());
}

TEST(Subscribers, there_need_be_none) {
    tarn_ifmgr_notify_vlan_created(10);
}

// --- devices
// ---------------------------------------------------------------------------------------

TEST_F(Event, the_notifier_is_plain) {
    EXPECT_EQ(tarn_ifmgr_device_notifier.notifier_call, tarn_ifmgr_device_event);
    EXPECT_EQ(tarn_ifmgr_device_notifier.priority, 0);
    EXPECT_EQ(register_netdevice_notifier(&tarn_ifmgr_device_notifier), -EEXIST); // by the start
}

TEST_F(Event, the_flags_of_a_vlan_follow_its_device) {
    tarn_if *v10 = vlan(10);
    for (unsigned long what : {NETDEV_UP, NETDEV_DOWN, NETDEV_CHANGE}) {
        v10->flags = 0;
        userlevel::netdev_send_event(v10->netdev, what);
        EXPECT_EQ(v10->flags, dev_get_flags(v10->netdev)) << what;
        EXPECT_NE(v10->flags, 0u);
    }
    EXPECT_EQ(refcount_read(&v10->refcnt), 1);
}

TEST_F(Event, the_flags_of_an_ethernet_interface_follow_the_device_of_its_ifindex) {
    net_device *device = configure([] { return userlevel::netdev_create("eth9"); });
    tarn_if *eth = ethernet(netdev_ifindex(device), "eth9");
    dev_change_flags(device, 0x1003);
    EXPECT_EQ(eth->flags, 0x11043u); // with RUNNING and LOWER_UP, as the kernel sees it
    dev_change_flags(device, 0x1002);
    EXPECT_EQ(eth->flags, 0x1002u);
}

TEST_F(Event, other_events_change_nothing) {
    tarn_if *v10 = vlan(10);
    v10->flags = 0x5A;
    for (unsigned long what : {0ul, 3ul, 5ul, CHANGE_MTU, 8ul, 0x100000001ul}) {
        EXPECT_EQ(event(v10->netdev, what), NOTIFY_DONE);
        EXPECT_EQ(v10->flags, 0x5Au) << what;
    }
}

TEST_F(Event, the_flags_of_a_routed_port_are_what_the_daemon_says) {
    tarn_if *port = port_with(77, LINK, 1);
    tarn_ifmgr_l3_switchport_set(77, 9);
    port->flags = 0x1234;
    for (unsigned long what : {NETDEV_UP, NETDEV_DOWN, NETDEV_CHANGE}) {
        EXPECT_EQ(event(port->netdev, what), NOTIFY_DONE);
        EXPECT_EQ(port->flags, 0x1234u);
    }
    port->flags = LINK;
}

TEST_F(Event, a_device_without_a_record_is_nobodys) {
    net_device *device = configure([] { return userlevel::netdev_create("eth9"); });
    for (unsigned long what : {NETDEV_UP, NETDEV_DOWN, NETDEV_CHANGE, NETDEV_UNREGISTER})
        EXPECT_EQ(event(device, what), NOTIFY_DONE);
    EXPECT_EQ(device->references, 0);
}

TEST_F(Event, a_deleted_record_is_not_found) {
    tarn_if *v10 = vlan(10);
    v10->flags = 0x5A;
    v10->if_flags |= TARN_IF_F_DELETED;
    EXPECT_EQ(event(v10->netdev, NETDEV_UP), NOTIFY_DONE);
    EXPECT_EQ(v10->flags, 0x5Au);
    v10->if_flags &= ~TARN_IF_F_DELETED;
}

TEST_F(Event, an_event_counts_nothing) {
    tarn_if *v10 = vlan(10), *port = port_with(77, LINK);
    bind(v10, port);
    v10->oper_count = 7;
    EXPECT_EQ(event(v10->netdev, NETDEV_DOWN), NOTIFY_DONE);
    EXPECT_EQ(v10->oper_count, 7);
    EXPECT_THAT(waiting(), IsEmpty());
    v10->oper_count = 1;
}

TEST_F(Event, a_change_of_the_modules_own_comes_back_as_an_event) {
    tarn_if *v10 = vlan(10);
    tarn_os_l3_if_flags_set(v10, 0x41);
    EXPECT_EQ(v10->flags, dev_get_flags(v10->netdev));
    EXPECT_EQ(v10->flags & 0x41, 0x41u);
}

// The event comes with the RTNL lock held, so the end of the record waits.
TEST_F(Event, a_record_that_ends_with_an_event_is_torn_down_outside_of_it) {
    tarn_if *v10 = vlan(10);
    net_device *device = v10->netdev;
    seams::ifmgr().before_lookup = nullptr;
    auto calls = seams::calls_of([&] {
        rtnl_lock();
        tarn_if *found = tarn_ifmgr_lookup_by_index(310);
        tarn_ifmgr_delete_interface(found);
        tarn_ifmgr_if_ref_put_later(found);
        event(device, NETDEV_DOWN);
        rtnl_unlock();
    });
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_THAT(seams::calls_of([&] { settle(); }), ElementsAre("unconfigure vlan10"));
    remember();
}

TEST_F(Event, an_ethernet_interface_lets_go_of_a_device_that_goes) {
    net_device *device = configure([] { return userlevel::netdev_create("eth9"); });
    tarn_if *eth = ethernet(netdev_ifindex(device), "eth9", 0x3);
    tarn_if *other = ethernet(9000, "eth9", 0x3); // of another number, by name
    EXPECT_EQ(device->references, 2);
    EXPECT_EQ(event(device, NETDEV_UNREGISTER), NOTIFY_DONE);
    EXPECT_EQ(device->references, 0);
    EXPECT_EQ(eth->netdev, nullptr);
    EXPECT_EQ(other->netdev, nullptr);
    EXPECT_EQ(eth->flags, 0x3u);
    remove(eth);
    EXPECT_THAT(log(), ElementsAre("3 netdevice for eth9 not found\n"));
    EXPECT_EQ(event(device, NETDEV_UNREGISTER), NOTIFY_DONE); // nobody is left
    EXPECT_EQ(device->references, 0);
}

TEST_F(Event, the_device_of_a_vlan_goes_with_its_record_alone) {
    tarn_if *v10 = vlan(10);
    net_device *device = v10->netdev;
    EXPECT_EQ(event(device, NETDEV_UNREGISTER), NOTIFY_DONE);
    EXPECT_EQ(v10->netdev, device);
    EXPECT_EQ(device->references, 0);
}

TEST(EventBeforeStart, finds_nobody) {
    net_device *device = userlevel::netdev_create("eth9");
    struct {
        net_device *device;
    } info{device};
    for (unsigned long what : {NETDEV_UP, NETDEV_UNREGISTER})
        EXPECT_EQ(tarn_ifmgr_device_event(nullptr, what, &info), NOTIFY_DONE);
}

} // namespace
