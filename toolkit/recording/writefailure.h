// SPDX-License-Identifier: MIT
#pragma once
// Why a file could not be written, in words.
#include <string>

namespace recording {

/// "No space left on device; is the disk full?": what the system says of `error`, and what it means where
/// that is known.
[[nodiscard]] std::string writeFailureText(int error);

} // namespace recording
