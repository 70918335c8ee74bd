// How interface records enter the database.
//
// Creations are changes of the graph (tarn_ifmgr_change.h), so in process context. Names
// are at most 16 bytes, without a terminator when they fill it. Results are 0 or negative: an
// errno, or a tarn_ifmgr_error.
#pragma once

#include "ifmgr/tarn_if.h"

// What a VLAN can be created with.
inline constexpr u32 TARN_VLAN_OPTION_MIRROR = 0x1;
inline constexpr u32 TARN_VLAN_OPTION_LOCAL = 0x2;
inline constexpr u32 TARN_VLAN_OPTION_ALWAYS_UP = 0x4;

// What an aggregator can be.
inline constexpr u32 TARN_AGG_TYPE_DYNAMIC = 2;
inline constexpr u32 TARN_AGG_TYPE_STATIC = 3;

// Records out of the tree, linked by replaced_next, that somebody held when another took their
// place. Once nobody does, that of a VLAN is freed by the next creation, any other is used again by
// one of its ifindex. Creations change the list, one at a time.
extern tarn_if *tarn_ifmgr_replaced;

// A zeroed record, or null. The caller frees it with kfree unless an install took it.
tarn_if *_tarn_ifmgr_if_alloc();

// Puts a record under its ifindex and makes it live, with one reference: the database's own.
// take_record 0: a copy of the template is installed, over the memory of an earlier record of that
// ifindex if there is one; the template stays with the caller. take_record 1: the template itself
// becomes the record, in place of an earlier one.
// 0 with *out set; -201 (null argument), -205 (no memory), -206 (no room in the tree). The template
// stays with the caller on every failure.
i32 _tarn_ifmgr_if_install(tarn_if *record, tarn_if **out, bool take_record);

// An interface whose device is the kernel's own, found by name; it need not exist. `hwaddr` is 6
// bytes. Nothing changes when the ifindex is taken: 0.
i32 tarn_ifmgr_ethernet_create(const char *name, const u8 *hwaddr, u32 flags, u32 ifindex,
                               u32 type);
// A switch port; with_netdev: born routed, with a device. Nothing changes when the ifindex is
// taken.
i32 tarn_ifmgr_switchport_create(const char *name, const u8 *hwaddr, u32 flags, u32 stack_member,
                                 u32 ifindex, u8 with_netdev);
// An aggregator, TARN_AGG_TYPE_*. Nothing changes when the ifindex is taken.
i32 tarn_ifmgr_aggregator_add(const char *name, const u8 *hwaddr, u32 agg_type, u32 ifindex);
// A VLAN interface with its device, "vlan<vid>"; `hwaddr` may be null. *out is set on success.
i32 tarn_ifmgr_vlan_create(const u8 *hwaddr, u32 hwaddr_len, tarn_if **out, u16 vid, u32 options);

// Marks the record deleted and drops the reference that the caller holds.
void tarn_ifmgr_delete_interface(tarn_if *ifp);
