// SPDX-License-Identifier: MIT
#include "meddler.h"
#include <cstddef>
#include <limits>

namespace soak {

namespace {

constexpr int changeMilliseconds = 5;
constexpr std::size_t mostRanges = 40;
constexpr int deepest = 3;
constexpr double dfScanMode = 23;

std::shared_ptr<ScanRange> copyOf(const ScanRange& range)
{
    return std::make_shared<ScanRange>(range);
}

} // namespace

Meddler::Meddler(receiver::Session& session, ScanRangeContainer scanRanges, unsigned seed)
    : m_session(session)
    , m_scanRanges(std::move(scanRanges))
    , m_random(seed)
{
    m_timer.setInterval(changeMilliseconds);
    QObject::connect(&m_timer, &QTimer::timeout, [this] { changeSomething(); });
    const receiver::ReceiverValues& values = session.values();
    for (Observable* const subject :
         {static_cast<Observable*>(values.frequency.get()), static_cast<Observable*>(values.span.get()),
          static_cast<Observable*>(values.commands.get()), static_cast<Observable*>(values.ifPanorama.get()),
          static_cast<Observable*>(values.dfSpectrum.get()),
          static_cast<Observable*>(values.localSuppressRanges.get()),
          static_cast<Observable*>(values.blankingRanges.get())})
        subject->AddObserver(this);
}

Meddler::~Meddler() = default;

void Meddler::rest()
{
    m_timer.stop();
    const receiver::ReceiverValues& values = m_session.values();
    ++m_depth; // nothing is answered by another change
    for (const auto& ranges :
         {values.localSuppressRanges, values.globalSuppressRanges, values.blankingRanges}) {
        while (!ranges->GetRanges().empty())
            ranges->RemoveRange(ranges->GetRanges().begin()->first);
    }
    values.frequency->SetValue(100e6);
    values.commands->SelectKey(dfScanMode);
    m_session.setScanRanges(m_scanRanges);
    --m_depth;
}

void Meddler::Update(Observable* /*subject*/, TChangeCode /*code*/)
{
    if (m_depth >= deepest || below(8) != 0)
        return;
    changeSomething();
}

void Meddler::changeSomething()
{
    ++m_depth;
    ++m_changes;
    switch (below(20)) {
    case 0:
        changeScanRanges();
        break;
    case 1:
    case 2:
    case 3:
    case 4:
    case 5:
    case 6:
        changeRanges();
        break;
    default:
        changeValue();
    }
    --m_depth;
}

void Meddler::changeValue()
{
    const receiver::ReceiverValues& values = m_session.values();
    values::Tree& tree = *values::Tree::Instance();
    const auto number = [&](const char* path, double value) {
        values::ValuePtr<values::ValueNumeric<double>> handle;
        handle.Bind(QString::fromLatin1(receiver::devicePath) + QString::fromLatin1(path));
        if (handle)
            handle->SetValue(value);
    };
    switch (below(8)) {
    case 0:
        values.frequency->SetValue(1e6 * below(40'000));
        break;
    case 1:
        values.frequency->SetValue(100e6);
        break;
    case 2:
        values.span->SelectKey(values.span->GetEntries()[below(19)].key);
        break;
    case 3: // mostly a scan: in the other modes its blocks are not accepted
        values.commands->SelectKey(below(4) == 0 ? values.commands->GetEntries()[below(11)].key : dfScanMode);
        break;
    case 4:
        number("/GPSCOMPASS/POSITION/ROLL", below(180));
        break;
    case 5:
        number("/POLARFREQUENCY", std::numeric_limits<double>::quiet_NaN());
        number("/POLARFREQUENCY", 1e6 * below(40'000));
        break;
    case 6:
        values.ifPanorama->HasChanged(10, nullptr);
        break;
    default:
        if (const auto quality = tree.Find<values::ValueNumeric<int>>("/VK410/KRT/QUALITYTHRESHOLD"))
            quality->SetValue(static_cast<int>(below(200)) - 50);
    }
}

void Meddler::changeRanges()
{
    const receiver::ReceiverValues& values = m_session.values();
    const std::shared_ptr<values::ValueCommentedRangeMap> lists[] = {
        values.localSuppressRanges, values.globalSuppressRanges, values.blankingRanges};
    values::ValueCommentedRangeMap& list = *lists[below(3)];
    const double startHz = 94e6 + below(12'000'000);
    while (list.GetRanges().size() >= mostRanges)
        list.RemoveRange(list.GetRanges().begin()->first);
    if (list.GetRanges().empty() || below(2) == 0)
        list.AddRange(startHz, startHz + below(2'000'000), QStringLiteral("soak"));
    else if (below(2) == 0)
        list.RemoveRange(list.GetRanges().begin()->first);
    else
        list.SetRange(list.GetRanges().rbegin()->first, startHz, startHz);
}

void Meddler::changeScanRanges()
{
    ScanRangeContainer ranges;
    const unsigned form = below(6);
    if (form == 0)
        ranges.push_back(nullptr);
    for (const std::shared_ptr<ScanRange>& range : m_scanRanges) {
        ranges.push_back(copyOf(*range));
        if (form == 1)
            ranges.back()->azimuthSectors = {{3'000, 400}, {100.0 * below(36), 100.0 * below(36)}};
        if (form == 2)
            ranges.back()->stopFrequency += 1'000'000;
        if (form == 3)
            ranges.push_back(copyOf(*range)); // the same job twice
        if (form == 4)
            ranges.back()->step = 0;
    }
    m_session.setScanRanges(ranges);
}

} // namespace soak
