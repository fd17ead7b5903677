// SPDX-License-Identifier: MIT
#pragma once
// Completion for bash from the declarations of the verbs.
#include <CLI/App.hpp>
#include <string>

namespace verbs {

/// A script to be sourced by bash: verbs, options, choices, scenes, kinds of sources and files.
[[nodiscard]] std::string bashCompletion(CLI::App& program);

} // namespace verbs
