// SPDX-License-Identifier: MIT
// Reads datagrams back to back from a file and prints the bearings of a direction-finding scan.
#include "devicecontrol/vk410protocol/mdpdfpscan.h"
#include "devicecontrol/vk410protocol/vk410processor.h"
#include "wire/framing.h"
#include <QCoreApplication>
#include <QFile>
#include <cstdio>

namespace {

// [values]
// The two values without which the processor drops every block; the others are optional.
std::shared_ptr<values::DFSpectrumMap> addValues()
{
    values::Tree& tree = *values::Tree::Instance();
    const std::vector<values::ValueSelection::Entry> commands{{0, "STOP"}, {23, "DFPSCAN"}};
    tree.Create<values::ValueSelection>("/RECEIVER", "DRVCOMMANDS", commands)->SelectKey(23);
    return tree.Create<values::DFSpectrumMap>("/RECEIVER/KRT", "RXBEARINGMAPPING");
}
// [values]

// [scanrange]
std::shared_ptr<ScanRange> scanRange(quint32 job, quint64 startHz, quint64 stopHz, double stepHz)
{
    auto range = std::make_shared<ScanRange>();
    range->jobId = job;
    range->startFrequency = startHz;
    range->stopFrequency = stopHz;
    range->step = stepHz;
    return range;
}
// [scanrange]

// [file]
// False where the file ends inside a datagram, or a length cannot be true.
bool readAll(QFile& file, VK410Processor& dispatcher)
{
    for (QByteArray header = file.read(wire::datagram::headerSize); !header.isEmpty();
         header = file.read(wire::datagram::headerSize)) {
        const auto size =
            wire::datagramSize(wire::View(header.constData(), static_cast<std::size_t>(header.size())));
        if (!size)
            return false;
        auto bytes = std::make_unique<QByteArray>(header);
        bytes->reserve(static_cast<int>(*size) +
                       2); // with the reader's spare bytes, so that nothing is copied
        *bytes += file.read(*size - wire::datagram::headerSize);
        if (bytes->size() != static_cast<int>(*size))
            return false;
        dispatcher.ProcessDatagram(new UdpDatagram{std::move(bytes)});
    }
    return true;
}
// [file]

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    if (argc != 2) {
        std::fputs("usage: read_recording FILE\n", stderr);
        return 2;
    }
    QFile file(argv[1]);
    if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "%s: %s\n", argv[1], qPrintable(file.errorString()));
        return 2;
    }

    const std::shared_ptr<values::DFSpectrumMap> map = addValues();
    MdpDFPScan processor{nullptr};
    processor.Init("/RECEIVER");
    processor.SlotNewOrModifiedScanRanges(
        {scanRange(1, 156'750'000, 156'850'000, 12.5e3), scanRange(2, 433'900'000, 433'950'000, 12.5e3)});
    VK410Processor dispatcher{true};
    dispatcher.RegisterTagProcessor(&processor, TAG_5301, 0);
    bool isWhole = false;
    try {
        isWhole = readAll(file, dispatcher);
    } catch (const wire::BadDatagramSize& error) {
        std::fprintf(stderr, "%s: %s\n", argv[1], error.what());
    }

    // [map]
    const values::ChannelRangeDefinition& grid = map->GetChannelRangeDefinition();
    unsigned int id = grid.GetMinChannelId();
    for (const values::DFSpectrumSample& sample : map->GetValues()) {
        if (sample.getValidity() == values::DFSpectrumSample::Validity::Valid && sample.getQuality() >= 50)
            std::printf("%.4f MHz: %5.1f degrees, quality %d %%, %.1f dBuV\n",
                        grid.ChannelIdToFrequency(id) / 1e6, sample.getAzimuth() / 100.0, sample.getQuality(),
                        sample.getLevel() / 100.0);
        ++id;
    }
    // [map]
    return isWhole ? 0 : 1;
}
