// SPDX-License-Identifier: MIT
#pragma once
// Everything that an IF panorama processor works with: a receiver's values, a configuration, traces.
#include "devicecontrol/vk410protocol/mdpifpan.h"
#include "devicecontrol/vk410protocol/vk410processor.h"
#include "support/delivered.h"
#include "support/effect_log.h"
#include "support/fixed_clock.h"
#include "support/recording_filler.h"
#include "support/recording_map.h"
#include "support/value_tree.h"
#include "wire/datagramwriter.h"
#include <memory>
#include <optional>
#include <sstream>
#include <string>

namespace support {

struct IfpanAnswers {
    bool spanFollowed = false;
    bool endOfSearch = false;
    bool deviceStamp = false;
    bool mSearch = false;
    bool dfPath = false;
    bool dfForced = false;
    bool afc = false;
    bool bearingMap = false;
};

class IfpanConfig : public MdpIfpan::IConfig {
public:
    explicit IfpanConfig(const IfpanAnswers& answers)
        : m_answers(answers)
    {}
    bool IsSpanFollowedDuringSearch() override { return m_answers.spanFollowed; }
    bool IsEndOfSearchNotified() override { return m_answers.endOfSearch; }
    bool UseDeviceTimestamp() override { return m_answers.deviceStamp; }
    bool IsMSearchSimulated() override { return m_answers.mSearch; }
    bool UseDfBearingMapPath() override { return m_answers.dfPath; }
    bool IsDfForcedOn() override { return m_answers.dfForced; }
    bool IsAfcFollowed() override { return m_answers.afc; }
    bool HasBearingMap() override { return m_answers.bearingMap; }

private:
    const IfpanAnswers& m_answers; // so that a test may change its mind
};

/// One IF panorama trace; what a test does not set is plausible.
struct IfpanTrace {
    std::uint64_t centre = 100'000'000;
    std::uint32_t span = 1'000;
    std::int64_t stamp = 0;
    std::int32_t numerator = 0;
    std::int32_t denominator = 0;
    std::vector<short> levels{1, 2, 3, 4, 5};
    std::size_t optHeaderSize = wire::ifpan::size;
    bool littleEndian = false;
    std::uint32_t selectors = 1;

    [[nodiscard]] wire::Bytes bytes() const
    {
        namespace layout = wire::ifpan;
        wire::OptHeaderWriter header{optHeaderSize,
                                     littleEndian ? wire::ByteOrder::Little : wire::ByteOrder::Big};
        header.set(layout::centreFrequencyLow, static_cast<std::int32_t>(centre & 0xFFFFFFFFU))
            .set(layout::centreFrequencyHigh, static_cast<std::int32_t>(centre >> 32U))
            .set(layout::span, static_cast<std::int32_t>(span))
            .set(layout::timeStamp, stamp)
            .set(layout::stepNumerator, numerator)
            .set(layout::stepDenominator, denominator);
        wire::DatagramWriter writer;
        writer.attribute(501)
            .selectors(selectors | (littleEndian ? wire::selector::hostOrderFlag : 0U))
            .count(static_cast<std::uint32_t>(levels.size()))
            .optHeader(header.bytes());
        if ((selectors & 1U) != 0)
            writer.items(std::span<const short>(levels));
        return writer.build();
    }
};

/// Tells about a value's changes: "NAME TEXT" with 3, "NAME grid or contents" otherwise.
class ValueListener : public IObserver {
public:
    explicit ValueListener(EffectLog& log)
        : m_log(log)
    {}
    void Update(Observable* subject, TChangeCode code) override
    {
        const auto* const value = dynamic_cast<values::ValueBase*>(subject);
        m_log.add(value->GetName().toStdString() + " " +
                  (code == changecode::valueChanged ? value->ToText().toStdString() : std::to_string(code)));
    }

private:
    EffectLog& m_log;
};

/// A receiver at /RX with every value that the processor uses, a recording filler and a dispatcher for tag
/// 501.
class IfpanReceiver {
    using Selection = values::ValueSelection;
    using Entries = std::vector<Selection::Entry>;

    EffectLog& m_log; // first: the others use it

public:
    explicit IfpanReceiver(EffectLog& log)
        : m_log(log)
        , filler(std::make_shared<RecordingFiller>(log, &levels))
        , listener(log)
    {}

    /// Makes the processor; `initialise` binds it to /RX.
    MdpIfpan& processor()
    {
        if (!m_processor) {
            m_processor = std::make_unique<MdpIfpan>(std::make_unique<IfpanConfig>(answers), filler);
            m_processor->Init("/RX", "/FOLLOW");
            QObject::connect(m_processor.get(), &MdpIfpan::signalTraceData,
                             [this](const std::vector<short>& level, double realFreq, size_t stamp,
                                    double fMin, double fMax) {
                                 std::ostringstream line;
                                 line.precision(17);
                                 line << "signal x" << level.size() << " at " << realFreq << " stamp "
                                      << stamp << " " << fMin << ".." << fMax;
                                 m_log.add(line.str());
                                 signalled = level;
                             });
            m_dispatcher.RegisterTagProcessor(m_processor.get(), TAG_501, 0);
            m_log.clear();
        }
        return *m_processor;
    }

    void receive(const IfpanTrace& trace)
    {
        processor();
        m_dispatcher.ProcessDatagram(new UdpDatagram{received(trace.bytes())});
    }

    /// Observes `value`, so that its changes go to the log.
    template <typename T>
    void watch(const std::shared_ptr<T>& value)
    {
        value->AddObserver(&listener);
    }

    FreshValueTree tree;
    FixedClock clock{4711};
    IfpanAnswers answers;
    RecordingLevelMap levels{m_log, "levels"};
    std::shared_ptr<RecordingFiller> filler;
    ValueListener listener;
    std::vector<short> signalled;

    std::shared_ptr<Selection> follow =
        tree->Create<Selection>("/", "FOLLOW", Entries{{0, "NEVER"}, {3, "ALWAYS"}});
    std::shared_ptr<Selection> commands = tree->Create<Selection>("/RX", "DRVCOMMANDS",
                                                                  Entries{{0, "STOP"},
                                                                          {1, "stop"},
                                                                          {3, "FFM"},
                                                                          {5, "SEARCH"},
                                                                          {6, "MSEARCH"},
                                                                          {7, "MSCAN"},
                                                                          {22, "WFFM"},
                                                                          {28, "DFSEARCH"}});
    std::shared_ptr<values::ValueNumericWithOffset> frequency =
        tree->Create<values::ValueNumericWithOffset>("/RX", "FREQUENCY", 100e6);
    std::shared_ptr<Selection> span = tree->Create<Selection>(
        "/RX", "IFPANSPAN", Entries{{1000, "1 kHz"}, {50'000, "50 kHz"}, {1e6, "1 MHz"}});
    std::shared_ptr<Selection> step = tree->Create<Selection>(
        "/RX", "IFSTEP", Entries{{250, "250 Hz"}, {12'500, "12.5 kHz"}, {25'000, "25 kHz"}});
    std::shared_ptr<values::Value<bool>> afc = tree->Create<values::Value<bool>>("/RX", "AFC");
    std::shared_ptr<Selection> searchScan =
        tree->Create<Selection>("/RX", "SEARCHSCANMODE", Entries{{0, "IDLE"}, {1, "RUN"}, {2, "HOLD"}});
    std::shared_ptr<Selection> mScan =
        tree->Create<Selection>("/RX", "MSCANMODE", Entries{{0, "IDLE"}, {1, "RUN"}, {2, "HOLD"}});
    std::shared_ptr<values::Value<bool>> wheel = tree->Create<values::Value<bool>>("/RX", "TUNINGWHEELINUSE");
    std::shared_ptr<values::Value<bool>> endOfScan =
        tree->Create<values::Value<bool>>("/RX/PRIORITYSCAN", "ENDOFSCAN");
    std::shared_ptr<values::Value<bool>> enabled =
        tree->Create<values::Value<bool>>("/RX/PRIORITYSCAN", "ENABLED");
    std::shared_ptr<Selection> dfEnabled =
        tree->Create<Selection>("/RX/KRT", "DF_ENABLED", Entries{{0, "OFF"}, {1, "ON"}, {2, "AUTO"}});
    std::shared_ptr<Selection> replay = tree->Create<Selection>(
        "/RX/RECORDREPLAY", "MODE", Entries{{0, "IDLE"}, {1, "RECORD"}, {3, "REPLAY"}});

private:
    VK410Processor m_dispatcher{false};
    std::unique_ptr<MdpIfpan> m_processor;
};

} // namespace support
