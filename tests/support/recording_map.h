// SPDX-License-Identifier: MIT
#pragma once
// Value maps that tell what was done to them.
#include "nqbase/nqexception.h"
#include "support/effect_log.h"
#include "values/fastvaluemap.h"
#include <cstddef>
#include <set>
#include <string>
#include <utility>

namespace support {

/// A real map whose calls go to a log as "NAME Call arguments", before they take effect.
template <typename T, typename Handler>
class RecordingMap : public values::FastValueMap<T, Handler> {
    using Map = values::FastValueMap<T, Handler>;

public:
    RecordingMap(EffectLog& log, std::string name, const QString& valueName = {})
        : Map(valueName)
        , m_log(log)
        , m_name(std::move(name))
    {}

    /// Names of calls that fail with NQException instead of taking effect.
    std::set<std::string> failing;

    void SetChannelRangeDefinition(const values::ChannelRangeDefinition& def, std::size_t code) override
    {
        tell("SetChannelRangeDefinition", std::to_string(def.GetChannelCount()) + " " + std::to_string(code));
        Map::SetChannelRangeDefinition(def, code);
    }
    void ClearChannelRange(long first, unsigned int last) override
    {
        tell("ClearChannelRange", std::to_string(first) + " " + std::to_string(last));
        Map::ClearChannelRange(first, last);
    }
    void SetTimeStamp(const quint64& stamp) override
    {
        tell("SetTimeStamp", std::to_string(stamp));
        Map::SetTimeStamp(stamp);
    }
    void EndOfScan() override
    {
        tell("EndOfScan");
        Map::EndOfScan();
    }
    void SetEndOfScan(const quint64& stamp) override
    {
        tell("SetEndOfScan", std::to_string(stamp));
        Map::SetEndOfScan(stamp);
    }
    void SetChannelValues(long first, unsigned int count, const T* source) override
    {
        tell("SetChannelValues",
             std::to_string(first) + "+" + std::to_string(count) + (source ? "" : " null"));
        Map::SetChannelValues(first, count, source);
    }
    void HasChanged(TChangeCode code, IObserver* originator = nullptr) override
    {
        tell("HasChanged", std::to_string(code) + (originator ? " with originator" : ""));
        Map::HasChanged(code, originator);
    }

private:
    void tell(const std::string& call, const std::string& arguments = {})
    {
        m_log.add(m_name + " " + call + (arguments.empty() ? "" : " ") + arguments);
        if (failing.count(call) != 0)
            throw NQException(QString::fromStdString(call + " failed"), QStringLiteral("RecordingMap"),
                              QStringLiteral("recording_map"), QString::fromStdString(call), __LINE__);
    }

    EffectLog& m_log;
    std::string m_name;
};

using RecordingLevelMap = RecordingMap<short, values::levelHandler>;
using RecordingBearingMap = RecordingMap<values::Bearing, values::BearingHandler>;
using RecordingDFSpectrumMap = RecordingMap<values::DFSpectrumSample, values::DFSpectrumSampleHandler>;

} // namespace support
