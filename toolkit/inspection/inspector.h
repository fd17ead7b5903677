// SPDX-License-Identifier: MIT
#pragma once
// Lets the protocol library read datagrams, and tells what it delivers and drops.
#include "devicecontrol/vk410protocol/vk410processor.h"
#include "toolkit/inspection/inspection.h"
#include <array>
#include <optional>

namespace inspection {

/// A dispatcher with a processor on every known tag; no rule of the library is repeated here.
/// Owner: `sink` is borrowed.
class Inspector : private IMassDataObserver, private IMassDataProcessor {
public:
    explicit Inspector(Sink& sink);

    void inspect(recording::Datagram datagram);

    /// Counts a datagram without reading it.
    void skip() { ++m_count; }

    /// Datagrams so far.
    [[nodiscard]] std::uint64_t count() const { return m_count; }

    /// Whether everything that was read was delivered, except for unknown tags.
    [[nodiscard]] bool allSound() const { return m_allSound; }

private:
    static constexpr std::size_t maxFields = 24;

    void DatagramDone(const DatagramReport& report) override;
    void AttributeDone(const AttributeReport& report) override;
    void AttributeNotAccepted(const char* reason) override;
    void StreamBroken(quint32 claimedLength) override;
    void MirrorClientCut(qint64 waiting) override;
    void SetAttribute(DataPointers* data, UdpDatagramAttribute* attribute, bool optHeaderAvailable) override;

    [[nodiscard]] AttributeHeader headerOf(const AttributeReport& report) const;
    [[nodiscard]] std::size_t collectFields(const DataPointers& data);
    [[nodiscard]] std::uint32_t offsetOf(const void* place) const;
    void tellUnknown();
    void tellDrop(const Drop& drop);
    void tellRefused(std::string reason, std::string detail);
    void tellNotWalked(std::uint32_t upTo, const std::string& why);

    Sink& m_sink;
    VK410Processor m_processor{true};
    std::uint64_t m_count = 0;
    bool m_allSound = true;

    // Of the datagram that is being read:
    wire::View m_converted;
    std::uint32_t m_attributes = 0; // met so far
    std::optional<AttributeHeader> m_last;
    std::uint32_t m_walkedTo = 0;
    bool m_gaveUp = false; // an error has said already why the walk ends
    std::array<FieldInfo, maxFields> m_fields;
};

} // namespace inspection
