// The database of interfaces, and the memory of the machine.
#include "control/proc_entries.h"
#include "ifmgr/tarn_ifmgr_print.h"
#include "kernel/once.h"
#include "kernel/vmstat.h"
#include "vlan/vlan_member.h"

int ifdb_show(seq_file *view, void *) {
    seq_printf(view, "Interface  IfIndex  Flags  Oper cnt.  Ref cnt. IfFlags\n");
    seq_printf(view, "======================================================\n");
    tarn_ifmgr_ifdb_print(view);
    return 0;
}

int refcounts_show(seq_file *view, void *) {
    seq_printf(view, "IRREGULAR REFERENCE COUNTS\n");
    seq_printf(view, "Regular reference counts of 1 are not shown\n");
    seq_printf(view, "---------\n");
    tarn_ifmgr_reference_count_print(view);
    return 0;
}

int subnetvlan_show(seq_file *view, void *) {
    seq_printf(view, "Interfaces are skipped if the tree is NULL for that interface\n\n");
    tarn_ifmgr_subnetvlan_print(view);
    return 0;
}

int meminfo_show(seq_file *view, void *) {
    long pages = vm_zone_stat_read(NR_FREE_PAGES);
    seq_printf(view, "MEMINFO TABLE\n");
    seq_printf(view, "---------\n");
    seq_printf(view, "Free Pages %lu\n", pages > 0 ? static_cast<unsigned long>(pages) : 0);
    seq_printf(view, "Number of vlan_port_adds %d\n", static_cast<i32>(read_once(vlan_port_adds)));
    return 0;
}
