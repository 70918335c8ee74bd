#include "module/tarn_module.h"

#include "containers/tarn_avl.h"
#include "control/control.h"
#include "events/tarnfwd_netlink.h"
#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_event.h"
#include "pkt/pkt_candidates.h"
#include "pkt/pkt_debug.h"
#include "pkt/pkt_follow.h"
#include "security/security.h"

int init_module() {
    if (_module_create_proc() < 0)
        return -1;
    tarn_init();
    return 0;
}

// Nothing here fails the load: what could not start is missing, and the rest works.
i32 tarn_init() {
    tarn_os_init();
    tarn_ifmgr_init();
    register_netdevice_notifier(&tarn_ifmgr_device_notifier);
    tarnfwd_nl_init();
    tarn_init_arp_sec();
    return 0;
}

// Every redirect is registered before there is an interface database, so the table is complete
// before the first frame can find a port.
i32 tarn_os_init() {
    tarn_avl_cache_init();
    tarn_pkt_debug_init();
    pkt_candidates_init();
    tarn_follow_init();
    tarnfwd_netlink_init();
    return redirects_init();
}
