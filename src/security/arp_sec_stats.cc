#include "security/arp_sec_stats.h"

// Counters take effect with ARP security; until then there is no list.
constinit tarn_skip_list *dhcpsn_stats = nullptr;

i32 dhcpsn_stats_get_list(tarn_skip_list **list) {
    *list = dhcpsn_stats;
    return 0;
}

i32 dhcpsn_stats_find_by_ifindex(dhcpsn_port_stats **found, u32 ifindex) {
    dhcpsn_port_stats key{};
    key.ifindex = ifindex;
    void *record = nullptr;
    i32 result = tarn_search_skip_list(dhcpsn_stats, &key, TARN_SKIP_EQUAL, &record);
    *found = static_cast<dhcpsn_port_stats *>(record);
    return result;
}
