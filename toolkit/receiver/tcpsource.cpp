// SPDX-License-Identifier: MIT
#include "toolkit/receiver/tcpsource.h"
#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <stdexcept>

namespace receiver {

namespace {

constexpr int firstPauseMilliseconds = 250;
constexpr int longestPauseMilliseconds = 5'000;

recording::Endpoint endpointOf(const QHostAddress& address, quint16 port)
{
    recording::Endpoint endpoint;
    endpoint.port = port;
    bool isV4 = false;
    const quint32 v4 = address.toIPv4Address(&isV4);
    if (isV4) {
        for (unsigned i = 0; i < 4; ++i)
            endpoint.address[i] = static_cast<std::uint8_t>(v4 >> (24 - 8 * i));
        return endpoint;
    }
    endpoint.isV6 = true;
    const Q_IPV6ADDR bytes = address.toIPv6Address();
    std::memcpy(endpoint.address.data(), &bytes, endpoint.address.size());
    return endpoint;
}

} // namespace

TcpSource::TcpSource(const SourceSpec& spec)
    : m_spec(spec)
    , m_pauseMilliseconds(firstPauseMilliseconds)
{
    m_retry.setSingleShot(true);
    connect(&m_retry, &QTimer::timeout, this, &TcpSource::probe);
}

TcpSource::~TcpSource()
{
    forgetReader();
}

// Its socket says that it is disconnected also when it is destroyed; that is no news then.
std::unique_ptr<TcpReader> TcpSource::forgetReader()
{
    if (m_reader) {
        m_reader->disconnect(this);
        if (auto* const socket = m_reader->findChild<QTcpSocket*>())
            socket->disconnect(this);
    }
    return std::move(m_reader);
}

void TcpSource::start(Sink sink)
{
    m_sink = std::move(sink);
    probe();
}

void TcpSource::startMirror(const ListenSpec& place)
{
    m_mirror = std::make_unique<ListenSpec>(place);
    listenForMirror();
}

void TcpSource::listenForMirror()
{
    if (!m_mirror || !m_reader)
        return;
    const QString address = m_mirror->address.toString();
    if (m_reader->StartMassDataMirror(address, m_mirror->port))
        emit said(QStringLiteral("mirror listens on %1:%2").arg(address).arg(m_mirror->port));
    else
        emit said(QStringLiteral("mirror cannot listen on %1:%2; 'ss -tlpn' shows who has the port")
                      .arg(address)
                      .arg(m_mirror->port));
}

void TcpSource::probe()
{
    setState(fmt::format("connecting to {}:{}", m_spec.host, m_spec.port));
    m_probe = std::make_unique<QTcpSocket>();
    connect(m_probe.get(), &QAbstractSocket::connected, this, [this] {
        // The next turn: the probe is the sender of this signal.
        QTimer::singleShot(0, this, &TcpSource::buildReader);
    });
    connect(m_probe.get(), &QAbstractSocket::errorOccurred, this, [this] {
        if (m_probe)
            retryLater(m_probe->errorString());
    });
    m_probe->connectToHost(QString::fromStdString(m_spec.host), m_spec.port);
}

void TcpSource::buildReader()
{
    if (!m_probe || m_retry.isActive())
        return; // the probe's connection broke at once; the next try is under way
    m_probe.reset();
    forgetReader().reset();
    m_reader = std::make_unique<TcpReader>(QString::fromStdString(m_spec.host), m_spec.port, this);
    m_reader->SetMassDataObserver(m_observer);
    auto* const socket = m_reader->findChild<QTcpSocket*>();
    if (!socket || socket->state() != QAbstractSocket::ConnectedState)
        return retryLater(QStringLiteral("the receiver went away"));
    m_pauseMilliseconds = firstPauseMilliseconds;
    m_origin = {recording::Transport::Tcp, endpointOf(socket->peerAddress(), socket->peerPort()),
                endpointOf(socket->localAddress(), socket->localPort())};
    connect(socket, &QAbstractSocket::disconnected, this,
            [this] { retryLater(QStringLiteral("connection lost")); });
    setState(fmt::format("connected to {}:{}", m_spec.host, m_spec.port));
    emit restarted();
    listenForMirror();
}

void TcpSource::retryLater(const QString& why)
{
    if (m_retry.isActive())
        return;
    // What has arrived whole is delivered before the reader goes.
    if (m_reader && m_reader->HasPendingDatagrams()) {
        QTimer::singleShot(1, this, [this, why] { retryLater(why); });
        return;
    }
    // Both may be the sender of the signal that led here.
    if (m_probe) {
        m_probe->disconnect(this);
        m_probe.release()->deleteLater();
    }
    if (std::unique_ptr<TcpReader> reader = forgetReader())
        reader.release()->deleteLater();
    setState(fmt::format("{}:{}: {}; next try in {:.1f} s", m_spec.host, m_spec.port, why.toStdString(),
                         m_pauseMilliseconds / 1000.0));
    m_retry.start(m_pauseMilliseconds);
    m_pauseMilliseconds = std::min(2 * m_pauseMilliseconds, longestPauseMilliseconds);
}

void TcpSource::ProcessDatagram(UdpDatagram* datagram)
{
    m_sink({std::unique_ptr<UdpDatagram>{datagram}, nowNs(), m_origin});
}

void TcpSource::setState(const std::string& state)
{
    m_state = state;
    emit said(QString::fromStdString("tcp: " + state));
}

Source::Facts TcpSource::facts() const
{
    Facts facts;
    facts.name = fmt::format("tcp {}:{}", m_spec.host, m_spec.port);
    facts.state = m_state;
    facts.silence =
        m_reader
            ? fmt::format(
                  "{} is connected and sends nothing: is a measurement running there? 'sudo tcpdump -c 3 "
                  "-ni any tcp port {}' shows what comes",
                  m_spec.host, m_spec.port)
            : fmt::format("does {} listen on TCP port {}? 'nc -vz {} {}' asks it; vk410 goes on trying",
                          m_spec.host, m_spec.port, m_spec.host, m_spec.port);
    return facts;
}

} // namespace receiver
