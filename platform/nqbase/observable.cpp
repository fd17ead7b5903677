// SPDX-License-Identifier: MIT
#include "nqbase/observable.h"
#include <algorithm>

// One running notification. It lives on the stack of `HasChanged`, so that a callback may destroy the
// observable.
class Observable::Round {
public:
    explicit Round(Observable& subject)
        : m_subject(&subject)
        , m_outer(subject.m_round)
    {
        subject.m_round = this;
    }
    Round(const Round&) = delete;
    Round& operator=(const Round&) = delete;
    ~Round()
    {
        if (!m_subject)
            return;
        m_subject->m_round = m_outer;
        if (!m_outer)
            m_subject->tidyUp();
    }

    [[nodiscard]] bool subjectLives() const { return m_subject != nullptr; }

    static void subjectDies(Round* innermost)
    {
        for (Round* round = innermost; round; round = round->m_outer)
            round->m_subject = nullptr;
    }

private:
    Observable* m_subject;
    Round* m_outer;
};

IObserver::~IObserver()
{
    while (!m_subjects.empty()) {
        Observable* const subject = m_subjects.back();
        if (Observable::Registration* const registration = subject->find(this))
            subject->drop(*registration);
        else
            m_subjects.pop_back(); // its registration failed for want of memory
    }
}

Observable::~Observable()
{
    Round::subjectDies(m_round);
    for (const Registration& registration : m_registrations) {
        if (registration.observer)
            std::erase(registration.observer->m_subjects, this);
    }
}

void Observable::AddObserver(IObserver* observer)
{
    if (!observer)
        return;
    if (Registration* const registration = find(observer)) {
        ++registration->count;
        return;
    }
    observer->m_subjects.push_back(this);
    m_registrations.push_back({observer, 1});
}

void Observable::RemoveObserver(IObserver* observer)
{
    Registration* const registration = find(observer);
    if (registration && --registration->count == 0)
        drop(*registration);
}

void Observable::MakeFirstObserver(IObserver* observer)
{
    if (!observer)
        return;
    if (!find(observer))
        AddObserver(observer);
    if (m_round)
        m_wantToBeFirst.push_back(observer);
    else
        moveToFront(observer);
}

void Observable::HasChanged(TChangeCode code, IObserver* originator)
{
    const Round round{*this};
    // By index: callbacks may append, and the array may move. Removed entries stay as gaps while a round
    // runs.
    const std::size_t end = m_registrations.size();
    for (std::size_t i = 0; i < end; ++i) {
        IObserver* const observer = m_registrations[i].observer;
        if (!observer || observer == originator)
            continue;
        observer->Update(this, code);
        if (!round.subjectLives())
            return;
    }
}

std::size_t Observable::ObserverCount() const
{
    return static_cast<std::size_t>(
        std::count_if(m_registrations.begin(), m_registrations.end(),
                      [](const Registration& r) { return r.observer != nullptr; }));
}

Observable::Registration* Observable::find(const IObserver* observer)
{
    if (!observer)
        return nullptr;
    const auto found = std::find_if(m_registrations.begin(), m_registrations.end(),
                                    [observer](const Registration& r) { return r.observer == observer; });
    return found == m_registrations.end() ? nullptr : &*found;
}

void Observable::drop(Registration& registration)
{
    std::erase(registration.observer->m_subjects, this);
    std::erase(m_wantToBeFirst, registration.observer);
    registration.observer = nullptr;
    m_hasGaps = true;
    if (!m_round)
        tidyUp();
}

void Observable::moveToFront(const IObserver* observer)
{
    Registration* const registration = find(observer);
    if (!registration)
        return; // it has left since it asked
    const auto position = m_registrations.begin() + (registration - m_registrations.data());
    std::rotate(m_registrations.begin(), position, position + 1);
}

void Observable::tidyUp()
{
    if (m_hasGaps)
        std::erase_if(m_registrations, [](const Registration& r) { return r.observer == nullptr; });
    m_hasGaps = false;
    for (const IObserver* const observer : m_wantToBeFirst)
        moveToFront(observer);
    m_wantToBeFirst.clear();
}
