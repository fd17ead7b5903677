// SPDX-License-Identifier: MIT
#pragma once
// The binary frames that viewers get: docs/stream-api.md as code.
#include "toolkit/pageserver/handover.h"
#include <QByteArray>
#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace pageserver {

/// What is shown; the numbers are those of the frames.
enum class Stream : std::uint8_t { Panorama = 1, ZeroSpan = 2, SecondZeroSpan = 3, Df = 4 };
inline constexpr std::array<Stream, 4> streams{Stream::Panorama, Stream::ZeroSpan, Stream::SecondZeroSpan,
                                               Stream::Df};

/// What a stream is called, and what its numbers mean.
struct StreamFacts {
    Stream stream;
    std::string_view name;
    double scale; // a level in units is the raw number times this
    std::string_view unit;
    bool isTime; // the axis is one of seconds, not of hertz
};
[[nodiscard]] const StreamFacts& factsOf(Stream stream);

/// Arrays of level streams, one bit each. Those of direction finding come all together.
enum ArrayBit : std::uint16_t { Live = 1, Max = 2, Min = 4, Average = 8, Hold = 16, AllArrays = 31 };

/// What a frame says besides its values.
struct FrameHead {
    Stream stream = Stream::Panorama;
    std::uint16_t arrays = 0;
    TraceInfo info{};
    std::uint32_t averaged = 0;
    qint64 heldSinceNs = 0;
    std::uint32_t gridNumber = 0;
};

/// A frame without what differs from viewer to viewer, which is 0.
/// Shape: each array has as many values as the grid has channels from its lowest to its highest id.
[[nodiscard]] QByteArray makeFrame(const FrameHead& head, const values::ChannelRangeDefinition& grid,
                                   std::span<const std::span<const short>> arrays);

/// What differs from viewer to viewer.
struct ForViewer {
    std::uint32_t sequence = 0; // of the frames that it was sent
    std::uint32_t skipped = 0;  // traces of the stream that it was not sent, so far
    std::uint32_t lost = 0;     // datagrams on the wire since the stream's last frame for it
};
void address(QByteArray& frame, const ForViewer& viewer);

/// The five arrays of a direction-finding picture, as frames have them.
[[nodiscard]] std::array<std::vector<short>, 5> dfArrays(const DfPicture& picture);

} // namespace pageserver
