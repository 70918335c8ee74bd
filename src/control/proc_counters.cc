// The redirects: their counters, and which of them are on.
#include "control/proc_entries.h"
#include "control/proc_text.h"
#include "kernel/log.h"
#include "pkt/pkt_redirect.h"

namespace {

int _show_counters(seq_file *view, u32 mode) {
    seq_printf(view, "PACKET COUNTS\n");
    seq_printf(view, "---------\n");
    print_redirect_counters(mode, view);
    return 0;
}

long _whole(const proc_text &written) {
    return static_cast<long>(written.whole);
}

} // namespace

int pktcounts_show(seq_file *view, void *) {
    return _show_counters(view, REDIRECT_COUNTERS_RX);
}

int modify_rx_pktcounts_show(seq_file *view, void *) {
    return _show_counters(view, REDIRECT_COUNTERS_MODIFY_RX);
}

int modify_tx_pktcounts_show(seq_file *view, void *) {
    return _show_counters(view, REDIRECT_COUNTERS_MODIFY_TX);
}

long clearpktcount_store(const proc_text &written, void *) {
    for (u32 slot = 0; slot < REDIRECT_SLOTS; slot++)
        tarn_pkt_redirect_clear_counters(slot);
    return _whole(written);
}

long hidecounter_store(const proc_text &written, void *) {
    skip_protocol_set(proc_line(written));
    return written.length;
}

int redirectprotocolenable_show(seq_file *view, void *) {
    print_redirect_protocols(1, view);
    return 0;
}

long redirectprotocolenable_store(const proc_text &written, void *) {
    const char *name = proc_line(written);
    if (enable_redirect_by_name(name, 1) != 0)
        pr_crit("Error enabling redirect '%s'\n", name);
    return _whole(written);
}

int redirectprotocoldisable_show(seq_file *view, void *) {
    print_redirect_protocols(0, view);
    return 0;
}

long redirectprotocoldisable_store(const proc_text &written, void *) {
    const char *name = proc_line(written);
    if (enable_redirect_by_name(name, 0) != 0)
        pr_crit("Error disabling redirect '%s'\n", name);
    return _whole(written);
}
