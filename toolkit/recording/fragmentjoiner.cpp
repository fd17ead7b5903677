// SPDX-License-Identifier: MIT
#include "toolkit/recording/fragmentjoiner.h"
#include <algorithm>
#include <tins/ip.h>
#include <tins/rawpdu.h>

namespace recording {
namespace {

// More than a receiver has under way at once, little enough to hold: 64 packets of at most 64 KiB.
constexpr std::size_t maxPending = 64;
constexpr std::size_t maxWaiting = 16U << 20U;
constexpr std::int64_t maxAgeNs = 30'000'000'000; // as operating systems do
constexpr std::uint8_t untouched = 253;           // a protocol number whose payload libtins leaves as it is

} // namespace

std::optional<Joined> FragmentJoiner::add(const Fragment& fragment)
{
    if (fragment.offset == 0 && !fragment.moreFollow)
        return Joined{fragment.payload, fragment.position, fragment.position, fragment.payload.size()};
    giveUpOlderThan(fragment.receivedNs);
    const Order::iterator pending = pendingOf(fragment);
    Joined& known = pending->known;
    known.bytes += fragment.payload.size();
    m_waiting += fragment.payload.size();
    if (fragment.offset == 0) {
        known.position = fragment.position;
        known.payload.assign(fragment.payload.begin(),
                             fragment.payload.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(
                                                            8, fragment.payload.size())));
    }
    // libtins joins IPv4 only, and tells packets apart by number and addresses whatever direction and
    // protocol. So each packet gets addresses of its own here, which also serves IPv6.
    Tins::IP packet{Tins::IPv4Address{pending->token}, Tins::IPv4Address{}};
    packet.inner_pdu(Tins::RawPDU{fragment.payload.begin(), fragment.payload.end()});
    packet.id(0);
    packet.protocol(untouched);
    packet.fragment_offset(static_cast<std::uint16_t>(fragment.offset / 8));
    if (fragment.moreFollow)
        packet.flags(Tins::IP::MORE_FRAGMENTS);
    if (m_reassembler.process(packet) == Tins::IPv4Reassembler::REASSEMBLED) {
        Joined whole = std::move(known);
        forget(pending);
        whole.payload = packet.rfind_pdu<Tins::RawPDU>().payload();
        return whole;
    }
    while (m_order.size() > maxPending || m_waiting > maxWaiting)
        giveUpOldest();
    return std::nullopt;
}

FragmentJoiner::Order::iterator FragmentJoiner::pendingOf(const Fragment& fragment)
{
    const auto [entry, isNew] = m_pending.try_emplace(fragment.key);
    if (isNew) {
        Pending pending{fragment.key, ++m_lastToken, {}, fragment.receivedNs};
        pending.known.firstSeen = fragment.position;
        entry->second = m_order.insert(m_order.end(), std::move(pending));
    }
    return entry->second;
}

void FragmentJoiner::giveUpOlderThan(std::optional<std::int64_t> now)
{
    // Numbers are used again after 65,536 packets; an old fragment must not end up in a new packet.
    std::int64_t limit = 0;
    if (!now || __builtin_sub_overflow(*now, maxAgeNs, &limit))
        return;
    while (!m_order.empty() && m_order.front().since && *m_order.front().since < limit)
        giveUpOldest();
}

void FragmentJoiner::giveUpOldest()
{
    const Order::iterator oldest = m_order.begin();
    m_reassembler.remove_stream(0, Tins::IPv4Address{oldest->token}, Tins::IPv4Address{});
    m_onLoss(oldest->key, oldest->known);
    forget(oldest);
}

void FragmentJoiner::finish()
{
    while (!m_order.empty())
        giveUpOldest();
}

void FragmentJoiner::forget(Order::iterator pending)
{
    m_waiting -= pending->known.bytes;
    m_pending.erase(pending->key);
    m_order.erase(pending);
}

} // namespace recording
