// SPDX-License-Identifier: MIT
#pragma once
// The scan ranges of a job, as the application hands them to the direction-finding processors.
#include <QMetaType>
#include <QtGlobal>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

/// One scan range of a job. The defaults are the record that stands for "no range".
struct ScanRange {
    quint64 startFrequency = std::numeric_limits<quint64>::max(); // Hz
    quint64 stopFrequency = std::numeric_limits<quint64>::max();  // Hz
    double step = -1.0;                                           // Hz
    double auxiliaryValue = -1.0;                                 // carried, not interpreted
    quint32 jobId = std::numeric_limits<quint32>::max();          // as in the blocks of the job
    quint32 auxiliaryId = std::numeric_limits<quint32>::max();    // carried, not interpreted
    /// Blanked azimuths: (lower, upper) in tenths of a degree, 0 to 3599; lower > upper crosses north.
    std::vector<std::pair<double, double>> azimuthSectors;
};

/// The scan ranges of a job, in the order of their channels.
using ScanRangeContainer = std::vector<std::shared_ptr<ScanRange>>;

Q_DECLARE_METATYPE(ScanRangeContainer)
