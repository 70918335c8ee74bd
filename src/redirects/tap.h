// What the taps share that copy frames to a raw netlink group: the frame as it came from the wire,
// behind the words of a message.
#pragma once

#include "kernel/types.h"

struct sk_buff;

// A header that netlink's readers skip, in host order. Its length word is on purpose not the
// message's length: readers have that from their read.
struct tap_header {
    u32 length;
    u32 unused[3];
};
static_assert(sizeof(tap_header) == 16);

// Puts the tag back that was stripped, where the classification's `tag` says that there was one. 0;
// -ENOMEM with the frame as it was.
i32 tap_restore_tag(sk_buff *skb, u32 tag);

// The frame, with room for that many bytes before it: itself or, in its place, another. Null
// without memory: then the frame is alive.
sk_buff *tap_make_room(sk_buff *skb, u32 bytes);
