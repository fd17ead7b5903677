// SPDX-License-Identifier: MIT
#pragma once
// Which version of the program this is.
#include <string>

namespace verbs {

/// "0.1.0".
[[nodiscard]] std::string versionNumber();

/// "vk410 0.1.0 (commit 37e2b07706d3)"; "unknown" where the sources were built outside of their repository.
[[nodiscard]] std::string versionText();

/// Day of the commit, "2025-01-31".
[[nodiscard]] std::string versionDate();

} // namespace verbs
