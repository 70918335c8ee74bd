// The device that has an interface's name. Names of devices are terminated: that of an interface
// which fills all its bytes is cut.
#pragma once

#include "ifmgr/tarn_if.h"
#include "kernel/bytes.h"
#include "kernel/netdev.h"

struct tarn_if_device_name {
    char text[NETDEV_NAME_SIZE];

    explicit tarn_if_device_name(const tarn_if *ifp) {
        snprintf(text, sizeof(text), "%.15s", ifp->name);
    }
};

// With a reference, or null.
inline net_device *tarn_if_device_get(const tarn_if *ifp) {
    return dev_get_by_name(tarn_if_device_name(ifp).text);
}
