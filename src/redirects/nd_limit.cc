#include "redirects/nd_limit.h"

#include "kernel/once.h"
#include "kernel/time.h"
#include "pkt/pkt_explain.h"

namespace {

constexpr u32 PERIOD = 100; // jiffies
constexpr u32 LIMIT = 100;

// Two words without a lock: off by a few frames when several CPUs count at once.
constinit u32 nd_period_start = 0;
constinit u32 nd_period_count = 0;

} // namespace

bool nd_limit_ok(const tarn_pkt_info *info) {
    u32 now = static_cast<u32>(get_jiffies());
    if (now - read_once(nd_period_start) > PERIOD) {
        write_once(nd_period_start, now);
        write_once(nd_period_count, 1);
        return true;
    }
    u32 count = read_once(nd_period_count);
    if (static_cast<i32>(count) > static_cast<i32>(LIMIT)) {
        explain(info, "neighbour discovery is over its limit", "frames in this second", count,
                LIMIT);
        return false;
    }
    write_once(nd_period_count, count + 1);
    return true;
}
