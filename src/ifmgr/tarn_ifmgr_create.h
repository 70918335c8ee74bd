// How interface records enter the database.
//
// Installs are made one at a time, from process context: the control family serialises them.
#pragma once

#include "ifmgr/tarn_if.h"

// A zeroed record, or null. The caller frees it with kfree unless an install took it.
tarn_if *_tarn_ifmgr_if_alloc();

// Puts a record under its ifindex and makes it live, with one reference: the database's own.
// take_record 0: a copy of the template is installed, over the memory of an earlier record of that
// ifindex if there is one; the template stays with the caller. take_record 1: the template itself
// becomes the record, in place of an earlier one.
// 0 with *out set; -201 (null argument), -205 (no memory), -206 (no room in the tree). The template
// stays with the caller on every failure.
i32 _tarn_ifmgr_if_install(tarn_if *record, tarn_if **out, bool take_record);
