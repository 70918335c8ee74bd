#pragma once

#include "home/offsets.h"

inline constexpr gfp_t GFP_KERNEL = TARN_GFP_KERNEL;
inline constexpr gfp_t GFP_ATOMIC = TARN_GFP_ATOMIC;
inline constexpr gfp_t __GFP_ZERO = TARN_GFP_ZERO;
