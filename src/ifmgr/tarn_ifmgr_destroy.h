// What a record is torn down by when its last reference goes, by type. Process context.
#pragma once

#include "ifmgr/tarn_if.h"

i32 tarn_ifmgr_eth_if_destructor(tarn_if *ifp);
i32 tarn_ifmgr_l2_if_destructor(tarn_if *ifp);
i32 tarn_ifmgr_vlan_if_destructor(tarn_if *ifp);

// Drops the device of an Ethernet interface, once: false when there is none.
bool tarn_ifmgr_eth_device_put(tarn_if *ifp);

// Takes a record that somebody still holds out of everything that names it, for another record to
// take its place: torn down now, and nothing is left to do when its holders let go. keeps_device:
// the device is the new record's, and nothing is said.
void tarn_ifmgr_if_retire(tarn_if *ifp, bool keeps_device);
