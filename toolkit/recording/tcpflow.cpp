// SPDX-License-Identifier: MIT
#include "toolkit/recording/tcpflow.h"
#include <algorithm>
#include <fmt/format.h>
#include <iterator>
#include <utility>

namespace recording {
namespace {

// A receiver's window: what can be under way behind a lost segment.
constexpr std::size_t maxOutOfOrderBytes = 4U << 20U;
constexpr std::size_t maxOutOfOrderSegments = 1024;
constexpr std::size_t arrivalSize = 64; // a node of the map

} // namespace

TcpFlow::TcpFlow(const Origin& origin, bool expected, Delivery& delivery)
    : m_origin(origin)
    , m_expected(expected)
    , m_delivery(delivery)
{}

void TcpFlow::take(const Segment& segment)
{
    const std::uint32_t sequence = segment.sequence + (segment.begins ? 1 : 0); // SYN counts as one byte
    if (segment.begins && m_firstSequence != sequence) {
        finish(); // the same ports, another connection
        begin(sequence, true);
        m_firstSequence = sequence;
    }
    if (m_closed)
        return;
    if (!m_running && !segment.payload.empty())
        begin(sequence, false);
    if (!segment.payload.empty())
        takePayload(sequence, segment);
    while (m_outOfOrder > maxOutOfOrderBytes || m_tracker.buffered_payload().size() > maxOutOfOrderSegments)
        leaveHole();
    const auto size = static_cast<std::uint32_t>(segment.payload.size());
    if (m_running && segment.ends && sequence + size == m_tracker.sequence_number()) {
        finish();
        m_closed = true;
    }
}

void TcpFlow::takePayload(std::uint32_t sequence, const Segment& segment)
{
    const auto ahead = static_cast<std::int32_t>(sequence - m_tracker.sequence_number());
    const std::int64_t known = ahead < 0 ? -std::int64_t{ahead} : 0; // bytes that came before
    if (known >= static_cast<std::int64_t>(segment.payload.size()))
        return;
    // Of copies the first one counts.
    m_arrivals.try_emplace(m_next + static_cast<std::uint64_t>(std::int64_t{ahead} + known),
                           Arrival{segment.position + static_cast<std::uint64_t>(known), segment.receivedNs});
    m_tracker.process_payload(sequence, {segment.payload.begin(), segment.payload.end()});
    moveInOrder();
}

void TcpFlow::begin(std::uint32_t sequence, bool isFirst)
{
    m_running = true;
    m_closed = false;
    m_tracker = Tins::TCPIP::DataTracker{sequence};
    // Without the connection's first segment the capture may begin anywhere inside a datagram.
    const bool fromStart = isFirst && m_expected;
    m_cutter = StreamCutter{fromStart ? StreamCutter::Start::AtDatagram : StreamCutter::Start::Anywhere};
    m_next = 0;
    m_outOfOrder = 0;
    m_arrivals.clear();
}

// Hands the tracker's bytes on, as far as they are in order.
void TcpFlow::moveInOrder()
{
    m_cutter.append(m_tracker.payload());
    m_next += m_tracker.payload().size();
    m_tracker.payload().clear();
    m_outOfOrder = 0;
    for (const auto& [sequence, payload] : m_tracker.buffered_payload())
        m_outOfOrder += payload.size();
    deliverWhole();
}

// Gives up the bytes that are missing in front of the nearest segment that waits.
void TcpFlow::leaveHole()
{
    const std::uint32_t here = m_tracker.sequence_number();
    const std::size_t before = m_tracker.buffered_payload().size();
    std::uint32_t missing = UINT32_MAX;
    for (const auto& [sequence, payload] : m_tracker.buffered_payload())
        missing = std::min(missing, sequence - here);
    m_cutter.end();
    deliverWhole();
    m_next += missing;
    const Skipped rest = m_cutter.restart(m_next);
    if (isWanted()) {
        report(rest);
        m_delivery.lose({positionOf(m_next), fmt::format("the next segment of {}", text(m_origin)),
                         fmt::format("one {} bytes behind it", missing), "the bytes between are missing"});
    }
    m_tracker.sequence_number(here + missing); // advance_sequence() would drop what waits exactly there
    m_tracker.process_payload(here + missing, {});
    if (m_tracker.buffered_payload().size() >= before)
        m_tracker.buffered_payload().clear(); // never seen; an endless loop would be worse
    moveInOrder();
}

void TcpFlow::finish()
{
    if (!m_running)
        return;
    while (m_outOfOrder > 0)
        leaveHole();
    m_cutter.end();
    deliverWhole();
    const Skipped rest = m_cutter.restart(m_next);
    if (isWanted())
        report(rest);
    else
        m_delivery.ignoreStream();
    m_arrivals.clear();
    m_running = false;
}

void TcpFlow::deliverWhole()
{
    while (std::optional<Cut> cut = m_cutter.next()) {
        m_found = true;
        report(cut->before);
        const auto size = static_cast<std::size_t>(cut->bytes.size());
        m_delivery.deliver(
            {std::move(cut->bytes), positionOf(cut->offset), completed(cut->offset, size), m_origin});
    }
    if (m_cutter.skipped().size > 0 && !m_skippedFrom)
        m_skippedFrom = positionOf(m_cutter.skipped().offset);
    // The segment that the cutter stands in is still needed.
    const auto behind = m_arrivals.upper_bound(m_cutter.offset());
    if (behind != m_arrivals.begin())
        m_arrivals.erase(m_arrivals.begin(), std::prev(behind));
}

void TcpFlow::report(const Skipped& skipped)
{
    const std::optional<std::uint64_t> from = std::exchange(m_skippedFrom, std::nullopt);
    if (skipped.size == 0)
        return;
    const std::uint64_t position = from.value_or(positionOf(skipped.offset));
    const std::string where = fmt::format(" in {}", text(m_origin));
    if (skipped.datagramSize)
        m_delivery.lose({position, fmt::format("a datagram of {} bytes{}", *skipped.datagramSize, where),
                         std::to_string(skipped.size), "not delivered"});
    else
        m_delivery.lose({position, "a datagram" + where,
                         fmt::format("{} bytes that are no whole one", skipped.size), "not delivered"});
}

std::uint64_t TcpFlow::positionOf(std::uint64_t offset) const
{
    const auto behind = m_arrivals.upper_bound(offset);
    if (behind == m_arrivals.begin())
        return 0;
    const auto& [begin, arrival] = *std::prev(behind);
    return arrival.position + (offset - begin);
}

std::optional<std::int64_t> TcpFlow::completed(std::uint64_t offset, std::size_t size) const
{
    auto arrival = m_arrivals.upper_bound(offset);
    if (arrival != m_arrivals.begin())
        --arrival;
    std::optional<std::int64_t> last;
    for (; arrival != m_arrivals.end() && arrival->first < offset + size; ++arrival)
        last = std::max(last, arrival->second.receivedNs);
    return last;
}

std::size_t TcpFlow::waiting() const
{
    return m_outOfOrder + m_cutter.waiting() + m_arrivals.size() * arrivalSize;
}

} // namespace recording
