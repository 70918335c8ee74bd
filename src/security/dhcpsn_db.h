// The leases that DHCP snooping has learned.
//
// Under the RTNL lock, which the packet path can take: it looks leases up in process context.
#pragma once

#include "containers/tarn_skip_list.h"

struct dhcpsn_lease {
    u32 ip; // network order; the key, compared as the word lies in memory
    u8 mac[6];
    u16 vid;
    u32 ifindex;
};

extern tarn_skip_list *dhcpsn_db; // null: none
i32 dhcpsn_db_get_list(tarn_skip_list **list);
