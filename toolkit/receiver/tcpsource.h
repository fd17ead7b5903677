// SPDX-License-Identifier: MIT
#pragma once
// Mass data over TCP, through the library's reader, which this reconnects.
#include "devicecontrol/vk410protocol/tcpreader.h"
#include "toolkit/receiver/source.h"
#include <QTcpSocket>
#include <QTimer>

namespace receiver {

/// Asks with a probe, which never blocks, whether the receiver is there, then builds a reader; a reader whose
/// connection broke is replaced after a pause that grows.
class TcpSource : public Source {
    Q_OBJECT

public:
    explicit TcpSource(const SourceSpec& spec);
    ~TcpSource() override;

    void start(Sink sink) override;
    [[nodiscard]] Facts facts() const override;
    void setObserver(IMassDataObserver* observer) override { m_observer = observer; }
    void startMirror(const ListenSpec& place) override;

    /// The reader of the connection that stands now; null while there is none.
    [[nodiscard]] const TcpReader* reader() const { return m_reader.get(); }

public slots:
    // What the reader connects itself to.
    void ProcessDatagram(UdpDatagram* datagram);

private:
    void probe();
    void buildReader();
    std::unique_ptr<TcpReader> forgetReader();
    void retryLater(const QString& why);
    void listenForMirror();
    void setState(const std::string& state);

    SourceSpec m_spec;
    Sink m_sink;
    IMassDataObserver* m_observer = nullptr;
    std::unique_ptr<TcpReader> m_reader;
    std::unique_ptr<QTcpSocket> m_probe;
    QTimer m_retry;
    int m_pauseMilliseconds;
    std::string m_state = "not started";
    recording::Origin m_origin;
    std::unique_ptr<ListenSpec> m_mirror;
};

} // namespace receiver
