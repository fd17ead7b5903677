// SPDX-License-Identifier: MIT
// A processor of your own: the strongest level of each IF panorama that comes over UDP, and what was dropped.
#include "devicecontrol/vk410protocol/massdataobserver.h"
#include "devicecontrol/vk410protocol/massdataprocessor.h"
#include "devicecontrol/vk410protocol/vk410processor.h"
#include "wire/optheader.h"
#include "wire/selectors.h"
#include <QCoreApplication>
#include <QUdpSocket>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// [processor]
class StrongestLevel : public IMassDataProcessor {
public:
    void SetAttribute(DataPointers* data, UdpDatagramAttribute* attribute, bool optHeaderAvailable) override
    {
        if (!optHeaderAvailable || !data->selBit0 || attribute->Count() == 0)
            return NotAccepted("no levels, or not where they lie");
        const bool isLittle = (attribute->SelectorFlags() & wire::selector::hostOrderFlag) != 0;
        const wire::ByteOrder order = isLittle ? wire::ByteOrder::Little : wire::ByteOrder::Big;
        const wire::View header{attribute->OptHeader(), attribute->OptHeaderLength()};
        const auto centreHz = static_cast<quint32>(header.getOrZero(wire::ifpan::centreFrequencyLow, order));
        const auto spanHz = static_cast<quint32>(header.getOrZero(wire::ifpan::span, order));

        int strongest = 0;
        for (int i = 1; i < attribute->Count(); ++i) {
            if (levelAt(*data, i) > levelAt(*data, strongest))
                strongest = i;
        }
        const double stepHz = attribute->Count() > 1 ? 1.0 * spanHz / (attribute->Count() - 1) : 0.0;
        std::printf("%.6f MHz: %.1f dBuV\n", (centreHz - spanHz / 2.0 + strongest * stepHz) / 1e6,
                    levelAt(*data, strongest) / 10.0);
    }

private:
    // Fields may lie at odd addresses: load their items by memcpy.
    static short levelAt(const DataPointers& data, int i)
    {
        short level = 0;
        std::memcpy(&level, reinterpret_cast<const char*>(data.selBit0) + 2 * i, sizeof level);
        return level;
    }
};
// [processor]

// [observer]
class Losses : public IMassDataObserver {
public:
    void DatagramDone(const DatagramReport& report) override
    {
        if (!report.valid)
            std::printf("dropped: a datagram without the magic\n");
    }
    void AttributeDone(const AttributeReport& report) override
    {
        if (report.outcome != AttributeOutcome::Dispatched)
            std::printf("dropped: tag %u, channel %u\n", report.tag, report.channel);
    }
    void AttributeNotAccepted(const char* reason) override { std::printf("dropped: %s\n", reason); }
    void StreamBroken(quint32 /*claimedLength*/) override {}
    void MirrorClientCut(qint64 /*waiting*/) override {}
};
// [observer]

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    if (argc != 3) {
        std::fputs("usage: own_processor PORT DATAGRAMS\n", stderr);
        return 2;
    }
    // [registering]
    Losses losses;
    StrongestLevel processor;
    processor.SetMassDataObserver(&losses);
    VK410Processor dispatcher{false};
    dispatcher.SetMassDataObserver(&losses);
    dispatcher.RegisterTagProcessor(&processor, TAG_501, 0); // tag 501 of channel 0
    // [registering]

    // [udp]
    QUdpSocket socket;
    if (!socket.bind(QHostAddress::LocalHost, static_cast<quint16>(std::atoi(argv[1])))) {
        std::fprintf(stderr, "port %s: %s\n", argv[1], qPrintable(socket.errorString()));
        return 2;
    }
    int remaining = std::atoi(argv[2]);
    QObject::connect(&socket, &QUdpSocket::readyRead, [&] {
        while (socket.hasPendingDatagrams()) {
            auto bytes = std::make_unique<QByteArray>();
            const int size = static_cast<int>(socket.pendingDatagramSize());
            bytes->reserve(size + 2); // room for the two spare bytes: nothing is copied
            bytes->resize(size);
            socket.readDatagram(bytes->data(), size);
            dispatcher.ProcessDatagram(new UdpDatagram{std::move(bytes)}); // takes it over
            if (--remaining == 0)
                QCoreApplication::quit();
        }
    });
    // [udp]
    std::printf("listening\n");
    std::fflush(stdout);
    return QCoreApplication::exec();
}
