// SPDX-License-Identifier: MIT
#pragma once
// Where datagrams come from, whatever kept them.
#include "toolkit/recording/origin.h"
#include "toolkit/recording/problem.h"
#include <QByteArray>
#include <cstdint>
#include <functional>
#include <optional>

namespace recording {

/// One datagram as it was sent, and what is known about its way.
struct Datagram {
    QByteArray bytes;           // not shared, with room for two more: `UdpDatagram` takes them without a copy
    std::uint64_t position = 0; // of its first byte in the file
    std::optional<std::int64_t> receivedNs; // ns since 1970, UTC; when its last byte arrived
    Origin origin;
};

/// What a capture holds besides datagrams; none of it is an error.
struct Ignored {
    std::uint64_t packets = 0;    // all of the capture
    std::uint64_t protocol = 0;   // neither UDP nor TCP over IP
    std::uint64_t port = 0;       // not of the wanted port
    std::uint64_t tcpStreams = 0; // without a datagram in them
    std::uint16_t otherPort = 0;  // the port that most of those of other ports went to; 0: there are none
};

/// Hands out datagrams in the order in which they became complete.
/// Thread: one.
class DatagramSource {
public:
    using ProblemHandler = std::function<void(const Problem&)>;

    DatagramSource() = default;
    DatagramSource(const DatagramSource&) = delete;
    DatagramSource& operator=(const DatagramSource&) = delete;
    virtual ~DatagramSource() = default;

    /// The next datagram; nothing at the end.
    /// Errors: BadFile where the file cannot be read any further; after it there is nothing more.
    [[nodiscard]] virtual std::optional<Datagram> next() = 0;

    [[nodiscard]] virtual Ignored ignored() const { return {}; }

    /// Who is told about losses that reading survives, such as a hole in a TCP stream.
    /// Order: before the datagrams that lie behind the loss.
    void onProblem(ProblemHandler handler) { m_onProblem = std::move(handler); }

protected:
    void tell(const Problem& problem) const
    {
        if (m_onProblem)
            m_onProblem(problem);
    }

private:
    ProblemHandler m_onProblem;
};

/// An unshared copy with the room that `Datagram::bytes` promises.
[[nodiscard]] inline QByteArray withSpareRoom(const unsigned char* data, std::size_t size)
{
    QByteArray bytes;
    bytes.reserve(static_cast<int>(size) + 2);
    bytes.append(reinterpret_cast<const char*>(data), static_cast<int>(size));
    return bytes;
}

} // namespace recording
