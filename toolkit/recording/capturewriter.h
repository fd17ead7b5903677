// SPDX-License-Identifier: MIT
#pragma once
// Writes recordings: ordinary captures (pcap, nanoseconds, raw IP) that Wireshark opens.
#include "toolkit/recording/origin.h"
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>

namespace recording {

/// The file cannot be written; says which, why, and what to do.
struct CannotWrite : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// One capture file. Datagrams of UDP sources become UDP packets, all others TCP segments with running
/// sequence numbers, with the real addresses and ports, so that any length fits. Errors: CannotWrite.
class CaptureWriter {
public:
    explicit CaptureWriter(const std::string& path);
    CaptureWriter(const CaptureWriter&) = delete;
    CaptureWriter& operator=(const CaptureWriter&) = delete;
    ~CaptureWriter();

    /// Appends one datagram as it was received. `receivedNs` counts from 1970, UTC.
    void write(std::span<const unsigned char> datagram, std::int64_t receivedNs, const Origin& origin);

    /// Hands what was written to the system: a process that is killed afterwards leaves it readable.
    void flush();

    /// Bytes of the file so far.
    [[nodiscard]] std::uint64_t size() const { return m_size; }

private:
    struct File;
    void writePacket(std::span<const unsigned char> packet, std::int64_t ns);
    void writeUdp(std::span<const unsigned char> datagram, std::int64_t ns, const Origin& origin);
    void writeTcp(std::span<const unsigned char> datagram, std::int64_t ns, const Origin& origin);

    std::string m_path;
    std::unique_ptr<File> m_file;
    std::map<Origin, std::uint32_t> m_nextSequence; // of each TCP stream; streams are as many as sources
    std::uint64_t m_size = 0;
};

} // namespace recording
