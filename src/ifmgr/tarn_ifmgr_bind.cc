// The bind graph: questions that the packet path asks of it.
#include "ifmgr/tarn_ifmgr.h"
#include "kernel/once.h"

tarn_if *tarn_ifmgr_logical_port(tarn_if *ifp) {
    // Most ports stand alone: no lock to learn that.
    if (!read_once(ifp->parents))
        return ifp;

    tarn_if *logical = ifp;
    read_lock_bh(&tarn_if_db_lock);
    // Only the first parent counts: a port of an aggregator has that one and no other.
    if (ifp->parents && ifp->parents->ifp->type == TARN_IF_TYPE_SWITCHPORT)
        logical = ifp->parents->ifp;
    read_unlock_bh(&tarn_if_db_lock);
    return logical;
}

bool tarn_ifmgr_vlan_inter_if_forwarding_allowed(const tarn_if *vlan, const tarn_if *a,
                                                 const tarn_if *b) {
    if (!vlan->upstream_ifs || !a || !b)
        return true;
    for (const tarn_ifmgr_list_node *node = vlan->upstream_ifs; node; node = node->next)
        if (node->ifp == a || node->ifp == b)
            return true;
    return false;
}
