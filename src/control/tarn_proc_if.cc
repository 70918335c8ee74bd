#include "ifmgr/tarn_ifmgr_calls.h"

// The entries of interfaces take effect with the read and debug surface.
i32 _module_create_proc_if(tarn_if *) {
    return 0;
}

void module_remove_proc_if(tarn_if *) {}

i32 _module_bind_add_proc_if(tarn_if *) {
    return 0;
}

i32 _module_unbind_del_proc_if(tarn_if *) {
    return 0;
}
