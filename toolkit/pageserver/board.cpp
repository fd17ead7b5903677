// SPDX-License-Identifier: MIT
#include "toolkit/pageserver/board.h"

namespace pageserver {

bool Board::set(std::shared_ptr<const SessionState> state)
{
    const bool isNewStatus = state->status != m_state->status;
    m_statusNumber += isNewStatus ? 1 : 0;
    m_rangesNumber += state->ranges != m_state->ranges ? 1 : 0;
    m_state = std::move(state);
    note(m_state->values);
    return isNewStatus;
}

void Board::note(const std::vector<ValueText>& values)
{
    const quint64 number = m_valuesNumber + 1;
    for (const ValueText& value : values) {
        const auto [place, isNew] = m_values.try_emplace(value.path, Noted{value, number});
        if (!isNew && place->second.text == value)
            continue;
        place->second = {value, number};
        m_valuesNumber = number;
    }
}

std::vector<ValueText> Board::valuesSince(quint64 number) const
{
    std::vector<ValueText> changed;
    for (const auto& [path, noted] : m_values) {
        if (noted.number > number)
            changed.push_back(noted.text);
    }
    return changed;
}

} // namespace pageserver
