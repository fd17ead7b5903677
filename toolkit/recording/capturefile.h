// SPDX-License-Identifier: MIT
#pragma once
// A pcap or pcapng file as a sequence of packets; libpcap reads it.
#include "toolkit/recording/recording.h"
#include "wire/view.h"
#include <memory>

using pcap_t = struct pcap;

namespace recording {

/// One captured packet.
struct Packet {
    wire::View bytes;                       // valid until the next one is read
    std::uint64_t position = 0;             // of its first byte in the file
    std::uint32_t originalSize = 0;         // on the network; the capture may have kept less
    std::optional<std::int64_t> receivedNs; // absent where the file's number is out of range

    [[nodiscard]] bool isCut() const { return bytes.size() < originalSize; }
};

class CaptureFile {
public:
    /// Errors: BadFile when this is no capture.
    CaptureFile(FilePtr file, std::string name);

    [[nodiscard]] const std::string& name() const { return m_name; }

    /// The kind of all packets, one of libpcap's DLT_ numbers.
    [[nodiscard]] int linkType() const;

    /// The next packet; nothing at the end.
    /// Errors: BadFile when the file ends inside a packet, or is no capture from here on.
    [[nodiscard]] std::optional<Packet> next();

private:
    struct Closer {
        void operator()(pcap_t* capture) const;
    };

    // What libpcap does not tell about a packet.
    struct Record {
        std::uint64_t position;
        bool hasTime;
    };
    [[nodiscard]] Record recordOf(std::uint32_t size) const;

    std::string m_name;
    std::uint64_t m_fileSize = 0;
    wire::ByteOrder m_order = wire::ByteOrder::Little; // pcapng only
    bool m_isNextGeneration = false;
    std::unique_ptr<pcap_t, Closer> m_capture;
    std::FILE* m_file = nullptr; // of m_capture
    std::uint64_t m_end = 0;     // of what was read
};

} // namespace recording
