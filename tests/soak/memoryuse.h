// SPDX-License-Identifier: MIT
#pragma once
// What this process holds.
#include <cstddef>

namespace soak {

/// Units: bytes.
struct MemoryUse {
    std::size_t resident = 0; // pages in memory
    std::size_t heap = 0;     // allocated and not freed
};

/// Free memory has been given back to the system before.
[[nodiscard]] MemoryUse memoryUse();

/// Whether this is a build with sanitizers, whose allocators keep what was freed for a while.
[[nodiscard]] bool hasSanitizer();

} // namespace soak
