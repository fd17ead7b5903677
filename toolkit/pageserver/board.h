// SPDX-License-Identifier: MIT
#pragma once
// What is written up for all viewers: each reads what is newer than what it has read.
#include "toolkit/pageserver/state.h"
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace pageserver {

/// The newest of everything, with numbers that grow with each change.
/// Thread: the page's.
class Board {
public:
    /// Whether the status is another one.
    bool set(std::shared_ptr<const SessionState> state);

    /// Empty ones before the first state.
    [[nodiscard]] const StatusState& status() const { return *m_state->status; }
    [[nodiscard]] const Ranges& ranges() const { return *m_state->ranges; }
    [[nodiscard]] const std::vector<ValueText>& values() const { return m_state->values; }

    // 0: nothing to read yet.
    [[nodiscard]] quint64 statusNumber() const { return m_statusNumber; }
    [[nodiscard]] quint64 rangesNumber() const { return m_rangesNumber; }
    [[nodiscard]] quint64 valuesNumber() const { return m_valuesNumber; }

    /// Values that changed after the change `number`; all of them after 0.
    [[nodiscard]] std::vector<ValueText> valuesSince(quint64 number) const;

private:
    struct Noted {
        ValueText text;
        quint64 number; // of its last change
    };

    void note(const std::vector<ValueText>& values);

    std::shared_ptr<const SessionState> m_state = std::make_shared<SessionState>(
        SessionState{std::make_shared<StatusState>(), {}, std::make_shared<Ranges>()});
    std::map<std::string, Noted> m_values; // by path
    quint64 m_statusNumber = 0;
    quint64 m_rangesNumber = 0;
    quint64 m_valuesNumber = 0;
};

} // namespace pageserver
