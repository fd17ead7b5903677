// SPDX-License-Identifier: MIT
#include "toolkit/pageserver/frame.h"
#include "wire/view.h"
#include <bit>
#include <cstring>

namespace pageserver {

namespace {

constexpr int headerSize = 96;
constexpr int rangeSize = 24;
constexpr std::uint8_t version = 1;

// Zero-span grids count nanoseconds.
constexpr double secondsPerTick = 1e-9;

template <typename T>
void put(QByteArray& frame, int offset, T number)
{
    wire::store(reinterpret_cast<unsigned char*>(frame.data()) + offset, number, wire::ByteOrder::Little);
}

void put(QByteArray& frame, int offset, double number)
{
    put(frame, offset, std::bit_cast<std::uint64_t>(number));
}

void putHead(QByteArray& frame, const FrameHead& head)
{
    const StreamFacts& facts = factsOf(head.stream);
    std::memcpy(frame.data(), "VK4S", 4);
    put(frame, 4, version);
    put(frame, 5, static_cast<std::uint8_t>(head.stream));
    put(frame, 6, head.arrays);
    put(frame, 16, head.info.deviceNs);
    put(frame, 24, head.info.receivedNs);
    put(frame, 32, head.info.number);
    put(frame, 44, head.averaged);
    put(frame, 48, head.heldSinceNs);
    put(frame, 56, facts.scale);
    std::memcpy(frame.data() + 64, facts.unit.data(), facts.unit.size());
    put(frame, 72, head.gridNumber);
    put(frame, 82, static_cast<std::uint8_t>(facts.isTime));
    put(frame, 83, static_cast<std::uint8_t>((head.info.isReplayed ? 1 : 0) | (head.info.isStepped ? 2 : 0)));
}

void putRanges(QByteArray& frame, const values::ChannelRangeDefinition& grid, double unit)
{
    int offset = headerSize;
    for (const values::ChannelRange& range : grid.GetRanges()) {
        put(frame, offset, range.start * unit);
        put(frame, offset + 8, range.step * unit);
        put(frame, offset + 16, range.firstChannel - grid.GetMinChannelId());
        put(frame, offset + 20, range.count);
        offset += rangeSize;
    }
}

short tenth(int hundredths)
{
    return static_cast<short>(hundredths / 10);
}

// 0 where the sample can be used.
short whyNot(values::DFSpectrumSample::Validity validity)
{
    using Validity = values::DFSpectrumSample::Validity;
    return validity == Validity::Valid ? short{0} : validity == Validity::Blanked ? short{2} : short{1};
}

} // namespace

const StreamFacts& factsOf(Stream stream)
{
    static constexpr std::array<StreamFacts, 4> all{{{Stream::Panorama, "panorama", 0.1, "dBuV", false},
                                                     {Stream::ZeroSpan, "zerospan", 0.1, "dBuV", true},
                                                     {Stream::SecondZeroSpan, "zerospan2", 0.001, "FS", true},
                                                     {Stream::Df, "df", 0.01, "dBuV", false}}};
    return all[static_cast<std::size_t>(stream) - 1];
}

QByteArray makeFrame(const FrameHead& head, const values::ChannelRangeDefinition& grid,
                     std::span<const std::span<const short>> arrays)
{
    const std::size_t count = arrays.empty() ? 0 : arrays.front().size();
    const auto ranges = static_cast<int>(grid.GetRanges().size());
    const int arraysAt = headerSize + ranges * rangeSize;
    QByteArray frame(arraysAt + static_cast<int>(arrays.size() * count * sizeof(short)), '\0');
    putHead(frame, head);
    put(frame, 76, static_cast<std::uint32_t>(count));
    put(frame, 80, static_cast<std::uint16_t>(ranges));
    putRanges(frame, grid, factsOf(head.stream).isTime ? secondsPerTick : 1.0);
    char* to = frame.data() + arraysAt;
    for (const std::span<const short> values : arrays) {
        // As it lies in memory: frames are little-endian, as are all machines that this is built for.
        static_assert(std::endian::native == std::endian::little);
        std::memcpy(to, values.data(), values.size_bytes());
        to += values.size_bytes();
    }
    return frame;
}

void address(QByteArray& frame, const ForViewer& viewer)
{
    put(frame, 8, viewer.sequence);
    put(frame, 12, viewer.skipped);
    put(frame, 40, viewer.lost);
}

std::array<std::vector<short>, 5> dfArrays(const DfPicture& picture)
{
    std::array<std::vector<short>, 5> arrays;
    for (std::vector<short>& array : arrays)
        array.reserve(picture.samples.size());
    for (const values::DFSpectrumSample::Fields& sample : picture.samples) {
        const bool isMeasured = sample.level != values::noLevel;
        const bool hasBearing = isMeasured && sample.quality > 0;
        arrays[0].push_back(sample.level);
        arrays[1].push_back(hasBearing ? tenth(sample.azimuth) : short{-1});
        arrays[2].push_back(isMeasured ? sample.quality : short{-1});
        arrays[3].push_back(tenth(sample.elevation));
        arrays[4].push_back(whyNot(sample.validity));
    }
    return arrays;
}

} // namespace pageserver
