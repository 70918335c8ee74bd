#include "vlan/vlan.h"

// Private VLANs take effect when they land; until then every VLAN is a plain one.
i32 tarn_pvlan_set_vlan_type(u32, u32) {
    return 0;
}

i32 tarn_pvlan_add_vlan_association(u32, u32) {
    return 0;
}

i32 tarn_pvlan_remove_vlan_association(u32, u32) {
    return 0;
}

i32 tarn_pvlan_port_add_association(u32, u32, u32) {
    return 0;
}

i32 tarn_pvlan_port_delete_association(u32, u32, u32) {
    return 0;
}

i32 tarn_pvlan_set_port_mode(u32, u32) {
    return 0;
}

i32 tarn_pvlan_set_vlan_forwarding(u32, u32) {
    return 0;
}

i32 tarn_pvlan_set_upstream_interface_forwarding(u32, const u8 *) {
    return 0;
}
