// SPDX-License-Identifier: MIT
#pragma once
// What there is to show, on the page's thread: the newest trace of each stream, its holds, its frames.
#include "toolkit/pageserver/emitters.h"
#include "toolkit/pageserver/frame.h"
#include "toolkit/pageserver/holds.h"
#include "toolkit/pageserver/sessionfeed.h"
#include <array>
#include <map>

namespace pageserver {

/// Thread: the page's.
class Streams {
public:
    /// Takes what waits.
    void take(Handover& handover);

    /// The newest trace of a stream; its number is 0 while there is none.
    [[nodiscard]] const TraceInfo& newest(Stream stream) const { return at(stream).info; }
    [[nodiscard]] const values::ChannelRangeDefinition& grid(Stream stream) const { return at(stream).grid; }

    /// The frame of the newest trace with those of `arrays` that the stream has; made once for all viewers.
    [[nodiscard]] const QByteArray& frame(Stream stream, std::uint16_t arrays);

    void resetHolds();
    void setAveraged(unsigned traces);

    [[nodiscard]] std::vector<Emitter> emitters() const { return m_emitters.list(); }

private:
    // What is known about the newest trace of one stream.
    struct Shown {
        TraceInfo info;
        values::ChannelRangeDefinition grid;
        std::uint32_t gridNumber = 0;
        std::map<std::uint16_t, QByteArray> frames; // of the newest trace, by their arrays
    };
    struct Levels {
        LevelBatch batch;
        Holds holds;
    };

    [[nodiscard]] const Shown& at(Stream stream) const
    {
        return m_shown[static_cast<std::size_t>(stream) - 1];
    }
    void forgetFrames();
    [[nodiscard]] Shown& at(Stream stream) { return m_shown[static_cast<std::size_t>(stream) - 1]; }
    void take(Stream stream, LevelGate& gate);
    void show(Stream stream, const TraceInfo& info, const values::ChannelRangeDefinition& grid);
    [[nodiscard]] QByteArray levelFrame(FrameHead head) const;
    [[nodiscard]] QByteArray dfFrame(const FrameHead& head) const;

    std::array<Shown, streams.size()> m_shown;
    std::array<Levels, 3> m_levels; // of the streams of levels
    std::shared_ptr<const DfPicture> m_df;
    Emitters m_emitters;
};

} // namespace pageserver
