// The start of stacking.
#pragma once

#include "kernel/types.h"

i32 tarn_stack_init(); // stack.cc
