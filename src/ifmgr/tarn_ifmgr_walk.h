// All that stands above an interface, or below it.
//
// Between two interfaces there may be more ways than anybody can count. A walk comes to each
// interface once, after all through which it can be come to, and takes as long as there are
// bindings: `walk_ways` says how many ways lead there, `walk_level` how long the longest is.
//
// Inside a change. What a walk found is good until the next one:
//
//   for (tarn_if *at = tarn_ifmgr_walk_up(ifp); at; at = at->walk_next)
#pragma once

#include "ifmgr/tarn_if.h"

// The interface itself first; where only one way leads to each, everything above a parent before
// the next parent of its list.
tarn_if *tarn_ifmgr_walk_up(tarn_if *ifp);
tarn_if *tarn_ifmgr_walk_down(tarn_if *ifp);
