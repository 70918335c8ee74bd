#include "stack/stack.h"

// The state of the stack takes effect when it lands.
i32 tarn_stack_init() {
    return 0;
}
