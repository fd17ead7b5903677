// SPDX-License-Identifier: MIT
#pragma once
// What kind of change an observable tells its observers about.

/// One of the numbers below, or of the application's own.
using TChangeCode = int;

namespace changecode {
inline constexpr TChangeCode valueChanged = 3;   // a value has another value
inline constexpr TChangeCode entriesChanged = 7; // a range map or a list has other entries
inline constexpr TChangeCode mapChanged = 10;    // a value map has other contents or another grid
} // namespace changecode
