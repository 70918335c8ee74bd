// Socket buffers by the rules of Linux 6.1 (net/core/skbuff.c there), as far as frames are linear.
//
// The numbers are those of x86_64: what a buffer counts for depends on the size of the kernel's
// records and on the sizes in which its allocator hands out memory.
#include "kernel/skb.h"

#include "control.h"
#include "kernel/bug.h"
#include "kernel/errno.h"
#include "kernel/memory.h"
#include "kernel/percpu.h"
#include "memory.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace userlevel {

namespace {

constexpr u32 CACHE_LINE = 64;
constexpr u32 PAGE = 4096;
constexpr u32 NET_SKB_PAD = 64;
constexpr u64 aligned(u64 size) {
    return (size + CACHE_LINE - 1) / CACHE_LINE * CACHE_LINE;
}

constexpr u32 SK_BUFF = aligned(232);     // sizeof(struct sk_buff)
constexpr u32 SHARED_INFO = aligned(320); // sizeof(struct skb_shared_info), behind the data

// What each thread has made and ended.
enum number { BLOCKS, DROPPED, CONSUMED, IRQ, NUMBERS };
u64 *numbers() {
    static u64 *const all = percpu_numbers(NUMBERS);
    return all;
}

// The sizes in which kmalloc hands out memory. In 64 bits: whatever length a caller asks for, it
// comes out as a size that is too large and not as one that has wrapped.
u64 rounded_up(u64 size) {
    constexpr std::array<u32, 13> classes{8,   16,  32,   64,   96,   128, 192,
                                          256, 512, 1024, 2048, 4096, 8192};
    const auto *fits = std::lower_bound(classes.begin(), classes.end(), size);
    if (fits != classes.end())
        return *fits;
    u64 pages = PAGE;
    while (pages < size)
        pages *= 2;
    return pages;
}

// The bytes of a block are an allocation of their own: the frame's end is the block's end.
u8 *new_block(u64 usable, gfp_t flags, const void *site) {
    percpu_add(&numbers()[BLOCKS], u64{1});
    return static_cast<u8 *>(allocate_pooled("skb data", usable, flags, site));
}

// A buffer whose block is `total` bytes, shared info included.
sk_buff *make(u64 total, gfp_t flags, const void *site) {
    void *memory = allocate_pooled("sk_buff", sizeof(sk_buff), flags | __GFP_ZERO, site);
    if (!memory)
        return nullptr;
    auto *skb = static_cast<sk_buff *>(memory);
    u64 usable = total - SHARED_INFO;
    u8 *block = new_block(usable, flags, site);
    if (!block) {
        release(skb);
        return nullptr;
    }
    skb->head = skb->data = skb->tail = block;
    skb->end = block + usable;
    skb->mac_header = SKB_NO_MAC_HEADER;
    skb->users = 1;
    skb->truesize = static_cast<u32>(usable) + SK_BUFF + SHARED_INFO;
    skb_watch(skb);
    return skb;
}

sk_buff *alloc_skb(u64 size, gfp_t flags, const void *site) {
    return make(rounded_up(aligned(size) + SHARED_INFO), flags, site);
}

void copy_header(sk_buff *to, const sk_buff *from) {
    to->mark = from->mark;
    to->priority = from->priority;
    to->dev = from->dev;
    to->mac_header = from->mac_header; // the room in front is the same
    std::memcpy(to->cb, from->cb, sizeof(to->cb));
}

// With enough room in front already: a buffer of just the frame and the room before it, whose bytes
// and the tail room do not come along.
sk_buff *copy_of_just_the_frame(const sk_buff *skb, gfp_t flags, const void *site) {
    u32 headroom = skb_headroom(skb);
    sk_buff *copy = alloc_skb(u64{headroom} + skb->len, flags, site);
    if (!copy)
        return nullptr;
    skb_reserve(copy, headroom);
    std::memcpy(skb_put(copy, skb->len), skb->data, skb->len);
    copy_header(copy, skb);
    return copy;
}

// True when this was the last holder.
bool let_go(sk_buff *skb) {
    return __atomic_sub_fetch(&skb->users, 1, __ATOMIC_ACQ_REL) == 0;
}

void destroy(sk_buff *skb) {
    if (skb->destructor)
        skb->destructor(skb);
    release(skb->head, skb);
}

void end(sk_buff *skb, number how) {
    if (!skb || !let_go(skb))
        return;
    percpu_add(&numbers()[how], u64{1});
    destroy(skb);
}

[[noreturn]] void panic(const char *what, const sk_buff *skb, unsigned length) {
    std::fprintf(stderr, "%s: len:%u put:%u headroom:%u tailroom:%u\n", what, skb->len, length,
                 skb_headroom(skb), skb_tailroom(skb));
    BUG();
}

} // namespace

// Under the address sanitizer only the frame itself may be touched, and not the room around it.
// Clones see different parts of one block: there, all of it may be. Before a frame that does not
// begin at a multiple of 8, the sanitizer lets up to 7 bytes pass.
void skb_watch(sk_buff *skb) {
    if constexpr (!UNDER_ASAN)
        return;
    allow(skb->head, skb->end);
    if (is_shared(skb->head))
        return;
    forbid(skb->head, skb->data);
    forbid(skb->tail, skb->end);
}

void skb_drop(sk_buff *skb) {
    end(skb, DROPPED);
}
void skb_consume(sk_buff *skb) {
    end(skb, CONSUMED);
}

sk_buff *skb_make(u64 size, gfp_t flags, const void *site) {
    return alloc_skb(size, flags, site);
}

u64 frame_blocks_made() {
    return percpu_total(&numbers()[BLOCKS]);
}

skb_ends skbs_ended() {
    const u64 *all = numbers();
    return {percpu_total(&all[DROPPED]), percpu_total(&all[CONSUMED]), percpu_total(&all[IRQ])};
}

sk_buff *frame_make(std::span<const u8> bytes, u32 headroom, u32 tailroom) {
    auto length = static_cast<u32>(bytes.size());
    sk_buff *skb =
        alloc_skb(u64{headroom} + bytes.size() + tailroom, gfp_here(), __builtin_return_address(0));
    if (!skb)
        return nullptr;
    skb_reserve(skb, headroom);
    std::copy(bytes.begin(), bytes.end(), static_cast<u8 *>(skb_put(skb, length)));
    return skb;
}

} // namespace userlevel

using namespace userlevel;

void skb_orphan(sk_buff *skb) {
    if (!skb->destructor) {
        if (skb->sk)
            BUG();
        return;
    }
    skb->destructor(skb);
    skb->destructor = nullptr;
    skb->sk = nullptr;
}

sk_buff *__alloc_skb(unsigned size, gfp_t flags, int, int) {
    return alloc_skb(size, flags, __builtin_return_address(0));
}

sk_buff *__netdev_alloc_skb(net_device *device, unsigned length, gfp_t flags) {
    const void *site = __builtin_return_address(0);
    u64 size = u64{length} + NET_SKB_PAD;
    bool from_kmalloc =
        size <= 1024 - SHARED_INFO || size > PAGE - SHARED_INFO || (flags & __GFP_DIRECT_RECLAIM);
    // Between, the kernel cuts pieces of just the right size off a page.
    sk_buff *skb = from_kmalloc ? alloc_skb(size, flags, site)
                                : make(aligned(size) + SHARED_INFO, flags, site);
    if (!skb)
        return nullptr;
    skb_reserve(skb, NET_SKB_PAD);
    skb->dev = device;
    return skb;
}

void *skb_pull(sk_buff *skb, unsigned length) {
    if (length > skb->len)
        return nullptr;
    skb->len -= length;
    skb->data += length;
    skb_watch(skb);
    return skb->data;
}

void *skb_push(sk_buff *skb, unsigned length) {
    if (length > skb_headroom(skb))
        panic("skb_under_panic", skb, length);
    skb->data -= length;
    skb->len += length;
    skb_watch(skb);
    return skb->data;
}

void *skb_put(sk_buff *skb, unsigned length) {
    if (length > skb_tailroom(skb))
        panic("skb_over_panic", skb, length);
    u8 *at = skb->tail;
    skb->tail += length;
    skb->len += length;
    skb_watch(skb);
    return at;
}

void skb_trim(sk_buff *skb, unsigned length) {
    if (length >= skb->len)
        return;
    skb->len = length;
    skb->tail = skb->data + length;
    skb_watch(skb);
}

sk_buff *skb_copy(const sk_buff *skb, gfp_t flags) {
    sk_buff *copy =
        alloc_skb(static_cast<u32>(skb->end - skb->head), flags, __builtin_return_address(0));
    if (!copy)
        return nullptr;
    skb_reserve(copy, skb_headroom(skb));
    skb_put(copy, skb->len);
    // The room before the frame comes along: headers that were pulled lie there.
    auto *from = const_cast<sk_buff *>(skb);
    allow(from->head, from->end);
    allow(copy->head, copy->end);
    std::memcpy(copy->head, skb->head, skb_headroom(skb) + skb->len);
    skb_watch(from);
    skb_watch(copy);
    copy_header(copy, skb);
    return copy;
}

sk_buff *skb_clone(sk_buff *skb, gfp_t flags) {
    void *memory = allocate_pooled("sk_buff", sizeof(sk_buff), flags, __builtin_return_address(0));
    if (!memory)
        return nullptr;
    auto *clone = static_cast<sk_buff *>(memory);
    hold(skb->head);
    skb->was_cloned = 1;
    *clone = *skb;
    clone->users = 1;
    clone->sk = nullptr;
    clone->destructor = nullptr;
    skb_watch(skb);
    return clone;
}

sk_buff *skb_realloc_headroom(sk_buff *skb, unsigned headroom) {
    int missing = static_cast<int>(headroom - skb_headroom(skb));
    if (missing <= 0)
        return copy_of_just_the_frame(skb, GFP_ATOMIC, __builtin_return_address(0));
    sk_buff *copy = skb_clone(skb, GFP_ATOMIC);
    if (copy && pskb_expand_head(copy, static_cast<int>(aligned(static_cast<u32>(missing))), 0,
                                 GFP_ATOMIC) != 0) {
        kfree_skb(copy);
        return nullptr;
    }
    return copy;
}

int pskb_expand_head(sk_buff *skb, int before, int after, gfp_t flags) {
    if (before < 0 || __atomic_load_n(&skb->users, __ATOMIC_ACQUIRE) != 1)
        BUG();
    u32 old_usable = static_cast<u32>(skb->end - skb->head);
    u32 used = skb_headroom(skb) + skb->len;
    i64 size = i64{old_usable} + before + after;
    if (size < i64{before} + used)
        BUG(); // a kernel would write past the new block
    u64 usable = rounded_up(aligned(static_cast<u64>(size)) + SHARED_INFO) - SHARED_INFO;
    u8 *block = new_block(usable, flags, __builtin_return_address(0));
    if (!block)
        return -ENOMEM;

    // The room before the frame is carried over too: headers that were pulled lie there.
    u8 *old = skb->head;
    allow(old, skb->end);
    std::memcpy(block + before, old, used);
    skb->data = block + before + skb_headroom(skb);
    skb->tail = skb->data + skb->len;
    skb->head = block;
    skb->end = block + usable;
    skb->was_cloned = 0;
    if (skb->mac_header != SKB_NO_MAC_HEADER)
        skb->mac_header = static_cast<u16>(skb->mac_header + before);
    if (!skb->sk)
        skb->truesize += static_cast<u32>(usable) - old_usable;
    release(old);
    skb_watch(skb);
    return 0;
}

void __dev_kfree_skb_irq(sk_buff *skb, int) {
    userlevel::end(skb, userlevel::IRQ);
}

void consume_skb(sk_buff *skb) {
    skb_consume(skb);
}
