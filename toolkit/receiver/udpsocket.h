// SPDX-License-Identifier: MIT
#pragma once
// A UDP socket that receives in batches and knows what the system dropped.
#include "toolkit/receiver/sourcespec.h"
#include "toolkit/recording/origin.h"
#include <QByteArray>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace receiver {

/// One packet: its bytes, two spare ones reserved behind them, and who sent it.
struct Packet {
    std::unique_ptr<QByteArray> bytes;
    recording::Endpoint from;
};

/// A socket cannot be used; `what` says what failed and what helps.
struct SocketFailure : std::runtime_error {
    SocketFailure(int error_, std::string found_, std::string advice_)
        : std::runtime_error(found_ + "; " + advice_)
        , error(error_)
        , found(std::move(found_))
        , advice(std::move(advice_))
    {}
    int error; // of the system
    std::string found;
    std::string advice;
};

/// A bound socket. Owner: of its descriptor.
class UdpSocket {
public:
    /// Opens, binds and, where asked, joins the group.
    /// Errors: SocketFailure.
    UdpSocket(const SourceSpec& spec, int bufferBytes);
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;
    ~UdpSocket();

    [[nodiscard]] int descriptor() const { return m_descriptor; }

    /// Takes one batch of what waits, without waiting; `withSenders`: learns who sent each packet.
    /// Result: packets taken.
    std::size_t receive(bool withSenders, const std::function<void(Packet)>& take);

    /// Size of the receive buffer as the system counts it, half of what it reports.
    [[nodiscard]] int bufferGranted() const;

    /// Packets that the system dropped because the buffer was full, since the socket is there.
    [[nodiscard]] std::uint64_t kernelDropped() const;

    [[nodiscard]] recording::Endpoint local() const { return m_local; }

private:
    struct Batch;
    void bindTo(const SourceSpec& spec);
    void join(const SourceSpec& spec);

    int m_descriptor = -1;
    recording::Endpoint m_local;
    std::unique_ptr<Batch> m_batch;
};

} // namespace receiver
