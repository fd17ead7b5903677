// SPDX-License-Identifier: MIT
#pragma once
// The processor of IF panorama traces.
#include "devicecontrol/vk410protocol/levelmapfillerimpl.h"
#include "devicecontrol/vk410protocol/massdataprocessor.h"
#include "nqbase/observable.h"
#include "values/fastvaluemap.h"
#include "values/value.h"
#include "values/valuenumeric.h"
#include "values/valueptr.h"
#include "values/valueselection.h"
#include <QObject>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <tuple>
#include <vector>

/// Brings IF panorama traces into a level map, keeps the receiver's settings in line with what the traces
/// say, and feeds the bearing map in wideband direction finding.
/// Owner:  configuration and a share of the filler; maps and values belong to the application.
/// Thread: `SetAttribute` in that of the dispatcher, `Update` in the one that changes an observed value; no
/// locks.
///         AFC, end-of-search and memory-search histories are kept once per process, shared by all objects.
class Q_DECL_EXPORT MdpIfpan : public QObject, public IMassDataProcessor, public IObserver {
    Q_OBJECT

public:
    /// What the application's receiver can do; implemented by the application. The order is part of the
    /// interface.
    class Q_DECL_EXPORT IConfig {
    public:
        IConfig() = default;
        IConfig(const IConfig&) = default;
        IConfig& operator=(const IConfig&) = default;
        virtual ~IConfig();

        /// During a search scan, copy the trace's span into IFPANSPAN instead of holding the search and
        /// retuning.
        virtual bool IsSpanFollowedDuringSearch() = 0;
        /// During a search scan, look for the end of the search with every trace.
        virtual bool IsEndOfSearchNotified() = 0;
        /// Stamp maps with the trace's time stamp, where it has one, instead of the clock.
        virtual bool UseDeviceTimestamp() = 0;
        /// Simulate a memory search while DRVCOMMANDS has key 6 or 7.
        virtual bool IsMSearchSimulated() = 0;
        /// The bearing map is that of the direction finder, below KRT.
        virtual bool UseDfBearingMapPath() = 0;
        /// Direction finding counts as switched on whatever DF_ENABLED says.
        virtual bool IsDfForcedOn() = 0;
        /// FREQUENCY may follow the receiver's AFC.
        virtual bool IsAfcFollowed() = 0;
        /// There is a bearing map at all.
        virtual bool HasBearingMap() = 0;
    };

    /// A null configuration answers false to everything; without a filler no levels are written.
    MdpIfpan(std::unique_ptr<IConfig> config, std::shared_ptr<ILevelMapFiller> filler);
    ~MdpIfpan() override;

    /// Binds all values below `path`, and the selection at `followSelectionPath` whose key 3 means: mirror
    /// the traces' settings into the receiver's values. May be called again for another receiver. Missing
    /// values are skipped.
    virtual void Init(QString path, const QString& followSelectionPath);

    /// Only stores the path.
    void Init(QString path) override;

    void SetAttribute(DataPointers* data, UdpDatagramAttribute* attribute, bool optHeaderAvailable) override;

    void Update(Observable* subject, TChangeCode code) override;

signals:
    /// A trace was processed.
    /// Units: raw levels, frequencies in Hz with the offset, `outputTimestamp` as received (0: none).
    void signalTraceData(std::vector<short> level, double realFreq, size_t outputTimestamp, double fMin,
                         double fMax);

private:
    // What the processor reads of the optional header, in host order.
    struct OptHeaderValues {
        quint64 centreFrequencyHz;
        quint32 spanHz;
        quint64 deviceStamp;
        qint32 stepNumerator;
        qint32 stepDenominator;
    };
    // Where a trace lies.
    struct Range {
        double fMin;
        double fMax;
        double realFreq;
    };
    struct SavedSettings {
        std::optional<double> span;
        std::optional<double> step;
        std::optional<double> frequency;
    };

    static OptHeaderValues readOptHeader(UdpDatagramAttribute& attribute);
    void followDevice(const OptHeaderValues& header, double freq);
    [[nodiscard]] Range rangeOf(const OptHeaderValues& header, double freq) const;
    void followScan(const OptHeaderValues& header, double freq);
    [[nodiscard]] int widened(const OptHeaderValues& header, int count) const;
    void writeLevels(const OptHeaderValues& header, const Range& range, int count, short* levels);
    [[nodiscard]] bool gridSuits(const values::ChannelRangeDefinition& grid, const Range& range,
                                 int count) const;
    void rebuildGrid(const OptHeaderValues& header, const Range& range, int count);

    bool CheckDfEnabled();
    void UpdateFreqDueToAfc(double freq);
    void NotifyEndOfSearch(double freq);
    void SimulateMSearch(DataPointers* data, int count, double realFreq);
    void rememberVisited(double realFreq);
    void SetDfAttribute(DataPointers* data, OptHeaderValues& header,
                        std::tuple<double, double, const int> extent);
    void installDfGrid(values::BearingMap& map, double fMin, double step, int count);
    void writeBearings(values::BearingMap& map, int count);

    [[nodiscard]] bool isFollowing() const;
    [[nodiscard]] bool frequencyDiffers(double freq) const;
    [[nodiscard]] bool commandHasKey(double key) const;
    [[nodiscard]] quint64 mapStamp(const OptHeaderValues& header) const;
    void setFrequency(double freq, IObserver* originator);
    void hold(values::ValueSelection* scanMode);
    void bindBearingMap(const QString& path);
    void saveSettings();
    void restoreSettings();

    values::ValuePtr<values::ValueSelection> m_followSelection;
    values::ValuePtr<values::ValueSelection> m_ifPanSpan;
    values::ValuePtr<values::ValueSelection> m_ifStep;
    values::ValuePtr<values::ValueBase> m_afc; // bool, number or selection: as a number, 1 means on
    values::ValuePtr<values::Value<bool>> m_endOfScan;
    values::ValuePtr<values::Value<bool>> m_enabled;
    values::ValuePtr<values::BearingMap> m_bearingMap;
    values::ValueObservingPtr<values::ValueSelection> m_drvCommands{this};
    values::ValuePtr<values::ValueNumericWithOffset> m_frequency;
    values::ValueObservingPtr<values::ValueSelection> m_searchScanMode{this};
    values::ValueObservingPtr<values::ValueSelection> m_mScanMode{this};
    values::ValueObservingPtr<values::Value<bool>> m_tuningWheelValue{this};
    values::ValueObservingPtr<values::ValueSelection> m_dfEnabled{this};
    values::ValueObservingPtr<values::ValueSelection> m_replayMode{this};
    SavedSettings m_saved;
    bool m_searchScanActive = false;
    bool m_mScanActive = false;
    bool m_tuningWheelInUse = false;
    bool m_dfSwitchedOff = false;
    std::vector<quint64> m_visitedFrequencies;                           // Hz
    std::unique_ptr<values::ChannelRangeDefinition> m_dfRangeDefinition; // last given to the bearing map
    std::vector<values::Bearing> m_dfBuffer;                             // only ever grows
    std::map<int, int> m_spanTraceLengthQuirks;                          // span in Hz to trace length
    std::unique_ptr<IConfig> m_config;
    std::shared_ptr<ILevelMapFiller> m_filler;
    // Composed where the path is stored, not per trace.
    QString m_dfEnabledPath;
    QString m_dfBearingMapPath;
};
