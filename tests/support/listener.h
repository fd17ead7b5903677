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

/// Does something at the first update, and then listens no more.
class Once : public IObserver {
public:
    explicit Once(std::function<void()> action)
        : m_action(std::move(action))
    {}
    void Update(Observable* subject, TChangeCode /*code*/) override
    {
        subject->RemoveObserver(this);
        m_action();
    }

private:
    std::function<void()> m_action;
};

} // namespace support
