// SPDX-License-Identifier: MIT
#include "toolkit/simulation/simulationsource.h"
#include <QByteArray>
#include <cmath>
#include <fmt/format.h>

namespace simulation {

namespace {

// The reader wants two bytes behind the datagram; with room for them it copies nothing.
constexpr int spareBytes = 2;

std::unique_ptr<UdpDatagram> datagramOf(const wire::Bytes& bytes)
{
    auto array = std::make_unique<QByteArray>();
    array->reserve(static_cast<int>(bytes.size()) + spareBytes);
    array->append(reinterpret_cast<const char*>(bytes.data()), static_cast<int>(bytes.size()));
    return std::make_unique<UdpDatagram>(std::move(array));
}

} // namespace

ScanRangeContainer scanRangesOf(const Scene& scene)
{
    ScanRangeContainer ranges;
    for (const Job& job : scene.jobs) {
        auto range = std::make_shared<ScanRange>();
        range->startFrequency = static_cast<quint64>(std::llround(job.startHz));
        range->stopFrequency = static_cast<quint64>(std::llround(job.stopHz));
        range->step = job.stepHz;
        range->jobId = static_cast<quint32>(job.id);
        ranges.push_back(std::move(range));
    }
    return ranges;
}

SimulationSource::SimulationSource(Scene scene, std::uint64_t seed, double rate)
    : m_simulator(std::move(scene), seed)
    , m_player(m_simulator, rate, [this](const Emission& emission) {
        m_sink({datagramOf(emission.bytes), receiver::nowNs(), {}});
    })
{
    connect(&m_player, &Player::finished, this, [this] {
        emit said(QString::fromStdString(
            fmt::format("{}: {} datagrams, the scene has ended", facts().name, m_simulator.datagrams())));
        emit finished();
    });
}

void SimulationSource::start(Sink sink)
{
    m_sink = std::move(sink);
    m_player.start();
}

receiver::Source::Facts SimulationSource::facts() const
{
    Facts facts;
    facts.name = "sim:" + m_simulator.scene().name;
    facts.state = m_player.isFinished() ? "ended" : m_sink ? "simulating" : "not started";
    return facts;
}

ScanRangeContainer SimulationSource::scanRanges() const
{
    return scanRangesOf(m_simulator.scene());
}

} // namespace simulation
