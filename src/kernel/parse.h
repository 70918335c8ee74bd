// Numbers out of text, as the kernel reads them: no blank before, no plus sign, digits up to the
// first byte that is none; a value that is too large wraps. Base 16 may have "0x" before it; base 0
// goes by the prefix. *end, when asked for, is where the digits end.
#pragma once

extern "C" {
long simple_strtol(const char *text, char **end, unsigned base);
unsigned long simple_strtoul(const char *text, char **end, unsigned base);
}
