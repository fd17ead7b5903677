// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/mdpdfpscan.h"
#include "devicecontrol/vk410protocol/dfblanking.h"
#include "devicecontrol/vk410protocol/dfoptheader.h"
#include "devicecontrol/vk410protocol/dfsamples.h"
#include "devicecontrol/vk410protocol/scangrid.h"
#include "devicecontrol/vk410protocol/superresolution.h"
#include "nqbase/errorhandler.h"
#include "nqbase/nqexception.h"
#include "wire/optheader.h"
#include <algorithm>
#include <cmath>
#include <new>
#include <utility>

namespace {

using Validity = values::DFSpectrumSample::Validity;

constexpr char sourceFile[] = "devicecontrol/vk410protocol/mdpdfpscan";

namespace flag = wire::dfscan::flag;

constexpr int watsonWatt = 1; // the method

// Keys of DRVCOMMANDS in which the receiver scans for directions.
constexpr double dfScanModes[] = {23, 24, 25, 26, 28};
constexpr double dfSearchScan = 28;

// Channels that are converted and blanked before the next ones: their samples, 24 kB, stay near meanwhile.
constexpr std::size_t pieceSize = 1024;

constexpr double lastAzimuth = 3599.0; // tenths of a degree

template <typename T>
void bind(T& handle, const QString& path, const char* name)
{
    handle.Bind(path + QLatin1Char('/') + QLatin1String(name));
}

void trace(const QString& message, int line)
{
    if ((ErrorHandler::Instance()->GetTraceMask() & tracemask::error) != 0)
        _Q_Trace(message, sourceFile, line);
}

void traceMapFailure(const NQException& failure)
{
    trace(QStringLiteral("An error has occurred while trying to set dfpan data to the valuemap: %1")
              .arg(failure.GetErrorReason()),
          486);
}

// Rounded as a signed number: the sum with 500 could overflow.
quint64 mapStampOf(quint64 deviceStamp)
{
    const auto stamp = static_cast<qint64>(deviceStamp);
    const qint64 rounded = stamp < 0 ? (stamp + 500) / 1000 : stamp / 1000 + (stamp % 1000 + 500) / 1000;
    return static_cast<quint64>(rounded);
}

// Bounds outside of the circle are moved to its ends; a sector with a bound that is not a number is empty.
void limit(std::pair<double, double>& sector)
{
    if (std::isnan(sector.first) || std::isnan(sector.second))
        sector = {0.0, 0.0};
    sector.first = std::clamp(sector.first, 0.0, lastAzimuth);
    sector.second = std::clamp(sector.second, 0.0, lastAzimuth);
}

// The memory of samples while a block is filled. Whoever is called meanwhile may bring the next block.
class Borrowed {
public:
    Borrowed(std::vector<values::DFSpectrumSample>& home, std::size_t count)
        : m_home(home)
        , m_samples(std::move(home))
    {
        m_samples.resize(count);
    }
    Borrowed(const Borrowed&) = delete;
    Borrowed& operator=(const Borrowed&) = delete;
    ~Borrowed() { m_home = std::move(m_samples); }

    std::span<values::DFSpectrumSample> samples() { return m_samples; }

private:
    std::vector<values::DFSpectrumSample>& m_home;
    std::vector<values::DFSpectrumSample> m_samples;
};

} // namespace

// One trace on its way.
struct MdpDFPScan::Block {
    const DataPointers* data;
    DfOptHeader header;
    int channelCount;
    int jobChannel; // channel id of the first channel of the trace's job
    quint64 mapStamp;
    SuperResolutionArrays waves;
    std::shared_ptr<const ScanRange> sectors; // where azimuths are blanked; null: nowhere

    [[nodiscard]] bool flag(unsigned number) const { return header.flag(number); }
    [[nodiscard]] int method() const { return header.dfFlags >> flag::method & flag::methodMask; }
};

MdpDFPScan::MdpDFPScan(IMassDataReceiver* receiver)
    : m_receiver(receiver)
    , m_blanking(std::make_unique<DfBlanking>(this))
{}

MdpDFPScan::~MdpDFPScan() = default;

void MdpDFPScan::Init(QString devicePath)
{
    IMassDataProcessor::Init(std::move(devicePath));
    const QString finder = Path() + QStringLiteral("/KRT");
    bind(m_drvCommands, Path(), "DRVCOMMANDS");
    bind(m_polarFrequency, Path(), "POLARFREQUENCY");
    bind(m_frequency, Path(), "FREQUENCY");
    // The name is spelled as the direction finder spells it.
    bind(m_demodulationFrequency, Path(), "DEMODUALTIONFREQUENCY");
    m_blanking->Bind();
    bind(m_dfTimestamp, finder, "DFTIMESTAMP");
    bind(m_sweepTime, finder, "SWEEPTIME");
    bind(m_spectrumAveragingTime, finder, "SPECTRUMAVERAGINGTIME");
    bind(m_dfSpectrumMap, finder, "RXBEARINGMAPPING");
    if (m_dfSpectrumMap)
        m_dfSpectrumMap->setKeepScanDataAfterEndOfScan(true);
    bind(m_dfAltUsed, finder, "DFALTUSED");
    bind(m_dfAltWatsonWatt, finder, "DFALTWATSONWATT");
    bindAttitude();
    bind(m_qualityThreshold, finder, "QUALITYTHRESHOLD");
}

void MdpDFPScan::bindAttitude()
{
    const QString compass = QStringLiteral("/GPSCOMPASS");
    values::ValuePtr<values::Value<bool>> isWanted;
    bind(isWanted, Path() + compass, "UsePitchRollBlanking");
    m_usePitchRollBlanking = isWanted && isWanted->GetValue();
    if (!m_usePitchRollBlanking)
        return;
    bind(m_rollThreshold, Path() + compass, "RollThreshold");
    bind(m_pitchThreshold, Path() + compass, "PitchThreshold");
    // The compass belongs to the receiver, not to one of its direction-finding controls.
    const QString position =
        QString(Path()).remove(QStringLiteral("/KRTCTL")) + compass + QStringLiteral("/POSITION");
    bind(m_roll, position, "ROLL");
    bind(m_pitch, position, "PITCH");
}

void MdpDFPScan::SlotNewOrModifiedScanRanges(ScanRangeContainer scanRanges)
{
    try {
        takeScanRanges(std::move(scanRanges));
    } catch (const std::bad_alloc&) {
        m_jobChannelOffset.clear();
        trace(QStringLiteral("There is no memory for the scan ranges"), __LINE__);
    }
}

void MdpDFPScan::takeScanRanges(ScanRangeContainer scanRanges)
{
    scanRanges.erase(std::remove(scanRanges.begin(), scanRanges.end(), nullptr), scanRanges.end());
    const ScanGrid scan = ScanGrid::of(scanRanges);
    m_jobChannelOffset.clear();
    for (const ScanGrid::Job& job : scan.jobs)
        m_jobChannelOffset[job.id] = job.firstChannel; // of ranges with the same id the last one counts
    m_azimuthBlankingActive = false;
    for (const std::shared_ptr<ScanRange>& range : scanRanges)
        checkAzimuthSectors(*range);
    m_scanRanges = std::move(scanRanges);
    try {
        if (m_dfSpectrumMap)
            m_dfSpectrumMap->SetChannelRangeDefinition(scan.grid, changecode::mapChanged);
    } catch (const NQException& failure) {
        trace(QStringLiteral("An error has occurred while trying to set the scan ranges: ") +
                  failure.GetErrorReason(),
              __LINE__);
        // Traces would go to channels of the old grid.
        if (!(m_dfSpectrumMap->GetChannelRangeDefinition() == scan.grid))
            m_jobChannelOffset.clear();
    }
    m_blanking->SetScanRanges(m_scanRanges);
}

void MdpDFPScan::checkAzimuthSectors(ScanRange& range)
{
    auto& sectors = range.azimuthSectors;
    for (std::size_t i = 0; i < sectors.size(); ++i) { // grows meanwhile
        limit(sectors[i]);
        if (sectors[i].first > sectors[i].second) {
            sectors.emplace_back(0.0, sectors[i].second);
            sectors[i].second = lastAzimuth;
        }
        if (sectors[i].first != sectors[i].second)
            m_azimuthBlankingActive = true;
    }
}

void MdpDFPScan::SetAttribute(DataPointers* data, UdpDatagramAttribute* /*attribute*/,
                              bool optHeaderAvailable)
{
    if (!optHeaderAvailable) {
        trace(QStringLiteral("Mass data contains no optional header."), 99);
        return NotAccepted("no optional header");
    }
    if (!data->extHeader || !data->extOptHeader)
        return NotAccepted("not of the extended form");
    if (!isDfScanMode())
        return NotAccepted("the receiver is in no mode of direction-finding scans");
    const DfOptHeader header = DfOptHeader::read(*data->extHeader, data->extOptHeader);
    const auto job = m_jobChannelOffset.find(header.jobId);
    if (job == m_jobChannelOffset.end())
        return NotAccepted("no scan range has this job id");
    const int channelCount = static_cast<quint16>(data->extHeader->Count());
    processBlock({data, header, channelCount, job->second, mapStampOf(header.deviceStamp), {}, nullptr});
}

bool MdpDFPScan::isDfScanMode() const
{
    return std::any_of(std::begin(dfScanModes), std::end(dfScanModes),
                       [this](double mode) { return hasMode(mode); });
}

bool MdpDFPScan::hasMode(double mode) const
{
    return m_drvCommands && m_drvCommands->GetCurrentKey() == mode;
}

void MdpDFPScan::processBlock(Block block)
{
    // Asked now: whoever is called on the way may change it.
    const bool isSearching = hasMode(dfSearchScan);
    collectDfMethods(block.method(), block.flag(flag::endOfSweep));
    updateTimes(block);
    block.waves = SuperResolutionArrays::find(*block.data, block.header);
    if (m_azimuthBlankingActive) {
        block.sectors = blanking::scanRangeOf(m_scanRanges, block.header.jobId);
        emit SignalAzimuthBlanking();
    }
    if (block.flag(flag::valid)) {
        if (isSearching)
            followFrequency(block);
        if (m_dfAltWatsonWatt)
            m_dfAltWatsonWatt->SetValue(block.method() == watsonWatt, this);
        callReceiver(block);
    }
    // A search that is told its frequency only follows it: it brings nothing for the map.
    if (isSearching && block.flag(flag::polarFrequency))
        return;
    Borrowed memory{m_samples, static_cast<std::size_t>(block.channelCount)};
    fillSamples(block, memory.samples());
    m_blanking->UpdateStatus(block.header, block.mapStamp, block.flag(flag::blanking));
    if (!writeSamples(block, memory.samples()))
        return;
    if (block.flag(flag::overflow))
        emit SignalOverflow();
    if (block.flag(flag::blanking))
        emit SignalBlanking();
    if (!block.flag(flag::valid))
        emit SignalInvalid();
    finishBlock(block);
}

void MdpDFPScan::collectDfMethods(int method, bool endOfSweep)
{
    if (std::find(m_dfMethods.begin(), m_dfMethods.end(), method) == m_dfMethods.end())
        m_dfMethods.push_back(method);
    if (!endOfSweep)
        return;
    if (m_dfAltUsed)
        m_dfAltUsed->SetList(m_dfMethods, this);
    m_dfMethods.clear();
}

void MdpDFPScan::updateTimes(const Block& block)
{
    if (m_dfTimestamp)
        m_dfTimestamp->SetValue(static_cast<qint64>(block.mapStamp), this);
    if (m_sweepTime)
        m_sweepTime->SetValue(block.header.sweepTime / 1000, this);
    if (std::exchange(m_averagingStartPending, false))
        m_averagingStart = block.mapStamp;
    if (!block.flag(flag::endOfSweep))
        return;
    m_averagingStartPending = true;
    // In 32 bits without sign, as displays expect it: what would be negative is a large number. That is
    // meant. Pinned by MdpDFPScanTimes.MeasuresTheAveragingTimeIn32BitsWithoutSign.
    const auto averagingTime = static_cast<quint32>(block.mapStamp) - static_cast<quint32>(m_averagingStart) +
                               static_cast<quint32>(block.header.averagingTimeOffset);
    if (m_averagingStart != 0 && m_spectrumAveragingTime)
        m_spectrumAveragingTime->SetValue(averagingTime, this);
}

void MdpDFPScan::followFrequency(const Block& block)
{
    if (!m_polarFrequency)
        return;
    if (!block.flag(flag::polarFrequency))
        return m_polarFrequency->SetValue(block.header.firstFrequencyHz(), this);
    const double frequency = m_polarFrequency->GetValue();
    if (m_frequency)
        m_frequency->SetValue(frequency, this);
    if (m_demodulationFrequency)
        m_demodulationFrequency->SetValue(frequency, this);
}

void MdpDFPScan::callReceiver(const Block& block) const
{
    if (!m_receiver)
        return;
    const DataPointers& data = *block.data;
    const DfOptHeader& header = block.header;
    const SuperResolutionArrays& waves = block.waves;
    static const ScanRange none;
    const ScanRange* const range = block.sectors ? block.sectors.get() : &none;
    if (header.superResolutionCount == 0 || header.superResolutionFields == 0)
        return m_receiver->ReceiveDfScanData(header.firstFrequencyHz(), header.stepHz(), header.spanHz,
                                             block.mapStamp, block.channelCount, data.selBit12, data.selBit13,
                                             data.selBit14, data.selBit15, data.selBit11, data.selBit18,
                                             nullptr, range);
    m_receiver->ReceiveDfScanDataSuperResolution(
        header.firstFrequencyHz(), header.stepHz(), header.spanHz, block.mapStamp, block.channelCount,
        data.selBit12, data.selBit13, data.selBit14, data.selBit15, data.selBit11, data.selBit18,
        waves.eigenValues, waves.level, waves.azimuth, waves.quality, waves.fieldStrength, waves.elevation,
        waves.count, waves.eigenValueCount, range);
}

bool MdpDFPScan::isPitchRollWithinThreshold() const
{
    // As floating-point numbers: the absolute value of the lowest integer is none.
    const auto isWithin = [](const values::ValuePtr<Number>& angle,
                             const values::ValuePtr<values::ValueNumeric<int>>& threshold) {
        return !angle || !threshold ||
               std::abs(angle->GetValue()) <= std::abs(static_cast<double>(threshold->GetValue()));
    };
    return isWithin(m_pitch, m_pitchThreshold) && isWithin(m_roll, m_rollThreshold);
}

Validity MdpDFPScan::validityOf(const Block& block) const
{
    const bool isUpright = !m_usePitchRollBlanking || isPitchRollWithinThreshold();
    if (!isUpright)
        emit SignalRollPitchBlanking();
    if (block.flag(flag::overflow))
        return Validity::Unusable;
    return isUpright ? Validity::Valid : Validity::Blanked;
}

void MdpDFPScan::fillSamples(const Block& block, std::span<values::DFSpectrumSample> samples)
{
    const Validity validity = validityOf(block);
    const DataPointers& data = *block.data;
    const dfsamples::RawFields fields{data.selBit12, data.selBit13, data.selBit14,
                                      data.selBit15, data.selBit11, data.selBit18};
    bool anyBlanked = false;
    for (std::size_t first = 0; first < samples.size(); first += pieceSize) {
        const auto piece = samples.subspan(first, std::min(pieceSize, samples.size() - first));
        const dfsamples::RawFields pieceFields = fields.from(first);
        dfsamples::convert(pieceFields, validity, piece);
        // A sector wins over an overflow. That is meant. Pinned by MdpDFPScanSectors.OverrideAnOverflow.
        if (block.sectors)
            dfsamples::blankSectors(pieceFields.azimuth, block.sectors->azimuthSectors, piece);
        anyBlanked |= blankSamples(block, first, piece);
    }
    setSuperResolution(block, samples);
    if (anyBlanked)
        emit SignalFrequencyBlanking();
}

// Some samples of a block, from the `first`-th on.
// Result: whether a blanking range blanks one of them.
bool MdpDFPScan::blankSamples(const Block& block, std::size_t first,
                              std::span<values::DFSpectrumSample> samples)
{
    const blanking::Stretch stretch{samples, qint64{block.header.firstChannel} + static_cast<qint64>(first),
                                    block.flag(flag::overflow)};
    m_blanking->BlankBySuppressRanges(block.header.jobId, stretch);
    return block.flag(flag::blanking) && m_blanking->BlankByBlankingRanges(block.header.jobId, stretch);
}

void MdpDFPScan::setSuperResolution(const Block& block, std::span<values::DFSpectrumSample> samples) const
{
    if (block.waves.count == 0)
        return dfsamples::discardSuperResolution(samples);
    const auto threshold =
        m_qualityThreshold ? std::optional<int>{m_qualityThreshold->GetValue()} : std::nullopt;
    dfsamples::setSuperResolution(block.waves, threshold, samples);
}

// False when the map refuses: the attribute ends there.
bool MdpDFPScan::writeSamples(const Block& block, std::span<const values::DFSpectrumSample> samples)
{
    if (!m_dfSpectrumMap)
        return true;
    try {
        m_dfSpectrumMap->SetTimeStamp(block.mapStamp);
        const double rangeStart = m_dfSpectrumMap->GetChannelRangeDefinition().ChannelIdToFrequency(
            static_cast<unsigned>(block.jobChannel));
        if (const auto position = channelPosition(block.header, rangeStart, block.jobChannel))
            m_dfSpectrumMap->SetChannelValues(*position, static_cast<unsigned>(samples.size()),
                                              samples.data());
        return true;
    } catch (const NQException& failure) {
        traceMapFailure(failure);
        return false;
    }
}

void MdpDFPScan::finishBlock(const Block& block)
{
    if (!m_dfSpectrumMap)
        return;
    try {
        m_dfSpectrumMap->HasChanged(changecode::mapChanged);
        const auto offset = static_cast<quint64>(qint64{block.header.averagingTimeOffset});
        if (block.flag(flag::endOfSweep))
            m_dfSpectrumMap->SetEndOfScan(block.mapStamp + offset);
    } catch (const NQException& failure) {
        traceMapFailure(failure);
    }
}

void MdpDFPScan::Update(Observable* subject, TChangeCode code)
{
    m_blanking->Update(subject, code);
}
