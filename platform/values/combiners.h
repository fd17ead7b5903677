// SPDX-License-Identifier: MIT
#pragma once
// Several scans made one: the highest or lowest of each channel, or the mean.
#include "values/handlers.h"
#include <span>
#include <vector>

namespace values {

/// Which record of a channel is held.
enum class Hold { Highest, Lowest };

/// Puts the record with the higher (or lower) level into `held`; a cleared one never wins.
template <typename Handler, typename T>
void holdRecord(T& held, const T& record, Hold which)
{
    if (Handler::isCleared(record))
        return;
    const bool wins = which == Hold::Highest ? Handler::levelOf(record) > Handler::levelOf(held)
                                             : Handler::levelOf(record) < Handler::levelOf(held);
    if (wins || Handler::isCleared(held))
        held = record;
}

/// Holds, for each channel, the record with the highest or the lowest level.
template <typename T, typename Handler>
class HoldCombiner {
public:
    /// Without scans at first.
    explicit HoldCombiner(Hold which = Hold::Highest)
        : m_which(which)
    {}

    /// Takes a scan in; one of another size starts afresh.
    void Add(std::span<const T> scan)
    {
        if (scan.size() != m_held.size()) {
            m_held.assign(scan.begin(), scan.end());
            return;
        }
        for (std::size_t i = 0; i < scan.size(); ++i)
            holdRecord<Handler>(m_held[i], scan[i], m_which);
    }
    void Reset() { m_held.clear(); }
    [[nodiscard]] const std::vector<T>& GetValues() const { return m_held; }

private:
    Hold m_which;
    std::vector<T> m_held;
};

/// Averages each channel; cleared records do not count.
template <typename T, typename Handler>
class AverageCombiner {
public:
    /// `window` 0: the mean of all scans; else older scans fade as if that many were kept.
    explicit AverageCombiner(unsigned int window = 0)
        : m_window(window)
    {}

    /// Takes a scan in; one of another size starts afresh.
    void Add(std::span<const T> scan)
    {
        if (scan.size() != m_means.size())
            m_means.assign(scan.size(), {});
        for (std::size_t i = 0; i < scan.size(); ++i)
            Handler::average(m_means[i], scan[i], m_window);
    }
    void Reset() { m_means.clear(); }

    /// The means; channels that never had a value are cleared.
    [[nodiscard]] std::vector<T> GetValues() const
    {
        std::vector<T> values;
        values.reserve(m_means.size());
        for (const typename Handler::Mean& mean : m_means)
            values.push_back(Handler::averaged(mean));
        return values;
    }

private:
    unsigned int m_window;
    std::vector<typename Handler::Mean> m_means;
};

} // namespace values
