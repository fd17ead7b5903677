// SPDX-License-Identifier: MIT
#pragma once
// Counts what goes through the global operator new and, where the C library tells, malloc.
#include <cstddef>

namespace support {

/// Allocations of this thread so far, by operator new in all its forms and by malloc, calloc and realloc of
/// Qt's arrays.
std::size_t allocationCount();

/// Whether counting works in this build: the sanitizers bring an allocator of their own.
bool allocationCountWorks();

} // namespace support
