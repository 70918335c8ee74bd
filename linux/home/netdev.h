#pragma once

#include "home/field.h"

// The low word, whatever the width of the field: both targets are little-endian.
inline u32 netdev_priv_flags(const net_device *device) {
    return home::field<u32>(device, TARN_NETDEV_PRIV_FLAGS);
}
