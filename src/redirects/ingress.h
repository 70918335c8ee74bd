// Where a frame came in, as others are told.
#pragma once

#include "ifmgr/tarn_ifmgr.h"
#include "kernel/once.h"

// A dynamic aggregator speaks for its ports, any other port for itself.
inline u32 ingress_ifindex(tarn_if *port) {
    const tarn_if *logical = tarn_ifmgr_logical_port(port);
    return read_once(logical->if_flags) & TARN_IF_F_AGG_DYNAMIC ? logical->ifindex : port->ifindex;
}
