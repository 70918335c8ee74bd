// Block operations on memory. Both homes have them under these names.
#pragma once

#include <cstddef>

extern "C" {
void *memcpy(void *to, const void *from, std::size_t length);
void *memmove(void *to, const void *from, std::size_t length);
void *memset(void *at, int value, std::size_t length);
int memcmp(const void *a, const void *b, std::size_t length);
int strncmp(const char *a, const char *b, std::size_t length);
int snprintf(char *buffer, std::size_t size, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
}
