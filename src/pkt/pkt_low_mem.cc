// Is memory short?
//
// Counting free pages for every frame would cost more than the frame. So an estimate is debited
// with the length of each frame, and the pages are counted anew every 1024 frames or once the
// estimate is below the threshold. The words have no lock: they are an estimate.
#include "kernel/once.h"
#include "kernel/vmstat.h"
#include "pkt/pkt_rx.h"

constinit u32 tarn_pkt_low_mem_normal_return = 0;

namespace {

constexpr u32 RECOUNT_FRAMES = 1024;
constexpr u32 PAGE_SHIFT = 12;

constinit u32 low_mem_pkt_count = 0;
constinit u32 low_mem_free_estimate = 0;

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

} // namespace

u8 tarn_pkt_low_mem(u32 frame_length) {
    u32 frames = read_once(low_mem_pkt_count) + 1;
    write_once(low_mem_pkt_count, frames);

    u32 estimate = read_once(low_mem_free_estimate);
    if (frame_length < estimate) {
        estimate -= frame_length;
        write_once(low_mem_free_estimate, estimate);
    }
    if (frames <= RECOUNT_FRAMES && estimate >= TARN_PKT_LOW_MEM_BYTES)
        return _normal();

    u32 free_bytes = _count_free();
    write_once(low_mem_free_estimate, free_bytes);
    if (frames > RECOUNT_FRAMES)
        write_once(low_mem_pkt_count, 0);
    return free_bytes < TARN_PKT_LOW_MEM_BYTES ? 1 : _normal();
}

u32 tarn_pkt_low_mem_estimate() {
    return read_once(low_mem_free_estimate);
}
