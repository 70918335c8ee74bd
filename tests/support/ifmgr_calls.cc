#include "support/ifmgr_calls.h"

#include "kernel/netdev.h"

#include <cstdio>

namespace seams {

IfmgrCalls &ifmgr() {
    static IfmgrCalls calls;
    return calls;
}

std::vector<std::string> calls_of(const std::function<void()> &change) {
    ifmgr().traced = true;
    ifmgr().trace.clear();
    change();
    ifmgr().traced = false;
    return ifmgr().trace;
}

namespace {

template <typename... Arguments>
void trace(const char *format, Arguments... arguments) {
    if (!ifmgr().traced)
        return;
    char line[160];
    std::snprintf(line, sizeof(line), format, arguments...);
    ifmgr().trace.push_back(line);
}

// A record that is not in the database yet may have no name.
const char *name(const tarn_if *ifp) {
    return ifp ? ifp->name : "none";
}

} // namespace

} // namespace seams

// The linker leads each call to its __wrap_ form, and __real_ to the core's own (wrapped.txt).
#define WRAPPED(result, name, symbol, ...)                                                         \
    result name(__VA_ARGS__) asm("__wrap_" symbol);                                                \
    result real##name(__VA_ARGS__) asm("__real_" symbol);                                          \
    result name(__VA_ARGS__)

using seams::ifmgr;
using seams::name;
using seams::trace;

WRAPPED(net_device *, _configure, "_Z23tarn_os_l3_if_configureP7tarn_ifPKhjPj", tarn_if *ifp,
        const u8 *hwaddr, u32 length, u32 *out) {
    trace("configure %.16s %u%s%s", name(ifp), length, hwaddr ? "" : " no address",
          out ? " out" : "");
    if (ifmgr().on_configure)
        ifmgr().on_configure();
    return real_configure(ifp, hwaddr, length, out);
}

WRAPPED(i32, _unconfigure, "_Z25tarn_os_l3_if_unconfigureP7tarn_if", tarn_if *ifp) {
    trace("unconfigure %.16s", name(ifp));
    return real_unconfigure(ifp);
}

WRAPPED(i32, _flags_set, "_Z23tarn_os_l3_if_flags_setP7tarn_ifj", tarn_if *ifp, u32 flags) {
    trace("flags_set %.16s %#x", name(ifp), flags);
    if (ifmgr().on_flags_set)
        ifmgr().on_flags_set();
    return ifmgr().flags_set_result ? *ifmgr().flags_set_result : real_flags_set(ifp, flags);
}

WRAPPED(i32, _flags_unset, "_Z25tarn_os_l3_if_flags_unsetP7tarn_ifj", tarn_if *ifp, u32 flags) {
    trace("flags_unset %.16s %#x", name(ifp), flags);
    return real_flags_unset(ifp, flags);
}

WRAPPED(i32, _hwaddr_set, "_Z24tarn_os_l3_if_hwaddr_setP7tarn_ifjPKh", tarn_if *ifp, u32 length,
        const u8 *address) {
    trace("hwaddr_set %.16s %u", name(ifp), length);
    return real_hwaddr_set(ifp, length, address);
}

WRAPPED(i32, _create_proc, "_Z22_module_create_proc_ifP7tarn_if", tarn_if *ifp) {
    trace("create_proc %.16s", name(ifp));
    return real_create_proc(ifp);
}

WRAPPED(void, _remove_proc, "_Z21module_remove_proc_ifP7tarn_if", tarn_if *ifp) {
    trace("remove_proc %.16s", name(ifp));
    real_remove_proc(ifp);
}

WRAPPED(i32, _on_bind, "_Z24_module_bind_add_proc_ifP7tarn_if", tarn_if *ifp) {
    trace("on_bind %.16s", name(ifp));
    return real_on_bind(ifp);
}

WRAPPED(i32, _on_unbind, "_Z26_module_unbind_del_proc_ifP7tarn_if", tarn_if *ifp) {
    trace("on_unbind %.16s", name(ifp));
    return real_on_unbind(ifp);
}

WRAPPED(i32, _unbind_vlan, "_Z31tarn_vlan_unbind_vlan_from_portP7tarn_ifS0_j", tarn_if *vlan,
        tarn_if *port, u32 flush) {
    trace("unbind_vlan %.16s %.16s %u", name(vlan), name(port), flush);
    if (ifmgr().on_unbind_vlan)
        ifmgr().on_unbind_vlan();
    return ifmgr().unbind_vlan_result ? *ifmgr().unbind_vlan_result
                                      : real_unbind_vlan(vlan, port, flush);
}

WRAPPED(i32, _delete_all, "_Z35tarn_vlan_delete_vlan_from_port_allP7tarn_if", tarn_if *port) {
    trace("delete_all %.16s", name(port));
    return real_delete_all(port);
}

WRAPPED(i32, _agg_update, "_Z30tarn_vlan_agg_port_bind_updateP7tarn_ifS0_j", tarn_if *port,
        tarn_if *aggregator, u32 attach) {
    trace("agg_port_bind_update %.16s %.16s %u", name(port), name(aggregator), attach);
    return real_agg_update(port, aggregator, attach);
}

WRAPPED(i32, _agg_unbind, "_Z20tarn_vlan_agg_unbindP7tarn_if", tarn_if *aggregator) {
    trace("agg_unbind %.16s", name(aggregator));
    return real_agg_unbind(aggregator);
}

WRAPPED(i32, _bind, "_Z15tarn_ifmgr_bindP7tarn_ifS0_", tarn_if *parent, tarn_if *child) {
    trace("bind %.16s %.16s", name(parent), name(child));
    return real_bind(parent, child);
}

WRAPPED(i32, _unbind, "_Z17tarn_ifmgr_unbindP7tarn_ifS0_", tarn_if *parent, tarn_if *child) {
    trace("unbind %.16s %.16s", name(parent), name(child));
    return ifmgr().unbind_result ? *ifmgr().unbind_result : real_unbind(parent, child);
}

WRAPPED(i32, _mirror_vlan, "_Z28tarn_rmirror_set_mirror_vlanjb", u32 vid, bool mirror) {
    trace("mirror_vlan %u %u", vid, mirror);
    return real_mirror_vlan(vid, mirror);
}

WRAPPED(bool, _local_member, "_Z36tarn_stack_local_vlan_member_allowedPK7tarn_if",
        const tarn_if *port) {
    trace("local_member_allowed %.16s", name(port));
    return ifmgr().refuse_local_members ? false : real_local_member(port);
}

WRAPPED(tarn_if *, _lookup, "_Z26tarn_ifmgr_lookup_by_indexj", u32 ifindex) {
    if (ifmgr().before_lookup)
        ifmgr().before_lookup(ifindex);
    return real_lookup(ifindex);
}
