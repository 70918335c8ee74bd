// What the shared cases of the protocol sockets ask of a switch in a process, beside its daemons:
// the same for a test that is the daemon and for one that serves daemons of their own.
#pragma once

#include "support/fake_driver.h"

#include "control.h"
#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_create.h"
#include "ifmgr/tarn_ifmgr_settings.h"
#include "pkt/frame.h"
#include "pkt/pkt_candidates.h"
#include "pkt/pkt_redirect.h"
#include "sockets/sockets.h"
#include "vlan/vlan_member.h"

#include "../../lab/tests/socket_cases.h"

#include <algorithm>
#include <string>
#include <utility>

namespace case_switch {

inline void set_flags(u32 ifindex, u32 flags) {
    tarn_if *ifp = tarn_ifmgr_lookup_by_index(ifindex);
    ifp->flags = (ifp->flags & ~TARN_IF_LINK) | flags;
    tarn_ifmgr_if_ref_put(ifp);
}

inline void add_aggregator(u32 ifindex) {
    const u8 address[ETH_ALEN] = {2, 0, 0, 0, 2, 2};
    tarn_ifmgr_aggregator_add("lag2", address, TARN_AGG_TYPE_STATIC, ifindex);
    userlevel::work_run();
    set_flags(ifindex, TARN_IF_LINK);
}

inline void set(const std::string &what, u32 value) {
    if (what == "flags")
        return set_flags(CASE_PORT, value);
    if (what == "aggregator")
        return add_aggregator(value);
    if (what == "filter")
        tarn_vlan_set_ingress_filter(CASE_PORT, static_cast<u8>(value));
    else if (what == "shut")
        tarn_vlan_set_vlan_port_disabled(CASE_PORT, 1, value);
    else
        enable_redirect_by_name(what.c_str(), static_cast<u8>(value));
}

inline void set_udld(u32 on, u32 filter) {
    tarn_udld_enable(static_cast<u8>(on));
    tarn_udld_set_hw_filter(CASE_PORT, static_cast<u8>(filter));
}

inline long stops(const std::string &redirect, u32 reason) {
    pkt_candidates_sum_up();
    for (const packet_redirect *one : packet_redirects)
        if (one && one->name == redirect)
            return one->stop_reasons[reason];
    return -1;
}

// The last frame to have left by the port since the last question.
inline std::pair<bool, Bytes> last_sent(u32 port) {
    auto &all = fake_driver::record().sent;
    auto last = std::find_if(all.rbegin(), all.rend(),
                             [&](const fake_driver::Sent &one) { return one.ifindex == port; });
    std::pair<bool, Bytes> found{last != all.rend(), {}};
    if (found.first)
        found.second = last->bytes;
    std::erase_if(all, [&](const fake_driver::Sent &one) { return one.ifindex == port; });
    return found;
}

} // namespace case_switch
