// What a record is torn down by when its last reference goes, by type. Process context.
#pragma once

#include "ifmgr/tarn_if.h"

i32 tarn_ifmgr_eth_if_destructor(tarn_if *ifp);
i32 tarn_ifmgr_l2_if_destructor(tarn_if *ifp);
i32 tarn_ifmgr_vlan_if_destructor(tarn_if *ifp);

// Takes a VLAN that is still live out of everything that names it, for another record to take its
// place and its device. Its holders keep it; nothing is torn down when they let go.
void tarn_ifmgr_vlan_if_retire(tarn_if *ifp);
