/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Commands that change the bind graph, for several processes to give at once: ports, VLANs and an
 * aggregator come and go, join and leave one another. Whoever gives them goes round the list, from
 * a place of its own. One list for the soak of a process (tests/soak) and for a kernel
 * (lab/tests/graph_churn.c).
 *
 * Many VLANs end at a time while a change of link is still to be told to their devices, so that
 * their last references go in the switch's own work, beside the commands that follow.
 *
 * Plain C that is C++ as well.
 */
#ifndef TARN_TESTS_NL_CHURN_H
#define TARN_TESTS_NL_CHURN_H

#include "nl_step_run.h"

#define NL_CHURN_VIDS 16

struct nl_churn_step {
    uint8_t command;
    int each_vlan; /* once for each VLAN, with the ifindex of its interface */
    const char *with;
};

// clang-format off
#define NL_CHURN_MAC " mac 020000000401"
#define NL_CHURN_VLANS "vid_bitmap 0000000000000000ffff" /* 64 to 79 */
static const struct nl_churn_step nl_churn[] = {
    {0, 0, "ifindex 5401 if_name churn1 if_kind 3 flags 0x41 port_kind 0" NL_CHURN_MAC},
    {0, 0, "ifindex 5402 if_name churn2 if_kind 3 flags 0x41 port_kind 1" NL_CHURN_MAC},
    {16, 0, "ifindex 5401 stp_instance 0 stp_state 3"},
    {0, 0, "ifindex 4701 if_name churnlag if_kind 3 flags 0 port_kind 3" NL_CHURN_MAC},
    {7, 0, "vid_start 64 vid_end 80 vlan_options 0" NL_CHURN_MAC},
    {20, 0, "ifindex 5401 tagged 1 " NL_CHURN_VLANS},
    {1, 0, "ifindex 5401 flags 1"},
    {1, 0, "ifindex 5401 flags 0x41"},
    {6, 1, "ifindex %u"},
    {42, 0, "ifindex 5401 agg_ifindex 4701"},
    {43, 0, "ifindex 5401 agg_ifindex 4701"},
    {42, 0, "ifindex 5402 agg_ifindex 4701"},
    {42, 0, "ifindex 5401 agg_ifindex 4701"},
    {7, 0, "vid_start 64 vid_end 80 vlan_options 0" NL_CHURN_MAC},
    {20, 0, "ifindex 4701 tagged 1 " NL_CHURN_VLANS},
    {16, 0, "ifindex 4701 stp_instance 0 stp_state 3"},
    {19, 0, "ifindex 5402 tagged 0 vid 70"},
    {1, 0, "ifindex 5401 flags 1"},
    {1, 0, "ifindex 5401 flags 0x41"},
    {7, 0, "vid_start 64 vid_end 72 vlan_options 0" NL_CHURN_MAC}, /* over those that are there */
    {8, 0, "ifindex 370 vlan_options 4"},
    {3, 0, "ifindex 370" NL_CHURN_MAC},
    {10, 0, "family 0 id 0xffffffff port_ifindex 5401 ifindex 370"},
    {8, 0, "ifindex 370 vlan_options 0"},
    {43, 0, "ifindex 5402 agg_ifindex 4701"},
    {2, 0, "ifindex 5401"}, /* the last member */
    {21, 0, "ifindex 4701 vid 70"},
    {22, 0, "ifindex 4701 " NL_CHURN_VLANS},
    {20, 0, "ifindex 4701 tagged 0 " NL_CHURN_VLANS},
    {6, 1, "ifindex %u"}, /* from here on all goes */
    {22, 0, "ifindex 4701 " NL_CHURN_VLANS},
    {41, 0, "agg_ifindex 4701"},
    {2, 0, "ifindex 5402"},
};
#undef NL_CHURN_MAC
#undef NL_CHURN_VLANS
// clang-format on

#define NL_CHURN_STEPS (sizeof(nl_churn) / sizeof(nl_churn[0]))
#define NL_CHURN_MESSAGES ((unsigned)NL_CHURN_STEPS + 2 * (NL_CHURN_VIDS - 1))

/* The message of that number, round after round; 0, or -1 where a word is no attribute. */
static inline int nl_churn_build(struct nl_message *message, uint16_t family, unsigned number) {
    const struct nl_churn_step *step = nl_churn;
    char with[256];
    number %= NL_CHURN_MESSAGES;
    while (number >= (step->each_vlan ? NL_CHURN_VIDS : 1u))
        number -= step++->each_vlan ? NL_CHURN_VIDS : 1u;
    /* Only those of each VLAN have a place for it. */
    snprintf(with, sizeof(with), step->with, 364 + number);
    return nl_step_build(message, family, step->command, with);
}

#endif
