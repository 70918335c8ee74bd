// How the families start, also when the redirect of one cannot be had; each in a process of its
// own.
#include "control.h"
#include "ifmgr/tarn_ifmgr.h"
#include "kernel/errno.h"
#include "kernel/sock.h"
#include "module/tarn_module.h"
#include "pkt/pkt_redirect.h"
#include "socket_calls.h"
#include "sockets/sockets.h"
#include "tarn/skaddr.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

namespace {

std::map<i32, std::string> registered; // the names by the numbers

} // namespace

// The linker leads the call to its __wrap_ form.
#define SOCK_REGISTER "_Z13sock_registerPK16net_proto_family"
i32 registering(const net_proto_family *family) asm("__wrap_" SOCK_REGISTER);
i32 really_register(const net_proto_family *family) asm("__real_" SOCK_REGISTER);
i32 registering(const net_proto_family *family) {
    EXPECT_EQ(family->ops->family, family->family);
    registered[family->family] = family->proto->name;
    return really_register(family);
}

namespace {

int open_result(int family) {
    struct socket *made = nullptr;
    return userlevel::socket_open(family, SOCK_RAW, 0, &made);
}

TEST(SocketStart, a_family_without_its_redirect_stays_closed_but_mrp_and_profinet) {
    packet_redirect squatter{.name = "squatter",
                             .match = [](tarn_pkt_info *, redirect_instruct *) { return 0; },
                             .post = tarn_pkt_packet_post_dummy};
    for (u32 slot : {10u, 18u, 22u, 23u, 25u})
        ASSERT_EQ(tarn_pkt_register_packet_redirection(&squatter, slot), 0);
    ASSERT_EQ(init_module(), 0);
    bool told = false; // kelm_agent tells it
    for (const userlevel::log_line &line : userlevel::log_take())
        told |= line.level == 2 && line.text == "Failed to init";
    EXPECT_TRUE(told);
    EXPECT_EQ(open_result(TARN_AF_KELM_AGENT), -EAFNOSUPPORT);
    EXPECT_EQ(open_result(TARN_AF_LACP), -EAFNOSUPPORT);
    EXPECT_EQ(open_result(TARN_AF_ISIS), -EAFNOSUPPORT);
    EXPECT_EQ(packet_redirects[25]->enabled, 1); // the squatter's, which is left alone
    EXPECT_EQ(open_result(TARN_AF_MRP), 0);
    EXPECT_EQ(open_result(TARN_AF_PROFINET), 0);
    EXPECT_EQ(open_result(TARN_AF_STP), 0);
}

TEST(SocketStart, every_family_is_registered_under_its_name) {
    ASSERT_EQ(init_module(), 0);
    EXPECT_EQ(registered,
              (std::map<i32, std::string>{
                  {46, "LACP"},       {47, "EAPOL"},  {48, "STP"},  {50, "GARP"},  {51, "IGMP"},
                  {52, "MLD"},        {53, "LLDP"},   {54, "RYKE"}, {55, "TESTD"}, {56, "FRAME"},
                  {57, "LDF"},        {60, "DHCPSN"}, {61, "UDLD"}, {62, "KELM"},  {63, "OFP"},
                  {65, "KELM_AGENT"}, {66, "CFM"},    {67, "BEFD"}, {68, "ISIS"},  {69, "MRP"},
                  {70, "PROFINET"},
              }));
}

// Each with its slot free, and with it taken.
TEST(SocketStart, a_start_answers_as_the_registry_of_redirects_does) {
    tarn_ifmgr_init();
    for (auto *start : {tarn_af_lacp_sock_init, tarn_af_stp_sock_init, tarn_af_garp_sock_init,
                        tarn_af_ryke_sock_init, tarn_af_ldf_sock_init, tarn_af_lldp_sock_init,
                        tarn_af_testd_sock_init, tarn_af_kelm_agent_sock_init,
                        tarn_af_udld_sock_init, tarn_af_cfm_sock_init, tarn_befd_sock_init,
                        tarn_af_isis_sock_init, tarn_mrp_sock_init, tarn_af_profinet_sock_init}) {
        EXPECT_EQ(start(), 0);
        EXPECT_EQ(start(), -EINVAL);
    }
    EXPECT_EQ(tarn_af_frame_sock_init(), 0);
}

TEST(SocketStart, no_socket_opens_before_the_module_is_loaded) {
    EXPECT_EQ(open_result(TARN_AF_LACP), -EAFNOSUPPORT);
    EXPECT_EQ(open_result(-1), -EAFNOSUPPORT);
    EXPECT_EQ(open_result(500), -EAFNOSUPPORT);
}

} // namespace
