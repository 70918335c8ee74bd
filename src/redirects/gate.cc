#include "redirects/gate.h"

#include "pkt/pkt_explain.h"
#include "pkt/pkt_rx.h"

void gate_explain(const tarn_pkt_info *info) {
    if (info->vlan_port_disabled)
        explain(info, "gate: the VLAN is disabled on the port");
    else if (info->src_mac_is_own)
        explain(info, "gate: the source MAC is the switch's own");
    else if (info->low_mem)
        explain(info, "gate: memory is short", "bytes free", tarn_pkt_low_mem_estimate(),
                TARN_PKT_LOW_MEM_BYTES);
    else
        explain(info, "gate: the port is no member of the VLAN and filters on ingress");
}
