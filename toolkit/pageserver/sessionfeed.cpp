// SPDX-License-Identifier: MIT
#include "toolkit/pageserver/sessionfeed.h"
#include "nqbase/nqexception.h"
#include <algorithm>
#include <array>
#include <fmt/format.h>

namespace pageserver {

namespace {

using values::ValueCommentedRangeMap;
using BlankingStates = values::ValueFrequencyItemMap<values::BlankingRangeItem>;

constexpr int tickMilliseconds = 250;
constexpr unsigned ticksPerSecond = 4;
constexpr double silentAfterSeconds = 3;
constexpr std::size_t mostRanges = 1'000; // that viewers may add

// Pictures of a direction-finding map: where a sweep ends, but not more often than displays can show; within
// long sweeps now and then; of large maps less often, so that copying stays below a hundredth of the time.
constexpr double mostDropped = 0.95; // of what a demo sends
constexpr qint64 dfSweepMilliseconds = 20;
constexpr qint64 dfProgressMilliseconds = 100;
constexpr std::size_t dfChannelsPerMillisecond = 10'000;

// A command that cannot be done; says why.
struct Refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Lists of ranges can be long, and are told on their own.
std::string textOf(const values::ValueBase& value)
{
    if (const auto* const ranges = dynamic_cast<const ValueCommentedRangeMap*>(&value))
        return fmt::format("{} ranges", ranges->GetCount());
    if (const auto* const states = dynamic_cast<const BlankingStates*>(&value))
        return fmt::format("{} ranges", states->GetCount());
    return value.ToText().toStdString();
}

std::vector<ValueText> valueTexts()
{
    std::vector<ValueText> texts;
    for (const values::Tree::Entry& entry : values::Tree::Instance()->List())
        texts.push_back({entry.path.toStdString(), entry.value->GetTypeName().toStdString(),
                         textOf(*entry.value), entry.value->GetUnit().toStdString()});
    return texts;
}

void append(std::vector<RangeText>& texts, const ValueCommentedRangeMap& ranges, const char* list)
{
    for (const auto& [id, range] : ranges.GetRanges())
        texts.push_back(
            {id, list, range.GetRangeStart(), range.GetRangeStop(), range.GetComment().toStdString(), false});
}

double stepOf(const values::ChannelRangeDefinition& grid)
{
    return grid.GetRanges().empty() ? 0 : grid.GetRanges().front().step;
}

} // namespace

SessionFeed::SessionFeed(receiver::Session& session, Handover& handover, Surroundings surroundings,
                         std::function<void()> wake)
    : m_session(session)
    , m_handover(handover)
    , m_surroundings(std::move(surroundings))
    , m_wake(std::move(wake))
{
    const receiver::ReceiverValues& values = session.values();
    values.ifPanorama->onScan(
        [this, map = values.ifPanorama.get()] { handOver(m_handover.panorama, m_panoramaTraces, *map); });
    values.zeroSpan->onScan(
        [this, map = values.zeroSpan.get()] { handOver(m_handover.zeroSpan, m_zeroSpanTraces, *map); });
    values.zeroSpan2->onScan([this, map = values.zeroSpan2.get()] {
        handOver(m_handover.secondZeroSpan, m_secondZeroSpanTraces, *map);
    });
    values.dfSpectrum->onScan([this] { handOverDf(true); });
    values.dfSpectrum->AddObserver(this);
    connect(&session, &receiver::Session::finished, this, [this] { m_hasEnded = true; });
    connect(&m_timer, &QTimer::timeout, this, &SessionFeed::tick);
    m_timer.start(tickMilliseconds);
    m_sinceRates.start();
    m_sinceDf.start();
}

SessionFeed::~SessionFeed()
{
    const receiver::ReceiverValues& values = m_session.values();
    for (const auto& map : {values.ifPanorama, values.zeroSpan, values.zeroSpan2})
        map->onScan(nullptr);
    values.dfSpectrum->onScan(nullptr);
}

TraceInfo SessionFeed::infoOf(const values::MappingBase& map, quint64 number)
{
    const receiver::RecordingSource* const played = recording();
    m_deviceNs = static_cast<qint64>(map.GetTimeStamp() * 1000);
    return {number,
            m_deviceNs,
            m_session.lastReceivedNs() != 0 ? m_session.lastReceivedNs() : m_deviceNs,
            m_session.lostOnTheWire(),
            played != nullptr,
            played && played->isPaused()};
}

void SessionFeed::handOver(LevelGate& gate, quint64& number, const receiver::CountedLevelMap& map)
{
    const std::span<const short> levels = map.GetValues();
    const bool isTooLarge =
        levels.size() > mostChannels || map.GetChannelRangeDefinition().GetRanges().size() > mostGridRanges;
    m_isTooLarge = m_isTooLarge || isTooLarge;
    if (levels.empty() || isTooLarge)
        return;
    if (gate.put(map.GetChannelRangeDefinition(), infoOf(map, ++number), levels))
        m_wake();
}

void SessionFeed::Update(Observable* /*subject*/, TChangeCode code)
{
    if (code == changecode::mapChanged)
        handOverDf(false);
}

void SessionFeed::handOverDf(bool endsSweep)
{
    const receiver::CountedDFSpectrumMap& map = *m_session.values().dfSpectrum;
    const std::span<const values::DFSpectrumSample> samples = map.GetValues();
    const auto longest = static_cast<qint64>(samples.size() / dfChannelsPerMillisecond);
    const qint64 pause = std::max(endsSweep ? dfSweepMilliseconds : dfProgressMilliseconds, longest);
    const bool isTooLarge =
        samples.size() > mostChannels || map.GetChannelRangeDefinition().GetRanges().size() > mostGridRanges;
    m_isTooLarge = m_isTooLarge || isTooLarge;
    // A map that has just got its grid has no stamp yet, and nothing to show.
    if (samples.empty() || isTooLarge || map.GetTimeStamp() == 0 || !m_sinceDf.hasExpired(pause))
        return;
    m_sinceDf.start();
    auto picture = std::make_shared<DfPicture>();
    picture->grid = map.GetChannelRangeDefinition();
    picture->info = infoOf(map, ++m_dfPictures);
    picture->samples.reserve(samples.size());
    for (const values::DFSpectrumSample& sample : samples)
        picture->samples.push_back(sample.fields());
    if (m_handover.df.put(std::move(picture)))
        m_wake();
}

receiver::RecordingSource* SessionFeed::recording() const
{
    return dynamic_cast<receiver::RecordingSource*>(m_session.source());
}

void SessionFeed::tick()
{
    m_session.ledger().setViewerSkipped(m_handover.viewerSkipped);
    if (m_ticks++ % ticksPerSecond == 0)
        captureStatus();
    publish();
}

void SessionFeed::publish()
{
    captureRanges();
    auto state = std::make_shared<SessionState>();
    state->status = m_status;
    state->values = valueTexts();
    state->ranges = m_ranges;
    if (m_handover.state.put(std::move(state)))
        m_wake();
}

std::string SessionFeed::stateName(const receiver::Status& status) const
{
    if (const receiver::RecordingSource* const played = recording()) {
        const receiver::PlaybackState playback = played->playback();
        return playback.hasEnded ? "ended" : playback.isPaused ? "paused" : "replay";
    }
    if (m_hasEnded)
        return "ended";
    if (status.ageSeconds >= 0 && status.ageSeconds <= silentAfterSeconds)
        return "live";
    const bool isConnected = status.state.starts_with("connected") || status.state.starts_with("listening");
    return status.ageSeconds >= 0 && isConnected ? "silent" : "waiting";
}

void SessionFeed::captureStatus()
{
    auto status = std::make_shared<StatusState>();
    status->status = m_session.status();
    if (m_session.source())
        status->source = m_session.source()->facts();
    status->state = stateName(status->status);
    status->stepHz = stepOf(m_session.values().ifPanorama->GetChannelRangeDefinition());
    status->deviceNs = m_deviceNs;
    status->receivedNs = m_session.lastReceivedNs();
    status->counters = m_surroundings.counters();
    captureRates(*status);
    status->advice = m_isTooLarge ? fmt::format("a map has more than {} channels and is not shown; "
                                                "export takes maps of any size",
                                                mostChannels)
                                  : status->source.advice;
    if (const receiver::RecordingSource* const played = recording())
        status->playback = played->playback();
    if (m_surroundings.faults)
        status->faults = m_surroundings.faults();
    status->recorder = m_surroundings.recorder();
    m_status = std::move(status);
}

void SessionFeed::captureRates(StatusState& status)
{
    constexpr qint64 shortestMilliseconds = 500; // after a command, the rates of the last second stay
    const std::vector<ledger::Line>& lines = ledger::lines();
    if (m_sinceRates.elapsed() < shortestMilliseconds) {
        status.perSecond = m_status->perSecond;
        status.perSecond.resize(lines.size());
        status.tracesPerSecond = m_status->tracesPerSecond;
        status.bytesPerSecond = m_status->bytesPerSecond;
        return;
    }
    const double seconds = static_cast<double>(m_sinceRates.restart()) / 1e3;
    // What was taken back, as lost datagrams that came after all, is no rate.
    const auto rate = [seconds](quint64 now, quint64 before) {
        return now > before ? static_cast<double>(now - before) / seconds : 0.0;
    };
    for (const ledger::Line& line : lines)
        status.perSecond.push_back(rate(status.counters.*line.counter, m_ratedCounters.*line.counter));
    status.tracesPerSecond = rate(status.status.traces, m_ratedTraces);
    status.bytesPerSecond = rate(status.counters.bytes, m_ratedCounters.bytes);
    m_ratedCounters = status.counters;
    m_ratedTraces = status.status.traces;
}

void SessionFeed::captureRanges()
{
    const receiver::ReceiverValues& values = m_session.values();
    auto ranges = std::make_shared<Ranges>();
    append(ranges->suppress, *values.localSuppressRanges, "local");
    append(ranges->suppress, *values.globalSuppressRanges, "global");
    append(ranges->blanking, *values.blankingRanges, "");
    for (RangeText& range : ranges->blanking) {
        const values::BlankingRangeItem* const status = values.blankingStatus->FindItem(range.id);
        range.isBlanked = status && status->IsBlanked();
    }
    if (*ranges != *m_ranges)
        m_ranges = std::move(ranges);
}

values::ValueCommentedRangeMap& SessionFeed::rangesOf(RangeKind kind)
{
    const receiver::ReceiverValues& values = m_session.values();
    return kind == RangeKind::Suppress ? *values.localSuppressRanges : *values.blankingRanges;
}

std::optional<std::string> SessionFeed::execute(const Command& command)
{
    try {
        std::visit(
            [this](const auto& each) {
                if constexpr (requires { this->perform(each); })
                    this->perform(each);
            },
            command);
    } catch (const NQException& failure) {
        return failure.what();
    } catch (const std::exception& failure) {
        return failure.what();
    }
    captureStatus();
    publish();
    return std::nullopt;
}

void SessionFeed::perform(const AddRange& range)
{
    values::ValueCommentedRangeMap& ranges = rangesOf(range.kind);
    if (ranges.GetCount() >= mostRanges)
        throw Refused{fmt::format("expected fewer than {} ranges; remove one first", mostRanges)};
    ranges.AddRange(range.fromHz, range.toHz, QString::fromStdString(range.name));
}

void SessionFeed::perform(const RemoveRange& range)
{
    if (!rangesOf(range.kind).RemoveRange(range.id))
        throw Refused{fmt::format("id: expected one of the ranges that are there, found {}", range.id)};
}

void SessionFeed::perform(const ControlPlayback& control)
{
    using Action = ControlPlayback::Action;
    receiver::RecordingSource* const played = recording();
    if (!played)
        throw Refused{"expected a recording as source, found a live one; 'vk410 monitor FILE' plays one"};
    switch (control.action) {
    case Action::Pause:
        return played->setPaused(true);
    case Action::Play:
        return played->setPaused(false);
    case Action::Step:
        return played->step();
    case Action::Seek:
        return played->seek(control.number);
    case Action::Speed:
        return played->setSpeed(control.number);
    }
}

void SessionFeed::perform(const SetFaults& faults)
{
    if (!m_surroundings.setFaults)
        throw Refused{"expected a demo, found another source; 'vk410 demo' takes faults"};
    static constexpr std::array<std::pair<std::string_view, double simulation::Faults::*>, 6> members{
        {{"drop", &simulation::Faults::drop},
         {"duplicate", &simulation::Faults::duplicate},
         {"reorder", &simulation::Faults::reorder},
         {"corrupt", &simulation::Faults::corrupt},
         {"truncate", &simulation::Faults::truncate},
         {"stall", &simulation::Faults::stall}}};
    simulation::Faults wanted = m_surroundings.faults().probabilities;
    for (const auto& [name, probability] : faults.probabilities) {
        for (const auto& [known, member] : members) {
            if (known == name)
                wanted.*member = probability;
        }
    }
    // A simulator that loses everything would look for a datagram to send for ever.
    wanted.drop = std::min(wanted.drop, mostDropped);
    m_surroundings.setFaults(wanted);
}

} // namespace pageserver
