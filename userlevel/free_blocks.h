// Blocks of memory that a thread has released and uses again itself, by their size.
#pragma once

#include "kernel/types.h"

#include <algorithm>
#include <array>
#include <bit>
#include <new>
#include <utility>

namespace userlevel {

class free_blocks {
public:
    // What a block of so many bytes belongs to, powers of two; SIZES when it is too large to be
    // kept.
    static constexpr std::size_t SIZES = 9, SMALLEST = 128;
    static constexpr std::size_t size_of(std::size_t bytes) {
        return bytes <= SMALLEST
                   ? 0
                   : std::min<std::size_t>(std::bit_width((bytes - 1) / SMALLEST), SIZES);
    }
    static constexpr std::size_t bytes_of(std::size_t size) { return SMALLEST << size; }
    // So many are kept: of large ones fewer.
    static constexpr u32 most_of(std::size_t size) { return size <= 4 ? 64 : 64 >> (size - 4); }

    // Null: there is none.
    void *take(std::size_t size) {
        block *first = first_[size];
        if (!first)
            return nullptr;
        count_[size]--;
        return std::exchange(first_[size], first->next);
    }
    // False: there are enough.
    bool keep(std::size_t size, void *memory) {
        if (count_[size] == most_of(size))
            return false;
        count_[size]++;
        first_[size] = new (memory) block{first_[size]};
        return true;
    }

private:
    struct block {
        block *next;
    };
    std::array<block *, SIZES> first_{};
    std::array<u32, SIZES> count_{};
};

} // namespace userlevel
