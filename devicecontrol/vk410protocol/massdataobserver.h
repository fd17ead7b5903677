// SPDX-License-Identifier: MIT
#pragma once
// What became of the received data. The library drops bad and unrouted data silently; whoever must speak
// about it - a ledger, an inspector - is told here.
#include <QString>
#include <QtGlobal>

/// What became of one attribute.
enum class AttributeOutcome {
    Dispatched,    // handed to its processor
    UnknownTag,    // not one of the known tags
    Unrouted,      // no processor is registered for its tag and channel
    SelectorError, // the selector word was refused; the rest of the datagram is dropped with it
    Truncated,     // its optional header or a selected field would leave the datagram; the walk ends
};

/// One attribute that the walk has met.
struct AttributeReport {
    AttributeOutcome outcome; // what became of it
    quint16 tag;              // known or not
    quint32 channel;          // as received, before the dispatcher's own choice of a key
    quint32 offset;           // of its header, from the start of the datagram
    quint32 size;             // bytes that the walk steps over for it, inside the datagram
    QString reason;           // text of the selector error, otherwise empty
};

/// One datagram, told after its last attribute.
/// For a valid datagram of 16 bytes and more, header (16) + sizes of all reported attributes +
/// `bytesNotWalked` = `size`.
struct DatagramReport {
    quint32 size;           // bytes received
    bool valid;             // good magic
    bool hasSequence;       // at least ten bytes
    quint16 sequence;       // 0 when there is none
    quint32 bytesNotWalked; // behind the place where the walk ended
};

/// Told the outcome of every datagram and attribute, in the order of the walk.
/// Owner:  borrowed by whoever reports; it must outlive them or be taken away with a null.
/// Thread: that of the dispatcher or reader which reports, inside the call; it must not throw.
class Q_DECL_EXPORT IMassDataObserver {
public:
    IMassDataObserver() = default;
    IMassDataObserver(const IMassDataObserver&) = default;
    IMassDataObserver& operator=(const IMassDataObserver&) = default;
    virtual ~IMassDataObserver();

    /// A datagram is through.
    virtual void DatagramDone(const DatagramReport& report) = 0;

    /// An attribute was met. For a dispatched one this comes before the processor is called.
    virtual void AttributeDone(const AttributeReport& report) = 0;

    /// The processor dropped the attribute that it was just handed; `reason` is a text for people.
    virtual void AttributeNotAccepted(const char* reason) = 0;

    /// A TCP stream was given up at a header whose length cannot be true.
    virtual void StreamBroken(quint32 claimedLength) = 0;

    /// A mirror client was cut because it does not take what is sent; `waiting` bytes were lost to it.
    virtual void MirrorClientCut(qint64 waiting) = 0;
};
