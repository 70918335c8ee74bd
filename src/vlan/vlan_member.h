// VLAN membership of ports, as the control daemon sets it.
//
// A membership is a bit in the port's bitmap, which the receive path reads, and a binding in the
// graph between the VLAN and the port (or its aggregator), which the software flood walks. The
// calls here keep the two in step. Ports are of type 3: switch ports and aggregators. Bulk forms
// walk VIDs 1 to 4094 of a bitmap of 128 words, bit vid & 31 of word vid >> 5, read where it lies.
//
// Results are 0 or -EINVAL: an unknown interface, one of another type, a VID above 4095.
#pragma once

#include "ifmgr/tarn_if.h"

// Memberships added since the start, also those that were there.
extern u32 vlan_port_adds;

i32 tarn_vlan_add_vlan_to_port(u32 ifindex, u32 vid, u32 tagged);
i32 tarn_vlan_add_vlan_to_port_bulk(u32 ifindex, const u32 *bitmap, u32 tagged);
i32 tarn_vlan_delete_vlan_from_port(u32 ifindex, u32 vid);
// 0 for an unknown interface, on purpose unlike its single form.
i32 tarn_vlan_delete_vlan_from_port_bulk(u32 ifindex, const u32 *bitmap);
i32 tarn_vlan_delete_vlan_from_port_all(tarn_if *port);
// Ends one membership; flush: and what the IP stack has learned through it.
i32 tarn_vlan_unbind_vlan_from_port(tarn_if *vlan, tarn_if *port, u32 flush);

i32 tarn_vlan_set_ingress_filter(u32 ifindex, u8 on);
i32 tarn_vlan_set_default_pvid(u32 ifindex, u16 vid);
i32 tarn_vlan_set_vlan_port_disabled(u32 ifindex, u32 vid, u32 disabled);
i32 tarn_vlan_set_vlan_port_disabled_bmp(u32 ifindex, const u32 *bitmap, u32 disabled);
i32 tarn_vlan_set_vlan_port_disable_all(u32 ifindex, u32 disabled);

// Moves the VLANs of a port to the aggregator that it has joined (attach), or gives the port those
// of the one that it leaves.
i32 tarn_vlan_agg_port_bind_update(tarn_if *port, tarn_if *aggregator, u32 attach);
// Takes the aggregator out of all its VLANs.
i32 tarn_vlan_agg_unbind(tarn_if *aggregator);
