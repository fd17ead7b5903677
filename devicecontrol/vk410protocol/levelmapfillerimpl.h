// SPDX-License-Identifier: MIT
#pragma once
// Writes level traces onto the channel grid of a level map, and notices when a new sweep begins.
#include "values/channelrangedefinition.h"
#include "values/fastvaluemap.h"
#include <QtGlobal>
#include <cstddef>

/// Takes level traces and brings them into a level map.
/// Units: frequency stands for whatever the x axis of the map is, also for time; levels are raw.
/// Thread: that of the processor which calls.
class Q_DECL_EXPORT ILevelMapFiller {
public:
    ILevelMapFiller() = default;
    ILevelMapFiller(const ILevelMapFiller& other) = default;
    ILevelMapFiller& operator=(const ILevelMapFiller& other) = default;

    // The order of the virtual operations is part of the binary interface.
    virtual ~ILevelMapFiller();

    /// Writes a trace of `count` levels of which the first lies at `startFreq` and the last at `stopFreq`. A
    /// new sweep ends the scan of the map. A `startFreq` of 0.0 ends the scan and writes nothing.
    virtual void SetData(double startFreq, double stopFreq, double step, int count, short* levels) = 0;

    /// The same without the receiver's step: a new sweep only notifies, and 0.0 is a frequency.
    virtual void SetData(double startFreq, double stopFreq, int count, short* levels) = 0;

    /// Ends the scan of the map.
    virtual void EndOfScan() = 0;

    /// Writes one level; a `freq` of 0.0 ends the scan instead.
    virtual void SetSingleData(double freq, short level) = 0;

    /// The same without notifying anybody.
    virtual void SetSingleDataNoClear(double freq, short level) = 0;

    /// Clears all levels, never the grid.
    virtual void ClearAll() = 0;

    /// The grid of the map.
    /// Owner: the map; the reference holds as long as the map does.
    virtual const values::ChannelRangeDefinition& GetRangeDefinition() = 0;

    /// Installs a grid and notifies with the change code `param`.
    virtual void SetRangeDefinition(const values::ChannelRangeDefinition& def, size_t param) = 0;

    /// The map that is written into; null where there is none.
    virtual values::FastValueMap<short, values::levelHandler>* GetMapping() = 0;

    /// Whether a panorama scan of the receiver runs, and whether its traces end sweeps; fillers that do not
    /// care ignore both.
    virtual void SetPScanMSR(bool running);
    virtual void SetPScanMSRFinish(bool finish);

protected:
    quint32 m_lastChannel = 0; // id of the last value written in this sweep
};

/// Takes pulses and brings them into a pulse map; implemented by the application.
class Q_DECL_EXPORT IPulseMapFiller {
public:
    IPulseMapFiller() = default;
    IPulseMapFiller(const IPulseMapFiller& other) = default;
    IPulseMapFiller& operator=(const IPulseMapFiller& other) = default;
    virtual ~IPulseMapFiller();

    /// Takes `count` levels of pulses that were received around `centreFreq` at `timeStamp`.
    /// Units: Hz, map stamp, raw levels.
    /// Owner: `levels` is borrowed for the call.
    virtual void SetPulses(double centreFreq, quint64 timeStamp, const short* levels, int count) = 0;
};

/// Fills a level map, and a second one, the mirror map, with the same traces.
/// Owner:  the application keeps both maps alive as long as the filler; copies write into the same maps.
/// Errors: what a map throws (NQException) is traced under 0x20, and the next step follows. Without a primary
///         map every operation does nothing.
class Q_DECL_EXPORT FastLevelMapFiller : public ILevelMapFiller {
public:
    /// `pMapping` and `pMirror` are level maps; `pMirror` may be null. A primary map that is null or of
    /// another type fails an assertion.
    FastLevelMapFiller(values::MappingBase* pMapping, values::MappingBase* pMirror);
    FastLevelMapFiller(const FastLevelMapFiller& other) = default;
    FastLevelMapFiller& operator=(const FastLevelMapFiller& other) = default;
    ~FastLevelMapFiller() override;

    void SetData(double startFreq, double stopFreq, double step, int count, short* levels) override;
    void SetData(double startFreq, double stopFreq, int count, short* levels) override;
    void EndOfScan() override;
    void SetSingleData(double freq, short level) override;
    void SetSingleDataNoClear(double freq, short level) override;
    void ClearAll() override;
    const values::ChannelRangeDefinition& GetRangeDefinition() override;
    void SetRangeDefinition(const values::ChannelRangeDefinition& def, size_t param) override;
    values::FastValueMap<short, values::levelHandler>* GetMapping() override;
    void SetPScanMSR(bool running) override;
    void SetPScanMSRFinish(bool finish) override;

    /// Lays a one-range grid from `startFreq` to `stopFreq`, also over a grid that is there already. Only a
    /// map without a grid stays without one when `keepEmpty` is set. A range that has a negative number of
    /// channels, or one beyond 32 bits: nothing.
    void CreateValidChannelRangeDefinition(double startFreq, double stopFreq, double step, bool keepEmpty);

    /// Kept for the application's debugger; nothing depends on it.
    void SetFirstChannel(int channel) { m_firstChannel = channel; }

protected:
    /// The kind of map that is filled.
    using LevelMap = values::FastValueMap<short, values::levelHandler>;

    /// Whether one and the same range reaches from its start to both `f1` and `f2`.
    bool DataInRange(double f1, double f2, const values::ChannelRangeDefinition& def);

    /// Whether the trace has the step of the grid, in whole units: of its lowest channel, or of the range
    /// that suits the trace best.
    bool StepWidthOk(double startFreq, double stopFreq, long count,
                     const values::ChannelRangeDefinition& def);
    bool StepWidthOk(double startFreq, double stopFreq, double step, long count,
                     const values::ChannelRangeDefinition& def);

    /// False, with a trace, when `first` lies behind the channels of the grid.
    bool StartChannelOk(double first, const values::ChannelRangeDefinition& def);

    /// The primary map and the mirror map; null where there is none.
    LevelMap* m_pMapping;
    LevelMap* m_pMirrorMapping;
    values::ChannelRangeDefinition m_rangeDefinition; // of the primary map, when it was last set here
    // The next two are written for the application's debugger only.
    qint32 m_stepWidth = -1; // of the last trace, truncated
    qint32 m_firstChannel = 0;
    /// As told by `SetPScanMSR` and `SetPScanMSRFinish`.
    bool m_pScanMSR = false;
    bool m_pScanMSRFinish = false;

private:
    enum class SweepRule { Notify, EndScan };

    void CreateAndSetChannelRangeDefinition(double startFreq, double step, long count);
    void writeTrace(double startFreq, double stopFreq, int count, short* levels,
                    const values::ChannelRangeDefinition& def, SweepRule rule);
    void beginSweepIfNeeded(double first, SweepRule rule);
    void dropTrace(const values::ChannelRangeDefinition& def);
    bool writeSingle(double freq, short level, const char* irregular);
    void notifyBoth();
    void installInBoth(values::ChannelRangeDefinition grid, size_t param);

    // Map calls of which NQException is caught and traced.
    void endScan(LevelMap& map);
    void notify(LevelMap& map);
    void clear(LevelMap& map, long first, unsigned int last);
    void write(LevelMap& map, long first, unsigned int count, short* levels);
    void installGrid(LevelMap& map, const values::ChannelRangeDefinition& def, size_t param);
};
