// SPDX-License-Identifier: MIT
#pragma once
// Takes what goes to the trace and assertion output while a test runs.
#include "nqbase/errorhandler.h"
#include "support/effect_log.h"
#include <string>
#include <vector>

namespace support {

/// While it lives, traces under `mask` and assertions are kept here instead of being written; then all is as
/// before.
class TraceCapture {
public:
    explicit TraceCapture(unsigned int mask = 0xFFFFFFFFU, EffectLog* log = nullptr);
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;
    ~TraceCapture();

    /// "message (file:line)", and "assert message (file:line)" for assertions, since the last call.
    std::vector<std::string> take();

    [[nodiscard]] const std::vector<TraceRecord>& records() const { return m_records; }

private:
    std::vector<TraceRecord> m_records;
    unsigned int m_oldMask;
    bool m_oldAssertions;
};

/// How `TraceCapture` shows a record.
std::string text(const TraceRecord& record);

} // namespace support
