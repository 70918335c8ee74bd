#include "stack/stack.h"

// The file by which a daemon tells the role of this unit takes effect with the state of the stack;
// until then there is none.
i32 tarn_stack_init_proc_entry(proc_dir_entry *) {
    return 0;
}
