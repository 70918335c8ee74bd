// Deferred work of the interface manager: what needs process context, asked for where there is
// none.
#pragma once

#include "ifmgr/tarn_if.h"
#include "kernel/work.h"

// Interfaces whose RUNNING is to be told to the kernel, oldest batch first; each node holds a
// reference. do_process_work reads their count when it runs, so a quick flap settles on the last
// state.
struct tarn_ifmgr_update_data {
    work_item work;
    mutex update_lock; // covers list; never taken under tarn_if_db_lock
    tarn_ifmgr_list_node *list;
};
extern tarn_ifmgr_update_data update_data;

void do_process_work(work_item *work);

void tarn_ifmgr_update_init();
// Appends the batch and queues the work, also for an empty batch. Takes the nodes and their
// references.
void tarn_ifmgr_update_queue(tarn_ifmgr_list_node *batch);
