// The start of every redirect and socket family.
#include "module/tarn_module.h"
#include "redirects/redirects.h"
#include "security/security.h"
#include "sockets/sockets.h"
#include "stack/stack.h"
#include "vlan/vlan.h"

// The order is the order in which they are registered, not the one in which they see a frame: that
// one is process_packet_rxs. Only the last result is returned.
i32 redirects_init() {
    tarn_af_lacp_sock_init();
    tarn_af_stp_sock_init();
    tarn_af_eapol_sock_init();
    tarn_af_garp_sock_init();
    tarn_af_igs_sock_init();
    tarn_af_ryke_sock_init();
    tarn_af_ldf_sock_init();
    tarn_af_lldp_sock_init();
    tarn_af_testd_sock_init();
    tarn_netlink_sflow_sock_init();
    tarn_netlink_flowd_init();
    tarn_af_frame_sock_init();
    tarn_af_mlds_sock_init();
    tarn_af_dhcpsn_sock_init();
    tarn_af_kelm_sock_init();
    tarn_af_kelm_agent_sock_init();
    tarn_af_openflowd_sock_init();
    tarn_af_udld_sock_init();
    tarn_mcdrop_init();
    tarn_vrrp_init();
    tarn_pim_init();
    tarn_ipv4_init();
    tarn_ipv6_init();
    tarn_arp_init();
    tarn_rarp_init();
    tarn_pppoe_init();
    tarn_icmp_cpucode_init();
    tarn_stack_init();
    tarn_orvo_bridge_init();
    tarn_rmirror_init();
    tarn_l2_drop_init();
    tarn_l2_fdb_drop_init();
    tarn_l3_drop_init();
    tarn_filter_match_cpucode_init();
    pbr_init();
    tarn_dos_init();
    tarn_auth_init();
    tarn_af_cfm_sock_init();
    tarn_vlan_xlate_init();
    tarn_vlan_stack_init();
    tarn_befd_sock_init();
    tarn_vornappsd_init();
    tarn_af_isis_sock_init();
    tarn_vxlan_sock_init();
    tarn_mrp_sock_init();
    tarn_af_profinet_sock_init();
    tarn_grasp_init();
    tarn_vlan_local_init();
    return tarn_ptp_init();
}
