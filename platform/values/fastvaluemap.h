// SPDX-License-Identifier: MIT
#pragma once
// Value maps: one record per channel, in contiguous memory.
#include "values/handlers.h"
#include "values/mappingbase.h"
#include "values/realtimebuffer.h"
#include <algorithm>
#include <memory>
#include <span>
#include <vector>

namespace values {

/// A map of `T`, whose properties `Handler` knows.
/// Owner:  the application; fillers and processors write into it.
/// Thread: one; other threads read real-time buffers.
template <typename T, typename Handler>
class Q_DECL_EXPORT FastValueMap : public MappingBase {
public:
    /// The real-time buffers of this kind of map.
    using Buffer = RealTimeBuffer<T, Handler>;

    /// A map without a grid.
    explicit FastValueMap(const QString& name = {})
        : MappingBase(name)
    {}

    void SetChannelRangeDefinition(const ChannelRangeDefinition& def, std::size_t code) override
    {
        const std::size_t count = valueCount(def, sizeof(T));
        if (count != m_values.size())
            m_values = std::vector<T>(count, Handler::cleared()); // gives memory back, too
        else
            std::fill(m_values.begin(), m_values.end(), Handler::cleared());
        installGrid(def); // also when it is the map's own
        HasChanged(static_cast<TChangeCode>(code));
    }

    void ClearChannelRange(long first, unsigned int last) override { clear(clipped(first, last)); }

    /// Writes `count` values from channel id `first` on, as far as the grid has them. A null source or a
    /// count of 0, tested first: nothing. Nobody is notified.
    /// Errors: NQException when the grid has none of them; nothing changes then.
    virtual void SetChannelValues(long first, unsigned int count, const T* source)
    {
        if (!source || count == 0)
            return;
        // `first` may be anything: no sum that could overflow.
        const qint64 last = first > 0xFFFFFFFFL ? qint64{first} : qint64{first} + count - 1;
        const Run run = clipped(first, last);
        if (run.empty())
            throwOutsideGrid(first, count);
        if (beginsScan()) {
            clear({0, run.begin});
            clear({run.end, m_values.size()});
        }
        const qint64 skipped = GetChannelRangeDefinition().GetMinChannelId() + qint64(run.begin) - first;
        Handler::assign(m_values.data() + run.begin, source + skipped, run.end - run.begin);
    }

    /// The values, from the lowest channel id of the grid to the highest.
    [[nodiscard]] std::span<const T> GetValues() const { return m_values; }

    /// The value of a channel id, or null when the grid does not reach there.
    [[nodiscard]] const T* FindChannelValue(unsigned int id) const
    {
        const Run run = clipped(id, id);
        return run.empty() ? nullptr : &m_values[run.begin];
    }

    /// A ring of finished scans for another thread, with the map's depth and hold time.
    /// Owner: the caller; the map stops writing into it when it is gone.
    virtual std::shared_ptr<Buffer> CreateRealTimeBuffer()
    {
        auto buffer = std::make_shared<Buffer>(GetRealTimeBufferDepth(), GetHoldTime());
        std::erase_if(m_buffers, [](const std::weak_ptr<Buffer>& b) { return b.expired(); });
        m_buffers.push_back(buffer);
        return buffer;
    }

    [[nodiscard]] QString GetTypeName() const override { return QString::fromLatin1(Handler::typeName); }
    [[nodiscard]] QString ToText() const override
    {
        return QStringLiteral("%1 channels, %2 scans")
            .arg(GetChannelRangeDefinition().GetChannelCount())
            .arg(GetScanCount());
    }

protected:
    void scanFinished() override
    {
        if (m_buffers.empty())
            return;
        forEachBuffer([this](Buffer& buffer) {
            buffer.Store(GetChannelRangeDefinition(), m_values, GetEndOfScanTimeStamp(), GetScanCount());
        });
    }

    void realTimeSettingsChanged() override
    {
        forEachBuffer([this](Buffer& buffer) {
            buffer.SetDepth(GetRealTimeBufferDepth());
            buffer.SetHoldTime(GetHoldTime());
        });
    }

private:
    void clear(Run run)
    {
        if (!run.empty())
            std::fill(m_values.begin() + static_cast<std::ptrdiff_t>(run.begin),
                      m_values.begin() + static_cast<std::ptrdiff_t>(run.end), Handler::cleared());
    }

    template <typename Action>
    void forEachBuffer(const Action& action)
    {
        std::erase_if(m_buffers, [&action](const std::weak_ptr<Buffer>& weak) {
            const std::shared_ptr<Buffer> buffer = weak.lock();
            if (buffer)
                action(*buffer);
            return !buffer;
        });
    }

    std::vector<T> m_values;
    std::vector<std::weak_ptr<Buffer>> m_buffers;
};

/// The kinds of value map: levels, bearings, direction-finding samples.
using LevelMap = FastValueMap<short, levelHandler>;
using BearingMap = FastValueMap<Bearing, BearingHandler>;
using DFSpectrumMap = FastValueMap<DFSpectrumSample, DFSpectrumSampleHandler>;

extern template class FastValueMap<short, levelHandler>;
extern template class FastValueMap<Bearing, BearingHandler>;
extern template class FastValueMap<DFSpectrumSample, DFSpectrumSampleHandler>;

} // namespace values
