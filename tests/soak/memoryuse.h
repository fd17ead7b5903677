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

} // namespace soak
