#pragma once

#include "home/offsets.h"

inline constexpr gfp_t GFP_KERNEL = TARN_GFP_KERNEL;
inline constexpr gfp_t GFP_ATOMIC = TARN_GFP_ATOMIC;
inline constexpr gfp_t __GFP_ZERO = TARN_GFP_ZERO;

// Who looks for lost memory must see into caches, whatever their flags say: to some records nothing
// leads but a node of the tree.
#define kmem_cache_create tarn_k_kmem_cache_create
