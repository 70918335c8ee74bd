// Events that pass between the interface database and the rest: device events of the kernel, and
// the creation of VLANs, of which one subscriber is told.
#pragma once

#include "kernel/netdev.h"

extern notifier_block tarn_ifmgr_device_notifier;
int tarn_ifmgr_device_event(notifier_block *block, unsigned long event, void *info);

// 0, or -EINVAL when there is a subscriber already. Nobody can unsubscribe.
i32 tarn_ifmgr_notifications_register(void (*subscriber)(u32 vid));
void tarn_ifmgr_notify_vlan_created(u32 vid);
