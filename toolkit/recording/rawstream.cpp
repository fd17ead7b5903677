// SPDX-License-Identifier: MIT
#include "toolkit/recording/rawstream.h"
#include "wire/framing.h"
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>

namespace recording {
namespace {

constexpr char whatIsRead[] = "a pcap or pcapng capture, or datagrams back to back";

} // namespace

RawStream::RawStream(FilePtr file, std::string name)
    : m_file(std::move(file))
    , m_name(std::move(name))
    , m_size(fileSize())
{}

std::optional<Datagram> RawStream::next()
{
    if (m_ended)
        return std::nullopt;
    std::array<unsigned char, wire::datagram::headerSize> header{};
    const std::size_t there = std::fread(header.data(), 1, header.size(), m_file.get());
    if (std::ferror(m_file.get()) != 0)
        refuse(m_position, "readable bytes", std::strerror(errno));
    if (there == 0 && m_position == 0)
        refuse(0, whatIsRead, "an empty file");
    m_ended = there == 0;
    if (m_ended)
        return std::nullopt;
    const wire::View view{header.data(), there};
    const std::uint32_t size = sizeOf(view);
    Datagram datagram;
    datagram.bytes = read(view, size);
    datagram.position = m_position;
    m_position += size;
    return datagram;
}

std::uint32_t RawStream::sizeOf(wire::View header)
{
    namespace layout = wire::datagram;
    try {
        if (const std::optional<std::uint32_t> size = wire::datagramSize(header))
            return *size;
    } catch (const wire::BadDatagramSize&) {
        const std::string prefix = m_position == 0 ? fmt::format("{}: ", whatIsRead) : "";
        refuse(m_position + layout::totalLength.offset,
               fmt::format("{}a datagram length from {} to {}", prefix, layout::headerSize,
                           layout::defaultMaxSize),
               std::to_string(*header.get(layout::totalLength)));
    }
    refuse(m_position, fmt::format("a datagram header of {} bytes", layout::headerSize),
           std::to_string(header.size()));
}

QByteArray RawStream::read(wire::View header, std::uint32_t size)
{
    // Asked before the bytes get their memory: a length is believed as far as the file goes.
    if (size > m_size - m_position)
        m_size = std::max(fileSize(), m_position + header.size()); // it may be growing
    const std::uint64_t remain = m_size - m_position;
    if (size > remain)
        refuse(m_position, fmt::format("a datagram of {} bytes", size), std::to_string(remain));
    QByteArray bytes;
    bytes.reserve(static_cast<int>(size) + 2);
    bytes.resize(static_cast<int>(size));
    std::memcpy(bytes.data(), header.data(), header.size());
    const std::size_t rest = size - header.size();
    const std::size_t got = std::fread(bytes.data() + header.size(), 1, rest, m_file.get());
    if (got != rest)
        refuse(m_position, fmt::format("a datagram of {} bytes", size), std::to_string(header.size() + got));
    return bytes;
}

void RawStream::refuse(std::uint64_t position, std::string expected, std::string found)
{
    m_ended = true;
    throw BadFile{m_name, {position, std::move(expected), std::move(found), {}}};
}

std::uint64_t RawStream::fileSize() const
{
    const off_t here = ::ftello(m_file.get());
    ::fseeko(m_file.get(), 0, SEEK_END);
    const off_t size = ::ftello(m_file.get());
    ::fseeko(m_file.get(), here, SEEK_SET);
    return size < 0 ? 0 : static_cast<std::uint64_t>(size);
}

} // namespace recording
