// A table in front of the tree of interfaces, so that a frame finds its port and its VLAN with one
// look.
//
// The place of a record is its ifindex modulo the table's size, which ports and VLANs of a usual
// switch never share. Where two do, the first to come has it and the other is found in the tree:
// the table is a short cut and knows nothing that the tree does not.
//
// All calls are made under tarn_if_db_lock, those that change it under the lock for writing.
#pragma once

#include "ifmgr/tarn_if.h"

inline constexpr u32 TARN_IF_INDEX_PLACES = 8192;

extern tarn_if *tarn_ifmgr_index[TARN_IF_INDEX_PLACES];

inline tarn_if **tarn_ifmgr_index_place(u32 ifindex) {
    return &tarn_ifmgr_index[ifindex % TARN_IF_INDEX_PLACES];
}

// The record, or null: the tree may have it nevertheless.
inline tarn_if *tarn_ifmgr_index_find(u32 ifindex) {
    tarn_if *ifp = *tarn_ifmgr_index_place(ifindex);
    return ifp && ifp->ifindex == ifindex ? ifp : nullptr;
}

inline void tarn_ifmgr_index_add(tarn_if *ifp) {
    tarn_if **place = tarn_ifmgr_index_place(ifp->ifindex);
    if (!*place)
        *place = ifp;
}

inline void tarn_ifmgr_index_remove(const tarn_if *ifp) {
    tarn_if **place = tarn_ifmgr_index_place(ifp->ifindex);
    if (*place == ifp)
        *place = nullptr;
}
