// A change of the bind graph: of what stands under what, of the counts and flags that follow from
// it, of the records and their devices. Changes are made one at a time, in process context, and the
// destructors of records, which change the graph too, run inside one.
//
// Nodes of `parents` and `children` hold no reference, so there is one rule for all lists of all
// records:
//
//   - They are written inside a change, and under tarn_if_db_lock for writing.
//   - They may be walked, and the records that they name followed, inside a change or under
//     tarn_if_db_lock. Under the lock nothing is called that sleeps or takes it for writing; inside
//     a change anything is, for nobody else writes meanwhile.
//
// tarn_ifmgr_parents and tarn_ifmgr_children (tarn_ifmgr_bind.h) give the lists, and assert it.
//
// Locks are taken in this order: the change, RTNL, tarn_if_db_lock. The handler of a file begins
// none: the removal of the file, in a change, would wait for it.
#pragma once

#include "ifmgr/tarn_if.h"

void tarn_ifmgr_change_init();

// May stand inside one another: the outermost counts. It runs the destructors that wait, at its
// begin and at its end.
void tarn_ifmgr_change_begin();
void tarn_ifmgr_change_end();
// Whether the caller is inside one.
bool tarn_ifmgr_is_changing();
// Whether the caller may walk the lists.
bool tarn_ifmgr_may_walk();

// Runs the destructor of a record whose last reference is gone: before it returns where that is
// possible (process context, `may_sleep`, and no change under way), else soon.
void tarn_ifmgr_retire(tarn_if *ifp, bool may_sleep);
