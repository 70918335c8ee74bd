// Block operations on memory. Both homes have them under these names.
// (noexcept as the C library says it, so that a user-level file may include both.)
#pragma once

#include <cstddef>

extern "C" {
void *memcpy(void *to, const void *from, std::size_t length) noexcept;
void *memmove(void *to, const void *from, std::size_t length) noexcept;
void *memset(void *at, int value, std::size_t length) noexcept;
int memcmp(const void *a, const void *b, std::size_t length) noexcept;
int strncmp(const char *a, const char *b, std::size_t length) noexcept;
int snprintf(char *buffer, std::size_t size, const char *format, ...) noexcept
    __attribute__((format(printf, 3, 4)));
}
