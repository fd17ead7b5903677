// SPDX-License-Identifier: MIT
#include "toolkit/simulation/simulator.h"
#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace simulation {

namespace {

using Json = nlohmann::ordered_json;

constexpr int mostUnreadable = 10'000;

Scene checked(Scene scene)
{
    checkScene(scene);
    return scene;
}

bool hidesItsSequence(FaultKind fault)
{
    return fault == FaultKind::Drop || fault == FaultKind::CorruptMagic;
}

const char* kindText(SceneKind kind)
{
    switch (kind) {
    case SceneKind::Band:
        return "band";
    case SceneKind::ZeroSpan:
        return "zerospan";
    case SceneKind::Df:
        return "df";
    case SceneKind::Demo:
        return "demo";
    }
    return "";
}

std::uint16_t tagOf(const wire::Bytes& sound)
{
    return wire::load<std::uint16_t>(sound.data() + wire::datagram::headerSize, wire::ByteOrder::Big);
}

} // namespace

std::uint64_t fingerprint(const wire::Bytes& bytes)
{
    std::uint64_t hash = 0xCBF29CE484222325ULL;
    for (const unsigned char byte : bytes)
        hash = (hash ^ byte) * 0x100000001B3ULL;
    return hash;
}

Simulator::Simulator(Scene scene, std::uint64_t seed)
    : m_scene(checked(std::move(scene)))
    , m_seed(seed)
    , m_generator(makeGenerator(m_scene, seed))
    , m_chance(hashed(seed, 0xFA))
{}

Simulator::~Simulator() = default;

Scene Simulator::builtinScene(std::string_view name)
{
    return simulation::builtinScene(name);
}

Scene Simulator::loadScene(const std::string& path)
{
    return simulation::loadScene(path);
}

std::optional<Emission> Simulator::next()
{
    while (m_ready.empty() && !m_isDone)
        makeOne();
    if (m_ready.empty())
        return std::nullopt;
    Emission emission = std::move(m_ready.front());
    m_ready.pop_front();
    ++m_datagrams;
    m_bytes += emission.bytes.size();
    if (m_isDone && m_ready.empty())
        tellEnd();
    return emission;
}

std::int64_t Simulator::traceTimeNs(std::uint64_t trace) const
{
    // From the start each time: a sum of rounded intervals would drift.
    return std::llround(static_cast<double>(trace) * 1e9 / m_scene.rate) + m_pausedNs;
}

void Simulator::makeOne()
{
    const bool isFirst = m_traces == 0;
    const bool mustEnd = m_isStopping || m_traces + 1 == m_limit;
    FaultKind fault = isFirst || mustEnd ? FaultKind::None : chooseFault();
    if (fault == FaultKind::Stall)
        m_pausedNs += stallNs;
    const Interval interval{traceTimeNs(m_traces), traceTimeNs(m_traces + 1)};
    Made made = m_generator->make(interval);
    m_isDone = mustEnd || m_generator->isAtEnd();
    if (m_isDone && fault != FaultKind::Stall)
        fault = FaultKind::None;
    const wire::Bytes sound = made.datagram.sequence(static_cast<std::uint16_t>(m_traces)).build();
    ++m_traces;
    count(fault);
    Emission sent{sound, interval.beginNs};
    damage(sent.bytes, fault, m_chance);
    if (m_truth)
        tell(made, sound, fault, sent);
    queue(std::move(sent.bytes), fault, sent.atNs);
}

FaultKind Simulator::chooseFault()
{
    const FaultKind drawn = drawFault(m_faults, m_chance);
    return m_held || m_unreadable >= mostUnreadable ? FaultKind::None : drawn;
}

void Simulator::count(FaultKind fault)
{
    for (const FaultName& name : faultNames())
        m_counts.*name.count += name.kind == fault ? 1 : 0;
    m_unreadable = hidesItsSequence(fault) ? m_unreadable + 1 : 0;
}

void Simulator::queue(wire::Bytes bytes, FaultKind fault, std::int64_t atNs)
{
    if (fault == FaultKind::Drop)
        return;
    if (fault == FaultKind::Reorder) {
        m_held = std::move(bytes);
        return;
    }
    m_ready.push_back({std::move(bytes), atNs});
    if (fault == FaultKind::Duplicate)
        m_ready.push_back(m_ready.back());
    if (m_held) {
        m_ready.push_back({std::move(*m_held), atNs});
        m_held.reset();
    }
}

void Simulator::setTruthSink(TruthSink sink)
{
    m_truth = std::move(sink);
    if (m_truth)
        tellStart();
}

void Simulator::tellStart() const
{
    Json line;
    line["type"] = "start";
    line["scene"] = m_scene.name;
    line["kind"] = kindText(m_scene.kind);
    line["seed"] = m_seed;
    line["startNs"] = m_scene.startNs;
    line["centreHz"] = m_scene.centreHz;
    line["spanHz"] = m_scene.spanHz;
    line["points"] = m_scene.points;
    line["rate"] = m_scene.rate;
    m_truth(line.dump());
}

void Simulator::tell(const Made& made, const wire::Bytes& sound, FaultKind fault, const Emission& sent)
{
    Json line;
    line["type"] = "trace";
    line["index"] = m_traces - 1;
    line["sequence"] = static_cast<std::uint16_t>(m_traces - 1);
    line["atNs"] = sent.atNs;
    line["tag"] = tagOf(sound);
    line["size"] = sound.size();
    line["fingerprint"] = fmt::format("{:016x}", fingerprint(sound));
    if (fault != FaultKind::None)
        line["fault"] = nameOf(fault);
    if (fault == FaultKind::Truncate)
        line["sentSize"] = sent.bytes.size();
    Json& signals = line["signals"] = Json::array();
    for (const Seen& seen : made.seen) {
        Json& signal = signals.emplace_back();
        signal["name"] = seen.name;
        signal["frequencyHz"] = seen.frequencyHz;
        signal["level"] = seen.level;
        if (!seen.direction)
            continue;
        signal["azimuthDeg"] = seen.direction->azimuthDeg;
        signal["elevationDeg"] = seen.direction->elevationDeg;
        if (seen.direction->quality)
            signal["quality"] = *seen.direction->quality;
    }
    m_truth(line.dump());
}

void Simulator::tellEnd() const
{
    if (!m_truth)
        return;
    Json line;
    line["type"] = "end";
    line["traces"] = m_traces;
    line["datagrams"] = m_datagrams;
    line["bytes"] = m_bytes;
    Json& faults = line["faults"] = Json::object();
    for (const FaultName& name : faultNames())
        faults[std::string(name.name)] = m_counts.*name.count;
    m_truth(line.dump());
}

} // namespace simulation
