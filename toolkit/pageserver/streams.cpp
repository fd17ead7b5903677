// SPDX-License-Identifier: MIT
#include "toolkit/pageserver/streams.h"

namespace pageserver {

namespace {

constexpr std::size_t mostKeptFrames = 4;

} // namespace

void Streams::take(Handover& handover)
{
    take(Stream::Panorama, handover.panorama);
    take(Stream::ZeroSpan, handover.zeroSpan);
    take(Stream::SecondZeroSpan, handover.secondZeroSpan);
    if (std::shared_ptr<const DfPicture> picture = handover.df.take()) {
        show(Stream::Df, picture->info, picture->grid);
        m_emitters.add(*picture);
        m_df = std::move(picture);
    }
}

void Streams::take(Stream stream, LevelGate& gate)
{
    Levels& levels = m_levels[static_cast<std::size_t>(stream) - 1];
    if (!gate.take(levels.batch))
        return;
    levels.holds.add(levels.batch);
    show(stream, levels.batch.newest, levels.batch.grid);
}

void Streams::show(Stream stream, const TraceInfo& info, const values::ChannelRangeDefinition& grid)
{
    Shown& shown = at(stream);
    if (shown.gridNumber == 0 || !(shown.grid == grid))
        ++shown.gridNumber;
    shown.info = info;
    shown.grid = grid;
    shown.frames.clear();
}

const QByteArray& Streams::frame(Stream stream, std::uint16_t arrays)
{
    Shown& shown = at(stream);
    const std::uint16_t present = stream == Stream::Df ? std::uint16_t{AllArrays} : arrays;
    // Every choice of arrays is another frame; viewers hardly want more than these.
    if (shown.frames.size() >= mostKeptFrames && !shown.frames.contains(present))
        shown.frames.clear();
    const auto [place, isNew] = shown.frames.try_emplace(present);
    if (!isNew)
        return place->second;
    FrameHead head;
    head.stream = stream;
    head.arrays = present;
    head.info = shown.info;
    head.gridNumber = shown.gridNumber;
    place->second = stream == Stream::Df ? dfFrame(head) : levelFrame(head);
    return place->second;
}

QByteArray Streams::levelFrame(FrameHead head) const
{
    const Levels& levels = m_levels[static_cast<std::size_t>(head.stream) - 1];
    head.averaged = levels.holds.averagedSoFar();
    head.heldSinceNs = levels.holds.sinceNs();
    const bool wantsAverage = (head.arrays & Average) != 0;
    const bool wantsHold = (head.arrays & Hold) != 0;
    const std::vector<short> average = wantsAverage ? levels.holds.average() : std::vector<short>{};
    const std::vector<short> hold = wantsHold ? levels.holds.hold() : std::vector<short>{};
    const std::array<std::span<const short>, 5> all{levels.batch.levels, levels.holds.max(),
                                                    levels.holds.min(), average, hold};
    std::vector<std::span<const short>> arrays;
    for (std::size_t i = 0; i < all.size(); ++i) {
        if ((head.arrays >> i & 1U) != 0)
            arrays.push_back(all[i]);
    }
    return makeFrame(head, levels.batch.grid, arrays);
}

QByteArray Streams::dfFrame(const FrameHead& head) const
{
    const std::array<std::vector<short>, 5> values = dfArrays(*m_df);
    const std::vector<std::span<const short>> arrays(values.begin(), values.end());
    return makeFrame(head, m_df->grid, arrays);
}

void Streams::resetHolds()
{
    for (Levels& levels : m_levels)
        levels.holds.reset();
    forgetFrames();
}

void Streams::forgetFrames()
{
    for (Shown& shown : m_shown)
        shown.frames.clear();
}

void Streams::setAveraged(unsigned traces)
{
    for (Levels& levels : m_levels)
        levels.holds.setAveraged(traces);
    forgetFrames();
}

} // namespace pageserver
