// SPDX-License-Identifier: MIT
#pragma once
// The processor of direction-finding panorama scans.
#include "devicecontrol/vk410protocol/massdataprocessor.h"
#include "devicecontrol/vk410protocol/massdatareceiver.h"
#include "devicecontrol/vk410protocol/scanrange.h"
#include "nqbase/observable.h"
#include "values/fastvaluemap.h"
#include "values/value.h"
#include "values/valuelist.h"
#include "values/valuenumeric.h"
#include "values/valueptr.h"
#include "values/valueselection.h"
#include <QObject>
#include <map>
#include <memory>
#include <span>
#include <vector>

class DfBlanking;

/// Brings direction-finding scans into a direction-finding spectrum map, hands the raw arrays to the
/// application, keeps a few values in line with what the scans say, and blanks what lies in the operator's
/// suppress ranges, blanking ranges and azimuth sectors. Until scan ranges arrive, every trace is dropped.
/// Owner:  borrows the receiver; maps and values belong to the application.
/// Thread: `SetAttribute` in that of the dispatcher, `Update` in the one that changes an observed value; no
/// locks.
class Q_DECL_EXPORT MdpDFPScan : public QObject, public IMassDataProcessor, public IObserver {
    Q_OBJECT

public:
    /// `receiver` may be null.
    explicit MdpDFPScan(IMassDataReceiver* receiver);
    ~MdpDFPScan() override;

    /// Binds the values of the receiver at `devicePath`, and the operator's ranges. Missing values are
    /// skipped.
    void Init(QString devicePath) override;

    /// Takes one trace of the extended form.
    /// Order: status values, SignalAzimuthBlanking, frequencies, the receiver, SignalRollPitchBlanking,
    ///        SignalFrequencyBlanking, the status of the blanking ranges, the map's stamp and samples, the
    ///        other signals, the map's notification, the end of its scan.
    void SetAttribute(DataPointers* data, UdpDatagramAttribute* attribute, bool optHeaderAvailable) override;

    void Update(Observable* subject, TChangeCode code) override;

signals:
    /// The block was measured while the receiver was overloaded.
    void SignalOverflow() const;
    /// The receiver reported that it blanked the block.
    void SignalBlanking() const;
    /// The receiver marked the block as not valid.
    void SignalInvalid() const;
    /// Azimuth sectors are blanked, whether or not a bearing of the block lies in one.
    void SignalAzimuthBlanking() const;
    /// Channels of the block lie in blanking ranges.
    void SignalFrequencyBlanking() const;
    /// The antenna is inclined too far.
    void SignalRollPitchBlanking() const;

public slots:
    /// Takes over the scan ranges of a job, in the order of their channels, and lays out the map's grid.
    /// Azimuth sectors that cross north are split in the ranges themselves. Null ranges are skipped.
    /// Errors: a grid that the map refuses, or has no memory for, is traced under mask 0x20; no job is known
    /// then.
    void SlotNewOrModifiedScanRanges(ScanRangeContainer scanRanges);

private:
    struct Block;
    using Number = values::ValueNumeric<double>;
    using Time = values::ValueNumeric<qint64>;

    void takeScanRanges(ScanRangeContainer scanRanges);
    void bindAttitude();
    void checkAzimuthSectors(ScanRange& range);
    void collectDfMethods(int method, bool endOfSweep);
    [[nodiscard]] bool isPitchRollWithinThreshold() const;
    [[nodiscard]] bool isDfScanMode() const;
    [[nodiscard]] bool hasMode(double mode) const;
    void updateTimes(const Block& block);
    void followFrequency(const Block& block);
    void callReceiver(const Block& block) const;
    [[nodiscard]] values::DFSpectrumSample::Validity validityOf(const Block& block) const;
    void fillSamples(const Block& block, std::span<values::DFSpectrumSample> samples);
    [[nodiscard]] bool blankSamples(const Block& block, std::size_t first,
                                    std::span<values::DFSpectrumSample> samples);
    void setSuperResolution(const Block& block, std::span<values::DFSpectrumSample> samples) const;
    [[nodiscard]] bool writeSamples(const Block& block, std::span<const values::DFSpectrumSample> samples);
    void finishBlock(const Block& block);
    void processBlock(Block block);

    IMassDataReceiver* m_receiver;
    values::ValuePtr<values::ValueSelection> m_drvCommands;
    values::ValuePtr<Number> m_polarFrequency;
    values::ValuePtr<Number> m_frequency;
    values::ValuePtr<Number> m_demodulationFrequency;
    values::ValuePtr<Number> m_roll;
    values::ValuePtr<values::ValueNumeric<int>> m_rollThreshold;
    values::ValuePtr<Number> m_pitch;
    values::ValuePtr<values::ValueNumeric<int>> m_pitchThreshold;
    values::ValuePtr<Time> m_dfTimestamp;
    values::ValuePtr<Time> m_sweepTime;
    values::ValuePtr<Time> m_spectrumAveragingTime;
    values::ValuePtr<values::ValueList<int>> m_dfAltUsed;
    values::ValuePtr<values::Value<bool>> m_dfAltWatsonWatt;
    values::ValuePtr<values::DFSpectrumMap> m_dfSpectrumMap;
    values::ValuePtr<values::ValueNumeric<int>> m_qualityThreshold;
    std::unique_ptr<DfBlanking> m_blanking;
    std::map<int, int> m_jobChannelOffset;           // job id to the job's first channel id in the map
    ScanRangeContainer m_scanRanges;                 // none of them null
    std::vector<int> m_dfMethods;                    // seen in this sweep, in the order of appearance
    std::vector<values::DFSpectrumSample> m_samples; // for their memory
    bool m_usePitchRollBlanking = false;
    bool m_azimuthBlankingActive = false;
    bool m_averagingStartPending = false;
    quint64 m_averagingStart = 0;
};
