#pragma once

#include "kernel/once.h"

// A thread stands for a CPU, as long as there are places; what it has for itself lies so far behind
// the record that names it. Threads beyond those share the record, by atomic steps.
namespace userlevel {
// 0: none yet, or none at all.
extern constinit thread_local std::size_t percpu_offset [[gnu::tls_model("local-exec")]];

template <typename Word>
Word &percpu_own(Word *word) {
    return *reinterpret_cast<Word *>(reinterpret_cast<u8 *>(word) + percpu_offset);
}
// A thread's first step, and each of one that shares.
u32 percpu_add_slowly(u32 *word, u32 more);
u64 percpu_add_slowly(u64 *word, u64 more);

template <typename Word>
Word percpu_add(Word *word, Word more) {
    if (percpu_offset == 0) [[unlikely]]
        return percpu_add_slowly(word, more);
    Word &own = percpu_own(word);
    Word now = read_once(own) + more;
    write_once(own, now);
    return now;
}
} // namespace userlevel

inline void this_cpu_add(u32 *word, u32 more) {
    userlevel::percpu_add(word, more);
}
inline u64 this_cpu_add_return(u64 *word, u64 more) {
    return userlevel::percpu_add(word, more);
}
// Of what those have who share, too.
inline u64 this_cpu_read(u64 *word) {
    return read_once(userlevel::percpu_own(word));
}
inline void this_cpu_write(u64 *word, u64 value) {
    write_once(userlevel::percpu_own(word), value);
}
u32 percpu_sum(const u32 *word);
