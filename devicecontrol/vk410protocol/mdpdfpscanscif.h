// SPDX-License-Identifier: MIT
#pragma once
// The processor of direction-finding panorama scans of SCIF receivers: samples only, no blanking.
#include "devicecontrol/vk410protocol/massdataprocessor.h"
#include "devicecontrol/vk410protocol/scanrange.h"
#include "values/fastvaluemap.h"
#include "values/valueptr.h"
#include <QObject>
#include <map>
#include <vector>

struct DfOptHeader;

/// Brings direction-finding scans into a direction-finding spectrum map whose grid follows from the job's
/// scan ranges. Until scan ranges arrive, every trace is dropped.
/// Owner:  shares the map with the application.
/// Thread: that of the dispatcher; scan ranges must come in the same one.
class Q_DECL_EXPORT MdpDFPScanSCIF : public QObject, public IMassDataProcessor {
    Q_OBJECT

public:
    MdpDFPScanSCIF();
    ~MdpDFPScanSCIF() override;

    /// Binds the map KRT/RXBEARINGMAPPING below `path`.
    void Init(QString path) override;

    /// Takes one trace of the extended form. Azimuths and qualities that stand for no value are 0 afterwards,
    /// also in the datagram.
    void SetAttribute(DataPointers* data, UdpDatagramAttribute* attribute, bool optHeaderAvailable) override;

public slots:
    /// Takes over the scan ranges of a job, in the order of their channels, and lays out the map's grid. Null
    /// ranges are skipped.
    /// Errors: a grid that the map refuses, or has no memory for, is traced under mask 0x20; no range is
    /// known then.
    void SlotNewOrModifiedScanRanges(ScanRangeContainer ranges);

private:
    void takeScanRanges(const ScanRangeContainer& ranges);
    void write(const DfOptHeader& header, int rangeFirst,
               const std::vector<values::DFSpectrumSample>& samples);

    values::ValuePtr<values::DFSpectrumMap> m_dfMap;
    std::map<int, int> m_rangeStarts; // job id to the range's first channel id in the map
};
