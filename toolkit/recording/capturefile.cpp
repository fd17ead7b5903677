// SPDX-License-Identifier: MIT
#include "toolkit/recording/capturefile.h"
#include <array>
#include <fmt/format.h>
#include <pcap/pcap.h>

namespace recording {
namespace {

namespace pcapng {
// |type|length| section: |byte order| ... |length|      packet: |20 bytes| data, padded to 4 | options
// |length|
constexpr std::uint32_t sectionType = 0x0A0D0D0A;
constexpr wire::Field<std::uint32_t> byteOrder{8};
constexpr std::uint32_t byteOrderMagic = 0x1A2B3C4D;
constexpr std::uint32_t packetDataOffset = 28;
constexpr std::uint32_t simpleDataOffset = 12;
constexpr std::uint32_t trailerSize = 4;
} // namespace pcapng

constexpr std::int64_t nsPerSecond = 1'000'000'000;

std::optional<std::int64_t> nanoseconds(const timeval& time)
{
    std::int64_t ns = 0;
    // The file was opened with nanoseconds, which libpcap puts where the microseconds used to be.
    if (__builtin_mul_overflow(std::int64_t{time.tv_sec}, nsPerSecond, &ns) ||
        __builtin_add_overflow(ns, std::int64_t{time.tv_usec}, &ns))
        return std::nullopt;
    return ns;
}

std::uint64_t positionIn(std::FILE* file)
{
    const off_t position = ::ftello(file);
    return position < 0 ? 0 : static_cast<std::uint64_t>(position);
}

} // namespace

void CaptureFile::Closer::operator()(pcap_t* capture) const
{
    ::pcap_close(capture);
}

CaptureFile::CaptureFile(FilePtr file, std::string name)
    : m_name(std::move(name))
{
    std::array<unsigned char, 12> first{};
    const std::size_t there = std::fread(first.data(), 1, first.size(), file.get());
    const wire::View header{first.data(), there};
    m_isNextGeneration = header.get(wire::Field<std::uint32_t>{0}) == pcapng::sectionType;
    if (header.get(pcapng::byteOrder) == pcapng::byteOrderMagic)
        m_order = wire::ByteOrder::Big;
    ::fseeko(file.get(), 0, SEEK_END);
    m_fileSize = positionIn(file.get());
    std::rewind(file.get());

    std::array<char, PCAP_ERRBUF_SIZE> why{};
    m_capture.reset(
        ::pcap_fopen_offline_with_tstamp_precision(file.get(), PCAP_TSTAMP_PRECISION_NANO, why.data()));
    if (!m_capture)
        throw BadFile{m_name, {0, "a pcap or pcapng capture", why.data(), {}}};
    m_file = file.release(); // closed with the capture
    m_end = positionIn(m_file);
}

int CaptureFile::linkType() const
{
    return ::pcap_datalink(m_capture.get());
}

std::optional<Packet> CaptureFile::next()
{
    pcap_pkthdr* header = nullptr;
    const unsigned char* data = nullptr;
    const int result = ::pcap_next_ex(m_capture.get(), &header, &data);
    if (result == PCAP_ERROR_BREAK)
        return std::nullopt;
    if (result != 1) {
        const std::string expected = fmt::format("a whole packet record in the {} bytes to the file's end",
                                                 m_fileSize > m_end ? m_fileSize - m_end : 0);
        throw BadFile{m_name, {m_end, expected, ::pcap_geterr(m_capture.get()), {}}};
    }
    m_end = positionIn(m_file);
    Packet packet;
    packet.bytes = wire::View{data, header->caplen};
    const Record record = recordOf(header->caplen);
    packet.position = record.position;
    packet.originalSize = header->len;
    if (record.hasTime)
        packet.receivedNs = nanoseconds(header->ts);
    return packet;
}

// In pcap the packet's bytes end the record; in pcapng the block's length stands behind them, and a simple
// block is shorter and has no time.
CaptureFile::Record CaptureFile::recordOf(std::uint32_t size) const
{
    if (!m_isNextGeneration)
        return {m_end - size, true};
    std::array<unsigned char, pcapng::trailerSize> trailer{};
    ::fseeko(m_file, static_cast<off_t>(m_end - trailer.size()), SEEK_SET); // inside stdio's buffer
    if (std::fread(trailer.data(), 1, trailer.size(), m_file) != trailer.size())
        return {m_end - size, true};
    const std::uint32_t padded = (size + 3) / 4 * 4;
    const auto length = wire::load<std::uint32_t>(trailer.data(), m_order);
    const bool isSimple = length == pcapng::simpleDataOffset + padded + pcapng::trailerSize;
    return {m_end - length + (isSimple ? pcapng::simpleDataOffset : pcapng::packetDataOffset), !isSimple};
}

} // namespace recording
