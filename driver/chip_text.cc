#include "chip_text.h"

#include "kernel/bytes.h"

#include <cstdarg>

extern "C" int vsnprintf(char *buffer, std::size_t size, const char *format,
                         va_list arguments) noexcept __attribute__((format(printf, 3, 0)));

namespace {

constexpr char CUT[] = "(more did not fit)\n";
constexpr std::size_t RESERVED = sizeof(CUT); // so that there is always room to say so

bool _is_blank(char at) {
    return at == ' ' || at == '\t' || at == '\n' || at == '\r';
}

int _digit(char at) {
    if (at >= '0' && at <= '9')
        return at - '0';
    if (at >= 'a' && at <= 'f')
        return at - 'a' + 10;
    return at >= 'A' && at <= 'F' ? at - 'A' + 10 : 99;
}

} // namespace

void text_begin(chip_text &text, char *buffer, std::size_t size) {
    text = {.start = buffer,
            .size = size,
            .used = 0,
            .line = 0,
            .full = size <= RESERVED,
            .json = false,
            .comma = false};
    if (size != 0)
        buffer[0] = '\0';
}

void text_put(chip_text &text, const char *format, ...) {
    if (text.full)
        return;
    std::size_t room = text.size - RESERVED - text.used;
    va_list arguments;
    va_start(arguments, format);
    auto wanted =
        static_cast<std::size_t>(vsnprintf(text.start + text.used, room, format, arguments));
    va_end(arguments);
    text.full = wanted >= room;
    if (!text.full)
        text.used += wanted;
}

void text_end_line(chip_text &text) {
    text_put(text, "\n");
    if (!text.full)
        text.line = text.used;
}

void text_finish(chip_text &text) {
    if (!text.full || text.size == 0)
        return;
    if (text.size > RESERVED)
        memcpy(text.start + text.line, CUT, sizeof(CUT));
}

namespace {

void _split(chip_words &words, const char *line) {
    words = {};
    for (;;) {
        while (_is_blank(*line))
            line++;
        if (*line == '\0')
            return;
        u32 length = 0;
        while (line[length] != '\0' && !_is_blank(line[length]) && length < WORD_BYTES)
            length++;
        if (words.count == WORDS || length == WORD_BYTES) {
            words.count = WORDS + 1;
            return;
        }
        memcpy(words.word[words.count++], line, length);
        line += length;
    }
}

} // namespace

bool words_split(chip_words &words, const char *line) {
    while (_is_blank(*line))
        line++;
    bool json = line[0] == '-' && line[1] == 'j' && (line[2] == '\0' || _is_blank(line[2]));
    _split(words, json ? line + 2 : line);
    return json;
}

bool word_is(const char *word, const char *expected) {
    return strncmp(word, expected, WORD_BYTES) == 0;
}

bool word_number(const char *word, u32 base, u32 highest, u32 &number) {
    number = 0;
    if (*word == '\0')
        return false;
    for (; *word != '\0'; word++) {
        auto digit = static_cast<u32>(_digit(*word));
        if (digit >= base || number > (~0u - digit) / base)
            return false;
        number = number * base + digit;
    }
    return number <= highest;
}

namespace {

// The number at the word, which moves behind it.
bool _leading_number(const char *&word, u32 highest, u32 &number) {
    char digits[8] = {};
    u32 length = 0;
    while (_digit(*word) < 10 && length < sizeof(digits) - 1)
        digits[length++] = *word++;
    return word_number(digits, 10, highest, number);
}

} // namespace

bool word_ranges(const char *word, u32 lowest, u32 highest, word_set &set) {
    set = {};
    do {
        u32 from, to;
        if (!_leading_number(word, highest, from))
            return false;
        to = from;
        if (*word == '-' && !_leading_number(++word, highest, to))
            return false;
        if (from < lowest || to < from)
            return false;
        for (u32 number = from; number <= to; number++)
            set.bits[number / 64] |= u64{1} << number % 64;
    } while (*word++ == ',');
    return word[-1] == '\0';
}

bool word_mac(const char *word, u8 *mac) {
    for (int i = 0; i < 6; i++) {
        int high = _digit(word[0]), low = high < 16 ? _digit(word[1]) : 99;
        if (low > 15)
            return false;
        mac[i] = static_cast<u8>(high << 4 | low);
        word += 2;
        if (*word != (i == 5 ? '\0' : ':'))
            return false;
        word++;
    }
    return true;
}
