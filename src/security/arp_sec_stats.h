// What ARP security counts for each port: a skip list of records, under the RTNL lock.
#pragma once

#include "containers/tarn_skip_list.h"

struct dhcpsn_port_stats {
    u32 ifindex; // key
    u32 rx;
    u32 discarded;
    u32 no_binding;
    u32 vlan_mismatch;
    u32 port_mismatch;
    u32 mac_mismatch;
    u32 link_local;
    u32 last_event; // jiffies
};

extern tarn_skip_list *dhcpsn_stats; // null: none
i32 dhcpsn_stats_get_list(tarn_skip_list **list);
// 0 when there is one, else the search's negative result.
i32 dhcpsn_stats_find_by_ifindex(dhcpsn_port_stats **found, u32 ifindex);
