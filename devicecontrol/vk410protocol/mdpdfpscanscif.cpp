// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/mdpdfpscanscif.h"
#include "devicecontrol/vk410protocol/dfoptheader.h"
#include "devicecontrol/vk410protocol/dfsamples.h"
#include "devicecontrol/vk410protocol/scangrid.h"
#include "nqbase/errorhandler.h"
#include "nqbase/nqexception.h"
#include "wire/optheader.h"
#include <new>
#include <utility>

namespace {

using values::DFSpectrumSample;

constexpr char sourceFile[] = "devicecontrol/vk410protocol/mdpdfpscanscif";

namespace flag = wire::dfscan::flag;

void trace(const QString& message, int line)
{
    if ((ErrorHandler::Instance()->GetTraceMask() & tracemask::error) != 0)
        _Q_Trace(message, sourceFile, line);
}

// Rounded without sign: the sum with 500 could wrap.
quint64 mapStampOf(quint64 deviceStamp)
{
    return deviceStamp / 1000 + (deviceStamp % 1000 + 500) / 1000;
}

DFSpectrumSample::Validity validityOf(const DfOptHeader& header)
{
    if (header.flag(flag::overflow))
        return DFSpectrumSample::Validity::Unusable;
    return header.flag(flag::blanking) ? DFSpectrumSample::Validity::Blanked
                                       : DFSpectrumSample::Validity::Valid;
}

} // namespace

MdpDFPScanSCIF::MdpDFPScanSCIF() = default;
MdpDFPScanSCIF::~MdpDFPScanSCIF() = default;

void MdpDFPScanSCIF::Init(QString path)
{
    IMassDataProcessor::Init(std::move(path));
    m_dfMap.Bind(Path() + QStringLiteral("/KRT/RXBEARINGMAPPING"));
}

// The interface says by value: a queued connection hands over a copy.
// cppcheck-suppress passedByValue
void MdpDFPScanSCIF::SlotNewOrModifiedScanRanges(ScanRangeContainer ranges)
{
    try {
        takeScanRanges(ranges);
    } catch (const std::bad_alloc&) {
        m_rangeStarts.clear();
        trace(QStringLiteral("There is no memory for the scan ranges"), __LINE__);
    }
}

void MdpDFPScanSCIF::takeScanRanges(const ScanRangeContainer& ranges)
{
    const ScanGrid scan = ScanGrid::of(ranges);
    m_rangeStarts.clear();
    for (const ScanGrid::Job& job : scan.jobs)
        m_rangeStarts.emplace(job.id, job.firstChannel); // of ranges with the same id the first one counts
    if (!m_dfMap)
        return;
    try {
        m_dfMap->SetChannelRangeDefinition(scan.grid, changecode::mapChanged);
    } catch (const NQException& failure) {
        trace(QStringLiteral("An error has occurred while trying to set the scan ranges: ") +
                  failure.GetErrorReason(),
              __LINE__);
        // Traces would go to channels of the old grid.
        if (!(m_dfMap->GetChannelRangeDefinition() == scan.grid))
            m_rangeStarts.clear();
    }
}

void MdpDFPScanSCIF::SetAttribute(DataPointers* data, UdpDatagramAttribute* /*attribute*/,
                                  bool optHeaderAvailable)
{
    if (!optHeaderAvailable) {
        trace(QStringLiteral(
                  "An error has occurred while trying to set dfpan data: Optional header is not set."),
              __LINE__);
        return NotAccepted("no optional header");
    }
    if (!data->extHeader || !data->extOptHeader)
        return NotAccepted("not of the extended form");
    const DfOptHeader header = DfOptHeader::read(*data->extHeader, data->extOptHeader);
    const auto range = m_rangeStarts.find(header.jobId);
    if (range == m_rangeStarts.end())
        return NotAccepted("no scan range has this job id");
    if (!m_dfMap)
        return NotAccepted("there is no map");

    const std::size_t count = static_cast<quint16>(data->extHeader->Count());
    // Into the datagram, too, and not for elevations. That is meant: later readers of the fields rely on it.
    // Pinned by MdpDFPScanSCIFSamples.WriteZeroOverMissingAzimuthsAndQualitiesInTheDatagramOnly.
    if (data->selBit13)
        dfsamples::replaceNoValues(data->selBit13, count);
    if (data->selBit12)
        dfsamples::replaceNoValues(data->selBit12, count);
    std::vector<DFSpectrumSample> samples(count);
    dfsamples::convert(
        {data->selBit12, data->selBit13, nullptr, data->selBit15, data->selBit11, data->selBit18},
        validityOf(header), samples);
    write(header, range->second, samples);
}

void MdpDFPScanSCIF::write(const DfOptHeader& header, int rangeFirst,
                           const std::vector<DFSpectrumSample>& samples)
{
    const quint64 stamp = mapStampOf(header.deviceStamp);
    m_dfMap->SetTimeStamp(stamp);
    try {
        const double rangeStart =
            m_dfMap->GetChannelRangeDefinition().ChannelIdToFrequency(static_cast<unsigned>(rangeFirst));
        if (const auto position = channelPosition(header, rangeStart, rangeFirst))
            m_dfMap->SetChannelValues(*position, static_cast<unsigned>(samples.size()), samples.data());
    } catch (const NQException& failure) {
        trace(QStringLiteral("An error has occurred while trying to set dfpan data to the value map: %1")
                  .arg(failure.GetErrorReason()),
              __LINE__);
    }
    // Also after a failure, so that a display that waits for the map does not hang.
    m_dfMap->HasChanged(changecode::mapChanged);
    if (header.flag(flag::endOfSweep))
        m_dfMap->SetEndOfScan(stamp + static_cast<quint64>(qint64{header.averagingTimeOffset}));
}
