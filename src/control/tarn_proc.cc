#include "control/tarn_proc.h"

#include "control/control.h"
#include "control/proc_entries.h"
#include "kernel/log.h"
#include "stack/stack.h"

constinit proc_dir_entry *tarn_proc_directory = nullptr;

namespace {

constexpr long NO_COPY = -1;

// In the order in which they are made.
constexpr proc_row ROWS[] = {
    {"authglobal", authglobal_show, authglobal_store, 253},
    {"arpseccnt", arpseccnt_show, arpseccnt_store, 2048, NO_COPY},
    {"arpsecdb", arpsecdb_show},
    {"clearpktcount", nullptr, clearpktcount_store},
    {"hidecounter", nullptr, hidecounter_store, 20},
    {"ifdb", ifdb_show},
    {"meminfo", meminfo_show},
    {"pktcounts", pktcounts_show},
    {"pktdebug", pktdebug_show, pktdebug_store, 8, NO_COPY},
    {"pktdebuglowmem", pktdebuglowmem_show, pktdebuglowmem_store, 10},
    {"pktdebugpostenable", pktdebugpostenable_show, pktdebugpostenable_store, 10},
    {"pktdebugpostinfo", pktdebugpostinfo_show},
    {"pktdebugpvlanprimary", pktdebugpvlanprimary_show, pktdebugpvlanprimary_store, 10},
    {"pktdebugratelimitinterval", pktdebugratelimitinterval_show, pktdebugratelimitinterval_store,
     7},
    {"pktdebugratelimitburst", pktdebugratelimitburst_show, pktdebugratelimitburst_store, 7},
    {"pktdebugslaveonly", pktdebugslaveonly_show, pktdebugslaveonly_store, 10},
    {"pktdebugvlan", pktdebugvlan_show, pktdebugvlan_store, 8, NO_COPY},
    {"redirectprotocoldisable", redirectprotocoldisable_show, redirectprotocoldisable_store, 19},
    {"redirectprotocolenable", redirectprotocolenable_show, redirectprotocolenable_store, 19},
    {"refcounts", refcounts_show},
    {"rxmodifycounts", modify_rx_pktcounts_show},
    {"subnetvlan", subnetvlan_show},
    {"txmodifycounts", modify_tx_pktcounts_show},
};
constexpr u32 COUNT = sizeof(ROWS) / sizeof(ROWS[0]);

// What stacking puts beside them.
constexpr const char *STACK_NAMES[] = {"qoro", "qoro_update"};

constinit proc_file _files[COUNT] = {};

bool _equal(const char *a, const char *b) {
    for (; *a && *a == *b; a++)
        b++;
    return *a == *b;
}

bool _create_entries(proc_dir_entry *directory) {
    for (u32 i = 0; i < COUNT; i++) {
        _files[i] = {.row = &ROWS[i], .data = nullptr};
        if (proc_create_file(ROWS[i].name, proc_row_mode(ROWS[i]), directory, &_files[i]))
            continue;
        pr_crit("Failed to create proc entry /proc/tarn/%s\n", ROWS[i].name);
        return false;
    }
    return true;
}

} // namespace

bool tarn_proc_is_global(const char *name) {
    for (const proc_row &row : ROWS)
        if (_equal(row.name, name))
            return true;
    for (const char *taken : STACK_NAMES)
        if (_equal(taken, name))
            return true;
    return false;
}

// A failure fails the load, and the module's memory goes: nothing may be left that leads there.
i32 _module_create_proc() {
    tarn_proc_if_init();
    proc_dir_entry *directory = proc_mkdir("tarn", nullptr);
    if (!directory)
        return -1;
    if (!_create_entries(directory) || tarn_stack_init_proc_entry(directory) != 0) {
        proc_remove(directory);
        return -1;
    }
    tarn_proc_directory = directory;
    return 0;
}
