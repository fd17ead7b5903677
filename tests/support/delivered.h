// SPDX-License-Identifier: MIT
#pragma once
// What a processor was handed, in a form that two decoders can be compared by.
#include "devicecontrol/vk410protocol/massdataprocessor.h"
#include "devicecontrol/vk410protocol/udpdatagram.h"
#include "devicecontrol/vk410protocol/vk410processor.h"
#include "wire/datagramwriter.h"
#include <cstdint>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace support {

/// One delivered attribute. Positions count from the attribute's first byte.
struct Delivered {
    unsigned tag = 0;
    unsigned channel = 0;
    std::uint32_t count = 0;
    std::uint32_t selectors = 0;
    bool optHeaderAvailable = false;
    std::string optHeader;                                   // hex, at most 80 bytes of it
    std::map<std::string, std::vector<std::int64_t>> fields; // by name; tag 401: position of the bytes
    std::int64_t dataEnd = -1;                               // -1: null

    bool operator==(const Delivered&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Delivered& delivered);

/// Keeps everything that it is handed.
class RecordingProcessor : public IMassDataProcessor {
public:
    void SetAttribute(DataPointers* data, UdpDatagramAttribute* attribute, bool optHeaderAvailable) override;
    std::vector<Delivered> delivered;
};

/// A dispatcher that ignores channels, with one recording processor on every known tag.
class RecordingDispatcher {
public:
    explicit RecordingDispatcher(bool ignoreChannel = true);
    /// What the datagram `bytes` delivers. The bytes lie in an array with exactly the two spare bytes behind
    /// them.
    std::vector<Delivered> process(const wire::Bytes& bytes);
    VK410Processor dispatcher;
    RecordingProcessor recorder;
};

/// `bytes` as the reader takes them, with room for its two spare bytes.
std::unique_ptr<QByteArray> received(const wire::Bytes& bytes);

/// Copies items of type T from an address that needs no alignment.
template <typename T>
std::vector<T> copied(const void* items, std::size_t count)
{
    std::vector<T> values(count);
    if (count != 0)
        std::memcpy(values.data(), items, count * sizeof(T));
    return values;
}

std::string hex(const unsigned char* bytes, std::size_t size);

} // namespace support
