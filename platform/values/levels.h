// SPDX-License-Identifier: MIT
#pragma once
// Raw levels.

namespace values {

/// The raw 16-bit number that stands for "no value was measured".
inline constexpr short noLevel = 32766;

} // namespace values
