// SPDX-License-Identifier: MIT
#pragma once
// Puts fragmented IP packets together; libtins does it, this bounds what it keeps.
#include "toolkit/recording/origin.h"
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <tins/ip_reassembler.h>
#include <tuple>
#include <vector>

namespace recording {

/// Which packet a fragment is of.
struct FragmentKey {
    Endpoint from; // ports: 0
    Endpoint to;
    std::uint8_t protocol = 0;
    std::uint32_t id = 0;

    friend bool operator<(const FragmentKey& a, const FragmentKey& b)
    {
        return std::tie(a.from, a.to, a.protocol, a.id) < std::tie(b.from, b.to, b.protocol, b.id);
    }
};

struct Fragment {
    FragmentKey key;
    std::uint32_t offset = 0; // of its payload in the packet's
    bool moreFollow = false;
    std::vector<std::uint8_t> payload;
    std::uint64_t position = 0; // of the payload in the file
    std::optional<std::int64_t> receivedNs;
};

/// What became whole, or what is given up.
struct Joined {
    std::vector<std::uint8_t> payload; // whole; of a packet that is given up, its first fragment's, if any
    std::optional<std::uint64_t> position; // of the first payload byte; absent: the first fragment is missing
    std::uint64_t firstSeen = 0;           // position of the fragment that came first
    std::size_t bytes = 0;                 // received of it
};

/// A packet that does not become whole is given up after 30 s, or when too many wait, the oldest first.
class FragmentJoiner {
public:
    using LossHandler = std::function<void(const FragmentKey&, const Joined&)>;

    explicit FragmentJoiner(LossHandler onLoss)
        : m_onLoss(std::move(onLoss))
    {}

    /// Result: the whole packet's payload, when this was its last missing fragment.
    [[nodiscard]] std::optional<Joined> add(const Fragment& fragment);

    /// Gives up all that wait.
    void finish();

    /// Bytes held.
    [[nodiscard]] std::size_t waiting() const { return m_waiting; }

private:
    struct Pending {
        FragmentKey key;
        std::uint32_t token = 0;
        Joined known;
        std::optional<std::int64_t> since;
    };
    using Order = std::list<Pending>; // oldest first

    Order::iterator pendingOf(const Fragment& fragment);
    void giveUpOldest();
    void giveUpOlderThan(std::optional<std::int64_t> now);
    void forget(Order::iterator pending);

    LossHandler m_onLoss;
    Tins::IPv4Reassembler m_reassembler;
    Order m_order;
    std::map<FragmentKey, Order::iterator> m_pending;
    std::uint32_t m_lastToken = 0;
    std::size_t m_waiting = 0;
};

} // namespace recording
