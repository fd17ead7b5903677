// SPDX-License-Identifier: MIT
#include "memoryuse.h"
#include "support/sanitizers.h"
#include <fstream>
#include <malloc.h>
#include <unistd.h>

#if VK410_SANITIZED
// Both names are those of the checks' run time, which has no header for them here.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
// Freed memory that the checks of addresses keep for a while would look like growth: little of it.
extern "C" const char* __asan_default_options()
{
    return "quarantine_size_mb=8";
}
#endif

namespace soak {

namespace {

std::size_t heapInUse()
{
#if VK410_SANITIZED
    return __sanitizer_get_current_allocated_bytes();
#else
    const struct mallinfo2 info = ::mallinfo2();
    return info.uordblks + info.hblkhd;
#endif
}

std::size_t residentBytes()
{
    std::size_t total = 0;
    std::size_t resident = 0;
    std::ifstream{"/proc/self/statm"} >> total >> resident;
    return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

} // namespace

MemoryUse memoryUse()
{
    ::malloc_trim(0);
    return {residentBytes(), heapInUse()};
}

} // namespace soak
