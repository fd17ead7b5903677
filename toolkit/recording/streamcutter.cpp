// SPDX-License-Identifier: MIT
#include "toolkit/recording/streamcutter.h"
#include <utility>

namespace recording {
namespace {

constexpr std::size_t magicSize = sizeof(std::uint32_t);
constexpr std::size_t compactFrom = 64 * 1024; // bytes given out before the rest moves to the front

bool beginsWithMagic(wire::View bytes)
{
    const auto magic = bytes.get(wire::datagram::magic, wire::ByteOrder::Little);
    return magic && wire::datagram::isMagic(*magic);
}

} // namespace

void StreamCutter::append(std::span<const unsigned char> bytes)
{
    if (m_begin >= compactFrom && m_begin >= waiting()) {
        m_bytes.erase(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(m_begin));
        m_begin = 0;
    }
    m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
}

std::optional<Cut> StreamCutter::next()
{
    while (!m_searching || toNextMagic()) {
        std::optional<std::uint32_t> size;
        try {
            size = wire::datagramSize(held(), m_maxSize);
        } catch (const wire::BadDatagramSize&) {
            m_searching = true;
            skip(1);
            continue;
        }
        const Doubt answer = size ? doubt(*size) : (m_searching && m_ended ? Doubt::Refuse : Doubt::Wait);
        if (answer == Doubt::None)
            return cut(*size);
        if (answer == Doubt::Wait)
            return std::nullopt;
        skip(1);
    }
    return std::nullopt;
}

// Whether what is held may be taken for a datagram of `size` bytes.
StreamCutter::Doubt StreamCutter::doubt(std::uint32_t size) const
{
    if (size > waiting())
        return m_searching && m_ended ? Doubt::Refuse : Doubt::Wait;
    if (!m_searching)
        return Doubt::None;
    const wire::View behind = *held().sub(size, waiting() - size);
    if (behind.size() >= magicSize)
        return beginsWithMagic(behind) ? Doubt::None : Doubt::Refuse;
    return m_ended ? Doubt::None : Doubt::Wait;
}

// Result: whether a magic is at the front now; if not, only what may be the beginning of one is held.
bool StreamCutter::toNextMagic()
{
    std::size_t at = 0;
    const wire::View bytes = held();
    for (; at + magicSize <= bytes.size(); ++at) {
        if (beginsWithMagic(*bytes.sub(at, magicSize)))
            break;
    }
    const bool found = at + magicSize <= bytes.size();
    skip(at);
    return found;
}

void StreamCutter::skip(std::size_t size)
{
    if (m_skipped.size == 0)
        m_skipped.offset = m_offset;
    m_skipped.size += size;
    advance(size);
}

void StreamCutter::advance(std::size_t size)
{
    m_begin += size;
    m_offset += size;
}

Cut StreamCutter::cut(std::uint32_t size)
{
    Cut result{withSpareRoom(held().data(), size), m_offset, std::exchange(m_skipped, {})};
    m_searching = false;
    advance(size);
    return result;
}

Skipped StreamCutter::restart(std::uint64_t offset)
{
    std::optional<std::uint32_t> begun;
    if (!m_searching && waiting() >= wire::datagram::headerSize)
        begun = wire::datagramSize(held(), m_maxSize);
    skip(waiting());
    Skipped rest = std::exchange(m_skipped, {});
    rest.datagramSize = begun;
    m_bytes.clear();
    m_begin = 0;
    m_offset = offset;
    m_searching = true;
    m_ended = false;
    return rest;
}

} // namespace recording
