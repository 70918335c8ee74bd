// The FDB block table: pairs of MAC address and VLAN that are to be refused. Nothing in the module
// fills it and no command reaches it; "l2fdbdrop" does not ask it.
#pragma once

#include "kernel/types.h"

inline constexpr u32 L2_FDB_DROP_SLOT = 8; // "l2fdbdrop" is on while the table holds a pair
inline constexpr u32 FDB_BLOCK_BUCKETS = 64;

void l2_fdb_block_init(); // before any other call

i32 tarn_l2_fdb_block_add(const u8 *mac, u16 vid);    // 0; -1, also when it is there already
i32 tarn_l2_fdb_block_remove(const u8 *mac, u16 vid); // 0; -1 when it is not there
i32 tarn_l2_fdb_block_exists(const u8 *mac, u16 vid); // 1 or 0

// l2_fdb_block_hash.cc: the bucket of a pair. 0 stands for none.
u32 _tarn_l2_fdb_block_hash(const u8 *mac, u16 vid);
