// Random bytes. At user level a test may seed them.
#pragma once

#include <cstddef>

extern "C" void get_random_bytes(void *buffer, std::size_t length);
