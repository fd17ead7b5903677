// SPDX-License-Identifier: MIT
#pragma once
// What all value maps have in common, whatever their records are.
#include "values/channelrangedefinition.h"
#include "values/valuebase.h"
#include <QtGlobal>
#include <cstddef>

namespace values {

/// A value that holds one record per channel of a grid. A scan is written piece by piece, then ended.
class Q_DECL_EXPORT MappingBase : public ValueBase {
public:
    /// Bytes that the values of a map may take unless it is told otherwise.
    static constexpr std::size_t defaultMemoryLimit = std::size_t{1} << 30;
    /// Deepest real-time buffer, in scans.
    static constexpr unsigned int maxRealTimeBufferDepth = 1000;

    /// A map without a grid.
    explicit MappingBase(const QString& name);
    ~MappingBase() override;

    /// The grid that is installed.
    [[nodiscard]] const ChannelRangeDefinition& GetChannelRangeDefinition() const { return m_grid; }

    /// Installs the grid, clears all values, and notifies with `code`. `def` may be the map's own.
    /// Errors: NQException when the values would take more than the memory limit; nothing changes then.
    virtual void SetChannelRangeDefinition(const ChannelRangeDefinition& def, std::size_t code) = 0;

    /// Clears the values of `first` to `last`, both included, never the grid; (-1, 0xFFFFFFFF): all.
    /// Channels that are not there: nothing.
    virtual void ClearChannelRange(long first, unsigned int last) = 0;

    /// Stamp of the current scan.
    /// Units: microseconds, as the device stamp divided by 1000.
    virtual void SetTimeStamp(const quint64& stamp);
    [[nodiscard]] quint64 GetTimeStamp() const { return m_timeStamp; }

    /// Finishes the scan, counts it, and hands it to the real-time buffers; the second form with a stamp of
    /// its own. The values stay readable. Nobody is notified.
    virtual void EndOfScan();
    virtual void SetEndOfScan(const quint64& stamp);

    /// Number of finished scans.
    [[nodiscard]] quint64 GetScanCount() const { return m_scanCount; }

    /// Stamp of the last finished scan; 0 before the first one.
    [[nodiscard]] quint64 GetEndOfScanTimeStamp() const { return m_endOfScanTimeStamp; }

    /// True: values stay until they are overwritten. False, as at first: the first write of the next scan
    /// clears the others.
    virtual void setKeepScanDataAfterEndOfScan(bool keep);
    [[nodiscard]] bool getKeepScanDataAfterEndOfScan() const { return m_keepScanData; }

    /// How many finished scans each real-time buffer holds: 1 to 1000, 10 at first; others are clamped.
    virtual void SetRealTimeBufferDepth(unsigned int depth);
    [[nodiscard]] unsigned int GetRealTimeBufferDepth() const { return m_realTimeBufferDepth; }

    /// Scans that follow each other within this time are held in one entry of the real-time buffers.
    /// Units: microseconds; 0, as at first: every scan is an entry of its own.
    virtual void SetHoldTime(quint64 holdTime);
    [[nodiscard]] quint64 GetHoldTime() const { return m_holdTime; }

    /// How many bytes the values may take; 1 GiB at first.
    void SetMemoryLimit(std::size_t bytes) { m_memoryLimit = bytes; }
    [[nodiscard]] std::size_t GetMemoryLimit() const { return m_memoryLimit; }

protected:
    /// A run of values, counted from the lowest channel id of the grid.
    struct Run {
        /// First value, and the one behind the last.
        std::size_t begin;
        std::size_t end;
        /// Whether there are no values in it.
        [[nodiscard]] bool empty() const { return begin >= end; }
    };

    /// The part of first to last (both included) that the grid has.
    [[nodiscard]] Run clipped(qint64 first, qint64 last) const;

    /// Number of values for `grid`: one per id from the lowest to the highest.
    /// Errors: NQException when they would take more than the memory limit.
    [[nodiscard]] std::size_t valueCount(const ChannelRangeDefinition& grid, std::size_t recordSize) const;

    /// Puts a grid in place; clears and notifies nobody.
    void installGrid(const ChannelRangeDefinition& grid);
    /// Throws the NQException of values outside the grid.
    [[noreturn]] void throwOutsideGrid(long first, unsigned int count) const;

    /// Whether this is the first write since the last scan ended, and old values have to go.
    [[nodiscard]] bool beginsScan();

    /// Called when a scan is finished and counted.
    virtual void scanFinished() = 0;
    /// Called when depth or hold time of the real-time buffers is another.
    virtual void realTimeSettingsChanged() = 0;

private:
    void finishScan(quint64 stamp);

    ChannelRangeDefinition m_grid;
    quint64 m_timeStamp = 0;
    quint64 m_endOfScanTimeStamp = 0;
    quint64 m_scanCount = 0;
    quint64 m_holdTime = 0;
    std::size_t m_memoryLimit = defaultMemoryLimit;
    unsigned int m_realTimeBufferDepth = 10;
    bool m_keepScanData = false;
    bool m_scanEnded = false;
};

} // namespace values
