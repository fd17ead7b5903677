// SPDX-License-Identifier: MIT
#include "toolkit/exporting/output.h"
#include "toolkit/recording/writefailure.h"
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <utility>

namespace exporting {

namespace {

// Asked before it is opened: opening a pipe waits for who reads it.
void requireFile(const std::string& path)
{
    namespace fs = std::filesystem;
    std::error_code unknown;
    const fs::file_status status = fs::status(path, unknown);
    if (fs::exists(status) && !fs::is_regular_file(status) && !fs::is_directory(status))
        throw CannotExport{
            fmt::format("{}: expected a file for NumPy, whose header is written again and again, "
                        "found a pipe or a device; csv and ndjson can go there",
                        path)};
}

} // namespace

Output::Output(std::string path, Order order)
    : m_path(std::move(path))
    , m_file(nullptr)
{
    if (order == Order::Anywhere)
        requireFile(m_path);
    m_file = m_path.empty() ? stdout : std::fopen(m_path.c_str(), "wb");
    if (!m_file)
        throw CannotExport{fmt::format("{}: expected a file that can be written, found: {}; choose a folder "
                                       "that exists and that you may write to",
                                       m_path, std::strerror(errno))};
}

Output::~Output()
{
    if (m_file != stdout)
        std::fclose(m_file);
}

void Output::write(std::string_view bytes)
{
    if (std::fwrite(bytes.data(), 1, bytes.size(), m_file) != bytes.size())
        fail();
}

void Output::rewriteStart(std::string_view bytes)
{
    const long end = std::ftell(m_file);
    if (end < 0 || std::fseek(m_file, 0, SEEK_SET) != 0)
        fail();
    write(bytes);
    if (std::fseek(m_file, end, SEEK_SET) != 0)
        fail();
}

void Output::flush()
{
    if (std::fflush(m_file) != 0)
        fail();
}

void Output::fail() const
{
    const int error = errno;
    throw CannotExport{fmt::format("{}: could not be written to its end: {}",
                                   m_path.empty() ? "stdout" : m_path, recording::writeFailureText(error))};
}

} // namespace exporting
