#include "ifmgr/tarn_ifmgr_walk.h"

#include "ifmgr/tarn_ifmgr_change.h"
#include "kernel/locks.h"

namespace {

using _lists = tarn_ifmgr_list_node *tarn_if::*; // parents, or children

// A count of running leaves is a byte: of many ways the last byte matters, and that they are many.
u32 _sum_of_ways(u32 some, u32 more) {
    u32 sum = some + more;
    return sum < 0x200 ? sum : 0x100 | (sum & 0xFF);
}

void _first_come(tarn_if *ifp) {
    ifp->walk_ways = 0;
    ifp->walk_level = 0;
}

// Counts the bindings that lead to each interface. Behind each stand those first come to from it.
void _count_bindings(tarn_if *from, _lists lists) {
    for (tarn_if *at = from; at; at = at->walk_next)
        for (const tarn_ifmgr_list_node *node = at->*lists; node; node = node->next) {
            tarn_if *next = node->ifp;
            if (next->walk_waits++ != 0)
                continue;
            _first_come(next);
            next->walk_next = at->walk_next;
            at->walk_next = next;
        }
}

// Behind it stand, in the order of its list, those to which no other binding leads any more.
void _follow(tarn_if *at, _lists lists) {
    tarn_if **place = &at->walk_next;
    for (const tarn_ifmgr_list_node *node = at->*lists; node; node = node->next) {
        tarn_if *next = node->ifp;
        next->walk_ways = _sum_of_ways(next->walk_ways, at->walk_ways);
        if (next->walk_level <= at->walk_level)
            next->walk_level = at->walk_level + 1;
        if (--next->walk_waits != 0)
            continue;
        next->walk_next = *place;
        *place = next;
        place = &next->walk_next;
    }
}

tarn_if *_walk(tarn_if *from, _lists lists) {
    lockdep_assert(tarn_ifmgr_is_changing());
    _first_come(from);
    from->walk_next = nullptr;
    _count_bindings(from, lists);
    from->walk_ways = 1;
    from->walk_next = nullptr;
    for (tarn_if *at = from; at; at = at->walk_next)
        _follow(at, lists);
    return from;
}

} // namespace

tarn_if *tarn_ifmgr_walk_up(tarn_if *ifp) {
    return _walk(ifp, &tarn_if::parents);
}

tarn_if *tarn_ifmgr_walk_down(tarn_if *ifp) {
    return _walk(ifp, &tarn_if::children);
}
