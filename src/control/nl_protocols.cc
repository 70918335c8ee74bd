// Commands on single protocols.
#include "control/nl_command.h"
#include "redirects/redirects.h"
#include "sockets/sockets.h"

NL_HANDLER(ryke_set_ctrl_vlan) {
    return tarn_ryke_set_ctrl_vlan(command.vid(), command.state());
}

NL_HANDLER(udld_enabled) {
    tarn_udld_enable(command.on());
    return 0;
}

NL_HANDLER(udld_set_hw_filter) {
    return tarn_udld_set_hw_filter(command.ifindex(), command.on());
}

NL_HANDLER(vornappsd_redirect_add_ip_address) {
    u32 address = command.address();
    return tarn_vornappsd_add_ip_address(&address);
}

NL_HANDLER(vornappsd_redirect_remove_ip_address) {
    u32 address = command.address();
    return tarn_vornappsd_remove_ip_address(&address);
}
