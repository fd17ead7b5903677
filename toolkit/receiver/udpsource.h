// SPDX-License-Identifier: MIT
#pragma once
// Mass data as UDP packets, one datagram each.
#include "toolkit/receiver/source.h"
#include "toolkit/receiver/udpsocket.h"
#include <QSocketNotifier>

namespace receiver {

class UdpSource : public Source {
    Q_OBJECT

public:
    /// What holds 50 ms of the fastest streams.
    static constexpr int defaultBufferBytes = 8 << 20;

    /// Asks for `bufferBytes` of socket buffer. Port 0: a free one.
    explicit UdpSource(const SourceSpec& spec, int bufferBytes = defaultBufferBytes);

    void start(Sink sink) override;
    [[nodiscard]] Facts facts() const override;
    void setSendersWanted(bool areWanted) override { m_sendersWanted = areWanted; }

    /// Where it listens, once it has started; 0 before.
    [[nodiscard]] std::uint16_t port() const { return m_socket ? m_socket->local().port : 0; }

private:
    void takeWhatWaits();
    void takeBatches();

    SourceSpec m_spec;
    int m_bufferBytes;
    bool m_sendersWanted = true;
    Sink m_sink;
    std::unique_ptr<UdpSocket> m_socket;
    std::unique_ptr<QSocketNotifier> m_notifier;
    bool m_isTaking = false;
};

} // namespace receiver
