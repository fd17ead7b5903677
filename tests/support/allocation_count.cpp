// SPDX-License-Identifier: MIT
#include "support/allocation_count.h"
#include "support/sanitizers.h"
#include <cerrno>
#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t allocations = 0;
thread_local std::ptrdiff_t live = 0;
thread_local std::size_t untilFailure = 0; // 0: none is to fail
thread_local bool hasFailed = false;

// Counts one, and says whether it fails.
bool failsNow()
{
    ++allocations;
    if (untilFailure == 0 || --untilFailure != 0)
        return false;
    hasFailed = true;
    return true;
}

} // namespace

namespace support {

std::size_t allocationCount()
{
    return allocations;
}

bool allocationCountWorks()
{
    return VK410_SANITIZED == 0;
}

std::ptrdiff_t liveAllocations()
{
    return live;
}

void failAllocation(std::size_t n)
{
    untilFailure = n;
    hasFailed = false;
}

bool allocationHasFailed()
{
    return hasFailed;
}

} // namespace support

#if !VK410_SANITIZED
// operator new and Qt both end in these.
extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);

void* malloc(std::size_t size)
{
    void* const block = failsNow() ? nullptr : __libc_malloc(size);
    live += block ? 1 : 0;
    return block;
}

void* calloc(std::size_t count, std::size_t size)
{
    void* const block = failsNow() ? nullptr : __libc_calloc(count, size);
    live += block ? 1 : 0;
    return block;
}

void* realloc(void* block, std::size_t size)
{
    if (failsNow())
        return nullptr;
    void* const moved = __libc_realloc(block, size);
    live += (moved ? 1 : 0) - (block && (moved || size == 0) ? 1 : 0);
    return moved;
}

void* aligned_alloc(std::size_t alignment, std::size_t size)
{
    void* const block = failsNow() ? nullptr : __libc_memalign(alignment, size);
    live += block ? 1 : 0;
    return block;
}

int posix_memalign(void** place, std::size_t alignment, std::size_t size)
{
    *place = aligned_alloc(alignment, size);
    return *place ? 0 : ENOMEM;
}

void free(void* block)
{
    live -= block ? 1 : 0;
    __libc_free(block);
}
}
#else
// The sanitizers keep malloc to themselves. What they know about new and delete they lose here. The form that
// does not throw belongs to it: its blocks, too, go back through the delete below (std::inplace_merge does
// that).
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept
{
    return failsNow() ? nullptr : std::malloc(size);
}

void* operator new(std::size_t size)
{
    void* const block = operator new(size, std::nothrow);
    if (!block)
        throw std::bad_alloc{};
    return block;
}

void operator delete(void* block) noexcept
{
    std::free(block);
}

void operator delete(void* block, const std::nothrow_t& /*tag*/) noexcept
{
    std::free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept
{
    std::free(block);
}
#endif
