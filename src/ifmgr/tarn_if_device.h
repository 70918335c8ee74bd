// The device of an interface, and the one that has its name.
//
// A device may be unregistered at any time. Whoever uses the `netdev` of an interface has a
// reference on it, or RTNL, or bottom halves off, for which its end waits; or, but for an Ethernet
// interface, is inside a change (tarn_ifmgr_change.h).
//
// Names of devices are terminated: that of an interface which fills all its bytes is cut.
#pragma once

#include "ifmgr/tarn_if.h"
#include "kernel/bytes.h"
#include "kernel/netdev.h"
#include "kernel/once.h"
#include "kernel/preempt.h"

// Calls with the device of the interface, or null, which stays meanwhile: nothing in the call may
// sleep.
template <typename Call>
auto tarn_if_with_device(const tarn_if *ifp, Call call) {
    local_bh_disable();
    auto result = call(read_once(ifp->netdev));
    local_bh_enable();
    return result;
}

// The device of the interface with a reference, or null.
inline net_device *tarn_if_device_hold(const tarn_if *ifp) {
    return tarn_if_with_device(ifp, [](net_device *device) {
        if (device)
            dev_hold(device);
        return device;
    });
}

struct tarn_if_device_name {
    char text[NETDEV_NAME_SIZE];

    explicit tarn_if_device_name(const tarn_if *ifp) {
        snprintf(text, sizeof(text), "%.15s", ifp->name);
    }
};

// The device of that name with a reference, or null.
inline net_device *tarn_if_device_get(const tarn_if *ifp) {
    return dev_get_by_name(tarn_if_device_name(ifp).text);
}
