#include "control/control.h"

// The command family takes effect when it lands.
i32 tarnfwd_nl_init() {
    return 0;
}
