// SPDX-License-Identifier: GPL-2.0
/*
 * What the module is and what it exports to the driver of the switching chip: no more than this. A chip's
 * driver may be a closed module, so the boundary is there for modules of any licence.
 */
#include <linux/export.h>
#include <linux/module.h>

#include "tarn/rxtx_follow.h"
#include "tarn/rxtx_hw.h"

EXPORT_SYMBOL(rxtx_hw_register);
EXPORT_SYMBOL(rxtx_hw_packet_recv);
EXPORT_SYMBOL(tarn_pkt_sdma_counters_get);
EXPORT_SYMBOL(tarn_stacking_mgmt_queue);
EXPORT_SYMBOL(rxtx_follow_register);
EXPORT_SYMBOL(rxtx_follow_port_get);
EXPORT_SYMBOL(rxtx_follow_ifindex_get);
EXPORT_SYMBOL(rxtx_follow_vlans_get);
EXPORT_SYMBOL(rxtx_follow_stp_get);
EXPORT_SYMBOL(rxtx_follow_vlan_get);

MODULE_DESCRIPTION("Orvo Layer 2 Networking support");
MODULE_LICENSE("GPL v2");
