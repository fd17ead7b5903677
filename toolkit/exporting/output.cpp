// SPDX-License-Identifier: MIT
#include "toolkit/exporting/output.h"
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <utility>

namespace exporting {

Output::Output(std::string path)
    : m_path(std::move(path))
    , m_file(m_path.empty() ? stdout : std::fopen(m_path.c_str(), "wb"))
{
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
    throw CannotExport{fmt::format("{}: could not be written to its end: {}; is the disk full?",
                                   m_path.empty() ? "stdout" : m_path, std::strerror(error))};
}

} // namespace exporting
