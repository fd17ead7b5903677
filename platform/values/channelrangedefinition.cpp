// SPDX-License-Identifier: MIT
#include "values/channelrangedefinition.h"
#include "nqbase/nqexception.h"
#include "values/channelrangeindex.h"
#include <QVarLengthArray>
#include <algorithm>
#include <cmath>

namespace values {

struct ChannelRangeDefinition::Data : QSharedData {
    // Up to here a plain walk is faster than a search, and most grids have one range.
    static constexpr std::size_t indexedFrom = 16;

    std::vector<ChannelRange> ranges;
    ChannelRangeIndex index; // behind `ranges` while there are few, or when memory ran out: walk then
    unsigned int channelCount = 0;
    unsigned int minId = 0;
    unsigned int maxId = 0;

    [[nodiscard]] bool isIndexed() const { return index.size() == ranges.size(); }

    void updateIndex()
    {
        if (ranges.size() < indexedFrom)
            return;
        try {
            while (index.size() < ranges.size())
                index.add(ranges[index.size()]);
        } catch (const std::bad_alloc&) {
            index = ChannelRangeIndex{};
        }
    }

    [[nodiscard]] const ChannelRange* rangeHolding(unsigned int id) const
    {
        if (isIndexed()) {
            const std::optional<std::size_t> number = index.rangeHolding(id);
            return number ? &ranges[*number] : nullptr;
        }
        const auto found =
            std::find_if(ranges.begin(), ranges.end(), [id](const ChannelRange& r) { return r.holds(id); });
        return found == ranges.end() ? nullptr : &*found;
    }

    using Numbers = QVarLengthArray<std::size_t, 16>;

    // Numbers of the ranges that contain `x`, in their order.
    [[nodiscard]] Numbers rangesContaining(double x) const
    {
        Numbers numbers;
        if (isIndexed()) {
            index.forEachContaining(x, [&numbers](std::size_t number) { numbers.append(number); });
            std::sort(numbers.begin(), numbers.end());
            return numbers;
        }
        for (std::size_t number = 0; number < ranges.size(); ++number) {
            if (ranges[number].contains(x))
                numbers.append(number);
        }
        return numbers;
    }
};

namespace {

[[noreturn]] void fail(const QString& reason, const char* method, int line)
{
    throw NQException(reason, QStringLiteral("values::ChannelRangeDefinition"),
                      QStringLiteral("values/channelrangedefinition"), QString::fromLatin1(method), line);
}

// The first channel of `range` that does not lie before `x` in the direction of the step; the last one does
// not. Rounding keeps positions in order, so a search is exact where a division would be off by one.
unsigned int firstNotBefore(const ChannelRange& range, double x)
{
    const auto isBefore = [&range, x](unsigned int k) {
        return range.step > 0.0 ? range.position(k) < x : range.position(k) > x;
    };
    unsigned int low = 0;
    unsigned int high = range.count - 1;
    const auto look = [&](unsigned int k) {
        if (isBefore(k))
            low = std::max(low, k + 1);
        else
            high = std::min(high, k);
    };
    // Around the quotient first: it is right nearly always.
    const double quotient = (x - range.start) / range.step;
    if (quotient >= 0.0 && quotient < range.count) {
        const auto guess = static_cast<unsigned int>(quotient);
        look(guess);
        look(std::min(guess + 1, range.count - 1));
        look(guess > 0 ? guess - 1 : 0);
    }
    while (low < high) {
        const unsigned int middle = low + (high - low) / 2;
        if (isBefore(middle))
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

// The channel of `range`, counted from 0, that is nearest to `x`, which the range contains. Where steps are
// lost in rounding and several channels lie at one position, it is the first of them.
unsigned int nearestChannel(const ChannelRange& range, double x)
{
    if (range.count < 2 || range.step == 0.0 || !std::isfinite(range.step))
        return 0;
    const unsigned int above = firstNotBefore(range, x);
    if (above == 0)
        return 0;
    const double position = range.position(above);
    // Asked first: the distance of an infinite position to itself is not a number.
    if (position == x)
        return above;
    const double below = range.position(above - 1);
    if (std::abs(position - x) < std::abs(below - x))
        return above;
    // Where several channels round to the place below, the first of them.
    const bool isAlone = above == 1 || range.position(above - 2) != below;
    return isAlone ? above - 1 : firstNotBefore(range, below);
}

// The channel nearest to `x`, limited to the range.
unsigned int nearestLimited(const ChannelRange& range, double x)
{
    const double last = range.position(range.count - 1);
    return nearestChannel(range, std::clamp(x, std::min(range.start, last), std::max(range.start, last)));
}

const std::vector<ChannelRange> noRanges;

} // namespace

ChannelRangeDefinition::ChannelRangeDefinition() = default;
ChannelRangeDefinition::ChannelRangeDefinition(const ChannelRangeDefinition& other) = default;
ChannelRangeDefinition::ChannelRangeDefinition(ChannelRangeDefinition&& other) noexcept = default;
ChannelRangeDefinition& ChannelRangeDefinition::operator=(const ChannelRangeDefinition& other) = default;
ChannelRangeDefinition& ChannelRangeDefinition::operator=(ChannelRangeDefinition&& other) noexcept = default;
ChannelRangeDefinition::~ChannelRangeDefinition() = default;

void ChannelRangeDefinition::AddRangeDefinition(unsigned int firstChannel, unsigned int count, double start,
                                                double step, const QString& name)
{
    if (quint64{firstChannel} + count > maxChannels)
        fail(QStringLiteral("Channel ids %1 to %2 are too large")
                 .arg(firstChannel)
                 .arg(quint64{firstChannel} + count - 1),
             "AddRangeDefinition", __LINE__);
    if (quint64{GetChannelCount()} + count > maxChannels)
        fail(QStringLiteral("%1 more channels are too many").arg(count), "AddRangeDefinition", __LINE__);
    Data& data = writable();
    data.ranges.push_back({firstChannel, count, start, step, name});
    data.updateIndex();
    if (count == 0)
        return;
    const unsigned int last = firstChannel + count - 1;
    data.minId = data.channelCount == 0 ? firstChannel : std::min(data.minId, firstChannel);
    data.maxId = std::max(data.maxId, last);
    data.channelCount += count;
}

// Data of its own. The acquiring load is the reason why this is not left to the pointer: it makes sure that a
// copy in another thread, which was dropped just now, has done its last look.
ChannelRangeDefinition::Data& ChannelRangeDefinition::writable()
{
    if (!m_data)
        m_data = new Data;
    else if (m_data->ref.loadAcquire() != 1)
        m_data = new Data(*m_data);
    return *m_data;
}

bool ChannelRangeDefinition::empty() const
{
    return !m_data || m_data->ranges.empty();
}

const std::vector<ChannelRange>& ChannelRangeDefinition::GetRanges() const
{
    return m_data ? m_data->ranges : noRanges;
}

unsigned int ChannelRangeDefinition::GetMinChannelId() const
{
    return m_data ? m_data->minId : 0;
}

unsigned int ChannelRangeDefinition::GetMaxChannelId() const
{
    return m_data ? m_data->maxId : 0;
}

unsigned int ChannelRangeDefinition::GetChannelCount() const
{
    return m_data ? m_data->channelCount : 0;
}

double ChannelRangeDefinition::ChannelIdToFrequency(unsigned int id) const
{
    const ChannelRange* const range = m_data ? m_data->rangeHolding(id) : nullptr;
    if (!range)
        fail(QStringLiteral("No range holds channel %1").arg(id), "ChannelIdToFrequency", __LINE__);
    return range->position(id - range->firstChannel);
}

double ChannelRangeDefinition::GetFrequencyStepForChannelId(unsigned int id) const
{
    const ChannelRange* const range = m_data ? m_data->rangeHolding(id) : nullptr;
    if (!range)
        fail(QStringLiteral("No range holds channel %1").arg(id), "GetFrequencyStepForChannelId", __LINE__);
    return range->step;
}

unsigned int ChannelRangeDefinition::FindFirstChannel4RangeDefinition(double start, double step,
                                                                      double stop) const
{
    if (!m_data)
        return 0;
    const ChannelRange* firstOfAnyStep = nullptr;
    for (const std::size_t number : m_data->rangesContaining(start)) {
        const ChannelRange& range = m_data->ranges[number];
        if (!range.contains(stop))
            continue;
        if (range.step == step)
            return range.firstChannel;
        if (!firstOfAnyStep)
            firstOfAnyStep = &range;
    }
    return firstOfAnyStep ? firstOfAnyStep->firstChannel : GetMinChannelId();
}

std::vector<unsigned int> ChannelRangeDefinition::GetClosestChannelIdsForFrequency(double frequency) const
{
    std::vector<unsigned int> ids;
    if (!m_data)
        return ids;
    const Data::Numbers numbers = m_data->rangesContaining(frequency);
    ids.reserve(static_cast<std::size_t>(numbers.size()));
    for (const std::size_t number : numbers) {
        const ChannelRange& range = m_data->ranges[number];
        ids.push_back(range.firstChannel + nearestChannel(range, frequency));
    }
    return ids;
}

std::vector<unsigned int> ChannelRangeDefinition::GetClosestChannelIdsForFrequencyRange(double first,
                                                                                        double second) const
{
    struct Piece {
        unsigned int from;
        unsigned int to;
    };
    std::vector<unsigned int> ids;
    if (!m_data)
        return ids;
    QVarLengthArray<Piece, 16> pieces;
    quint64 total = 0;
    for (const std::size_t number : m_data->rangesContaining(first)) {
        const ChannelRange& range = m_data->ranges[number];
        const unsigned int from = range.firstChannel + nearestChannel(range, first);
        const unsigned int to =
            std::isnan(second) ? from : range.firstChannel + nearestLimited(range, second);
        total += quint64{std::max(from, to)} - std::min(from, to) + 1;
        pieces.append({from, to});
    }
    if (total > maxListedChannels)
        fail(QStringLiteral("%1 channels between two frequencies are too many").arg(total),
             "GetClosestChannelIdsForFrequencyRange", __LINE__);
    ids.reserve(static_cast<std::size_t>(total));
    for (const Piece& piece : pieces) {
        const unsigned int direction = piece.from <= piece.to ? 1U : ~0U; // ids are unsigned: ~0 steps down
        for (unsigned int id = piece.from; id != piece.to; id += direction)
            ids.push_back(id);
        ids.push_back(piece.to);
    }
    return ids;
}

bool ChannelRangeDefinition::operator==(const ChannelRangeDefinition& other) const
{
    return m_data == other.m_data || GetRanges() == other.GetRanges();
}

} // namespace values
