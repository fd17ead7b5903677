// SPDX-License-Identifier: MIT
#pragma once
// The dispatcher: takes received datagrams and hands each attribute to the processor registered for it.
#include "devicecontrol/vk410protocol/massdataprocessor.h"
#include "devicecontrol/vk410protocol/udpdatagram.h"
#include <QObject>
#include <map>
#include <utility>

/// The entry point for received mass data.
/// Owner:  does not own the processors; the routes to one that dies go with it. Datagrams in a queued
///         connection belong to nobody when the dispatcher dies: whoever uses one delivers them before,
///         with `QCoreApplication::sendPostedEvents(dispatcher)` in its thread.
/// Thread: one, that of its event loop. Registration belongs there too, also from inside a processor's
///         `SetAttribute`. From another thread datagrams come over a queued connection, and their ownership
///         with them.
class Q_DECL_EXPORT VK410Processor : public QObject {
    Q_OBJECT

public:
    /// `ignoreChannel`: all attributes are dispatched as channel 0.
    explicit VK410Processor(bool ignoreChannel);
    ~VK410Processor() override;

    /// Routes (`tag`, `channel`) to `processor`. A key that is there already keeps its processor; null:
    /// nothing.
    void RegisterTagProcessor(IMassDataProcessor* processor, TRACE_TAG tag, unsigned int channel);

    /// Takes the route of (`tag`, `channel`) away, if there is one.
    void UnRegisterTagProcessor(TRACE_TAG tag, unsigned int channel);

    /// Forgets the last sequence number: the next datagram starts a new sequence.
    void invalidateSeqNumber() { m_sequenceValid = false; }

    /// Who is told what became of datagrams and attributes; null (the default): nobody.
    void SetMassDataObserver(IMassDataObserver* observer) { m_observer = observer; }

public slots:
    /// Takes the datagram over and processes it; it is destroyed however the call ends. Null: nothing.
    /// Order:  attributes as they lie in the datagram; of each, conversion, then its processor.
    /// Errors: a refused selector word is traced under mask 0x20 and drops the rest of the datagram; what a
    ///         processor throws reaches the caller.
    /// Order:  a call from inside a processor runs whole; the outer record is as before when it returns.
    void ProcessDatagram(UdpDatagram* pDGram);

private:
    friend class IMassDataProcessor;
    class Processing;

    void forget(const IMassDataProcessor& processor);

    void CheckDatagramLost(const UdpDatagram& datagram);
    bool convert(UdpDatagram& datagram);
    [[nodiscard]] IMassDataProcessor* processorFor(const UdpDatagram& datagram) const;
    void releaseWidened();
    void tell(const UdpDatagram& datagram, AttributeOutcome outcome, const QString& reason = {});
    void tellDatagram(const UdpDatagram& datagram);

    std::map<std::pair<TRACE_TAG, unsigned int>, IMassDataProcessor*> m_registry;
    DataPointers m_fields{};
    bool m_ignoreChannel;
    bool m_sequenceValid = false;
    quint16 m_lastSequence = 0;
    IMassDataObserver* m_observer = nullptr;
    quint32 m_walked =
        0; // bytes of the reported attributes of the current datagram; kept for the observer only
};
