// SPDX-License-Identifier: MIT
#pragma once
// Channel grids: where the channels of a value map lie on its x axis.
#include <QExplicitlySharedDataPointer>
#include <QString>
#include <QtGlobal>
#include <vector>

namespace values {

/// Equally spaced channels with successive ids.
struct Q_DECL_EXPORT ChannelRange {
    unsigned int firstChannel = 0; // id; those of the others follow
    unsigned int count = 0;        // of channels
    double start = 0.0;            // position of the first channel: Hz, or time on a time axis
    double step = 0.0;             // from channel to channel, in the unit of `start`
    QString name;                  // for displays

    bool operator==(const ChannelRange& other) const = default;

    /// Position of channel `k` of this range, counted from 0.
    [[nodiscard]] double position(unsigned int k) const { return start + k * step; }

    /// Whether `id` is the id of one of the channels.
    [[nodiscard]] bool holds(unsigned int id) const
    {
        return id >= firstChannel && id - firstChannel < count;
    }

    /// Whether `x` lies between the first and the last channel, both included. Never when a limit is not a
    /// number, or without channels.
    [[nodiscard]] bool contains(double x) const
    {
        if (count == 0)
            return false;
        const double last = position(count - 1);
        return (start <= x && x <= last) || (last <= x && x <= start);
    }
};

/// An ordered list of channel ranges, which may overlap in ids and on the axis.
/// Copies share their data until one of them is written: a copy is one atomic increment.
/// Look-ups take logarithmic time in the number of ranges, and in addition as long as the number of ranges
/// that contain what is looked for; they never walk channels.
/// Thread: different objects in any threads, also when one is a copy of the other.
class Q_DECL_EXPORT ChannelRangeDefinition {
public:
    /// More channels than this, or ids from this on, are refused.
    static constexpr quint64 maxChannels = quint64{1} << 31;
    /// More ids than this are not put into one list.
    static constexpr quint64 maxListedChannels = quint64{1} << 24;

    /// No ranges; copies share what they were made from.
    ChannelRangeDefinition();
    ChannelRangeDefinition(const ChannelRangeDefinition& other);
    ChannelRangeDefinition(ChannelRangeDefinition&& other) noexcept;
    ChannelRangeDefinition& operator=(const ChannelRangeDefinition& other);
    ChannelRangeDefinition& operator=(ChannelRangeDefinition&& other) noexcept;
    ~ChannelRangeDefinition();

    /// Appends a range. Any step is taken, also infinite, not a number, 0 or negative.
    /// Errors: NQException when ids or the number of all channels exceed `maxChannels`; nothing changes then.
    void AddRangeDefinition(unsigned int firstChannel, unsigned int count, double start, double step,
                            const QString& name);

    /// Whether there are no ranges. A grid of ranges without channels is not empty.
    [[nodiscard]] bool empty() const;

    /// The ranges, in the order in which they were added.
    [[nodiscard]] const std::vector<ChannelRange>& GetRanges() const;

    /// Lowest and highest id of all channels; 0 without channels.
    [[nodiscard]] unsigned int GetMinChannelId() const;
    [[nodiscard]] unsigned int GetMaxChannelId() const;

    /// Number of channels of all ranges together, at most `maxChannels`.
    [[nodiscard]] unsigned int GetChannelCount() const;

    /// Position and step of a channel, from the first range that holds its id.
    /// Errors: NQException for an id that no range holds.
    [[nodiscard]] double ChannelIdToFrequency(unsigned int id) const;
    [[nodiscard]] double GetFrequencyStepForChannelId(unsigned int id) const;

    /// First id of the first range that contains `start` and `stop` and has exactly the step `step`; else of
    /// the first that contains both; else the lowest id of the grid.
    [[nodiscard]] unsigned int FindFirstChannel4RangeDefinition(double start, double step, double stop) const;

    /// Of each range that contains `frequency`, in their order, the id of the nearest channel: the first one
    /// where several are equally near, and the first channel of the range where the step is not finite.
    [[nodiscard]] std::vector<unsigned int> GetClosestChannelIdsForFrequency(double frequency) const;

    /// Of each range that contains `first`, in their order, all ids from the channel nearest to `first` to
    /// the one nearest to `second` (downwards when that one has the lower id), which is limited to the range.
    /// When `second` is not a number: the nearest to `first` alone.
    /// Errors: NQException for more than `maxListedChannels` ids.
    [[nodiscard]] std::vector<unsigned int> GetClosestChannelIdsForFrequencyRange(double first,
                                                                                  double second) const;

    /// Whether both have the same ranges in the same order.
    [[nodiscard]] bool operator==(const ChannelRangeDefinition& other) const;

private:
    struct Data;
    Data& writable();

    QExplicitlySharedDataPointer<Data> m_data; // null: no ranges
};

} // namespace values
