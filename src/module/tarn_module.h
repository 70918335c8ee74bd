// Module start.
#pragma once

#include "kernel/types.h"

// What the kernel calls at load: 0, or -1 when the proc tree cannot be made. There is no exit: the
// module stays until the system stops.
extern "C" int init_module();

i32 tarn_init();
i32 tarn_os_init();
i32 redirects_init();
