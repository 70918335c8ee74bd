// Ports into and out of aggregators.
#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_bind.h"
#include "ifmgr/tarn_ifmgr_calls.h"
#include "ifmgr/tarn_ifmgr_link.h"
#include "ifmgr/tarn_ifmgr_settings.h"
#include "kernel/errno.h"
#include "kernel/log.h"
#include "kernel/netdev.h"
#include "kernel/once.h"

namespace {

bool _has_child(const tarn_if *aggregator, u32 ifindex) {
    for (const tarn_ifmgr_list_node *node = tarn_ifmgr_children(aggregator); node;
         node = node->next)
        if (node->ifp->ifindex == ifindex)
            return true;
    return false;
}

i32 _attach(tarn_if *aggregator, tarn_if *port) {
    if (aggregator->type != port->type)
        return -EINVAL;
    if (!tarn_ifmgr_children(aggregator))
        write_once(aggregator->flags,
                   read_once(port->flags) | (read_once(aggregator->flags) & IFF_UP));
    else if (_has_child(aggregator, port->ifindex))
        return 0;

    i32 result = tarn_ifmgr_bind(aggregator, port);
    tarn_follow(aggregator); // its flags, which a failure leaves changed
    if (result < 0) {
        pr_err("Failed to bind port %.16s to trunk %.16s, error = %d\n", port->name,
               aggregator->name, result);
        return result;
    }
    tarn_vlan_agg_port_bind_update(port, aggregator, 1);
    _tarn_ifmgr_flags_set(aggregator, read_once(aggregator->flags));
    write_once(port->openflow, read_once(aggregator->openflow));
    return 0;
}

i32 _detach(tarn_if *aggregator, tarn_if *port) {
    tarn_vlan_agg_port_bind_update(port, aggregator, 0);
    i32 result = tarn_ifmgr_unbind(aggregator, port);
    if (result < 0)
        return result;
    if (!tarn_ifmgr_children(aggregator))
        tarn_vlan_agg_unbind(aggregator);
    return 0;
}

} // namespace

i32 tarn_ifmgr_aggregator_port_attach(u32 aggregator_ifindex, u32 port_ifindex) {
    tarn_if *aggregator = tarn_ifmgr_lookup_by_index(aggregator_ifindex);
    tarn_if *port = tarn_ifmgr_lookup_by_index(port_ifindex);
    tarn_ifmgr_change_begin();
    i32 result = aggregator && port ? _attach(aggregator, port) : -EINVAL;
    tarn_ifmgr_change_end();
    tarn_ifmgr_if_ref_put(port);
    tarn_ifmgr_if_ref_put(aggregator);
    return result;
}

i32 tarn_ifmgr_aggregator_port_detach(tarn_if *aggregator, tarn_if *port) {
    if (!aggregator || !port)
        return -EINVAL;
    if (aggregator->type != port->type)
        return TARN_ERR_TYPE_MISMATCH;
    tarn_ifmgr_change_begin();
    i32 result = _detach(aggregator, port);
    tarn_ifmgr_change_end();
    return result;
}
