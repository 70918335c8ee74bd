// Spanning tree, OpenFlow and disabled VLANs of a port, and the members of an aggregator.
#include "control/proc_entries.h"
#include "control/proc_text.h"
#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_bind.h"
#include "ifmgr/tarn_ifmgr_print.h"
#include "kernel/once.h"
#include "kernel/parse.h"
#include "vlan/vlan_member.h"

namespace {

constexpr const char *STP_NAMES[] = {"Disabled", "Listening", "Learning", "Forwarding", "Blocking"};

const char *_stp_name(u32 state) {
    return state < sizeof(STP_NAMES) / sizeof(STP_NAMES[0]) ? STP_NAMES[state] : "Unknown";
}

tarn_if *_port(void *data) {
    return static_cast<tarn_if *>(data);
}

} // namespace

int if_bridge_show(seq_file *view, void *data) {
    u32 instance = 0;
    for (const u32 &state : _port(data)->stp_state)
        seq_printf(view, "%02d: %s\n", static_cast<i32>(instance++), _stp_name(read_once(state)));
    return 0;
}

int if_openflow_show(seq_file *view, void *data) {
    seq_printf(view, "%u\n", read_once(_port(data)->openflow));
    return 0;
}

long if_openflow_store(const proc_text &written, void *data) {
    tarn_if *port = _port(data);
    i32 value = tarn_atoi(written.text);
    write_once(port->openflow, value);
    if (!(read_once(port->if_flags) & TARN_IF_F_AGG))
        return written.length;
    read_lock_bh(&tarn_if_db_lock);
    for (const tarn_ifmgr_list_node *node = tarn_ifmgr_children(port); node; node = node->next)
        write_once(node->ifp->openflow, value);
    read_unlock_bh(&tarn_if_db_lock);
    return written.length;
}

int if_disable_vlans_show(seq_file *view, void *data) {
    seq_printf(view, "%08x\n", read_once(_port(data)->disable_vlans));
    return 0;
}

// The reference taken here keeps the one that the call takes from being the last: the destructor
// would wait for this very file.
long if_disable_vlans_store(const proc_text &written, void *data) {
    tarn_if *port = _port(data);
    u32 value = static_cast<u32>(simple_strtol(written.text, nullptr, 16));
    if (refcount_inc_not_zero(&port->refcnt)) {
        tarn_vlan_set_vlan_port_disable_all(port->ifindex, value == 1);
        tarn_ifmgr_if_ref_put_later(port);
    }
    write_once(port->disable_vlans, value);
    return written.length;
}

int members_show(seq_file *view, void *data) {
    tarn_ifmgr_print_children_to_file(view, _port(data));
    return 0;
}
