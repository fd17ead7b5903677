// SPDX-License-Identifier: MIT
#pragma once
// Programs that connect to a session's mirror and page and behave badly, in a process of their own.
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

class QWebSocket;

namespace soak {

/// Where peers connect to; 0: no such place.
struct Places {
    std::uint16_t mirror = 0;
    std::uint16_t page = 0;
};

/// Comes and goes: readers, clients that stall, that vanish without a word, that reset, close half, talk;
/// viewers that read, that stall, that leave in the middle of a handshake.
/// Thread: one with an event loop, which calls `tick` 50 times a second.
class Peers {
public:
    explicit Peers(const Places& places, unsigned seed);
    Peers(const Peers&) = delete;
    Peers& operator=(const Peers&) = delete;
    ~Peers();

    void tick();

    /// All of them leave.
    void leave();

    /// Connections so far.
    [[nodiscard]] std::uint64_t connections() const { return m_connections; }
    /// Bytes that were read of the mirror, and how often a whole datagram was not where it had to be.
    [[nodiscard]] std::uint64_t mirrored() const { return m_mirrored; }
    [[nodiscard]] std::uint64_t misframed() const { return m_misframed; }

private:
    struct Kind;
    struct Peer;
    struct Viewer;
    static const std::vector<Kind>& kinds();

    void open();
    void openViewer();
    void read(Peer& peer);
    void follow(Peer& peer, const unsigned char* bytes, std::size_t size);
    void act(Viewer& viewer);
    [[nodiscard]] unsigned below(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }

    Places m_places;
    std::mt19937 m_random;
    std::vector<std::unique_ptr<Peer>> m_peers;
    std::vector<std::unique_ptr<Viewer>> m_viewers;
    std::uint64_t m_connections = 0;
    std::uint64_t m_mirrored = 0;
    std::uint64_t m_misframed = 0;
    unsigned m_nextKind = 0;
};

/// Runs peers as the standard input says, a line each: "go", "rest" (answered with "resting"), and its end.
/// Result: an exit code; 1: a mirror client did not get whole datagrams.
int runPeers(const Places& places, unsigned seed);

} // namespace soak
