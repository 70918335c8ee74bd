#include "vlan/pvlan_debug.h"

// Kept and printed; takes effect with private VLANs.
constinit u32 tarn_pkt_pvlan_primary_debug = 0;
