// Commands on aggregators.
#include "control/nl_command.h"
#include "ifmgr/tarn_ifmgr_settings.h"

NL_HANDLER(lacp_attach_mux_to_aggregator) {
    return tarn_ifmgr_aggregator_port_attach(command.word(TARNFWD_ATTR_AGG_IFINDEX),
                                             command.ifindex());
}

// One that is not there is for the detachment to refuse.
NL_HANDLER(lacp_detach_mux_from_aggregator) {
    tarn_if *port = tarn_ifmgr_lookup_by_index(command.ifindex());
    tarn_if *aggregator = tarn_ifmgr_lookup_by_index(command.word(TARNFWD_ATTR_AGG_IFINDEX));
    i32 result = tarn_ifmgr_aggregator_port_detach(aggregator, port);
    tarn_ifmgr_if_ref_put(aggregator);
    tarn_ifmgr_if_ref_put(port);
    return result;
}
