// The flags of layer 3 interfaces: every combination of what they depend on, against the rules
// said once more in other words.
#include "support/transmit_test.h"

#include "ifmgr/tarn_ifmgr_create.h"
#include "kernel/netdev.h"
#include "pkt/pkt_l3dev.h"

#include <cstring>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

constexpr u32 UP = IFF_UP, RUNNING = IFF_RUNNING;
constexpr u32 OTHER = IFF_BROADCAST; // a flag without any meaning here
constexpr u64 VLAN_FEATURE = u64{1} << 59;
constexpr u8 OPERSTATE_BEFORE = 3;

// One row of inputs. The interface is in no database, so nothing but the call changes it.
struct Row {
    bool always_up, is_vlan, was_up, was_running, device_up, carrier;
    u32 flags; // the argument

    static Row of(u32 bits) {
        Row row{};
        row.always_up = bits & 1;
        row.is_vlan = bits & 2;
        row.was_up = bits & 4;
        row.was_running = bits & 8;
        row.device_up = bits & 16;
        row.carrier = bits & 32;
        row.flags = (bits & 64 ? UP : 0) | (bits & 128 ? RUNNING : 0) | (bits & 256 ? OTHER : 0);
        return row;
    }
    static constexpr u32 ROWS = 512;

    u32 was() const { return (was_up ? UP : 0) | (was_running ? RUNNING : 0); }
};

std::ostream &operator<<(std::ostream &out, const Row &row) {
    return out << "always up " << row.always_up << ", vlan " << row.is_vlan << ", interface "
               << row.was() << ", device up " << row.device_up << ", carrier " << row.carrier
               << ", argument " << row.flags;
}

class L3Flags : public TransmitTest {
protected:
    L3Flags() {
        configure([&] {
            ifp_.type = TARN_IF_TYPE_VLAN;
            ifp_.vid = 77;
            strcpy(ifp_.name, "vlan77");
            ifp_.netdev = tarn_os_l3_if_configure(&ifp_, nullptr, 0, nullptr);
        });
    }

    void arrange(const Row &row) {
        net_device *device = ifp_.netdev;
        ifp_.type = row.is_vlan ? TARN_IF_TYPE_VLAN : TARN_IF_TYPE_SWITCHPORT;
        ifp_.if_flags = row.always_up ? TARN_IF_F_ALWAYS_UP : 0;
        ifp_.flags = row.was();
        device->flags = IFF_MULTICAST | (row.device_up ? UP : 0);
        device->features = 0;
        device->carrier = row.carrier;
        device->operstate = OPERSTATE_BEFORE;
    }

    // The device's own flags, RUNNING not among them: that one follows carrier and state.
    u32 device_flags() { return netdev_flags(ifp_.netdev); }
    bool carrier() { return netif_carrier_ok(ifp_.netdev); }
    u8 operstate() { return ifp_.netdev->operstate; }

    tarn_if ifp_{};
};

TEST_F(L3Flags, are_set_by_the_rules_in_every_combination) {
    for (u32 bits = 0; bits < Row::ROWS; bits++) {
        Row row = Row::of(bits);
        SCOPED_TRACE(row);
        arrange(row);
        EXPECT_EQ(tarn_os_l3_if_flags_set(&ifp_, row.flags), 0);

        u32 added = row.flags;
        bool starts;
        if (row.always_up) {
            bool up = (row.flags & UP) || row.was_up;
            starts = up || (row.flags & RUNNING);
            if (up)
                added |= RUNNING;
        } else {
            starts = (row.flags & RUNNING) || ((row.flags & UP) && row.was_running);
        }
        EXPECT_EQ(carrier(), starts || row.carrier);
        EXPECT_EQ(operstate(), starts ? IF_OPER_UP : OPERSTATE_BEFORE);
        EXPECT_EQ(ifp_.flags, row.was() | added);
        EXPECT_EQ(device_flags(), (IFF_MULTICAST | (row.device_up ? UP : 0) | added) & ~RUNNING);
        EXPECT_EQ(ifp_.netdev->features, row.is_vlan ? VLAN_FEATURE : 0u);
    }
    userlevel::work_run();
}

TEST_F(L3Flags, are_unset_by_the_rules_in_every_combination) {
    for (u32 bits = 0; bits < Row::ROWS; bits++) {
        Row row = Row::of(bits);
        SCOPED_TRACE(row);
        arrange(row);
        EXPECT_EQ(tarn_os_l3_if_flags_unset(&ifp_, row.flags), 0);

        u32 removed = row.flags;
        if (row.always_up && (row.flags & UP))
            removed |= RUNNING;
        else if (row.always_up && row.was_up)
            removed &= ~RUNNING;
        bool stops = (row.always_up && (row.flags & UP)) ||
                     ((row.flags & RUNNING) && !row.always_up) ||
                     (row.always_up && !(row.flags & UP) && (row.flags & RUNNING) && !row.was_up);
        EXPECT_EQ(carrier(), row.carrier && !stops);
        EXPECT_EQ(operstate(), OPERSTATE_BEFORE);
        EXPECT_EQ(ifp_.flags, row.was() & ~removed);
        EXPECT_EQ(device_flags(), (IFF_MULTICAST | (row.device_up ? UP : 0)) & ~removed);
        EXPECT_EQ(ifp_.netdev->features, 0u);
    }
    userlevel::work_run();
}

TEST_F(L3Flags, unsetting_running_leaves_an_always_up_interface_its_carrier_while_it_is_up) {
    arrange({.always_up = true, .was_up = true, .was_running = true, .carrier = true});
    EXPECT_EQ(tarn_os_l3_if_flags_unset(&ifp_, RUNNING), 0);
    EXPECT_TRUE(carrier());
    EXPECT_EQ(ifp_.flags, UP | RUNNING);
}

TEST_F(L3Flags, without_a_device_cannot_be_changed) {
    ifp_.flags = UP;
    net_device *device = std::exchange(ifp_.netdev, nullptr);
    EXPECT_EQ(tarn_os_l3_if_flags_set(&ifp_, RUNNING), -EINVAL);
    EXPECT_EQ(tarn_os_l3_if_flags_unset(&ifp_, UP), -EINVAL);
    EXPECT_EQ(ifp_.flags, UP);
    ifp_.netdev = device;
}

TEST_F(L3Flags, of_a_device_that_nobody_knows_by_name_are_unset_on_the_interface_alone) {
    net_device *device = std::exchange(ifp_.netdev, alloc_etherdev_mqs(0, 1, 1));
    netdev_set_name(ifp_.netdev, "nobody");
    ifp_.flags = UP | RUNNING;
    EXPECT_EQ(tarn_os_l3_if_flags_unset(&ifp_, UP), -ENODEV);
    EXPECT_EQ(ifp_.flags, RUNNING);
    free_netdev(std::exchange(ifp_.netdev, device));
}

TEST_F(L3Flags, setting_up_opens_the_device_and_unsetting_closes_it) {
    arrange({});
    EXPECT_EQ(tarn_os_l3_if_flags_set(&ifp_, UP), 0);
    EXPECT_TRUE(ifp_.netdev->opened);
    EXPECT_EQ(tarn_os_l3_if_flags_unset(&ifp_, UP), 0);
    EXPECT_FALSE(ifp_.netdev->opened);
}

TEST_F(L3Flags, a_device_that_does_not_open_is_no_failure_to_set_them) {
    static const netdev_ops stuck{
        .open = [](net_device *) { return -5; },
        .stop = [](net_device *) { return -6; },
    };
    const netdev_ops *ops = ifp_.netdev->ops;
    ifp_.netdev->ops = &stuck;
    arrange({});
    EXPECT_EQ(tarn_os_l3_if_flags_set(&ifp_, UP), 0);
    EXPECT_EQ(ifp_.flags, UP);
    EXPECT_EQ(device_flags() & UP, 0u);
    arrange({.was_up = true, .device_up = true});
    EXPECT_EQ(tarn_os_l3_if_flags_unset(&ifp_, UP), -6) << "but one that does not close is";
    ifp_.netdev->ops = ops;
}

} // namespace
