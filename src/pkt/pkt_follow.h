// The boundary by which the driver follows the core (tarn/rxtx_follow.h), as the core calls it.
//
// Called after the state has changed, with no spinning lock held, and never on the way of a frame.
#pragma once

#include "kernel/types.h"
#include "tarn/rxtx_follow.h"

struct tarn_if;

void tarn_follow_init();

// Tells of a port, an aggregator or a VLAN, whatever it is; other interfaces are nobody's matter.
void tarn_follow(const tarn_if *ifp);
void tarn_follow_vlans(const tarn_if *port, u32 first, u32 last);
void tarn_follow_stp(const tarn_if *port, u32 instance);
