// SPDX-License-Identifier: MIT
#pragma once
// Manual pages from the declarations of the verbs.
#include <CLI/App.hpp>
#include <string>

namespace verbs {

/// The page of the whole program, for section 1 of the manual.
[[nodiscard]] std::string manualPage(CLI::App& program);

/// The page of one verb: vk410-VERB(1).
[[nodiscard]] std::string manualPage(CLI::App& program, CLI::App& verb);

} // namespace verbs
