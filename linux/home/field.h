// A field of a kernel record, by its generated offset.
#pragma once

#include "home/offsets.h"

namespace home {

template <typename T, typename Record>
inline T &field(Record *record, unsigned long offset) {
    return *reinterpret_cast<T *>(reinterpret_cast<char *>(record) + offset);
}

template <typename T, typename Record>
inline const T &field(const Record *record, unsigned long offset) {
    return *reinterpret_cast<const T *>(reinterpret_cast<const char *>(record) + offset);
}

} // namespace home
