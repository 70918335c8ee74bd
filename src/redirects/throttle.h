// The two throttles: traffic that the CPU needs to see a sample of is kept to a trickle, and no
// flow is lost altogether.
//
// Each joins a bucket of tokens with a memory of flows (flow_table.h). A frame of a flow that was
// seen a moment ago is held back and costs no token, so a single loud flow cannot empty the bucket;
// a new flow passes as long as there is a token. Memory is fixed, whatever the number of flows.
// Nothing here has a lock: a race costs a token, or gives one away.
#pragma once

#include "pkt/pkt_info.h"

// ucdrop.cc: what a member of a stack sends over to the master. Of IP over UDP with a TTL (hop
// limit) of at most 1, which the chip traps for the sake of an ICMP error, a flow may pass every
// 100 jiffies, and all of them together once a jiffy with a bucket of 100. Anything else may pass.
bool tarn_ucdrop_throttle_ok(const tarn_pkt_info *info);

// mc_throttle.cc: unregistered multicast. Whether the frame is to be held back: the other way
// round.
bool tarn_throttle_ipv4_unreg_mc(const tarn_pkt_info *info);
// Without `snooping`, DHCPv6 and link-local name resolution are not held back.
bool tarn_throttle_ipv6_unreg_mc(const tarn_pkt_info *info, bool snooping);

// Decides on a frame that is for the master of the stack alone.
inline void throttle_for_master(const tarn_pkt_info *info, redirect_instruct *instruct,
                                u32 reason_throttled, u32 reason_replicated) {
    bool ok = tarn_ucdrop_throttle_ok(info);
    instruct->flags |= ok ? REDIRECT_STOP | REDIRECT_STACK_REPLICATE : u32{REDIRECT_STOP};
    instruct->reason = ok ? reason_replicated : reason_throttled;
}
