// One bit of a VLAN bitmap. VIDs come from outside: one that no bitmap holds is in none.
#pragma once

#include "ifmgr/tarn_if.h"
#include "kernel/once.h"

inline bool vlan_bit(const u32 *bitmap, u32 vid) {
    return vid < TARN_VLAN_COUNT && (read_once(bitmap[vid >> 5]) >> (vid & 31) & 1);
}

inline void vlan_bit_write(u32 *bitmap, u32 vid, bool on) {
    if (vid >= TARN_VLAN_COUNT)
        return;
    u32 bit = 1u << (vid & 31);
    if (on)
        set_bits(bitmap[vid >> 5], bit);
    else
        clear_bits(bitmap[vid >> 5], bit);
}
