// SPDX-License-Identifier: MIT
#pragma once
// What can be wrong with a recording, in words: where, what was expected, what is there, what follows from
// it.
#include <cstdint>
#include <stdexcept>
#include <string>

namespace recording {

/// Something that keeps bytes of the file from being delivered.
struct Problem {
    std::uint64_t position; // in the file
    std::string expected;
    std::string found;
    std::string consequence; // may be empty
};

/// "byte 3280: expected a datagram of 60 bytes, found 20; not delivered".
[[nodiscard]] std::string text(const Problem& problem);

/// The file cannot be read any further; what came before it was delivered.
class BadFile : public std::runtime_error {
public:
    BadFile(std::string file, Problem problem);

    [[nodiscard]] const std::string& file() const { return m_file; }
    [[nodiscard]] const Problem& problem() const { return m_problem; }

private:
    std::string m_file;
    Problem m_problem;
};

/// There is nothing to read: no such file, a directory, no permission.
class CannotOpen : public std::runtime_error {
public:
    /// `found` says what is there instead of a readable file, `advice` what to do.
    CannotOpen(const std::string& file, const std::string& found, const std::string& advice);
};

} // namespace recording
