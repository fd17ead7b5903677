// SPDX-License-Identifier: MIT
#pragma once
// The visible effects of what a test does, in the order in which they happened.
#include <string>
#include <utility>
#include <vector>

namespace support {

/// Fakes, observers and captures write into one log; a test asserts the whole list.
class EffectLog {
public:
    void add(std::string effect) { m_effects.push_back(std::move(effect)); }
    void clear() { m_effects.clear(); }

    /// What happened since the last call, which empties the log.
    std::vector<std::string> take() { return std::exchange(m_effects, {}); }

    [[nodiscard]] const std::vector<std::string>& effects() const { return m_effects; }

private:
    std::vector<std::string> m_effects;
};

} // namespace support
