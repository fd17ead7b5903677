// SPDX-License-Identifier: MIT
#pragma once
// Everything that the processors of direction-finding scans work with: a receiver's values, scan ranges,
// traces.
#include "devicecontrol/vk410protocol/mdpdfpscan.h"
#include "devicecontrol/vk410protocol/vk410processor.h"
#include "support/delivered.h"
#include "support/effect_log.h"
#include "support/ifpan_receiver.h"
#include "support/recording_map.h"
#include "support/value_tree.h"
#include "values/valuecommentedrangemap.h"
#include "wire/datagramwriter.h"
#include <bit>
#include <cstdint>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace support {

/// One trace of a direction-finding scan; what a test does not set is plausible.
struct DfTrace {
    std::int64_t startFrequency = 100'000'000;
    std::int32_t firstChannel = 0;
    std::int32_t stepNumerator = 25'000;
    std::int32_t stepDenominator = 1;
    std::int32_t span = 75'000;
    std::int32_t averagingTimeOffset = 0;
    std::uint32_t flags = 1;
    std::int64_t sweepTime = 0;
    std::int64_t stamp = 5'000'000;
    std::int16_t jobId = 7;
    std::optional<std::int16_t> superResolutionFields{}; // else the bits of the arrays that are there
    std::int8_t superResolutionCount = 0;
    std::int8_t eigenValueCount = 0;

    std::vector<short> shortTimeLevel{};
    std::vector<short> azimuth{900, 1800, 2700, 3599};
    std::vector<short> quality{};
    std::vector<short> fieldStrength{};
    std::vector<short> level{};
    std::vector<short> elevation{};
    std::vector<float> eigenValues{};
    std::vector<std::vector<short>> waves{}; // level, azimuth, quality, field strength, elevation, unused
    wire::Bytes tail{};
    std::optional<std::uint32_t> count{};
    std::optional<std::uint32_t> length{}; // else the attribute's true one
    std::uint16_t tag = 5301;
    std::size_t optHeaderSize = wire::dfscan::size;
    bool littleEndian = false;

    [[nodiscard]] wire::Bytes bytes() const
    {
        wire::DatagramWriter writer;
        std::uint32_t selectors = littleEndian ? wire::selector::hostOrderFlag : 0U;
        std::size_t longest = 0;
        const auto fields =
            std::to_array<std::pair<unsigned, const std::vector<short>*>>({{11, &shortTimeLevel},
                                                                           {12, &azimuth},
                                                                           {13, &quality},
                                                                           {14, &fieldStrength},
                                                                           {15, &level},
                                                                           {18, &elevation}});
        for (const auto& [bit, items] : fields) {
            selectors |= items->empty() ? 0U : 1U << bit;
            longest = std::max(longest, items->size());
        }
        writer.attribute(tag)
            .selectors(selectors)
            .count(count.value_or(static_cast<std::uint32_t>(longest)))
            .optHeader(header());
        if (length)
            writer.claimLength(*length);
        for (const auto& [bit, items] : fields)
            writer.items(std::span<const short>(*items));
        for (const float value : eigenValues)
            writer.items({std::bit_cast<std::uint32_t>(value)});
        for (const std::vector<short>& items : waves)
            writer.items(std::span<const short>(items));
        return writer.bytes(tail).build();
    }

    [[nodiscard]] wire::Bytes header() const
    {
        namespace layout = wire::dfscan;
        unsigned present = eigenValues.empty() ? 0U : 1U;
        for (std::size_t i = 0; i < waves.size(); ++i)
            present |= waves[i].empty() ? 0U : 2U << i;
        const auto srFields = superResolutionFields.value_or(static_cast<std::int16_t>(present));
        wire::OptHeaderWriter out{optHeaderSize,
                                  littleEndian ? wire::ByteOrder::Little : wire::ByteOrder::Big};
        return out.set(layout::startFrequency, startFrequency)
            .set(layout::firstChannel, firstChannel)
            .set(layout::stepNumerator, stepNumerator)
            .set(layout::stepDenominator, stepDenominator)
            .set(layout::span, span)
            .set(layout::averagingTimeOffset, averagingTimeOffset)
            .set(layout::dfFlags, static_cast<std::int32_t>(flags))
            .set(layout::sweepTime, sweepTime)
            .set(layout::timestamp, stamp)
            .set(layout::jobId, jobId)
            .set(layout::superResolutionFields, srFields)
            .set(layout::superResolutionCount, superResolutionCount)
            .set(layout::eigenValueCount, eigenValueCount)
            .bytes();
    }
};

namespace dfflag {
inline constexpr std::uint32_t valid = 1;
inline constexpr std::uint32_t overflow = 2;
inline constexpr std::uint32_t blanking = 4;
inline constexpr std::uint32_t endOfSweep = 16;
inline constexpr std::uint32_t polar = 1U << 25;
inline constexpr std::uint32_t method(unsigned number)
{
    return number << 12U;
}
} // namespace dfflag

inline std::shared_ptr<ScanRange> scanRange(quint64 start, quint64 stop, double step, quint32 job,
                                            std::vector<std::pair<double, double>> sectors = {})
{
    auto range = std::make_shared<ScanRange>();
    range->startFrequency = start;
    range->stopFrequency = stop;
    range->step = step;
    range->jobId = job;
    range->azimuthSectors = std::move(sectors);
    return range;
}

/// Keeps what it received last, and tells of each call.
class RecordingDfReceiver : public IMassDataReceiver {
public:
    explicit RecordingDfReceiver(EffectLog& log)
        : m_log(log)
    {}
    void ReceiveDfScanData(double startFrequency, double step, double span, quint64 timeStamp,
                           int channelCount, short* azimuth, short* quality, short* fieldStrength,
                           short* level, short* shortTimeLevel, short* elevation, short* reserved,
                           const ScanRange* scanRange) override
    {
        keep("plain", {startFrequency, step, span}, timeStamp, channelCount, *scanRange);
        fields = {kept(azimuth, channelCount),        kept(quality, channelCount),
                  kept(fieldStrength, channelCount),  kept(level, channelCount),
                  kept(shortTimeLevel, channelCount), kept(elevation, channelCount),
                  kept(reserved, channelCount)};
    }
    void ReceiveDfScanDataSuperResolution(double startFrequency, double step, double span, quint64 timeStamp,
                                          int channelCount, short* azimuth, short* quality,
                                          short* fieldStrength, short* level, short* shortTimeLevel,
                                          short* elevation, float* eigen, short* srLevel, short* srAzimuth,
                                          short* srQuality, short* srFieldStrength, short* srElevation,
                                          int superResolutionCount, int eigenValueCount,
                                          const ScanRange* scanRange) override
    {
        keep("super " + std::to_string(superResolutionCount) + "/" + std::to_string(eigenValueCount),
             {startFrequency, step, span}, timeStamp, channelCount, *scanRange);
        fields = {kept(azimuth, channelCount),        kept(quality, channelCount),
                  kept(fieldStrength, channelCount),  kept(level, channelCount),
                  kept(shortTimeLevel, channelCount), kept(elevation, channelCount)};
        const int count = channelCount * superResolutionCount;
        waves = {kept(srLevel, count), kept(srAzimuth, count), kept(srQuality, count),
                 kept(srFieldStrength, count), kept(srElevation, count)};
        eigenValues.reset();
        if (eigen)
            eigenValues = copied<float>(eigen, static_cast<std::size_t>(channelCount) *
                                                   static_cast<std::size_t>(eigenValueCount));
    }

    using Items = std::optional<std::vector<short>>; // nothing: a null pointer
    std::vector<Items>
        fields; // azimuth, quality, field strength, level, short-time level, elevation, reserved
    std::vector<Items> waves; // level, azimuth, quality, field strength, elevation
    std::optional<std::vector<float>> eigenValues;
    ScanRange range;

private:
    static Items kept(const short* items, int count)
    {
        return items ? Items{copied<short>(items, static_cast<std::size_t>(count))} : Items{};
    }
    void keep(const std::string& form, const std::vector<double>& doubles, quint64 stamp, int channels,
              const ScanRange& scanRange)
    {
        std::ostringstream line;
        line.precision(17);
        line << "receive " << form << " from " << doubles[0] << " by " << doubles[1] << " span " << doubles[2]
             << " at " << stamp << " x" << channels;
        m_log.add(line.str());
        range = scanRange;
    }

    EffectLog& m_log;
};

/// A receiver at /RX with every value that the processor uses, and a dispatcher for tag 5301.
class DfReceiver {
    using Selection = values::ValueSelection;
    using Number = values::ValueNumeric<double>;
    using WholeNumber = values::ValueNumeric<int>;
    using Time = values::ValueNumeric<qint64>;
    using StatusList = values::ValueFrequencyItemMap<values::BlankingRangeItem>;

    EffectLog& m_log; // first: the others use it

public:
    explicit DfReceiver(EffectLog& log)
        : m_log(log)
        , receiver(log)
        , listener(log)
    {
        tree->Add("/RX/KRT", map);
    }

    /// Makes the processor and binds it to /RX.
    MdpDFPScan& processor()
    {
        if (!m_processor) {
            m_processor = std::make_unique<MdpDFPScan>(hasReceiver ? &receiver : nullptr);
            m_processor->Init(path);
            const auto tell = [this](auto signal, const char* name) {
                QObject::connect(m_processor.get(), signal, [this, name] { m_log.add(name); });
            };
            tell(&MdpDFPScan::SignalOverflow, "SignalOverflow");
            tell(&MdpDFPScan::SignalBlanking, "SignalBlanking");
            tell(&MdpDFPScan::SignalInvalid, "SignalInvalid");
            tell(&MdpDFPScan::SignalAzimuthBlanking, "SignalAzimuthBlanking");
            tell(&MdpDFPScan::SignalFrequencyBlanking, "SignalFrequencyBlanking");
            tell(&MdpDFPScan::SignalRollPitchBlanking, "SignalRollPitchBlanking");
            m_dispatcher.RegisterTagProcessor(m_processor.get(), TAG_5301, 0);
            m_dispatcher.RegisterTagProcessor(m_processor.get(), TAG_501, 0);
            m_log.clear();
        }
        return *m_processor;
    }

    /// The log afterwards holds only what the caller does next.
    void setRanges(const ScanRangeContainer& ranges)
    {
        processor().SlotNewOrModifiedScanRanges(ranges);
        m_log.clear();
    }

    /// Four channels of job 7 from 100 MHz on.
    void setFourChannels(std::vector<std::pair<double, double>> sectors = {})
    {
        setRanges({scanRange(100'000'000, 100'075'000, 25'000, 7, std::move(sectors))});
    }

    void receive(const DfTrace& trace)
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

    /// Channel `id` of the map.
    [[nodiscard]] const values::DFSpectrumSample& at(unsigned id) const { return *map->FindChannelValue(id); }

    /// Validities of the whole map, a digit each.
    [[nodiscard]] std::string validities() const
    {
        std::string digits;
        for (const values::DFSpectrumSample& sample : map->GetValues())
            digits += std::to_string(static_cast<int>(sample.getValidity()));
        return digits;
    }

    FreshValueTree tree;
    RecordingDfReceiver receiver;
    bool hasReceiver = true;
    QString path = QStringLiteral("/RX");
    ValueListener listener;
    std::shared_ptr<RecordingDFSpectrumMap> map =
        std::make_shared<RecordingDFSpectrumMap>(m_log, "map", QStringLiteral("RXBEARINGMAPPING"));
    std::shared_ptr<Selection> commands =
        tree->Create<Selection>("/RX", "DRVCOMMANDS",
                                std::vector<Selection::Entry>{{23, "DF 23"},
                                                              {22, "DF 22"},
                                                              {24, "DF 24"},
                                                              {25, "DF 25"},
                                                              {26, "DF 26"},
                                                              {27, "DF 27"},
                                                              {28, "DF 28"},
                                                              {29, "DF 29"}});
    std::shared_ptr<Number> polarFrequency = tree->Create<Number>("/RX", "POLARFREQUENCY");
    std::shared_ptr<values::ValueNumericWithOffset> frequency =
        tree->Create<values::ValueNumericWithOffset>("/RX", "FREQUENCY");
    std::shared_ptr<Number> demodulationFrequency = tree->Create<Number>("/RX", "DEMODUALTIONFREQUENCY");
    std::shared_ptr<Time> dfTimestamp = tree->Create<Time>("/RX/KRT", "DFTIMESTAMP");
    std::shared_ptr<Time> sweepTime = tree->Create<Time>("/RX/KRT", "SWEEPTIME");
    std::shared_ptr<Time> averagingTime = tree->Create<Time>("/RX/KRT", "SPECTRUMAVERAGINGTIME");
    std::shared_ptr<values::ValueList<int>> altUsed =
        tree->Create<values::ValueList<int>>("/RX/KRT", "DFALTUSED");
    std::shared_ptr<values::Value<bool>> watsonWatt =
        tree->Create<values::Value<bool>>("/RX/KRT", "DFALTWATSONWATT");
    std::shared_ptr<WholeNumber> qualityThreshold = tree->Create<WholeNumber>("/RX/KRT", "QUALITYTHRESHOLD");
    std::shared_ptr<values::Value<bool>> usePitchRoll =
        tree->Create<values::Value<bool>>("/RX/GPSCOMPASS", "UsePitchRollBlanking");
    std::shared_ptr<WholeNumber> rollThreshold =
        tree->Create<WholeNumber>("/RX/GPSCOMPASS", "RollThreshold", 10);
    std::shared_ptr<WholeNumber> pitchThreshold =
        tree->Create<WholeNumber>("/RX/GPSCOMPASS", "PitchThreshold", 20);
    std::shared_ptr<Number> roll = tree->Create<Number>("/RX/GPSCOMPASS/POSITION", "ROLL");
    std::shared_ptr<Number> pitch = tree->Create<Number>("/RX/GPSCOMPASS/POSITION", "PITCH");
    std::shared_ptr<StatusList> status = tree->Create<StatusList>("/INTERFACES/Blanking/Ranges", "List");
    std::shared_ptr<values::ValueCommentedRangeMap> blankingRanges =
        tree->Create<values::ValueCommentedRangeMap>("/INTERFACES/Blanking", "BlankingRangesFrequencyStore");
    std::shared_ptr<values::ValueCommentedRangeMap> localSuppress =
        FreqStore::Instance()->GetLocalSuppressRange();
    std::shared_ptr<values::ValueCommentedRangeMap> globalSuppress =
        FreqStore::Instance()->GetGlobalSuppressRange();

private:
    VK410Processor m_dispatcher{false};
    std::unique_ptr<MdpDFPScan> m_processor;
};

} // namespace support
