// SPDX-License-Identifier: MIT
#pragma once
// The datagrams of a capture: UDP payloads, and those cut from TCP streams.
#include "toolkit/recording/capturefile.h"
#include "toolkit/recording/fragmentjoiner.h"
#include "toolkit/recording/tcpflow.h"
#include <deque>
#include <map>

namespace Tins {
class IP;
class IPv6;
class TCP;
class UDP;
} // namespace Tins

namespace recording {

/// Memory is bounded whatever the capture holds: by the limits of fragments and TCP flows, of which there are
/// few.
class CaptureSource : public DatagramSource, private Delivery {
public:
    /// Errors: BadFile when this is no capture, or one of packets that cannot be taken apart.
    CaptureSource(FilePtr file, const std::string& name, const Options& options);

    std::optional<Datagram> next() override;
    [[nodiscard]] Ignored ignored() const override;

private:
    // Where a piece of a packet lies, and when it came.
    struct Place {
        std::uint64_t position = 0;
        std::optional<std::int64_t> receivedNs;
    };
    struct Flow {
        TcpFlow tcp;
        std::uint64_t lastUse = 0;
    };

    void deliver(Datagram datagram) override { m_ready.push_back(std::move(datagram)); }
    void lose(Problem problem) override { tell(problem); }
    void ignoreStream() override { ++m_ignored.tcpStreams; }

    void readMore();
    void endOfFile();
    void take(const Packet& packet);
    void takeIp(const Tins::IP& ip, Place payload);
    void takeIpv6(const Tins::IPv6& ip, const Packet& packet, std::size_t payloadOffset);
    void takeFragment(const Fragment& fragment);
    void takeTransport(const Tins::PDU* layer, Origin origin, Place place);
    void ignorePort(const Origin& origin);
    void takeUdp(const Tins::UDP& udp, const Origin& origin, Place payload);
    void takeTcp(const Tins::TCP& tcp, const Origin& origin, Place payload);
    void lostFragments(const FragmentKey& key, const Joined& pieces);
    Flow& flowOf(const Origin& origin);
    template <typename Less>
    void finishOne(Less less);
    [[nodiscard]] bool isWanted(std::uint16_t from, std::uint16_t to) const;

    CaptureFile m_capture;
    Options m_options;
    std::deque<Datagram> m_ready;
    std::optional<BadFile> m_bad; // thrown when all before it was given out
    bool m_ended = false;
    FragmentJoiner m_fragments;
    std::map<Origin, Flow> m_flows;
    std::uint64_t m_uses = 0;
    std::size_t m_waiting = 0; // of all flows
    Ignored m_ignored;
    std::map<std::uint16_t, std::uint64_t> m_otherPorts; // packets, by the port that sends or takes data
};

} // namespace recording
