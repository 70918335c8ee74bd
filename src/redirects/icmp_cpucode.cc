#include "redirects/redirects.h"

// Marks on trapped ICMP: takes effect when it lands; nothing is registered until then.
i32 tarn_icmp_cpucode_init() {
    return 0;
}
