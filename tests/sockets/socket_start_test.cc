// What a family does when its redirect cannot be had, each in a process of its own.
#include "control.h"
#include "kernel/errno.h"
#include "module/tarn_module.h"
#include "pkt/pkt_redirect.h"
#include "socket_calls.h"
#include "tarn/skaddr.h"

#include <gtest/gtest.h>

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

TEST(SocketStart, no_socket_opens_before_the_module_is_loaded) {
    EXPECT_EQ(open_result(TARN_AF_LACP), -EAFNOSUPPORT);
    EXPECT_EQ(open_result(-1), -EAFNOSUPPORT);
    EXPECT_EQ(open_result(500), -EAFNOSUPPORT);
}

} // namespace
