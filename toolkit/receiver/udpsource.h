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
    /// Bytes of the socket's buffer that are asked for: what holds 50 ms of the fastest streams.
    static constexpr int bufferBytes = 8 << 20;

    explicit UdpSource(const SourceSpec& spec);

    void start(Sink sink) override;
    [[nodiscard]] Facts facts() const override;

private:
    void takeWhatWaits();

    SourceSpec m_spec;
    Sink m_sink;
    std::unique_ptr<UdpSocket> m_socket;
    std::unique_ptr<QSocketNotifier> m_notifier;
};

} // namespace receiver
