// SPDX-License-Identifier: MIT
#pragma once
// Where the bytes of a table go.
#include <cstdint>
#include <cstdio>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace exporting {

/// A table cannot be written; says which, why, and what to do.
struct CannotExport : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A file that is written from its start, or stdout. Errors: CannotExport.
class Output {
public:
    /// How the bytes are written: one behind the other, or also over earlier ones, which only files can.
    enum class Order : std::uint8_t { Forward, Anywhere };

    /// `path` empty: stdout.
    explicit Output(std::string path, Order order = Order::Forward);
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    ~Output();

    void write(std::string_view bytes);

    /// Writes over what stands at the file's start; the next bytes follow the others. Only with
    /// Order::Anywhere.
    void rewriteStart(std::string_view bytes);

    /// Hands everything to the system.
    void flush();

    [[nodiscard]] const std::string& path() const { return m_path; }

private:
    [[noreturn]] void fail() const;

    std::string m_path;
    std::FILE* m_file;
};

} // namespace exporting
