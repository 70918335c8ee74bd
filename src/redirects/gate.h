// The common gate of the classification redirects.
#pragma once

#include "pkt/pkt_info.h"

// Tells what of a frame does not pass.
void gate_explain(const tarn_pkt_info *info);

// Whether a frame may be classified at all: not from a VLAN that is disabled on the port, nor from
// ourselves, nor while memory is short, nor past an ingress filter.
inline bool gate_passes(const tarn_pkt_info *info) {
    bool passes = !info->vlan_port_disabled && !info->src_mac_is_own && !info->low_mem &&
                  (info->vlan_member_ok || !info->ingress_filter);
    if (!passes) [[unlikely]]
        gate_explain(info);
    return passes;
}

// The frame is copied to the other members of the stack and goes on, unless the gate stops it.
inline void replicate_through_gate(const tarn_pkt_info *info, redirect_instruct *instruct,
                                   u32 reason_gate) {
    if (gate_passes(info)) {
        instruct->flags |= REDIRECT_STACK_REPLICATE;
        return;
    }
    instruct->flags |= REDIRECT_STOP;
    instruct->reason = reason_gate;
}
