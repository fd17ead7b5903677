// SPDX-License-Identifier: MIT
#pragma once
// Lets a sink that writes to a file see datagrams, and gives what it wrote.
#include "toolkit/inspection/inspector.h"
#include "toolkit/support/capture_bytes.h"
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace support {

/// A stdio file in memory.
class Output {
public:
    Output()
        : m_file(::open_memstream(&m_text, &m_size))
    {}
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    ~Output()
    {
        std::fclose(m_file);
        std::free(m_text);
    }

    [[nodiscard]] std::FILE* file() const { return m_file; }

    [[nodiscard]] std::string text() const
    {
        std::fflush(m_file);
        return {m_text, m_size};
    }

    [[nodiscard]] std::vector<std::string> lines() const
    {
        std::istringstream all{text()};
        std::vector<std::string> result;
        for (std::string line; std::getline(all, line);)
            result.push_back(line);
        return result;
    }

private:
    char* m_text = nullptr;
    std::size_t m_size = 0;
    std::FILE* m_file;
};

/// A datagram of a raw stream.
[[nodiscard]] inline recording::Datagram datagramOf(const Bytes& bytes, std::uint64_t position = 0)
{
    recording::Datagram datagram;
    datagram.bytes = recording::withSpareRoom(bytes.data(), bytes.size());
    datagram.position = position;
    return datagram;
}

} // namespace support
