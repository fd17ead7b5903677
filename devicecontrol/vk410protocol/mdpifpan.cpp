// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/mdpifpan.h"
#include "devicecontrol/vk410protocol/numbers.h"
#include "devicecontrol/vk410protocol/tracecopy.h"
#include "nqbase/errorhandler.h"
#include "nqbase/nqexception.h"
#include "nqbase/tavoos.h"
#include "wire/optheader.h"
#include "wire/selectors.h"
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

namespace {

constexpr char sourceFile[] = "devicecontrol/vk410protocol/mdpifpan";
constexpr double epsilon = std::numeric_limits<double>::epsilon();

// A search visits at most as many frequencies as a memory list has places, by far; the number comes from the
// network.
constexpr std::size_t maxVisitedFrequencies = 65'536;

namespace command { // keys of DRVCOMMANDS
constexpr double fixedFrequency = 3;
constexpr double searchScan = 5;
constexpr double memorySearch = 6;
constexpr double memoryScan = 7;
constexpr double dfSearchScan = 28;
} // namespace command

constexpr double followKey = 3;
constexpr double replayStarts = 3;
constexpr double replayEnds = 0;

// The histories below are one per process, shared by all processors, and never reset. That is meant:
// applications rely on it. Pinned by the tests of mdpifpan_statics_test, each in a process of its own.
double lastSearchFreq = 0.0;
bool searchWrapToggle = false;
double lastSimFreq = 0.0;

class AnswersNo final : public MdpIfpan::IConfig {
public:
    bool IsSpanFollowedDuringSearch() override { return false; }
    bool IsEndOfSearchNotified() override { return false; }
    bool UseDeviceTimestamp() override { return false; }
    bool IsMSearchSimulated() override { return false; }
    bool UseDfBearingMapPath() override { return false; }
    bool IsDfForcedOn() override { return false; }
    bool IsAfcFollowed() override { return false; }
    bool HasBearingMap() override { return false; }
};

template <typename T>
void bind(T& handle, const QString& path, const char* name)
{
    handle.Bind(path + QLatin1Char('/') + QLatin1String(name));
}

bool textIs(const values::ValueSelection& selection, const char* text)
{
    return selection.GetCurrentKeyText() == QLatin1String(text);
}

double stepOf(qint32 numerator, qint32 denominator, double extent, int count)
{
    if (denominator != 0)
        return static_cast<double>(numerator) / denominator;
    return numbers::quotient(extent, count - 1);
}

bool sameWithinEpsilon(double a, double b)
{
    return std::abs(a - b) <= std::max(a, b) * epsilon;
}

values::ChannelRangeDefinition oneRange(double start, double step, int count)
{
    values::ChannelRangeDefinition definition;
    definition.AddRangeDefinition(0, static_cast<unsigned>(count), start, step, QString());
    return definition;
}

} // namespace

MdpIfpan::IConfig::~IConfig() = default;

MdpIfpan::MdpIfpan(std::unique_ptr<IConfig> config, std::shared_ptr<ILevelMapFiller> filler)
    : m_spanTraceLengthQuirks{{5'000, 25}, {50'000, 25}, {500'000, 25}, {5'000'000, 25}}
    , m_config(config ? std::move(config) : std::make_unique<AnswersNo>())
    , m_filler(std::move(filler))
{}

MdpIfpan::~MdpIfpan() = default;

void MdpIfpan::Init(QString path)
{
    IMassDataProcessor::Init(std::move(path));
    // From the root, so that the look-up with every trace composes nothing either.
    const QString root = Path().startsWith(QLatin1Char('/')) ? Path() : QLatin1Char('/') + Path();
    m_dfEnabledPath = root + QStringLiteral("/KRT/DF_ENABLED");
    m_dfBearingMapPath = root + QStringLiteral("/KRT/RXBEARINGMAPPING");
}

void MdpIfpan::Init(QString path, const QString& followSelectionPath)
{
    Init(std::move(path));
    bind(m_drvCommands, Path(), "DRVCOMMANDS");
    bind(m_afc, Path(), "AFC");
    bind(m_frequency, Path(), "FREQUENCY");
    bind(m_ifPanSpan, Path(), "IFPANSPAN");
    bind(m_ifStep, Path(), "IFSTEP");
    bind(m_searchScanMode, Path(), "SEARCHSCANMODE");
    bind(m_mScanMode, Path(), "MSCANMODE");
    bind(m_tuningWheelValue, Path(), "TUNINGWHEELINUSE");
    if (m_tuningWheelValue)
        m_tuningWheelValue->SetValue(false, nullptr);
    bind(m_endOfScan, Path(), "PRIORITYSCAN/ENDOFSCAN");
    bind(m_enabled, Path(), "PRIORITYSCAN/ENABLED");
    m_followSelection.Bind(followSelectionPath);
    if (m_config->HasBearingMap()) {
        if (m_config->UseDfBearingMapPath()) {
            bindBearingMap(m_dfBearingMapPath);
        } else {
            bindBearingMap(Path() + QStringLiteral("/RXBEARINGMAPPING"));
            if (m_bearingMap) {
                m_bearingMap->CreateRealTimeBuffer();
                m_bearingMap->SetRealTimeBufferDepth(10);
                m_bearingMap->SetHoldTime(0);
            }
        }
    }
    m_dfEnabled.Bind(m_dfEnabledPath);
    m_visitedFrequencies.clear();
    bind(m_replayMode, Path(), "RECORDREPLAY/MODE");
}

void MdpIfpan::bindBearingMap(const QString& path)
{
    const std::shared_ptr<values::BearingMap> before = m_bearingMap.share();
    m_bearingMap.Bind(path);
    // Another map has not got the grid that the last one was given.
    if (m_bearingMap.share() != before)
        m_dfRangeDefinition.reset();
}

void MdpIfpan::SetAttribute(DataPointers* data, UdpDatagramAttribute* attribute, bool optHeaderAvailable)
{
    if (!optHeaderAvailable)
        return NotAccepted("no optional header");
    if (!m_dfEnabled)
        m_dfEnabled.Bind(m_dfEnabledPath);
    const int count = attribute->Count();
    if (count == 0)
        return NotAccepted("no values");
    if (!tracecopy::isLevelTrace(*data, *attribute))
        return NotAccepted("not a trace of levels");

    OptHeaderValues header = readOptHeader(*attribute);
    const auto freq = static_cast<double>(header.centreFrequencyHz);
    followDevice(header, freq);
    const Range range = rangeOf(header, freq);
    followScan(header, freq);
    const int valueCount = widened(header, count);
    if (m_drvCommands && textIs(*m_drvCommands, "WFFM") && !CheckDfEnabled())
        SetDfAttribute(data, header, {range.fMin, range.fMax, count});
    if (m_filler)
        writeLevels(header, range, valueCount, data->selBit0);
    if (m_config->IsMSearchSimulated() &&
        (commandHasKey(command::memorySearch) || commandHasKey(command::memoryScan)))
        SimulateMSearch(data, valueCount, range.realFreq);
    emit signalTraceData(tracecopy::levels(data->selBit0, valueCount), range.realFreq, header.deviceStamp,
                         range.fMin, range.fMax);
}

MdpIfpan::OptHeaderValues MdpIfpan::readOptHeader(UdpDatagramAttribute& attribute)
{
    namespace layout = wire::ifpan;
    const std::size_t size = std::min<std::size_t>(attribute.OptHeaderLength(), layout::size);
    const wire::View header{attribute.OptHeader(), size};
    const bool hostOrder = (attribute.SelectorFlags() & wire::selector::hostOrderFlag) != 0;
    const wire::ByteOrder order = hostOrder ? wire::ByteOrder::Little : wire::ByteOrder::Big;
    // The low half is signed on paper. Taken so, it would spoil the high half from 2.147 to 4.295 GHz.
    // Pinned by MdpIfpanHeader.TakesTheLowHalfOfTheCentreFrequencyAsUnsigned.
    const auto low = static_cast<quint32>(header.getOrZero(layout::centreFrequencyLow, order));
    const auto high = static_cast<quint32>(header.getOrZero(layout::centreFrequencyHigh, order));
    return {quint64{high} << 32U | low, static_cast<quint32>(header.getOrZero(layout::span, order)),
            static_cast<quint64>(header.getOrZero(layout::timeStamp, order)),
            header.getOrZero(layout::stepNumerator, order), header.getOrZero(layout::stepDenominator, order)};
}

void MdpIfpan::followDevice(const OptHeaderValues& header, double freq)
{
    if (!isFollowing())
        return UpdateFreqDueToAfc(freq);
    const double span = header.spanHz;
    if (m_ifPanSpan && std::abs(m_ifPanSpan->GetValue() - span) >= 1.0)
        m_ifPanSpan->SelectClosestValue(span, nullptr);
    if (frequencyDiffers(freq))
        setFrequency(freq, this);
}

MdpIfpan::Range MdpIfpan::rangeOf(const OptHeaderValues& header, double freq) const
{
    const double offset = m_frequency ? m_frequency->GetOffset() : 0.0;
    const double half = header.spanHz / 2; // in whole hertz: an odd span loses its last one
    return {freq - half + offset, half + freq + offset, freq + offset};
}

void MdpIfpan::followScan(const OptHeaderValues& header, double freq)
{
    if (m_searchScanActive) {
        if (m_config->IsSpanFollowedDuringSearch()) {
            if (m_ifPanSpan)
                m_ifPanSpan->SelectClosestValue(header.spanHz, nullptr);
        } else if (frequencyDiffers(freq)) {
            hold(m_searchScanMode.get());
            setFrequency(freq, this);
        }
        if (m_config->IsEndOfSearchNotified())
            NotifyEndOfSearch(freq);
    } else if (m_mScanActive && frequencyDiffers(freq)) {
        hold(m_mScanMode.get());
        setFrequency(freq, this);
    }
}

// For these spans the receiver sends 25 values of 26. The 26th is read from behind the trace, which looks
// like a slip and is meant: the datagram guarantees that it can be read. Pinned by MdpIfpanWidening.*.
int MdpIfpan::widened(const OptHeaderValues& header, int count) const
{
    const auto quirk = m_spanTraceLengthQuirks.find(static_cast<int>(header.spanHz));
    const bool isQuirk = quirk != m_spanTraceLengthQuirks.end() && quirk->second == count;
    return isQuirk ? count + 1 : count;
}

void MdpIfpan::writeLevels(const OptHeaderValues& header, const Range& range, int count, short* levels)
{
    const values::ChannelRangeDefinition before = m_filler->GetRangeDefinition();
    if (!gridSuits(before, range, count))
        rebuildGrid(header, range, count);
    // The first trace only brings the grid, and the next one is written into it. That is meant: a display
    // gets the grid before the first values. Pinned by MdpIfpanGrid.TheFirstTraceSetsTheGridAndWritesNothing.
    if (before.empty())
        return;
    const quint64 stamp = mapStamp(header);
    if (auto* const mapping = m_filler->GetMapping())
        mapping->SetTimeStamp(stamp);
    m_filler->SetData(range.fMin, range.fMax, count, levels);
    m_filler->EndOfScan();
}

bool MdpIfpan::gridSuits(const values::ChannelRangeDefinition& grid, const Range& range, int count) const
{
    if (grid.GetChannelCount() == 0) // no ranges, or none with a channel whose frequency could be asked
        return false;
    const double lowest = grid.ChannelIdToFrequency(grid.GetMinChannelId());
    const double highest = grid.ChannelIdToFrequency(grid.GetMaxChannelId());
    const bool moved = std::abs(lowest - range.fMin) > 0.1 || std::abs(highest - range.fMax) > 0.1;
    const bool resized = grid.GetChannelCount() != static_cast<unsigned>(count) && !m_tuningWheelInUse;
    return !moved && !resized;
}

void MdpIfpan::rebuildGrid(const OptHeaderValues& header, const Range& range, int count)
{
    const double step = stepOf(header.stepNumerator, header.stepDenominator, range.fMax - range.fMin, count);
    if (isFollowing() && m_ifStep && std::abs(m_ifStep->GetValue() - step) > epsilon)
        m_ifStep->SelectClosestValue(step, nullptr);
    m_filler->SetRangeDefinition(oneRange(range.fMin, step, count), changecode::mapChanged);
}

bool MdpIfpan::CheckDfEnabled()
{
    return (m_dfEnabled && textIs(*m_dfEnabled, "ON")) || m_config->IsDfForcedOn();
}

void MdpIfpan::UpdateFreqDueToAfc(double freq)
{
    const bool afcIsOn = m_afc && m_afc->ToNumber() == 1.0;
    if (!m_config->IsAfcFollowed() || !commandHasKey(command::fixedFrequency) || !afcIsOn)
        return;
    // One for all processors of the process, like the histories above.
    static double lastFreq = m_frequency ? m_frequency->GetValue() : freq;
    // Exactly equal: AFC is followed only while nobody else has changed FREQUENCY since the last trace.
    if (m_frequency && m_frequency->GetValue() == lastFreq && frequencyDiffers(freq))
        setFrequency(freq, this);
    lastFreq = freq;
}

// Only every second time that the search wraps round to its start raises ENDOFSCAN. That is meant.
// Pinned by MdpIfpanStatics.EverySecondWrapOfASearchRaisesEndOfScan.
void MdpIfpan::NotifyEndOfSearch(double freq)
{
    if (!m_endOfScan || !m_enabled)
        return;
    if (freq < lastSearchFreq) {
        if (!searchWrapToggle && m_enabled->GetValue())
            m_endOfScan->SetValue(true, nullptr);
        searchWrapToggle = !searchWrapToggle;
    }
    lastSearchFreq = freq;
}

void MdpIfpan::SimulateMSearch(DataPointers* data, int count, double realFreq)
{
    if (!m_filler || !data->selBit0)
        return;
    m_filler->SetSingleData(realFreq, numbers::item16(data->selBit0, static_cast<std::size_t>(count / 2)));
    // Always the clock, whatever the configuration says about the device's stamps.
    if (auto* const mapping = m_filler->GetMapping())
        mapping->SetTimeStamp(TavoOS::Create()->GetCurrentTimeStamp());
    if (realFreq != lastSimFreq)
        rememberVisited(realFreq);
    lastSimFreq = realFreq;
}

void MdpIfpan::rememberVisited(double realFreq)
{
    const bool cameRound = std::any_of(m_visitedFrequencies.begin(), m_visitedFrequencies.end(),
                                       [realFreq](quint64 f) { return static_cast<double>(f) == realFreq; });
    if (cameRound) {
        m_filler->SetSingleData(0.0, 0);
        m_visitedFrequencies.clear();
    }
    if (m_visitedFrequencies.size() < maxVisitedFrequencies)
        m_visitedFrequencies.push_back(numbers::saturated<quint64>(realFreq));
}

void MdpIfpan::SetDfAttribute(DataPointers* data, OptHeaderValues& header,
                              std::tuple<double, double, const int> extent)
{
    if (!m_bearingMap && m_config->UseDfBearingMapPath())
        bindBearingMap(m_dfBearingMapPath);
    // For the whole step: an observer of the map may bind another one.
    const std::shared_ptr<values::BearingMap> map = m_bearingMap.share();
    if (!map)
        return;
    const auto [fMin, fMax, count] = extent;
    installDfGrid(*map, fMin, stepOf(header.stepNumerator, header.stepDenominator, fMax - fMin, count),
                  count);

    const auto size = static_cast<std::size_t>(count);
    if (size > m_dfBuffer.size())
        m_dfBuffer.resize(size);
    for (std::size_t i = 0; i < size; ++i) {
        const qint16 level = data->selBit0 ? numbers::item16(data->selBit0, i) : qint16{0};
        // Ten times the level, no azimuth and no quality.
        m_dfBuffer[i] = {0, numbers::wrappedProduct(level, 10), 0, 0, 0};
    }
    map->SetTimeStamp(mapStamp(header));
    writeBearings(*map, count);
}

void MdpIfpan::installDfGrid(values::BearingMap& map, double fMin, double step, int count)
{
    const auto isUnchanged = [&] {
        if (!m_dfRangeDefinition || m_dfSwitchedOff)
            return false;
        const values::ChannelRangeDefinition& old = *m_dfRangeDefinition;
        return sameWithinEpsilon(fMin, old.ChannelIdToFrequency(old.GetMinChannelId())) &&
               sameWithinEpsilon(step, old.GetRanges().front().step) &&
               old.GetChannelCount() == static_cast<unsigned>(count);
    };
    if (isUnchanged())
        return;
    m_dfRangeDefinition = std::make_unique<values::ChannelRangeDefinition>(oneRange(fMin, step, count));
    const values::ChannelRangeDefinition definition = *m_dfRangeDefinition;
    try {
        map.SetChannelRangeDefinition(definition, changecode::mapChanged);
    } catch (...) {
        m_dfRangeDefinition.reset(); // not installed: the next trace tries again
        throw;
    }
    m_dfSwitchedOff = false;
}

void MdpIfpan::writeBearings(values::BearingMap& map, int count)
{
    try {
        map.SetChannelValues(0, static_cast<unsigned>(count), m_dfBuffer.data());
    } catch (const NQException& failure) {
        if ((ErrorHandler::Instance()->GetTraceMask() & tracemask::error) != 0) {
            _Q_Trace(QStringLiteral("an error has occured while trying to set dfpan data to the valuemap: ") +
                         failure.GetErrorReason() + QStringLiteral(" File: ") + failure.GetFileName() +
                         QStringLiteral(" Line: ") + QString::number(failure.GetLineNumber()),
                     sourceFile, __LINE__);
        }
    }
    // Also after a failure, so that a display that waits for the map does not hang.
    map.HasChanged(changecode::mapChanged);
    map.EndOfScan();
}

bool MdpIfpan::isFollowing() const
{
    return m_followSelection && m_followSelection->GetCurrentKey() == followKey;
}

bool MdpIfpan::frequencyDiffers(double freq) const
{
    return m_frequency && std::abs(m_frequency->GetValue() - freq) >= 1.0;
}

bool MdpIfpan::commandHasKey(double key) const
{
    return m_drvCommands && m_drvCommands->GetCurrentKey() == key;
}

quint64 MdpIfpan::mapStamp(const OptHeaderValues& header) const
{
    if (header.deviceStamp != 0 && m_config->UseDeviceTimestamp())
        return header.deviceStamp / 1000;
    return TavoOS::Create()->GetCurrentTimeStamp();
}

void MdpIfpan::setFrequency(double freq, IObserver* originator)
{
    if (m_frequency)
        m_frequency->SetValue(freq, originator);
}

void MdpIfpan::hold(values::ValueSelection* scanMode)
{
    if (scanMode && scanMode->HasText(QStringLiteral("HOLD")))
        scanMode->SelectText(QStringLiteral("HOLD"), this);
}

void MdpIfpan::Update(Observable* subject, TChangeCode code)
{
    if (!subject || code != changecode::valueChanged)
        return;
    const bool commandSearches = commandHasKey(command::searchScan) || commandHasKey(command::dfSearchScan);
    if (subject == m_searchScanMode.get()) {
        if (textIs(*m_searchScanMode, "IDLE"))
            m_searchScanActive = false;
        else if (commandSearches)
            m_searchScanActive = true;
    } else if (subject == m_tuningWheelValue.get()) {
        m_tuningWheelInUse = m_tuningWheelValue->GetValue();
    } else if (subject == m_mScanMode.get()) {
        if (textIs(*m_mScanMode, "IDLE"))
            m_mScanActive = false;
        else if (commandHasKey(command::memoryScan))
            m_mScanActive = true;
    } else if (subject == m_drvCommands.get()) {
        m_mScanActive = m_mScanActive && commandHasKey(command::memoryScan);
        m_searchScanActive = m_searchScanActive && commandSearches;
    } else if (subject == m_dfEnabled.get()) {
        m_dfSwitchedOff = textIs(*m_dfEnabled, "OFF");
    } else if (subject == m_replayMode.get()) {
        if (m_replayMode->GetCurrentKey() == replayStarts)
            saveSettings();
        else if (m_replayMode->GetCurrentKey() == replayEnds)
            restoreSettings();
    }
}

void MdpIfpan::saveSettings()
{
    if (m_ifPanSpan)
        m_saved.span = m_ifPanSpan->GetValue();
    if (m_ifStep)
        m_saved.step = m_ifStep->GetValue();
    if (m_frequency)
        m_saved.frequency = m_frequency->GetValue();
}

void MdpIfpan::restoreSettings()
{
    // Looked up afresh: replay may have exchanged the value.
    values::ValuePtr<values::ValueSelection> commands;
    bind(commands, Path(), "DRVCOMMANDS");
    if (!commands || commands->GetCurrentKeyText().toUpper() != QLatin1String("STOP"))
        return;
    if (m_saved.frequency && m_frequency && m_frequency->GetValue() != *m_saved.frequency)
        setFrequency(*m_saved.frequency, nullptr);
    if (m_saved.span && m_ifPanSpan && m_ifPanSpan->GetValue() != *m_saved.span)
        m_ifPanSpan->SelectClosestValue(*m_saved.span, nullptr);
    if (m_saved.step && m_ifStep && m_ifStep->GetValue() != *m_saved.step)
        m_ifStep->SelectClosestValue(*m_saved.step, nullptr);
}
