// SPDX-License-Identifier: MIT
#pragma once
// A reader that is connected to a receiver of the test's, with a parent and an observer that remember.
#include "devicecontrol/vk410protocol/tcpreader.h"
#include "support/tcp_receiver.h"
#include "support/trace_capture.h"
#include <gmock/gmock.h>

using support::joined;
using support::MirrorClient;
using support::numbered;
using support::TcpReceiver;
using support::TraceCapture;
using support::waitUntil;
using testing::ElementsAre;
using testing::IsEmpty;
using wire::Bytes;

/// What a reader serves: keeps the bytes of every datagram.
class Parent : public QObject {
    Q_OBJECT
public:
    std::vector<Bytes> datagrams;
    int connected = 0;
    std::function<void()> onDatagram;

public slots:
    void SlotConnected() { ++connected; }
    void ProcessDatagram(UdpDatagram* datagram)
    {
        const std::unique_ptr<UdpDatagram> owned{datagram};
        const auto* const begin = reinterpret_cast<const unsigned char*>(owned->GetNextAttribute()) - 16;
        datagrams.emplace_back(begin, begin + owned->Size());
        if (onDatagram)
            onDatagram();
    }
};

class Observer : public IMassDataObserver {
public:
    void DatagramDone(const DatagramReport&) override {}
    void AttributeDone(const AttributeReport&) override {}
    void AttributeNotAccepted(const char*) override {}
    void StreamBroken(quint32 claimedLength) override { broken.push_back(claimedLength); }
    void MirrorClientCut(qint64 waiting) override { cut.push_back(waiting); }
    std::vector<quint32> broken;
    std::vector<qint64> cut;
};

class TcpReaderTest : public testing::Test {
protected:
    void SetUp() override
    {
        reader = std::make_unique<TcpReader>("127.0.0.1", receiver.port(), &parent);
        reader->SetMassDataObserver(&observer);
        ASSERT_NE(receiver.connection(), nullptr);
    }
    bool datagramsArrive(std::size_t count)
    {
        return waitUntil([&] { return parent.datagrams.size() >= count; });
    }
    /// The port of a mirror of the reader.
    unsigned short mirror()
    {
        const unsigned short port = freePort();
        EXPECT_TRUE(reader->StartMassDataMirror("127.0.0.1", port));
        return port;
    }
    /// Makes `socket` a client of the mirror at `port` of which nothing leaves.
    void connectSilently(QTcpSocket& socket, unsigned short port)
    {
        const int before = reader->MirrorClientCount();
        socket.setReadBufferSize(1);
        socket.connectToHost(QHostAddress::LocalHost, port);
        ASSERT_TRUE(waitUntil([&] { return reader->MirrorClientCount() == before + 1; }));
    }
    /// Sends megabytes until at least so many bytes wait for the mirror's clients. Result: datagrams sent.
    std::size_t sendUntilWaiting(qint64 bytes)
    {
        const Bytes datagram = numbered(1, 1'000'000);
        std::size_t sent = 0;
        while (reader->MirrorBytesWaiting() < bytes) {
            receiver.send(datagram);
            if (!datagramsArrive(++sent))
                return sent;
        }
        return sent;
    }
    static unsigned short freePort()
    {
        QTcpServer probe;
        probe.listen(QHostAddress::LocalHost);
        return probe.serverPort();
    }
    TcpReceiver receiver;
    Parent parent;
    Observer observer;
    TraceCapture traces;
    std::unique_ptr<TcpReader> reader;
};
