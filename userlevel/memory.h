// Every allocation of the home goes through here, so that each can fail and all can be listed.
#pragma once

#include "kernel/types.h"

namespace userlevel {

// Null when the test wants it so, or when memory is out. `site` is the caller's return address.
void *allocate(const char *kind, std::size_t bytes, gfp_t flags, const void *site);
void release(const void *memory); // null is ignored

// Marks bytes that nobody may touch, for the address sanitizer; nothing without it.
void forbid(const void *from, const void *to);
void allow(const void *from, const void *to);

} // namespace userlevel
