// SPDX-License-Identifier: MIT
#pragma once
// Cuts the bytes of one connection into datagrams, and finds its way back where bytes are missing.
#include "toolkit/recording/datagramsource.h"
#include "wire/framing.h"
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace recording {

/// Bytes of a stream that belong to no whole datagram.
struct Skipped {
    std::uint64_t offset = 0; // in the stream
    std::uint64_t size = 0;
    std::optional<std::uint32_t> datagramSize; // they begin a datagram of this size; absent: they begin none
};

/// One datagram of the stream.
struct Cut {
    QByteArray bytes;
    std::uint64_t offset = 0; // in the stream
    Skipped before;           // size 0: it follows its predecessor directly
};

/// A cutter that does not know where a datagram begins looks for the magic, and believes it when another
/// datagram or the stream's end follows where its length says.
/// Units:  offsets count the bytes of the stream from 0, missing ones included.
/// Errors: a length that cannot be true makes it search from there on.
class StreamCutter {
public:
    enum class Start { AtDatagram, Anywhere };

    explicit StreamCutter(Start start, std::uint32_t maxSize = wire::datagram::defaultMaxSize)
        : m_maxSize(maxSize)
        , m_searching(start == Start::Anywhere)
    {}

    /// Bytes that follow those appended before.
    void append(std::span<const unsigned char> bytes);

    /// Says that nothing follows the bytes so far. What `next` gives then is all that can be had.
    void end() { m_ended = true; }

    [[nodiscard]] std::optional<Cut> next();

    /// Goes on behind a hole, at `offset` of the stream.
    /// Result: what had to be left in front of it.
    Skipped restart(std::uint64_t offset);

    /// Where the first byte lies that was neither given out nor skipped.
    [[nodiscard]] std::uint64_t offset() const { return m_offset; }

    /// What was skipped since the last datagram.
    [[nodiscard]] const Skipped& skipped() const { return m_skipped; }

    /// Bytes held.
    [[nodiscard]] std::size_t waiting() const { return m_bytes.size() - m_begin; }

private:
    [[nodiscard]] wire::View held() const { return {m_bytes.data() + m_begin, waiting()}; }
    [[nodiscard]] bool toNextMagic();
    enum class Doubt { None, Wait, Refuse };
    [[nodiscard]] Doubt doubt(std::uint32_t size) const;
    void skip(std::size_t size);
    void advance(std::size_t size);
    Cut cut(std::uint32_t size);

    std::uint32_t m_maxSize;
    bool m_searching;
    bool m_ended = false;
    std::vector<unsigned char> m_bytes;
    std::size_t m_begin = 0; // of what is held
    std::uint64_t m_offset = 0;
    Skipped m_skipped;
};

} // namespace recording
