// SPDX-License-Identifier: MIT
#pragma once
// A whole reception, taken to pieces: values and maps, dispatcher, processors, a TCP reader; and places where
// user code runs inside of it.
#include "devicecontrol/vk410protocol/levelmapfillerimpl.h"
#include "devicecontrol/vk410protocol/mdpdfpscan.h"
#include "devicecontrol/vk410protocol/mdpifpan.h"
#include "devicecontrol/vk410protocol/mdpzerospan.h"
#include "devicecontrol/vk410protocol/vk410processor.h"
#include "support/dfscan_receiver.h"
#include "support/ifpan_receiver.h"
#include "support/tcp_receiver.h"
#include "support/zerospan_receiver.h"
#include "toolkit/receiver/receivervalues.h"
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace survival {

using Action = std::function<void()>;

/// Runs an action when it is told to, the first time only.
class Once {
public:
    void operator=(Action action) { m_action = std::move(action); }
    void operator()()
    {
        if (const Action action = std::exchange(m_action, nullptr))
            action();
    }
    [[nodiscard]] bool isPending() const { return static_cast<bool>(m_action); }

private:
    Action m_action;
};

/// A processor of the user's.
class UserProcessor : public IMassDataProcessor {
public:
    void SetAttribute(DataPointers*, UdpDatagramAttribute*, bool) override
    {
        ++attributes;
        onAttribute();
    }
    int attributes = 0;
    Once onAttribute;
};

/// The application's receiver of direction-finding arrays.
class UserReceiver : public IMassDataReceiver {
public:
    void ReceiveDfScanData(double, double, double, quint64, int, short*, short*, short*, short*, short*,
                           short*, short*, const ScanRange*) override
    {
        onBlock();
    }
    void ReceiveDfScanDataSuperResolution(double, double, double, quint64, int, short*, short*, short*,
                                          short*, short*, short*, float*, short*, short*, short*, short*,
                                          short*, int, int, const ScanRange*) override
    {
        onBlock();
    }
    Once onBlock;
};

/// An observer of the user's.
class UserObserver : public IObserver {
public:
    void Update(Observable*, TChangeCode) override
    {
        ++updates;
        onUpdate();
    }
    int updates = 0;
    Once onUpdate;
};

inline ScanRangeContainer scanRanges(unsigned channels = 4)
{
    return {support::scanRange(100'000'000, 100'000'000 + 25'000ULL * (channels - 1), 25'000, 7)};
}

/// `parts`, each a datagram of its own, as one datagram with all their attributes.
inline wire::Bytes together(const std::vector<wire::Bytes>& parts, unsigned sequence)
{
    wire::Bytes whole(parts.front().begin(), parts.front().begin() + wire::datagram::headerSize);
    for (const wire::Bytes& part : parts)
        whole.insert(whole.end(), part.begin() + wire::datagram::headerSize, part.end());
    wire::store(whole.data() + wire::datagram::totalLength.offset, static_cast<std::uint32_t>(whole.size()),
                wire::ByteOrder::Big);
    wire::store(whole.data() + wire::datagram::sequence.offset, static_cast<std::uint16_t>(sequence),
                wire::ByteOrder::Big);
    return whole;
}

/// Four attributes: one for a processor of the user's, a panorama, a zero span, a block of direction finding;
/// their contents tell `number`.
inline wire::Bytes datagram(unsigned number)
{
    const auto level = static_cast<short>(number);
    support::IfpanTrace panorama;
    panorama.centre = 100'000'000 + 1'000'000 * (number % 2); // the receiver is tuned all the time
    panorama.levels.assign(5, level);
    support::ZeroSpanTrace zeroSpan;
    zeroSpan.levels.assign(5, level);
    support::DfTrace block;
    block.azimuth.assign(4, level);
    block.level.assign(4, level);
    block.stamp = 5'000'000 + 1'000'000 * static_cast<std::int64_t>(number);
    block.flags = support::dfflag::valid | support::dfflag::endOfSweep;
    const wire::Bytes user =
        wire::DatagramWriter{}.attribute(101).selectors(1).count(1).items<short>({level}).build();
    return together({user, panorama.bytes(), zeroSpan.bytes(), block.bytes()}, number);
}
inline constexpr unsigned attributesPerDatagram = 4;

/// Everything between a TCP connection and the maps.
class Rig {
public:
    Rig()
    {
        answers.bearingMap = true;
        values.commands->SelectKey(23);
        ifPanorama.Init(QString::fromLatin1(receiver::devicePath), QString::fromLatin1(receiver::followPath));
        zeroSpan.Init(QString::fromLatin1(receiver::devicePath));
        df.Init(QString::fromLatin1(receiver::devicePath));
        df.SlotNewOrModifiedScanRanges(scanRanges());
        dispatcher.SetMassDataObserver(&ledger);
        for (IMassDataProcessor* const processor : processors())
            processor->SetMassDataObserver(&ledger);
        registerAll();
    }

    void registerAll()
    {
        dispatcher.RegisterTagProcessor(&user, TAG_101, 0);
        dispatcher.RegisterTagProcessor(&ifPanorama, TAG_501, 0);
        dispatcher.RegisterTagProcessor(&zeroSpan, TAG_1801, 0);
        dispatcher.RegisterTagProcessor(&df, TAG_5301, 0);
    }
    void unregisterAll()
    {
        for (const TRACE_TAG tag : {TAG_101, TAG_501, TAG_1801, TAG_5301})
            dispatcher.UnRegisterTagProcessor(tag, 0);
    }
    [[nodiscard]] std::vector<IMassDataProcessor*> processors()
    {
        return {&user, &ifPanorama, &zeroSpan, &df};
    }

    /// Has the dispatcher process one datagram.
    void process(unsigned number)
    {
        dispatcher.ProcessDatagram(new UdpDatagram{support::received(datagram(number))});
    }

    /// A reader on a connection of its own.
    void connectReader()
    {
        station = std::make_unique<support::TcpReceiver>();
        reader = std::make_unique<TcpReader>("127.0.0.1", station->port(), &dispatcher);
        reader->SetMassDataObserver(&ledger);
    }

    /// What the maps hold of `number`, as far as `datagram` brings it.
    [[nodiscard]] bool mapsHold(unsigned number) const
    {
        const auto level = static_cast<short>(number);
        const auto holds = [level](const values::LevelMap& map) {
            const auto levels = map.GetValues();
            return levels.size() == 5 && std::count(levels.begin(), levels.end(), level) == 5;
        };
        const auto samples = values.dfSpectrum->GetValues();
        return holds(*values.ifPanorama) && holds(*values.zeroSpan) && samples.size() == 4 &&
               std::all_of(samples.begin(), samples.end(), [number](const auto& sample) {
                   return sample.getAzimuth() == 10 * static_cast<int>(number);
               });
    }

    ledger::Ledger ledger;
    receiver::ReceiverValues values{ledger};
    support::IfpanAnswers answers;
    UserProcessor user;
    UserReceiver userReceiver;
    VK410Processor dispatcher{false};
    MdpIfpan ifPanorama{std::make_unique<support::IfpanConfig>(answers),
                        std::make_shared<FastLevelMapFiller>(values.ifPanorama.get(), nullptr)};
    MdpZeroSpan zeroSpan{std::make_shared<FastLevelMapFiller>(values.zeroSpan.get(), nullptr), nullptr};
    MdpDFPScan df{&userReceiver};
    std::unique_ptr<support::TcpReceiver> station;
    std::unique_ptr<TcpReader> reader;
};

} // namespace survival
