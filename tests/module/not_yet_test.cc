// What is not built yet: each call to it answers so that nobody minds.
//
// What is given to these calls is looked at where they are made. With a feature its lines go.
#include "support/switch_test.h"

#include "pkt/pkt_calls.h"
#include "redirects/redirect_calls.h"
#include "security/arp_sec_stats.h"
#include "security/auth_state.h"
#include "security/dhcpsn_db.h"
#include "security/security.h"
#include "sockets/sockets.h"
#include "stack/stack.h"
#include "vlan/vlan.h"

namespace {

class NotYet : public SwitchTest {
protected:
    NotYet() { calls().pass_on = true; }
    const u8 mac_[6] = {2, 0, 0, 0, 0, 1};
};

TEST(NotYetStart, starts_do_nothing_and_succeed) {
    EXPECT_FALSE(tarn_auth_state_started());
    for (auto *start : {tarn_init_arp_sec, tarn_auth_init, tarn_stack_init, tarn_vlan_stack_init,
                        tarn_vlan_xlate_init, tarn_vxlan_sock_init, tarn_af_eapol_sock_init,
                        tarn_af_igs_sock_init, tarn_af_mlds_sock_init, tarn_af_dhcpsn_sock_init,
                        tarn_af_kelm_sock_init, tarn_af_openflowd_sock_init})
        EXPECT_EQ(start(), 0);
    EXPECT_TRUE(tarn_auth_state_started());
    EXPECT_EQ(tarn_stack_init_proc_entry(nullptr), 0);
    for (const packet_redirect *redirect : packet_redirects)
        EXPECT_EQ(redirect, nullptr);
}

TEST_F(NotYet, a_unit_stands_alone) {
    sk_buff *skb = userlevel::frame_make(Frame().build());
    u8 replicated = 0;
    u32 vid = 0;
    EXPECT_EQ(tarn_stack_is_slave(), 0);
    EXPECT_FALSE(tarn_stack_is_pending_master());
    EXPECT_TRUE(tarn_stack_local_vlan_member_allowed(port1()));
    EXPECT_EQ(tarn_stack_pkt_process(skb, 1, 0), 0u);
    EXPECT_EQ(tarn_pkt_stack_replicate(skb, port1(), 1, 0, 0, 0, 0, 0, &replicated), 0);
    EXPECT_EQ(replicated, 0);
    EXPECT_EQ(tarn_stack_mgmt_vlan_get_vid(&vid), -1);
    EXPECT_EQ(tarn_stacking_mgmt_queue(1), 0u);
    EXPECT_EQ(tarn_stack_mgmt_vlan_create(1, mac_), -1);
    EXPECT_EQ(tarn_stack_mgmt_vlan_destroy(), -1);
    EXPECT_EQ(tarn_stack_mgmt_vlan_set_state(true), -1);
    EXPECT_EQ(_tarn_stack_drv_tx(skb, 0), -1); // and frees it
}

TEST_F(NotYet, a_vlan_is_a_plain_one) {
    u16 vid = 7;
    EXPECT_EQ(tarn_vlan_stack_outer_vlan_get(1), 0u);
    EXPECT_EQ(tarn_vlan_stack_rule_add(1, 2), 0);
    EXPECT_EQ(tarn_vlan_stack_rule_delete(1, 2), 0);
    EXPECT_EQ(tarn_vlan_xlate_add(port1(), 1, 2), 0);
    EXPECT_EQ(tarn_vlan_xlate_delete(port1(), 1, 2), 0);
    EXPECT_EQ(tarn_vlan_xlate_default_action_set(port1(), 1), 0);
    EXPECT_EQ(tarn_subnet_vlan_add(port1(), 1, 1, 24), 0);
    EXPECT_EQ(tarn_subnet_vlan_delete(port1(), 1, 1, 24), 0);
    EXPECT_FALSE(tarn_subnet_vlan_wa_match(1, &vid, port1()));
    EXPECT_EQ(vid, 7);
    EXPECT_EQ(tarn_vxlan_add(1, 1, 2, 5), 0);
    EXPECT_EQ(tarn_vxlan_del(1, 1, 2, 5), 0);
    EXPECT_EQ(tarn_pvlan_set_vlan_type(1, 1), 0);
    EXPECT_EQ(tarn_pvlan_add_vlan_association(1, 2), 0);
    EXPECT_EQ(tarn_pvlan_remove_vlan_association(1, 2), 0);
    EXPECT_EQ(tarn_pvlan_port_add_association(5001, 1, 2), 0);
    EXPECT_EQ(tarn_pvlan_port_delete_association(5001, 1, 2), 0);
    EXPECT_EQ(tarn_pvlan_set_port_mode(5001, 1), 0);
    EXPECT_EQ(tarn_pvlan_set_vlan_forwarding(1, 1), 0);
    EXPECT_EQ(tarn_pvlan_set_upstream_interface_forwarding(0, nullptr), 0);
}

TEST_F(NotYet, a_port_is_uncontrolled) {
    EXPECT_EQ(tarn_auth_find_supp(port1(), mac_), nullptr);
    EXPECT_EQ(tarn_auth_set_port_state(port1(), TARN_AUTH_AUTO, 0), 0);
    EXPECT_EQ(tarn_auth_supp_set_state(port1(), mac_, 1, 1), -EINVAL);
    EXPECT_EQ(tarn_auth_web_set_config(1, 80, 0, false, 0, nullptr, 0, nullptr), 0);
    EXPECT_EQ(am.listen_ip, 0u);
    EXPECT_EQ(am.listen_port, 80);
    EXPECT_EQ(am.listen_port2, 0);
    EXPECT_EQ(am.with_dhcpd, 0);
    EXPECT_EQ(am.http_port_count, 0);
    EXPECT_EQ(am.https_port_count, 0);
}

TEST_F(NotYet, no_lease_is_known) {
    EXPECT_EQ(dhcpsn_db_lease_add(1, mac_, 1, 5001), 0);
    EXPECT_EQ(dhcpsn_db_lease_delete(1), 0);
    EXPECT_EQ(dhcpsn_db_lease_flush_all(), 0);
    EXPECT_EQ(dhcpsn_snooping_set(1, true, 1), 0);
    EXPECT_EQ(dhcpsn_snooping_l2_flooding_set(true, 1), 0);
    EXPECT_EQ(dhcpsn_trust_port_set(5001, true), 0);
    EXPECT_EQ(dhcpsn_arpsec_action_set(5001, 1), 0);
    EXPECT_FALSE(dhcpsn_arpsec_enabled());
    EXPECT_EQ(dhcpsn_arpsec_check_arp_violation(port1(), nullptr, 14, 1), 0);

    tarn_skip_list *list = nullptr;
    EXPECT_EQ(dhcpsn_db_get_list(&list), 0);
    EXPECT_EQ(dhcpsn_stats_get_list(&list), 0);
    EXPECT_EQ(list, nullptr);
}

TEST_F(NotYet, multicast_is_not_routed) {
    tarn_ipv4_mc_software_routing_enabled_set(1);
    tarn_ipv6_mc_software_routing_enabled_set(1);
    EXPECT_EQ(tarn_ipv4_mc_software_routing_enabled_get(), 0);
    EXPECT_EQ(tarn_ipv6_mc_software_routing_enabled_get(), 0);
    EXPECT_EQ(tarn_af_igs_l3_multicast_enable(5001, 1), 0);
    EXPECT_EQ(tarn_af_mlds_l3_multicast_enable(5001, 1), 0);
}

} // namespace
