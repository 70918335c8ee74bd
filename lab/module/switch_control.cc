#include "switch_control.h"

#include "ifmgr/tarn_if.h"
#include "kernel/bytes.h"
#include "kernel/errno.h"
#include "kernel/netdev.h"
#include "pkt/pkt_redirect.h"

namespace {

tarn_if *new_record(u32 ifindex, u32 type) {
    auto alloc = reinterpret_cast<tarn_if *(*)()>(lab_core.alloc);
    tarn_if *record = alloc();
    if (!record)
        return nullptr;
    record->ifindex = ifindex;
    record->type = type;
    record->flags = IFF_UP | IFF_BROADCAST | IFF_RUNNING;
    snprintf(record->name, sizeof(record->name), "if%u", ifindex);
    return record;
}

int install(tarn_if *record) {
    auto install = reinterpret_cast<i32 (*)(tarn_if *, tarn_if **, bool)>(lab_core.install);
    tarn_if *installed = nullptr;
    return record ? install(record, &installed, true) : -ENOMEM;
}

} // namespace

int lab_port(unsigned ifindex) {
    return install(new_record(ifindex, TARN_IF_TYPE_SWITCHPORT));
}

int lab_vlan(unsigned vid) {
    tarn_if *vlan = new_record(TARN_IF_VLAN_BASE + vid, TARN_IF_TYPE_VLAN);
    if (vlan) {
        vlan->vid = static_cast<u16>(vid);
        vlan->hwaddr[0] = 2;
        vlan->hwaddr[5] = 1;
    }
    return install(vlan);
}

int lab_member(unsigned ifindex, unsigned vid) {
    auto lookup = reinterpret_cast<tarn_if *(*)(u32)>(lab_core.lookup);
    auto put = reinterpret_cast<void (*)(tarn_if *)>(lab_core.put);
    tarn_if *port = lookup(ifindex);
    if (!port || vid >= TARN_VLAN_COUNT)
        return -EINVAL;
    port->vlan_member_bmp[vid >> 5] |= 1u << (vid & 31);
    put(port);
    return 0;
}

int lab_enable(const char *name, int value) {
    auto enable = reinterpret_cast<i32 (*)(const char *, u8)>(lab_core.enable);
    return enable(name, static_cast<u8>(value));
}

void lab_counters(seq_file *view) {
    auto print = reinterpret_cast<i32 (*)(u32, seq_file *)>(lab_core.print);
    print(REDIRECT_COUNTERS_RX, view);
}
