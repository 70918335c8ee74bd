// The raw netlink socket: whole frames to numbered groups.
#pragma once

#include "kernel/types.h"

struct sk_buff;

// Before the first reservation.
void tarnfwd_netlink_init();

// Reserves the groups of a bit mask, all or none. 0; -EINVAL without a socket; -EBUSY when one of
// them is taken. There is no way back.
i32 tarnfwd_netlink_reserve(u32 mask);
// Sends to the group of that number, and consumes the buffer. Only with a reservation: without a
// socket -EINVAL.
i32 tarnfwd_netlink_broadcast(sk_buff *skb, u32 group);
