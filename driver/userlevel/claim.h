// One switch to a device: two that received its frames would each do with them what a switch does,
// and every broadcast would leave twice. The claim is a Unix socket without a path, which is known
// in the network namespace of the device alone, by the device's number, and goes with the process,
// however that ends.
#pragma once

// 0, and what holds it until it is closed (-1 where nothing needs to); or a negative errno: -EBUSY
// when another process has it.
int claim_device(const char *device, int &claim);

// Who has it: a process, or 0 for nobody that is known.
int claim_holder(const char *device);
