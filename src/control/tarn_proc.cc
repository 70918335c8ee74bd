#include "control/control.h"

// The read and debug surface takes effect when it lands; until then there is nothing that could
// fail to be created.
i32 _module_create_proc() {
    return 0;
}
