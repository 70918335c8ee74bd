#include "kernel/parse.h"

namespace {

constexpr unsigned NO_DIGIT = 99;

unsigned digit_of(char byte) {
    if (byte >= '0' && byte <= '9')
        return static_cast<unsigned>(byte - '0');
    char lower = static_cast<char>(byte | 0x20);
    return lower >= 'a' && lower <= 'f' ? static_cast<unsigned>(lower - 'a' + 10) : NO_DIGIT;
}

bool has_hex_prefix(const char *text) {
    return text[0] == '0' && (text[1] | 0x20) == 'x';
}

unsigned base_by_prefix(const char *text) {
    if (text[0] != '0')
        return 10;
    return has_hex_prefix(text) && digit_of(text[2]) != NO_DIGIT ? 16 : 8;
}

} // namespace

unsigned long simple_strtoul(const char *text, char **end, unsigned base) {
    if (base == 0)
        base = base_by_prefix(text);
    if (base == 16 && has_hex_prefix(text))
        text += 2;
    unsigned long value = 0;
    for (; digit_of(*text) < base; text++)
        value = value * base + digit_of(*text);
    if (end)
        *end = const_cast<char *>(text);
    return value;
}

long simple_strtol(const char *text, char **end, unsigned base) {
    if (*text == '-')
        return static_cast<long>(-simple_strtoul(text + 1, end, base));
    return static_cast<long>(simple_strtoul(text, end, base));
}
