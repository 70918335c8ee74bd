// Device events of the kernel, as the interface manager hears them.
#pragma once

#include "kernel/netdev.h"

extern notifier_block tarn_ifmgr_device_notifier;
