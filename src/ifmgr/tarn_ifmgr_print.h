// The interface database as text. Nothing is printed before there is one.
#pragma once

#include "ifmgr/tarn_if.h"

struct seq_file;

// A line for each live record in the order of the ifindexes, and one for its children.
void tarn_ifmgr_ifdb_print(seq_file *view);
// The records whose reference count is not 1, in pre-order.
void tarn_ifmgr_reference_count_print(seq_file *view);
// The names of the live children, a line each.
void tarn_ifmgr_print_children_to_file(seq_file *view, const tarn_if *ifp);
// The size of each subnet tree, in the order of the ifindexes.
void tarn_ifmgr_subnetvlan_print(seq_file *view);
