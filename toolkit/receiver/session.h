// SPDX-License-Identifier: MIT
#pragma once
// A session: everything between a source of datagrams and the maps and values that people look at.
#include "devicecontrol/vk410protocol/mdpdfpscan.h"
#include "devicecontrol/vk410protocol/mdpifpan.h"
#include "devicecontrol/vk410protocol/mdpzerospan.h"
#include "devicecontrol/vk410protocol/scanrange.h"
#include "devicecontrol/vk410protocol/vk410processor.h"
#include "toolkit/ledger/ledger.h"
#include "toolkit/receiver/receivervalues.h"
#include "toolkit/receiver/scanrangespec.h"
#include "toolkit/receiver/source.h"
#include <QElapsedTimer>
#include <QObject>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace receiver {

/// What a session does by default; each can be changed.
struct SessionOptions {
    unsigned int ifPanoramaTag = 501;
    unsigned int zeroSpanTag = 1801;
    unsigned int dfScanTag = 5301;
    bool ignoreChannel = true; // all channels of the receiver go to the one set of maps

    // The answers of the IF panorama processor's configuration.
    bool spanFollowedDuringSearch = false;
    bool endOfSearchNotified = false;
    bool useDeviceTimestamp = true;
    bool simulateMSearch = false;
    bool useDfBearingMapPath = false; // below KRT lies the DF spectrum map
    bool dfForcedOn = false;
    bool followAfc = false;
    bool hasBearingMap = true;

    // Which processor takes direction-finding scans, and what the receiver scans; if that is empty, what the
    // source says. Without scan ranges such scans are not accepted; with them, the receiver's mode is set to
    // a direction-finding scan.
    enum class DfProcessor { Scan, Scif };
    DfProcessor df = DfProcessor::Scan;
    ScanRangeContainer scanRanges{};
    std::vector<ExcludedRange> excluded{}; // from direction finding; more may come as values
};

/// What is going on, for a status line.
struct Status {
    std::string source;
    std::string state;
    std::string silence; // what to look at when nothing arrives
    double centreHz = 0;
    double spanHz = 0;
    unsigned int channels = 0;
    unsigned int dfChannels = 0; // of the direction finder's scan ranges
    quint64 dfSweeps = 0;        // of direction-finding scans so far
    quint64 traces = 0;          // IF panorama traces so far
    quint64 datagrams = 0;
    quint64 bytes = 0;
    double ageSeconds = -1; // since the last datagram; negative: none yet
};

/// Owner:  values, maps, fillers, processors, dispatcher and ledger; the source is given.
/// Thread: that of the event loop.
class Session : public QObject {
    Q_OBJECT

public:
    /// Told about every datagram before it is processed, with its bytes as they were received.
    using Tap = std::function<void(const Received&)>;

    explicit Session(const SessionOptions& options = {});
    ~Session() override;

    /// Takes the source over and starts it.
    /// Errors: as `Source::start`.
    void run(std::unique_ptr<Source> source);

    /// Processes one datagram, as the source does.
    /// Errors: none; what a map refuses, and what there is no memory for, counts as "map rejected".
    void take(Received received);

    /// Adds a listener in front of the library: a recorder.
    void addTap(Tap tap);

    [[nodiscard]] Source* source() { return m_source.get(); }
    [[nodiscard]] ReceiverValues& values() { return m_values; }
    [[nodiscard]] MdpIfpan& ifPanorama() { return *m_ifpan; }
    [[nodiscard]] Status status() const;

    /// When the last datagram was received: ns since 1970, of a recording its own; 0: none yet.
    [[nodiscard]] qint64 lastReceivedNs() const { return m_lastReceivedNs; }

    /// Datagrams that are missing before the one that is processed now, or was last.
    [[nodiscard]] quint64 lostOnTheWire() const { return m_lostOnTheWire; }

    /// The processor of direction-finding scans, for its signals; null where the SCIF variant takes them.
    [[nodiscard]] MdpDFPScan* dfScan() { return dynamic_cast<MdpDFPScan*>(m_df.get()); }

    /// Tells the processor of direction-finding scans what the receiver scans now.
    void setScanRanges(const ScanRangeContainer& ranges);

    /// The ledger, with what the source knows brought in.
    [[nodiscard]] ledger::Ledger& ledger();

    /// A number that is the same for the same contents of all maps: grids and values, not stamps.
    [[nodiscard]] quint64 mapHash() const;

signals:
    void said(const QString& text);
    void finished();

private:
    void process(Received& received);
    void registerProcessors(const SessionOptions& options);
    void registerDfProcessor(const SessionOptions& options);
    void exclude(const ExcludedRange& range);
    void beginDfScan(const ScanRangeContainer& ranges);

    ledger::Ledger m_ledger;
    ReceiverValues m_values;
    std::unique_ptr<MdpIfpan> m_ifpan;
    std::unique_ptr<MdpZeroSpan> m_zeroSpan;
    std::unique_ptr<IMassDataProcessor> m_df;
    std::function<void(const ScanRangeContainer&)> m_takeScanRanges; // of m_df
    bool m_hasScanRanges = false;
    VK410Processor m_dispatcher;
    std::vector<Tap> m_taps;
    std::unique_ptr<Source> m_source; // goes first: it feeds the others
    QElapsedTimer m_sinceLast;
    qint64 m_lastReceivedNs = 0;
    quint64 m_lostOnTheWire = 0;
    quint64 m_traces = 0;
};

} // namespace receiver
