/* SPDX-License-Identifier: GPL-2.0 */
/*
 * How the driver of the switching chip follows the core: what the core is told of ports, VLANs and
 * spanning tree holds for frames that the chip forwards by itself, too. Beside tarn/rxtx_hw.h.
 *
 * The core says what may have changed, and no more; the driver then reads how it stands now. So the
 * order of calls means nothing, one that comes twice harms nothing, and of two that race the later
 * one brings the last word, when the driver reads and applies under one lock of its own (or in one
 * work item, which notes what to read again).
 *
 * Interfaces are named by the ifindex of the interface database, and are ports or aggregators; the
 * driver ignores those it has no part of. What is told of an aggregator is told of its members.
 *
 * Plain C; include it in a kernel module or in a process.
 */
#ifndef TARN_RXTX_FOLLOW_H
#define TARN_RXTX_FOLLOW_H

#ifdef __KERNEL__
#include <linux/types.h>
#else
#include <stdint.h>
#endif

#ifdef __cplusplus
extern "C" {
#endif

/*
 * What the driver offers; any may be null. The calls come from every context, with bottom halves off,
 * on several CPUs at once: they do not sleep and do not register. The core holds no spinning lock
 * that the functions below take, but may hold mutexes.
 */
struct rxtx_follow_callbacks {
    /* A port or aggregator has come, gone, or changed in what rxtx_follow_port_get() says. One that
     * has come has other VLANs and states as well, which are not told by themselves. */
    void (*port)(uint32_t ifindex);

    /* Its part in the VLANs from `first` to `last` may have changed. */
    void (*port_vlans)(uint32_t ifindex, uint32_t first, uint32_t last);

    /* Its spanning tree state in the instance may have changed. */
    void (*port_stp)(uint32_t ifindex, uint32_t instance);

    /* The VLAN has come, gone, or changed in what rxtx_follow_vlan_get() says. */
    void (*vlan)(uint32_t vid);
};

/*
 * Takes over the follower in place of the one before, copied, and calls it for all ports and VLANs
 * that there are. Null: nobody follows. When it returns, no call to the one before is under way.
 * Process context.
 */
void rxtx_follow_register(const struct rxtx_follow_callbacks *callbacks);

/* --- how it stands: from any context --------------------------------------------------------------- */

/* Of a port or an aggregator. Owned by the caller, filled by the core. */
struct rxtx_follow_port {
    uint8_t up;             /* administratively */
    uint8_t running;        /* and has link, as far as the core was told */
    uint8_t ingress_filter; /* takes in no frames of VLANs that it is no member of */
    uint8_t routed;         /* is no bridge port: everything that it takes in is for the switch */
    uint16_t pvid;          /* VLAN of untagged frames; 0: none */
    uint16_t routed_vid;    /* of a routed port: the VLAN that is its own; else 0 */
    uint32_t aggregator;    /* that it is a member of; 0: none */
    uint8_t mac[6];         /* of a routed port: its own address */
    uint32_t mirror;        /* a port or aggregator that has a copy of what leaves here; 0: none */
    char name[17];          /* with a zero at its end */
};
/* 0, or -ENODEV. */
int32_t rxtx_follow_port_get(uint32_t ifindex, struct rxtx_follow_port *port);
/* The ifindex of the port or aggregator of that name, or 0. */
uint32_t rxtx_follow_ifindex_get(const char *name);

/* A port in the 32 VLANs from `vid & ~31` on: bit `vid & 31`. A member of an aggregator has bits of
 * its own beside those of the aggregator: either makes it a member. */
struct rxtx_follow_vlans {
    uint32_t member;
    uint32_t tagged;   /* frames leave with a tag */
    uint32_t disabled; /* out of service, though it may be a member */
};
int32_t rxtx_follow_vlans_get(uint32_t ifindex, uint32_t vid, struct rxtx_follow_vlans *vlans);

#define RXTX_FOLLOW_STP_INSTANCES 64
enum rxtx_follow_stp {
    RXTX_FOLLOW_STP_DISABLED = 0,
    RXTX_FOLLOW_STP_LISTENING = 1,
    RXTX_FOLLOW_STP_LEARNING = 2,
    RXTX_FOLLOW_STP_FORWARDING = 3,
    RXTX_FOLLOW_STP_BLOCKING = 4,
};
/* The state, or -ENODEV. A member of an aggregator has the aggregator's. */
int32_t rxtx_follow_stp_get(uint32_t ifindex, uint32_t instance);

/* Of a VLAN. */
struct rxtx_follow_vlan {
    uint8_t mac[6];          /* of the switch in this VLAN; zeros: none */
    uint8_t no_member_check; /* takes in frames of ports that are no members */
    uint8_t stp_instance;    /* that decides over its frames */
};
/* 0, or -ENODEV. */
int32_t rxtx_follow_vlan_get(uint32_t vid, struct rxtx_follow_vlan *vlan);

#ifdef __cplusplus
}
#endif

#endif
