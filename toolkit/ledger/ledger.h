// SPDX-License-Identifier: MIT
#pragma once
// The loss ledger: one set of counters with the same names in status lines, on the page and in metrics.
#include "devicecontrol/vk410protocol/massdataobserver.h"
#include "toolkit/ledger/sequencetracker.h"
#include <QtGlobal>
#include <array>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace ledger {

/// Every datagram and attribute, accounted for.
/// For datagrams: received = valid + invalid. For attributes: met = delivered + unknown tag + unrouted +
/// selector errors + truncated + not accepted. For the bytes of valid datagrams: all = headers + bytes of met
/// attributes + not walked.
struct Counters {
    quint64 datagrams = 0; // received, valid or not
    quint64 bytes = 0;
    quint64 wireLost = 0;
    quint64 wireDuplicates = 0;
    quint64 wireReordered = 0;
    quint64 kernelDropped = 0; // by the system, because the socket's buffer was full
    quint64 framing = 0;       // streams given up at an impossible length
    quint64 invalid = 0;       // no magic
    quint64 selectorErrors = 0;
    quint64 truncated = 0;
    quint64 unknownTag = 0;
    quint64 unrouted = 0;
    quint64 notAccepted = 0;
    quint64 delivered = 0;
    quint64 mapWrites = 0;
    quint64 mapRejected = 0;
    quint64 viewerSkipped = 0;
    quint64 recorderSkipped = 0;
    quint64 mirrorDisconnected = 0;
    quint64 attributes = 0;     // met by the walk
    quint64 attributeBytes = 0; // of those
    quint64 bytesNotWalked = 0;
    quint64 headerBytes = 0; // of valid datagrams, 16 each
    quint64 validBytes = 0;  // of valid datagrams, whole

    /// Whether the sums above hold.
    [[nodiscard]] bool balances() const;

    /// Datagrams and attributes that were sent and did not arrive in a map, for whatever reason.
    [[nodiscard]] quint64 losses() const;
};

/// One line of the ledger for people and machines.
struct Line {
    std::string_view name;       // as on the page: "wire lost"
    std::string_view metric;     // as in metrics: "wire_lost"
    std::string_view definition; // what it counts, and what helps
    quint64 Counters::*counter;
    bool isLoss;
};

/// All lines, in the order of a datagram's way.
[[nodiscard]] const std::vector<Line>& lines();

/// Fills the counters from what the library tells.
/// Thread: that of the dispatcher; others get copies of the counters.
class Ledger : public IMassDataObserver {
public:
    void DatagramDone(const DatagramReport& report) override;
    void AttributeDone(const AttributeReport& report) override;
    void AttributeNotAccepted(const char* reason) override;
    void StreamBroken(quint32 claimedLength) override;
    void MirrorClientCut(qint64 waiting) override;

    /// What sources, maps, recorder and page count themselves: the total so far.
    void setKernelDropped(quint64 total) { m_counters.kernelDropped = total; }
    void mapWritten() { ++m_counters.mapWrites; }
    void mapRejected() { ++m_counters.mapRejected; }
    void setViewerSkipped(quint64 total) { m_counters.viewerSkipped = total; }
    void setRecorderSkipped(quint64 total) { m_counters.recorderSkipped = total; }

    /// The next datagram comes from another sender, or from one that began anew.
    void restartSequence() { m_sequence.restart(); }

    /// Nothing came for a while before the next datagram: its sender may have begun anew meanwhile.
    void followSilence() { m_sequence.followSilence(); }

    [[nodiscard]] Counters counters() const;

    /// Datagrams lost on the wire, when the next one has this number.
    [[nodiscard]] quint64 lostBefore(quint16 sequence) const
    {
        return m_sequence.lost() + m_sequence.gapBefore(sequence);
    }

    /// Attributes that a processor dropped, by its reason.
    [[nodiscard]] const std::map<std::string, quint64>& notAcceptedByReason() const { return m_reasons; }

    /// Attributes without a processor and with unknown tags, by tag.
    [[nodiscard]] const std::map<quint16, quint64>& unroutedByTag() const { return m_unroutedByTag; }

private:
    Counters m_counters;
    SequenceTracker m_sequence;
    std::map<std::string, quint64> m_reasons;
    std::map<quint16, quint64> m_unroutedByTag; // at most one entry per 16-bit tag
};

/// One status line: "wire lost 2 | unrouted 3", losses only; "no losses".
[[nodiscard]] std::string lossText(const Counters& counters);

/// The whole ledger, one counter a line, with what is not accepted and unrouted in detail.
[[nodiscard]] std::string reportText(const Ledger& ledger);

/// The counters in Prometheus's text format.
[[nodiscard]] std::string metricsText(const Counters& counters);

} // namespace ledger
