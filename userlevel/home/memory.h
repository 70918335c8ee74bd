#pragma once

// The numbers of Linux 6.1.
inline constexpr gfp_t __GFP_DIRECT_RECLAIM = 0x400;
inline constexpr gfp_t __GFP_ZERO = 0x100;
inline constexpr gfp_t GFP_ATOMIC = 0xA20;
inline constexpr gfp_t GFP_KERNEL = 0xCC0;
