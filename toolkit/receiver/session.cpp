// SPDX-License-Identifier: MIT
#include "toolkit/receiver/session.h"
#include "devicecontrol/vk410protocol/levelmapfillerimpl.h"
#include "devicecontrol/vk410protocol/mdpdfpscanscif.h"
#include "nqbase/nqexception.h"
#include "wire/view.h"
#include <array>
#include <cstring>
#include <new>

namespace receiver {

namespace {

constexpr double dfScanMode = 23; // key of DRVCOMMANDS

// Longer than any network holds a datagram back.
constexpr qint64 silenceMilliseconds = 1'000;

class IfpanConfig final : public MdpIfpan::IConfig {
public:
    explicit IfpanConfig(const SessionOptions& options)
        : m_options(options)
    {}
    bool IsSpanFollowedDuringSearch() override { return m_options.spanFollowedDuringSearch; }
    bool IsEndOfSearchNotified() override { return m_options.endOfSearchNotified; }
    bool UseDeviceTimestamp() override { return m_options.useDeviceTimestamp; }
    bool IsMSearchSimulated() override { return m_options.simulateMSearch; }
    bool UseDfBearingMapPath() override { return m_options.useDfBearingMapPath; }
    bool IsDfForcedOn() override { return m_options.dfForcedOn; }
    bool IsAfcFollowed() override { return m_options.followAfc; }
    bool HasBearingMap() override { return m_options.hasBearingMap; }

private:
    SessionOptions m_options;
};

// FNV-1a over bytes.
class Hash {
public:
    template <typename T>
    void addNumber(T number)
    {
        std::array<unsigned char, sizeof number> bytes{};
        std::memcpy(bytes.data(), &number, sizeof number);
        add(bytes.data(), bytes.size());
    }
    void add(const void* bytes, std::size_t size)
    {
        const auto* const begin = static_cast<const unsigned char*>(bytes);
        for (std::size_t i = 0; i < size; ++i)
            m_value = (m_value ^ begin[i]) * 0x100000001B3U;
    }
    void add(const values::ChannelRangeDefinition& grid)
    {
        for (const values::ChannelRange& range : grid.GetRanges()) {
            addNumber(range.firstChannel);
            addNumber(range.count);
            addNumber(range.start);
            addNumber(range.step);
        }
    }
    [[nodiscard]] quint64 value() const { return m_value; }

private:
    quint64 m_value = 0xCBF29CE484222325U;
};

void addLevels(Hash& hash, const values::LevelMap& map)
{
    hash.add(map.GetChannelRangeDefinition());
    hash.add(map.GetValues().data(), map.GetValues().size_bytes());
}

void addSample(Hash& hash, const values::DFSpectrumSample& sample)
{
    hash.addNumber(sample.fields());
    const values::SuperResolutionSample* const waves = sample.getSuperResolutionSample();
    for (int i = 0; waves && i < waves->getCount(); ++i) {
        hash.addNumber(waves->getQuality(i));
        hash.addNumber(waves->getLevel(i));
        hash.addNumber(waves->getFieldStrength(i));
        hash.addNumber(waves->getAzimuth(i));
        hash.addNumber(waves->getElevation(i));
    }
}

} // namespace

Session::Session(const SessionOptions& options)
    : m_values(m_ledger)
    , m_dispatcher(options.ignoreChannel)
{
    m_dispatcher.SetMassDataObserver(&m_ledger);
    registerProcessors(options);
}

Session::~Session() = default;

void Session::registerProcessors(const SessionOptions& options)
{
    m_ifpan =
        std::make_unique<MdpIfpan>(std::make_unique<IfpanConfig>(options),
                                   std::make_shared<FastLevelMapFiller>(m_values.ifPanorama.get(), nullptr));
    m_ifpan->SetMassDataObserver(&m_ledger);
    m_ifpan->Init(QString::fromLatin1(devicePath), QString::fromLatin1(followPath));
    connect(m_ifpan.get(), &MdpIfpan::signalTraceData, this, [this] { ++m_traces; });
    m_dispatcher.RegisterTagProcessor(m_ifpan.get(), static_cast<TRACE_TAG>(options.ifPanoramaTag), 0);

    m_zeroSpan = std::make_unique<MdpZeroSpan>(
        std::make_shared<FastLevelMapFiller>(m_values.zeroSpan.get(), nullptr),
        std::make_shared<FastLevelMapFiller>(m_values.zeroSpan2.get(), nullptr));
    m_zeroSpan->SetMassDataObserver(&m_ledger);
    m_zeroSpan->Init(QString::fromLatin1(devicePath));
    m_dispatcher.RegisterTagProcessor(m_zeroSpan.get(), static_cast<TRACE_TAG>(options.zeroSpanTag), 0);
    registerDfProcessor(options);
}

void Session::registerDfProcessor(const SessionOptions& options)
{
    const auto take = [this](auto processor) {
        m_takeScanRanges = [p = processor.get()](const ScanRangeContainer& ranges) {
            p->SlotNewOrModifiedScanRanges(ranges);
        };
        m_df = std::move(processor);
    };
    if (options.df == SessionOptions::DfProcessor::Scif)
        take(std::make_unique<MdpDFPScanSCIF>());
    else
        take(std::make_unique<MdpDFPScan>(nullptr));
    m_df->SetMassDataObserver(&m_ledger);
    m_df->Init(QString::fromLatin1(devicePath));
    m_dispatcher.RegisterTagProcessor(m_df.get(), static_cast<TRACE_TAG>(options.dfScanTag), 0);
    for (const ExcludedRange& range : options.excluded)
        exclude(range);
    beginDfScan(options.scanRanges);
}

void Session::exclude(const ExcludedRange& range)
{
    const bool suppresses = range.kind == ExcludedRange::Kind::Suppress;
    const auto& ranges = suppresses ? m_values.localSuppressRanges : m_values.blankingRanges;
    ranges->AddRange(range.startHz, range.stopHz);
}

void Session::beginDfScan(const ScanRangeContainer& ranges)
{
    if (ranges.empty())
        return;
    m_values.commands->SelectKey(dfScanMode);
    setScanRanges(ranges);
}

void Session::setScanRanges(const ScanRangeContainer& ranges)
{
    m_takeScanRanges(ranges);
    m_hasScanRanges = !ranges.empty();
}

void Session::run(std::unique_ptr<Source> source)
{
    m_source = std::move(source);
    m_source->setObserver(&m_ledger);
    m_source->setSendersWanted(!m_taps.empty());
    if (!m_hasScanRanges)
        beginDfScan(m_source->scanRanges());
    connect(m_source.get(), &Source::said, this, &Session::said);
    connect(m_source.get(), &Source::finished, this, &Session::finished);
    connect(m_source.get(), &Source::restarted, this, [this] {
        m_ledger.restartSequence();
        m_dispatcher.invalidateSeqNumber();
    });
    m_source->start([this](Received received) { take(std::move(received)); });
}

void Session::addTap(Tap tap)
{
    m_taps.push_back(std::move(tap));
    if (m_source)
        m_source->setSendersWanted(true);
}

void Session::take(Received received)
{
    try {
        process(received);
    } catch (const NQException& failure) {
        // A processor passes on what a map refused besides its writes; the next datagram is no worse for it.
        m_ledger.mapRejected();
        emit said(QStringLiteral("a map refused: ") + failure.GetErrorReason());
    } catch (const std::bad_alloc&) { // nothing is said: that would take memory, too
        m_ledger.mapRejected();
    }
}

void Session::process(Received& received)
{
    if (!m_sinceLast.isValid())
        m_sinceLast.start();
    else if (m_sinceLast.restart() > silenceMilliseconds)
        m_ledger.followSilence();
    m_lastReceivedNs = received.receivedNs;
    // The ledger counts what is missing when the datagram is through; its traces want to know before.
    if (received.datagram->IsValid() && received.datagram->HasSeqNumber())
        m_lostOnTheWire = m_ledger.lostBefore(wire::byteSwapped<quint16>(received.datagram->GetSeqNumber()));
    for (const Tap& tap : m_taps)
        tap(received);
    m_dispatcher.ProcessDatagram(received.datagram.release());
}

ledger::Ledger& Session::ledger()
{
    if (m_source)
        m_ledger.setKernelDropped(m_source->facts().kernelDropped);
    return m_ledger;
}

Status Session::status() const
{
    Status status;
    if (m_source) {
        const Source::Facts facts = m_source->facts();
        status.source = facts.name;
        status.state = facts.state;
        status.silence = facts.silence;
    }
    const values::ChannelRangeDefinition& grid = m_values.ifPanorama->GetChannelRangeDefinition();
    if (grid.GetChannelCount() != 0) {
        const double first = grid.ChannelIdToFrequency(grid.GetMinChannelId());
        const double last = grid.ChannelIdToFrequency(grid.GetMaxChannelId());
        status.centreHz = (first + last) / 2;
        status.spanHz = last - first;
    }
    status.channels = grid.GetChannelCount();
    status.dfChannels = m_values.dfSpectrum->GetChannelRangeDefinition().GetChannelCount();
    status.dfSweeps = m_values.dfSpectrum->GetScanCount();
    status.traces = m_traces;
    const ledger::Counters counters = m_ledger.counters();
    status.datagrams = counters.datagrams;
    status.bytes = counters.bytes;
    if (m_sinceLast.isValid())
        status.ageSeconds = static_cast<double>(m_sinceLast.elapsed()) / 1000.0;
    return status;
}

quint64 Session::mapHash() const
{
    Hash hash;
    addLevels(hash, *m_values.ifPanorama);
    addLevels(hash, *m_values.zeroSpan);
    addLevels(hash, *m_values.zeroSpan2);
    hash.add(m_values.bearings->GetChannelRangeDefinition());
    hash.add(m_values.bearings->GetValues().data(), m_values.bearings->GetValues().size_bytes());
    hash.add(m_values.dfSpectrum->GetChannelRangeDefinition());
    for (const values::DFSpectrumSample& sample : m_values.dfSpectrum->GetValues())
        addSample(hash, sample);
    return hash.value();
}

} // namespace receiver
