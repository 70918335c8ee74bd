// Words that several CPUs read and write without a lock, by design: counters that may lose a count,
// debug switches, state words. Every access goes through this pair, which costs nothing and says
// that the race is meant.
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

// A statistics counter: two CPUs at once may count one, which is accepted on the packet path.
template <typename T>
inline void count_up(T &counter) {
    write_once(counter, read_once(counter) + 1);
}
