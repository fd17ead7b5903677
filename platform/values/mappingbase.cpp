// SPDX-License-Identifier: MIT
#include "values/mappingbase.h"
#include "nqbase/nqexception.h"
#include <algorithm>
#include <utility>

namespace values {

MappingBase::MappingBase(const QString& name)
    : ValueBase(name)
{}

MappingBase::~MappingBase() = default;

void MappingBase::SetTimeStamp(const quint64& stamp)
{
    m_timeStamp = stamp;
}

void MappingBase::EndOfScan()
{
    finishScan(m_timeStamp);
}

void MappingBase::SetEndOfScan(const quint64& stamp)
{
    finishScan(stamp);
}

void MappingBase::setKeepScanDataAfterEndOfScan(bool keep)
{
    m_keepScanData = keep;
}

void MappingBase::SetRealTimeBufferDepth(unsigned int depth)
{
    m_realTimeBufferDepth = std::clamp(depth, 1U, maxRealTimeBufferDepth);
    realTimeSettingsChanged();
}

void MappingBase::SetHoldTime(quint64 holdTime)
{
    m_holdTime = holdTime;
    realTimeSettingsChanged();
}

MappingBase::Run MappingBase::clipped(qint64 first, qint64 last) const
{
    const qint64 lowest = m_grid.GetMinChannelId();
    const qint64 begin = std::max(first, lowest);
    const qint64 end = std::min(last, qint64{m_grid.GetMaxChannelId()}) + 1;
    if (m_grid.GetChannelCount() == 0 || begin >= end)
        return {0, 0};
    return {static_cast<std::size_t>(begin - lowest), static_cast<std::size_t>(end - lowest)};
}

std::size_t MappingBase::valueCount(const ChannelRangeDefinition& grid, std::size_t recordSize) const
{
    if (grid.GetChannelCount() == 0)
        return 0;
    const std::size_t count = std::size_t{grid.GetMaxChannelId()} - grid.GetMinChannelId() + 1;
    if (count > m_memoryLimit / recordSize)
        throw NQException(QStringLiteral("The %1 channels of the grid need more than %2 bytes")
                              .arg(count)
                              .arg(m_memoryLimit),
                          QStringLiteral("values::FastValueMap"), QStringLiteral("values/mappingbase"),
                          QStringLiteral("SetChannelRangeDefinition"), __LINE__);
    return count;
}

void MappingBase::installGrid(const ChannelRangeDefinition& grid)
{
    m_grid = grid;
}

void MappingBase::throwOutsideGrid(long first, unsigned int count) const
{
    throw NQException(QStringLiteral("%1 channels from %2 on lie outside the grid, which has %3 to %4 (%5)")
                          .arg(count)
                          .arg(first)
                          .arg(m_grid.GetMinChannelId())
                          .arg(m_grid.GetMaxChannelId())
                          .arg(m_grid.GetChannelCount()),
                      QStringLiteral("values::FastValueMap"), QStringLiteral("values/mappingbase"),
                      QStringLiteral("SetChannelValues"), __LINE__);
}

bool MappingBase::beginsScan()
{
    return std::exchange(m_scanEnded, false) && !m_keepScanData;
}

void MappingBase::finishScan(quint64 stamp)
{
    m_endOfScanTimeStamp = stamp;
    ++m_scanCount;
    m_scanEnded = true;
    scanFinished();
}

} // namespace values
