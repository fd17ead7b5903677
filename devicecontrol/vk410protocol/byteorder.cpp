// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/byteorder.h"
#include "wire/view.h"
#include <cstdint>

// The compiler makes one version of the loop per instruction set and the loader picks one; the loop itself
// stays plain.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(VK410_PLAIN_LOOPS)
#define VK410_PER_INSTRUCTION_SET __attribute__((target_clones("avx2", "ssse3", "default")))
#else
#define VK410_PER_INSTRUCTION_SET
#endif

namespace byteorder {

namespace {

// Always inlined, so that every version compiles the loop for its own instruction set.
template <typename Item>
[[gnu::always_inline]] inline void swapItems(void* items, std::size_t count) noexcept
{
    auto* const bytes = static_cast<unsigned char*>(items);
    for (std::size_t i = 0; i < count; ++i) {
        unsigned char* const place = bytes + i * sizeof(Item);
        wire::store(place, wire::load<Item>(place, wire::ByteOrder::Big), wire::ByteOrder::Little);
    }
}

} // namespace

VK410_PER_INSTRUCTION_SET void swap16(void* items, std::size_t count) noexcept
{
    swapItems<std::uint16_t>(items, count);
}

VK410_PER_INSTRUCTION_SET void swap32(void* items, std::size_t count) noexcept
{
    swapItems<std::uint32_t>(items, count);
}

void swap16Plain(void* items, std::size_t count) noexcept
{
    swapItems<std::uint16_t>(items, count);
}

void swap32Plain(void* items, std::size_t count) noexcept
{
    swapItems<std::uint32_t>(items, count);
}

} // namespace byteorder
