// Words that several CPUs read and write without a lock, by design: counters, debug switches, state
// words. Every access goes through this pair, which costs nothing and says that the race is meant.
#pragma once

template <typename T>
inline T read_once(const T &word) {
    return __atomic_load_n(&word, __ATOMIC_RELAXED);
}

template <typename T, typename V>
inline void write_once(T &word, V value) {
    __atomic_store_n(&word, static_cast<T>(value), __ATOMIC_RELAXED);
}

// Bits of a word of which others change other bits meanwhile.
template <typename T, typename V>
inline void set_bits(T &word, V bits) {
    __atomic_or_fetch(&word, static_cast<T>(bits), __ATOMIC_RELAXED);
}

template <typename T, typename V>
inline void clear_bits(T &word, V bits) {
    __atomic_and_fetch(&word, static_cast<T>(~bits), __ATOMIC_RELAXED);
}

// A counter that is one word for all CPUs: raised in one step, so that none is lost and it never
// runs backwards. What every frame counts stands in words of each CPU instead (percpu.h).
template <typename T, typename V>
inline T count_in(T &counter, V more) {
    return __atomic_add_fetch(&counter, static_cast<T>(more), __ATOMIC_RELAXED);
}
