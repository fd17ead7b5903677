// SPDX-License-Identifier: MIT
#pragma once
// Maps that tell the ledger what is written into them.
#include "nqbase/nqexception.h"
#include "toolkit/ledger/ledger.h"
#include "values/fastvaluemap.h"
#include <functional>

namespace receiver {

/// A value map whose writes and refusals are counted, and of whose writes and scans somebody may want to
/// know.
template <typename T, typename Handler>
class CountedMap : public values::FastValueMap<T, Handler> {
    using Map = values::FastValueMap<T, Handler>;

public:
    CountedMap(const QString& name, ledger::Ledger& ledger)
        : Map(name)
        , m_ledger(ledger)
    {}

    void SetChannelValues(long first, unsigned int count, const T* source) override
    {
        try {
            Map::SetChannelValues(first, count, source);
        } catch (const NQException&) {
            m_ledger.mapRejected();
            throw;
        }
        m_ledger.mapWritten();
        if (m_onWrite)
            m_onWrite(first, count);
    }

    /// Called at the end of each scan, when its values and stamp can be read.
    void onScan(std::function<void()> listener) { m_onScan = std::move(listener); }

    /// Called when the values of these channels are in the map, with the stamp of their trace.
    void onWrite(std::function<void(long first, unsigned int count)> listener)
    {
        m_onWrite = std::move(listener);
    }

protected:
    void scanFinished() override
    {
        Map::scanFinished();
        if (m_onScan)
            m_onScan();
    }

private:
    ledger::Ledger& m_ledger;
    std::function<void()> m_onScan;
    std::function<void(long first, unsigned int count)> m_onWrite;
};

using CountedLevelMap = CountedMap<short, values::levelHandler>;
using CountedBearingMap = CountedMap<values::Bearing, values::BearingHandler>;
using CountedDFSpectrumMap = CountedMap<values::DFSpectrumSample, values::DFSpectrumSampleHandler>;

} // namespace receiver
