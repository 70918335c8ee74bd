// Watching the chain of redirects at work.
//
// trace_redirect_wanted() costs one load; the rest is paid for by whoever watches. The record and
// all it points to are valid during the call only. A home may be told from any context.
#pragma once

#include "kernel/types.h"

struct redirect_event {
    const void *frame; // the same for all events of one frame
    const char *port;  // name, 16 bytes at most, not terminated when it fills them; null: none
    u32 ifindex;       // of the port, 0: none
    u32 vid;
    u32 ethertype;
    u32 length;
    u8 destination[6], source[6];
    const char *redirect; // null: what the pipeline itself says
    u32 slot;
    u32 flags; // redirect_flag; 0: no decision, but a word on it
    u32 reason;
    const char *rule; // null: none
    const char *number;
    u32 measured, limit; // with a number
};

bool trace_redirect_wanted();
void trace_redirect(const redirect_event *event);

#include "home/trace.h"
