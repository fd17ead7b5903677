// SPDX-License-Identifier: MIT
#include "toolkit/receiver/udpsource.h"
#include <QElapsedTimer>
#include <QScopeGuard>
#include <fmt/format.h>
#include <new>

namespace receiver {

namespace {

// What one notification handles before the event loop runs again.
constexpr qint64 millisecondsPerNotification = 10;

} // namespace

UdpSource::UdpSource(const SourceSpec& spec, int bufferBytes)
    : m_spec(spec)
    , m_bufferBytes(bufferBytes)
{}

void UdpSource::start(Sink sink)
{
    m_sink = std::move(sink);
    m_socket = std::make_unique<UdpSocket>(m_spec, m_bufferBytes);
    m_notifier = std::make_unique<QSocketNotifier>(m_socket->descriptor(), QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, [this] { takeWhatWaits(); });
    const Facts now = facts();
    emit said(QString::fromStdString(fmt::format("{}: {}", now.name, now.state)));
    if (!now.advice.empty())
        emit said(QString::fromStdString(now.advice));
}

void UdpSource::takeWhatWaits()
{
    // From the event loop of a datagram's receiver: the outer call goes on with what is there, in order.
    // Asked again and again, that loop would only spin.
    if (m_isTaking)
        return m_notifier->setEnabled(false);
    m_isTaking = true;
    const auto finish = qScopeGuard([this] {
        m_isTaking = false;
        m_notifier->setEnabled(true);
    });
    try {
        takeBatches();
    } catch (const std::bad_alloc&) {
        // What waits is still in the socket: the notifier asks for it again.
    }
}

void UdpSource::takeBatches()
{
    QElapsedTimer timer;
    timer.start();
    std::size_t taken = 0;
    do {
        const std::int64_t receivedNs = nowNs();
        taken = m_socket->receive(m_sendersWanted, [&](Packet packet) {
            m_sink({std::make_unique<UdpDatagram>(std::move(packet.bytes)),
                    receivedNs,
                    {recording::Transport::Udp, packet.from, m_socket->local()}});
        });
    } while (taken != 0 && !timer.hasExpired(millisecondsPerNotification));
}

Source::Facts UdpSource::facts() const
{
    Facts facts;
    const std::uint16_t port = m_socket ? m_socket->local().port : m_spec.port;
    facts.name =
        fmt::format("udp {}{}:{}", m_spec.group.isNull() ? "" : m_spec.group.toString().toStdString() + "@",
                    m_spec.address.isNull() ? "any" : m_spec.address.toString().toStdString(), port);
    facts.bufferAsked = m_bufferBytes;
    facts.silence =
        fmt::format("does the receiver send to UDP port {} of this machine? 'sudo tcpdump -c 3 -ni any udp "
                    "port {}' shows what comes, 'ip address' where to",
                    port, port);
    if (!m_socket) {
        facts.state = "not started";
        return facts;
    }
    facts.bufferGranted = m_socket->bufferGranted();
    facts.kernelDropped = m_socket->kernelDropped();
    facts.state =
        fmt::format("listening, socket buffer {} of {} kB", facts.bufferGranted / 1024, m_bufferBytes / 1024);
    if (facts.bufferGranted < m_bufferBytes)
        facts.advice = fmt::format("a larger socket buffer loses less: sudo sysctl -w net.core.rmem_max={}",
                                   m_bufferBytes);
    return facts;
}

} // namespace receiver
