// SPDX-License-Identifier: MIT
#pragma once
// An observer that tells what it is told.
#include "nqbase/observable.h"
#include "support/effect_log.h"
#include <functional>
#include <string>
#include <utility>

namespace support {

/// Writes "NAME code" into a log for every update, then does what the test wants.
class Listener : public IObserver {
public:
    explicit Listener(EffectLog& log, std::string name = "update")
        : m_log(log)
        , m_name(std::move(name))
    {}
    void Update(Observable* subject, TChangeCode code) override
    {
        m_log.add(m_name + " " + std::to_string(code));
        // A copy: what runs may replace itself.
        if (const auto action = onUpdate)
            action(subject);
    }
    std::function<void(Observable*)> onUpdate;

private:
    EffectLog& m_log;
    std::string m_name;
};

} // namespace support
