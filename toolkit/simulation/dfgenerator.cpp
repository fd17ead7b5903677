// SPDX-License-Identifier: MIT
#include "toolkit/simulation/dfgenerator.h"
#include "wire/optheader.h"
#include <algorithm>
#include <bit>
#include <cmath>

namespace simulation {

namespace {

constexpr std::uint32_t selectors = 1U << 11U | 1U << 12U | 1U << 13U | 1U << 14U | 1U << 15U | 1U << 18U;
constexpr int fieldCount = 6;
constexpr std::int16_t noValue = 32766;

// Bits of the super-resolution word: eigenvalues, then level, azimuth, quality, field strength, elevation.
constexpr std::int16_t superResolutionFields = 0x3F;
constexpr int superResolutionArrays = 5;

// How many times the error of a strong signal noise adds, where both are as strong.
constexpr double noiseErrorFactor = 20;
constexpr double halfQualityRatio = 3; // signal to noise

int eigenValues(int superResolution)
{
    return superResolution + 1; // one per signal, and the noise
}

std::int16_t azimuthTenths(double degrees)
{
    const auto tenth = static_cast<int>(std::lround(degrees * 10)) % 3600;
    return static_cast<std::int16_t>(tenth < 0 ? tenth + 3600 : tenth);
}

// Field strength of a voltage at the terminals of an isotropic antenna at 50 ohm.
double antennaFactorDb(double frequencyHz)
{
    return 20 * std::log10(std::max(frequencyHz, 1.0) / 1e6) - 29.8;
}

void append(wire::Bytes& bytes, std::int16_t value)
{
    bytes.resize(bytes.size() + sizeof value);
    wire::store(bytes.data() + bytes.size() - sizeof value, value, wire::ByteOrder::Big);
}

void append(wire::Bytes& bytes, float value)
{
    bytes.resize(bytes.size() + sizeof value);
    wire::store(bytes.data() + bytes.size() - sizeof value, std::bit_cast<std::uint32_t>(value),
                wire::ByteOrder::Big);
}

} // namespace

// One field of all channels.
struct DfGenerator::Fields {
    template <typename T>
    static std::vector<T> of(const std::vector<Values>& values, T Values::*field)
    {
        std::vector<T> items(values.size());
        std::ranges::transform(values, items.begin(), [field](const Values& value) { return value.*field; });
        return items;
    }
};

int channelCount(const Job& job)
{
    // In whole hertz, as scan ranges have them.
    const auto spanHz = static_cast<double>(std::llround(job.stopHz) - std::llround(job.startHz));
    return static_cast<int>(spanHz / job.stepHz + 1.5);
}

std::size_t bytesPerDfChannel(int superResolution)
{
    const std::size_t fields = fieldCount * sizeof(std::int16_t);
    if (superResolution == 0)
        return fields;
    return fields + superResolutionArrays * static_cast<std::size_t>(superResolution) * sizeof(std::int16_t) +
           static_cast<std::size_t>(eigenValues(superResolution)) * sizeof(float);
}

DfGenerator::DfGenerator(const Scene& scene, std::uint64_t seed)
    : m_scene(scene)
    , m_seed(seed)
    , m_random(hashed(seed, 1))
{
    for (std::size_t j = 0; j < scene.jobs.size(); ++j) {
        const Job& job = scene.jobs[j];
        m_floorDbuv.push_back(scene.noiseDbuvPerHz + 10 * std::log10(job.stepHz));
        m_noise.emplace_back(m_floorDbuv.back(), hashed(seed, 3, j));
        const int channels = channelCount(job);
        for (int first = 0; first < channels; first += scene.points)
            m_blocks.push_back({j, first, std::min(scene.points, channels - first), false});
    }
    m_blocks.back().endsSweep = true;
}

Made DfGenerator::make(const Interval& interval)
{
    const Block& block = m_blocks[m_next];
    m_next = (m_next + 1) % m_blocks.size();
    const Job& job = m_scene.jobs[block.job];
    Made made;
    std::vector<Values> values;
    int number = block.first;
    for (const Channel& channel : receive(block, interval, made.seen))
        values.push_back(measured(channel, job.startHz + number++ * job.stepHz));
    for (Seen& seen : made.seen)
        seen.direction->quality = qualityAt(seen.frequencyHz, block, values);
    made.datagram.attribute(5301)
        .selectors(selectors)
        .count(static_cast<std::uint32_t>(block.count))
        .optHeader(header(block, m_scene.startNs + interval.beginNs))
        .items<std::int16_t>(Fields::of(values, &Values::shortTimeLevel))
        .items<std::int16_t>(Fields::of(values, &Values::azimuth))
        .items<std::int16_t>(Fields::of(values, &Values::quality))
        .items<std::int16_t>(Fields::of(values, &Values::fieldStrength))
        .items<std::int16_t>(Fields::of(values, &Values::level))
        .items<std::int16_t>(Fields::of(values, &Values::elevation))
        .bytes(superResolution(values));
    return made;
}

std::optional<double> DfGenerator::qualityAt(double frequencyHz, const Block& block,
                                             const std::vector<Values>& values) const
{
    const Job& job = m_scene.jobs[block.job];
    const auto channel = std::lround((frequencyHz - job.startHz) / job.stepHz) - block.first;
    const std::int16_t quality = values.at(static_cast<std::size_t>(channel)).quality;
    return quality == noValue ? std::nullopt : std::optional<double>{quality / 10.0};
}

std::vector<DfGenerator::Channel> DfGenerator::receive(const Block& block, const Interval& interval,
                                                       std::vector<Seen>& seen)
{
    const Job& job = m_scene.jobs[block.job];
    const Grid grid{job.startHz + block.first * job.stepHz, job.stepHz, job.stepHz, m_floorDbuv[block.job]};
    std::vector<Channel> channels(static_cast<std::size_t>(block.count));
    for (Channel& channel : channels)
        channel.noisePower = m_noise[block.job].power();
    const double lastHz = grid.firstHz + (block.count - 1) * grid.stepHz;
    for (std::size_t s = 0; s < m_scene.onAir.size(); ++s) {
        const Signal& signal = m_scene.onAir[s];
        const double azimuth =
            signal.azimuthDeg + signal.azimuthDegPerSecond * static_cast<double>(interval.beginNs) * 1e-9;
        for (const Appearance& met : appearances(signal, hashed(m_seed, 2, s), interval)) {
            std::vector<double> powers(channels.size());
            addSignal(powers, grid, met);
            for (std::size_t k = 0; k < channels.size(); ++k) {
                channels[k].signalPower += powers[k];
                if (powers[k] > channels[k].strongest) {
                    channels[k].strongest = powers[k];
                    channels[k].azimuthDeg = azimuth;
                    channels[k].elevationDeg = signal.elevationDeg;
                }
            }
            if (met.frequencyHz >= grid.firstHz && met.frequencyHz <= lastHz)
                seen.push_back({signal.name, met.frequencyHz, met.levelDbuv,
                                Direction{azimuthTenths(azimuth) / 10.0, signal.elevationDeg, {}}});
        }
    }
    return channels;
}

DfGenerator::Values DfGenerator::measured(const Channel& channel, double frequencyHz)
{
    const double levelDb = 10 * std::log10(channel.noisePower + channel.signalPower);
    // Other signals on the channel spoil the bearing as noise does.
    const double ratio = channel.strongest / (channel.noisePower + channel.signalPower - channel.strongest);
    const double quality = 100 * ratio / (ratio + halfQualityRatio);
    const double error = (m_random.unit() + m_random.unit() - 1) * m_scene.bearingErrorDeg *
                         (1 + noiseErrorFactor / std::sqrt(std::max(ratio, 0.1)));
    Values values{};
    values.level = tenths(levelDb);
    values.shortTimeLevel = tenths(levelDb + 2 * m_random.unit() - 1);
    values.fieldStrength = tenths(levelDb + antennaFactorDb(frequencyHz));
    const bool hasBearing = quality >= m_scene.qualityFloor && channel.strongest > 0;
    values.azimuth = hasBearing ? azimuthTenths(channel.azimuthDeg + error) : noValue;
    values.quality = hasBearing ? tenths(quality) : noValue;
    values.elevation = hasBearing ? tenths(channel.elevationDeg) : noValue;
    return values;
}

std::int32_t DfGenerator::flags(const Block& block)
{
    namespace flag = wire::dfscan::flag;
    const bool overflows = m_random.unit() < m_scene.overflowProbability;
    const bool isBlanked = m_random.unit() < m_scene.blankingProbability;
    return 1 << flag::valid | int{overflows} << flag::overflow | int{isBlanked} << flag::blanking |
           int{block.endsSweep} << flag::endOfSweep | m_scene.jobs[block.job].method << flag::method;
}

wire::Bytes DfGenerator::header(const Block& block, std::int64_t stampNs)
{
    namespace layout = wire::dfscan;
    const Job& job = m_scene.jobs[block.job];
    // As whole numbers: thousandths of a hertz.
    const auto stepThousandths = static_cast<std::int32_t>(std::lround(job.stepHz * 1000));
    const double sweepSeconds = static_cast<double>(m_blocks.size()) / m_scene.rate;
    const int superResolution = m_scene.superResolution;
    return wire::OptHeaderWriter{layout::size}
        .set(layout::startFrequency, std::llround(job.startHz))
        .set(layout::firstChannel, block.first)
        .set(layout::stepNumerator, stepThousandths)
        .set(layout::stepDenominator, 1000)
        .set(layout::span, static_cast<std::int32_t>(std::lround(block.count * job.stepHz)))
        .set(layout::dfFlags, flags(block))
        .set(layout::sweepTime, std::llround(sweepSeconds * 1e9))
        .set(layout::timestamp, stampNs)
        .set(layout::jobId, static_cast<std::int16_t>(job.id))
        .set(layout::superResolutionFields, superResolution > 0 ? superResolutionFields : std::int16_t{0})
        .set(layout::superResolutionCount, static_cast<std::int8_t>(superResolution))
        .set(layout::eigenValueCount,
             static_cast<std::int8_t>(superResolution > 0 ? eigenValues(superResolution) : 0))
        .bytes();
}

wire::Bytes DfGenerator::superResolution(const std::vector<Values>& values)
{
    wire::Bytes bytes;
    const int count = m_scene.superResolution;
    if (count == 0)
        return bytes;
    for (const Values& value : values) {
        for (int i = 0; i < eigenValues(count); ++i)
            append(bytes, static_cast<float>(std::pow(10, value.level / 100.0) / (i + 1)));
    }
    // The first bearing is the channel's own; the others are weaker, from elsewhere, and less sure.
    const auto appendAll = [&](std::int16_t Values::*field, int change) {
        for (const Values& value : values) {
            for (int i = 0; i < count; ++i)
                append(bytes, value.*field == noValue ? noValue
                                                      : static_cast<std::int16_t>(value.*field + i * change));
        }
    };
    appendAll(&Values::level, -30);
    for (const Values& value : values) {
        for (int i = 0; i < count; ++i)
            append(bytes, value.azimuth == noValue ? noValue : azimuthTenths(value.azimuth / 10.0 + 30 * i));
    }
    for (const Values& value : values) {
        for (int i = 0; i < count; ++i)
            append(bytes,
                   value.quality == noValue ? noValue : static_cast<std::int16_t>(value.quality / (i + 1)));
    }
    appendAll(&Values::fieldStrength, -30);
    appendAll(&Values::elevation, 0);
    return bytes;
}

} // namespace simulation
