// The controls of the frame log and of the packet path: plain words, read at the next frame.
#include "control/proc_entries.h"
#include "control/proc_text.h"
#include "kernel/once.h"
#include "kernel/parse.h"
#include "pkt/pkt_debug.h"
#include "pkt/pkt_rx.h"
#include "vlan/pvlan_debug.h"

namespace {

constexpr long BAD_LENGTH = -1;

int _show_signed(seq_file *view, u32 word) {
    seq_printf(view, "%d\n", static_cast<i32>(word));
    return 0;
}

int _show_unsigned(seq_file *view, u32 word) {
    seq_printf(view, "%u\n", word);
    return 0;
}

long _store_number(u32 &word, const proc_text &written) {
    write_once(word, tarn_atoi(written.text));
    return written.length;
}

long _store_flag(u32 &word, const proc_text &written) {
    write_once(word, tarn_atoi(written.text) != 0);
    return written.length;
}

// The numbers of the log's lines start anew.
long _store_log_control(u32 &word, const proc_text &written) {
    long result = _store_number(word, written);
    write_once(tarn_pkt_debug_cnt, 0);
    return result;
}

// A limiter in use keeps its value: the write is lost, and says nothing of it, on purpose.
long _store_limit(bool (*try_set)(ratelimit_state *, int), const proc_text &written) {
    if (static_cast<long>(written.whole) < 0)
        return BAD_LENGTH;
    try_set(&tarn_pkt_debug_ratelimit, static_cast<int>(simple_strtoul(written.text, nullptr, 0)));
    return written.length;
}

} // namespace

int pktdebug_show(seq_file *view, void *) {
    return _show_unsigned(view, read_once(tarn_pkt_debug));
}

long pktdebug_store(const proc_text &written, void *) {
    return _store_log_control(tarn_pkt_debug, written);
}

int pktdebugvlan_show(seq_file *view, void *) {
    return _show_unsigned(view, read_once(tarn_pkt_debug_vlan));
}

long pktdebugvlan_store(const proc_text &written, void *) {
    return _store_log_control(tarn_pkt_debug_vlan, written);
}

int pktdebuglowmem_show(seq_file *view, void *) {
    return _show_signed(view, read_once(tarn_pkt_low_mem_normal_return));
}

long pktdebuglowmem_store(const proc_text &written, void *) {
    return _store_flag(tarn_pkt_low_mem_normal_return, written);
}

int pktdebugpostenable_show(seq_file *view, void *) {
    return _show_signed(view, read_once(tarn_packet_post_debug_enable));
}

long pktdebugpostenable_store(const proc_text &written, void *) {
    return _store_number(tarn_packet_post_debug_enable, written);
}

int pktdebugpostinfo_show(seq_file *view, void *) {
    bool has_vid = read_once(tarn_ppdi_last.vid_valid);
    bool has_mld = read_once(tarn_ppdi_last.mld_valid);
    seq_printf(view, "{");
    if (has_vid)
        seq_printf(view, "'vid': %d", static_cast<i32>(read_once(tarn_ppdi_last.vid)));
    if (has_vid && has_mld)
        seq_printf(view, ", ");
    if (has_mld)
        seq_printf(view, "'mld_pkt': %d", static_cast<i32>(read_once(tarn_ppdi_last.mld_pkt)));
    seq_printf(view, "}\n");
    return 0;
}

int pktdebugpvlanprimary_show(seq_file *view, void *) {
    return _show_signed(view, read_once(tarn_pkt_pvlan_primary_debug));
}

long pktdebugpvlanprimary_store(const proc_text &written, void *) {
    return _store_number(tarn_pkt_pvlan_primary_debug, written);
}

int pktdebugratelimitinterval_show(seq_file *view, void *) {
    return _show_signed(view, static_cast<u32>(ratelimit_interval(&tarn_pkt_debug_ratelimit)));
}

long pktdebugratelimitinterval_store(const proc_text &written, void *) {
    return _store_limit(ratelimit_try_set_interval, written);
}

int pktdebugratelimitburst_show(seq_file *view, void *) {
    return _show_signed(view, static_cast<u32>(ratelimit_burst(&tarn_pkt_debug_ratelimit)));
}

long pktdebugratelimitburst_store(const proc_text &written, void *) {
    return _store_limit(ratelimit_try_set_burst, written);
}

int pktdebugslaveonly_show(seq_file *view, void *) {
    return _show_signed(view, read_once(slave_only_debug_override));
}

long pktdebugslaveonly_store(const proc_text &written, void *) {
    return _store_flag(slave_only_debug_override, written);
}
