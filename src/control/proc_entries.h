// What the files under /proc/tarn print and take. The tables that name them are in tarn_proc.cc and
// tarn_proc_if.cc; the files of an interface get its tarn_if as their data.
//
// A show gives 0. A store gives the bytes it took or a negative result; nothing of a value that it
// does not understand is an error: it reads as 0.
#pragma once

#include "kernel/proc.h"

// proc_interfaces.cc
int ifdb_show(seq_file *view, void *);
int refcounts_show(seq_file *view, void *);
int subnetvlan_show(seq_file *view, void *);
int meminfo_show(seq_file *view, void *);

// proc_counters.cc
int pktcounts_show(seq_file *view, void *);
int modify_rx_pktcounts_show(seq_file *view, void *);
int modify_tx_pktcounts_show(seq_file *view, void *);
long clearpktcount_store(const proc_text &written, void *);
long hidecounter_store(const proc_text &written, void *);
int redirectprotocolenable_show(seq_file *view, void *);
long redirectprotocolenable_store(const proc_text &written, void *);
int redirectprotocoldisable_show(seq_file *view, void *);
long redirectprotocoldisable_store(const proc_text &written, void *);

// proc_debug.cc
int pktdebug_show(seq_file *view, void *);
long pktdebug_store(const proc_text &written, void *);
int pktdebugvlan_show(seq_file *view, void *);
long pktdebugvlan_store(const proc_text &written, void *);
int pktdebuglowmem_show(seq_file *view, void *);
long pktdebuglowmem_store(const proc_text &written, void *);
int pktdebugpostenable_show(seq_file *view, void *);
long pktdebugpostenable_store(const proc_text &written, void *);
int pktdebugpostinfo_show(seq_file *view, void *);
int pktdebugpvlanprimary_show(seq_file *view, void *);
long pktdebugpvlanprimary_store(const proc_text &written, void *);
int pktdebugratelimitinterval_show(seq_file *view, void *);
long pktdebugratelimitinterval_store(const proc_text &written, void *);
int pktdebugratelimitburst_show(seq_file *view, void *);
long pktdebugratelimitburst_store(const proc_text &written, void *);
int pktdebugslaveonly_show(seq_file *view, void *);
long pktdebugslaveonly_store(const proc_text &written, void *);

// proc_auth.cc
int authglobal_show(seq_file *view, void *);
long authglobal_store(const proc_text &written, void *);
int if_auth_show(seq_file *view, void *data);
long if_auth_store(const proc_text &written, void *data);
int if_auth_fwd_show(seq_file *view, void *data);
int if_auth_supp_show(seq_file *view, void *data);
long if_auth_supp_store(const proc_text &written, void *data);

// proc_arpsec.cc
int arpsecdb_show(seq_file *view, void *);
int arpseccnt_show(seq_file *view, void *);
long arpseccnt_store(const proc_text &written, void *);

// proc_port.cc
int if_bridge_show(seq_file *view, void *data);
int if_openflow_show(seq_file *view, void *data);
long if_openflow_store(const proc_text &written, void *data);
int if_disable_vlans_show(seq_file *view, void *data);
long if_disable_vlans_store(const proc_text &written, void *data);
int members_show(seq_file *view, void *data);

// 0666 for an entry that can be read and written; what it cannot is left out.
constexpr u32 proc_row_mode(const proc_row &row) {
    return (row.show ? 0444u : 0) | (row.store ? 0222u : 0);
}
