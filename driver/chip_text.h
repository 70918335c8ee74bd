// Text that a command writes and words that it reads.
#pragma once

#include "kernel/types.h"

// A reply being written, by whole lines: what no longer fits is left out, and the end says so.
struct chip_text {
    char *start;
    std::size_t size; // with the final zero
    std::size_t used; // whole lines so far and the line being written
    std::size_t line; // where that line begins
    bool full;
    bool json;  // rows are objects (chip_rows.h)
    bool comma; // is due before the next item
};

void text_begin(chip_text &text, char *buffer, std::size_t size);
void text_put(chip_text &text, const char *format, ...) __attribute__((format(printf, 2, 3)));
void text_end_line(chip_text &text);
void text_finish(chip_text &text);

inline constexpr u32 WORDS = 6;
inline constexpr u32 WORD_BYTES = 32;

// The words of a line, zeros at their ends. `count` is WORDS + 1 when there are more, or one is too
// long.
struct chip_words {
    u32 count;
    char word[WORDS][WORD_BYTES];
};

// True: they begin with "-j", which is left out.
bool words_split(chip_words &words, const char *line);
bool word_is(const char *word, const char *expected);
bool word_number(const char *word, u32 base, u32 highest, u32 &number);
bool word_mac(const char *word, u8 *mac);

// Numbers below 4096, such as 10,20-30.
struct word_set {
    u64 bits[64];
    bool holds(u32 number) const { return bits[number / 64] >> number % 64 & 1; }
};
bool word_ranges(const char *word, u32 lowest, u32 highest, word_set &set);
