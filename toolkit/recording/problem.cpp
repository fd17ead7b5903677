// SPDX-License-Identifier: MIT
#include "toolkit/recording/problem.h"
#include <fmt/format.h>
#include <utility>

namespace recording {

std::string text(const Problem& problem)
{
    const std::string what =
        fmt::format("byte {}: expected {}, found {}", problem.position, problem.expected, problem.found);
    return problem.consequence.empty() ? what : what + "; " + problem.consequence;
}

BadFile::BadFile(std::string file, Problem problem)
    : std::runtime_error(file + ": " + text(problem))
    , m_file(std::move(file))
    , m_problem(std::move(problem))
{}

CannotOpen::CannotOpen(const std::string& file, const std::string& found, const std::string& advice)
    : std::runtime_error(fmt::format("{}: expected a readable file, found {}; {}", file, found, advice))
{}

} // namespace recording
