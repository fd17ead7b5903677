// SPDX-License-Identifier: MIT
#pragma once
// The observer pattern of the application suite: values and value maps are observables, processors and
// displays observe.
#include "nqbase/changecode.h"
#include <QtGlobal>
#include <cstddef>
#include <vector>

class Observable;

/// Somebody who wants to know when an observable changes.
/// Owner: an observer that dies leaves every observable that it is registered with.
class Q_DECL_EXPORT IObserver {
public:
    IObserver() = default;
    IObserver(const IObserver&) = delete; // a registration belongs to one object
    IObserver& operator=(const IObserver&) = delete;
    virtual ~IObserver();

    /// `subject` has changed in the way that `code` says.
    /// Thread: the one that made the change, inside its call.
    virtual void Update(Observable* subject, TChangeCode code) = 0;

private:
    friend class Observable;
    std::vector<Observable*> m_subjects; // one entry per observable, whatever its count of registrations
};

/// Something whose changes can be observed.
/// Thread: registrations, notification and destruction of one observable and its observers happen in one
/// thread. Owner:  registrations do not own; whoever dies first, observer or observable, takes the
/// registration along.
class Q_DECL_EXPORT Observable {
public:
    Observable() = default;
    Observable(const Observable&) = delete; // observers watch one object
    Observable& operator=(const Observable&) = delete;
    virtual ~Observable();

    /// Registers `observer` behind those already there; each further call adds one to its count. Null:
    /// nothing.
    void AddObserver(IObserver* observer);

    /// Takes one from the count of `observer`; at zero it is not called any more, not even in a running
    /// round. One that is not registered, and null: nothing.
    void RemoveObserver(IObserver* observer);

    /// Moves `observer` to the front. During a notification the new order starts with the next round.
    /// One that is not registered is registered first.
    void MakeFirstObserver(IObserver* observer);

    /// Calls `Update(this, code)` of every observer except `originator`, once each.
    /// Order:  the order of registration. Observers added by a callback wait for the next round; observers
    /// removed
    ///         by one are not called any more; a nested call runs a whole round of its own.
    /// Errors: what an observer throws ends the round and reaches the caller.
    virtual void HasChanged(TChangeCode code, IObserver* originator = nullptr);

    /// Number of different observers.
    [[nodiscard]] std::size_t ObserverCount() const;

private:
    friend class IObserver;
    class Round;
    struct Registration {
        IObserver* observer; // null: removed while a round was running
        std::size_t count;
    };

    Registration* find(const IObserver* observer);
    void drop(Registration& registration);
    void moveToFront(const IObserver* observer);
    void tidyUp();

    std::vector<Registration> m_registrations;
    std::vector<IObserver*> m_wantToBeFirst; // asked for while a round was running
    Round* m_round = nullptr;                // the innermost running round
    bool m_hasGaps = false;                  // some registration is null
};
