// SPDX-License-Identifier: MIT
#pragma once
// Counts what goes through the global operator new and, where the C library tells, malloc; lets one fail.
#include <cstddef>

namespace support {

/// Allocations of this thread so far, by operator new in all its forms and by malloc, calloc and realloc of
/// Qt's arrays.
std::size_t allocationCount();

/// Whether counting works in this build: the sanitizers bring an allocator of their own.
bool allocationCountWorks();

/// Blocks that this thread has allocated and not freed, where counting works; 0 elsewhere.
std::ptrdiff_t liveAllocations();

/// Has the `n`-th allocation of this thread from now on fail, once; 0: none. In builds with sanitizers only
/// what goes through operator new.
void failAllocation(std::size_t n);

/// Whether that one has been reached.
bool allocationHasFailed();

} // namespace support
