// SPDX-License-Identifier: MIT
#pragma once
// Conversion of packed items between network and host order, in place.
#include <cstddef>

namespace byteorder {

/// Exchanges the bytes of `count` items of 16 bits from `items` on, which needs no alignment.
void swap16(void* items, std::size_t count) noexcept;

/// The same for items of 32 bits.
void swap32(void* items, std::size_t count) noexcept;

/// The same without choice of an instruction set; what machines without any of them run.
void swap16Plain(void* items, std::size_t count) noexcept;
void swap32Plain(void* items, std::size_t count) noexcept;

} // namespace byteorder
