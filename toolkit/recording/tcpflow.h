// SPDX-License-Identifier: MIT
#pragma once
// One direction of a TCP connection: its segments in order, and the datagrams in them.
#include "toolkit/recording/datagramsource.h"
#include "toolkit/recording/streamcutter.h"
#include <map>
#include <optional>
#include <span>
#include <tins/tcp_ip/data_tracker.h>

namespace recording {

/// Takes what a flow gives out.
class Delivery {
public:
    Delivery() = default;
    Delivery(const Delivery&) = delete;
    Delivery& operator=(const Delivery&) = delete;
    virtual ~Delivery() = default;

    virtual void deliver(Datagram datagram) = 0;
    virtual void lose(Problem problem) = 0;
    virtual void ignoreStream() = 0; // it ended without a datagram, and none was expected
};

/// A captured segment.
struct Segment {
    std::uint32_t sequence = 0;
    bool begins = false; // SYN
    bool ends = false;   // FIN or RST
    std::span<const std::uint8_t> payload;
    std::uint64_t position = 0; // of the payload in the file
    std::optional<std::int64_t> receivedNs;
};

/// libtins' tracker orders the segments. What is missing in front of too many later ones is given up: the
/// datagrams behind the hole are found again by their magic.
class TcpFlow {
public:
    /// `expected`: the flow is known to carry datagrams, so that bytes which are none are a loss.
    TcpFlow(const Origin& origin, bool expected, Delivery& delivery);

    void take(const Segment& segment);

    /// Gives out what can still be had; a later segment begins anew, at any place of the stream.
    void finish();

    /// Bytes held, bookkeeping included.
    [[nodiscard]] std::size_t waiting() const;

private:
    struct Arrival {
        std::uint64_t position = 0;
        std::optional<std::int64_t> receivedNs;
    };

    void begin(std::uint32_t sequence, bool isFirst);
    void takePayload(std::uint32_t sequence, const Segment& segment);
    void moveInOrder();
    void leaveHole();
    void deliverWhole();
    void report(const Skipped& skipped);
    [[nodiscard]] bool isWanted() const { return m_expected || m_found; }
    [[nodiscard]] std::uint64_t positionOf(std::uint64_t offset) const;
    [[nodiscard]] std::optional<std::int64_t> completed(std::uint64_t offset, std::size_t size) const;

    Origin m_origin;
    bool m_expected;
    bool m_found = false; // a datagram
    Delivery& m_delivery;
    bool m_running = false;
    bool m_closed = false;                        // late copies of old segments do not begin the stream again
    std::optional<std::uint32_t> m_firstSequence; // of the connection, where its SYN was captured
    Tins::TCPIP::DataTracker m_tracker;
    StreamCutter m_cutter{StreamCutter::Start::Anywhere};
    std::uint64_t m_next = 0;     // offset in the stream of the first byte that is not in order yet
    std::size_t m_outOfOrder = 0; // bytes that wait behind a hole
    std::map<std::uint64_t, Arrival> m_arrivals; // by offset of the segment
    std::optional<std::uint64_t> m_skippedFrom;  // in the file, of what the cutter skips at present
};

} // namespace recording
