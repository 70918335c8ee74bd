// Is memory short?
//
// Counting free pages for every frame would cost more than the frame. So an estimate is debited
// with the length of each frame, and the pages are counted anew every 1024 frames or once the
// estimate is below the threshold. Each CPU has an estimate of its own, by its own frames: several
// at once count the pages sooner, and none waits for another.
#include "kernel/once.h"
#include "kernel/percpu.h"
#include "kernel/preempt.h"
#include "kernel/vmstat.h"
#include "pkt/pkt_cpu.h"
#include "pkt/pkt_rx.h"

constinit u32 tarn_pkt_low_mem_normal_return = 0;

namespace {

constexpr u32 RECOUNT_FRAMES = 1024;
constexpr u32 PAGE_SHIFT = 12;

u64 _pages(unsigned item) {
    long pages = vm_zone_stat_read(item);
    return pages > 0 ? static_cast<u64>(pages) : 0;
}

// Bytes that are free or easily made so; more than 32 bits hold reads as all ones.
u32 _count_free() {
    u64 pages = _pages(NR_FREE_PAGES) + _pages(NR_ZONE_INACTIVE_FILE) + _pages(NR_ZONE_ACTIVE_FILE);
    u64 bytes = pages << PAGE_SHIFT;
    return bytes > 0xFFFFFFFF ? 0xFFFFFFFF : static_cast<u32>(bytes);
}

u8 _normal() {
    return read_once(tarn_pkt_low_mem_normal_return) != 0;
}

// Of a CPU's word: frames since the last recount below, the estimate above.
constexpr u32 ESTIMATE_SHIFT = 32;

u32 _frames(u64 word) {
    return static_cast<u32>(word);
}

u32 _estimate(u64 word) {
    return static_cast<u32>(word >> ESTIMATE_SHIFT);
}

bool _holds(u64 word) {
    return _frames(word) <= RECOUNT_FRAMES && _estimate(word) >= TARN_PKT_LOW_MEM_BYTES;
}

// Nobody else runs on this CPU meanwhile, so that what is written is not older than what was there.
u32 _recount() {
    local_bh_disable();
    u32 free_bytes = _count_free();
    u32 frames = _frames(this_cpu_read(&pkt_cpu->low_mem));
    this_cpu_write(&pkt_cpu->low_mem,
                   u64{free_bytes} << ESTIMATE_SHIFT | (frames > RECOUNT_FRAMES ? 0 : frames));
    local_bh_enable();
    return free_bytes;
}

u8 _answer(u32 free_bytes) {
    return free_bytes < TARN_PKT_LOW_MEM_BYTES ? 1 : _normal();
}

// Without a word to note it in.
[[gnu::noinline]] u8 _count_anew() {
    return _answer(_count_free());
}

// `word` has the debit in it already, which a frame that is not below the estimate gets back.
[[gnu::noinline]] u8 _look_closer(u64 word, u32 frame_length) {
    if (frame_length >= _estimate(word) + frame_length)
        word = this_cpu_add_return(&pkt_cpu->low_mem, u64{frame_length} << ESTIMATE_SHIFT);
    return _holds(word) ? _normal() : _answer(_recount());
}

} // namespace

u8 tarn_pkt_low_mem(u32 frame_length) {
    if (!pkt_cpu) [[unlikely]]
        return _count_anew();
    u64 word = this_cpu_add_return(&pkt_cpu->low_mem, 1 - (u64{frame_length} << ESTIMATE_SHIFT));
    bool ran_out = _estimate(word) + frame_length < frame_length;
    return !ran_out && _holds(word) ? _normal() : _look_closer(word, frame_length);
}

u32 tarn_pkt_low_mem_estimate() {
    return pkt_cpu ? _estimate(this_cpu_read(&pkt_cpu->low_mem)) : _count_free();
}
