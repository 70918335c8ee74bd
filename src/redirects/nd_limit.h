// The limiter of neighbour discovery: how much of it the IP stack is asked to look at, over all
// ports together.
#pragma once

struct tarn_pkt_info;

// Whether the frame may pass: the first 101 of a period may. A period lasts more than 100 jiffies
// and ends with the first frame after it.
bool nd_limit_ok(const tarn_pkt_info *info);
