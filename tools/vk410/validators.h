// SPDX-License-Identifier: MIT
#pragma once
// What values of options have to be; errors say what was expected and what came.
#include <CLI/App.hpp>
#include <initializer_list>
#include <string>

namespace verbs {

/// A number from `lowest` up, or up to `highest`.
[[nodiscard]] CLI::Validator numberFrom(double lowest);
[[nodiscard]] CLI::Validator numberFrom(double lowest, double highest);

/// A number above 0.
[[nodiscard]] CLI::Validator positiveNumber();

/// A whole number from `lowest` up.
[[nodiscard]] CLI::Validator wholeNumberFrom(int lowest);

/// The number of a port, from `lowest` up.
[[nodiscard]] CLI::Validator portFrom(int lowest);

/// One of these words.
[[nodiscard]] CLI::Validator oneOf(std::initializer_list<std::string> words);

/// Any text but an empty one.
[[nodiscard]] CLI::Validator notEmpty();

/// The parser's error in those words. `program`: whose verbs there are.
[[nodiscard]] std::string errorText(const CLI::ParseError& error, CLI::App& program);

} // namespace verbs
