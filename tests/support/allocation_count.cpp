// SPDX-License-Identifier: MIT
#include "support/allocation_count.h"
#include <cstdlib>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VK410_COUNTS_ALLOCATIONS 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define VK410_COUNTS_ALLOCATIONS 0
#endif
#endif
#ifndef VK410_COUNTS_ALLOCATIONS
#define VK410_COUNTS_ALLOCATIONS 1
#endif

namespace {

thread_local std::size_t allocations = 0;

} // namespace

namespace support {

std::size_t allocationCount()
{
    return allocations;
}

bool allocationCountWorks()
{
    return VK410_COUNTS_ALLOCATIONS != 0;
}

} // namespace support

#if VK410_COUNTS_ALLOCATIONS
// operator new and Qt both end in these three.
extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);

void* malloc(std::size_t size)
{
    ++allocations;
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size)
{
    ++allocations;
    return __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size)
{
    ++allocations;
    return __libc_realloc(block, size);
}
}
#endif
