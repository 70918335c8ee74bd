// Commands on the VLANs of ports.
#include "control/nl_command.h"
#include "vlan/vlan_member.h"

namespace {

// A bitmap of full size, whatever part of it was sent.
struct _vid_bitmap {
    u32 words[TARN_VLAN_COUNT / 32] = {};

    explicit _vid_bitmap(const nl_command &command) {
        u32 length = command.length(TARNFWD_ATTR_VID_BITMAP);
        memcpy(words, command.bytes(TARNFWD_ATTR_VID_BITMAP),
               length < sizeof(words) ? length : sizeof(words));
    }
};

} // namespace

NL_HANDLER(port_set_vlan_ingress_filter) {
    return tarn_vlan_set_ingress_filter(command.ifindex(), command.on());
}

NL_HANDLER(vlan_set_default_pvid) {
    return tarn_vlan_set_default_pvid(command.ifindex(), command.vid());
}

NL_HANDLER(vlan_add_port_dynamic) {
    return tarn_vlan_add_vlan_to_port(command.ifindex(), command.vid(),
                                      command.byte(TARNFWD_ATTR_TAGGED));
}

NL_HANDLER(vlan_add_vid_bmp_to_port) {
    _vid_bitmap bitmap(command);
    return tarn_vlan_add_vlan_to_port_bulk(command.ifindex(), bitmap.words,
                                           command.byte(TARNFWD_ATTR_TAGGED));
}

NL_HANDLER(vlan_delete_port_dynamic) {
    return tarn_vlan_delete_vlan_from_port(command.ifindex(), command.vid());
}

NL_HANDLER(vlan_delete_vid_bmp_from_port) {
    _vid_bitmap bitmap(command);
    return tarn_vlan_delete_vlan_from_port_bulk(command.ifindex(), bitmap.words);
}

// The command says that the port carries the VLAN; what is kept is that it does not.
NL_HANDLER(vlan_port_state) {
    return tarn_vlan_set_vlan_port_disabled(command.ifindex(), command.vid(), !command.on());
}

NL_HANDLER(vlan_port_state_bmp) {
    _vid_bitmap bitmap(command);
    return tarn_vlan_set_vlan_port_disabled_bmp(command.ifindex(), bitmap.words, !command.on());
}
