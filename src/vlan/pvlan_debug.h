// The debug word of private VLANs.
#pragma once

#include "kernel/types.h"

extern u32 tarn_pkt_pvlan_primary_debug;
