// SPDX-License-Identifier: MIT
#include "toolkit/ledger/ledger.h"
#include "wire/layout.h"

namespace ledger {

bool Counters::balances() const
{
    const quint64 met = delivered + unknownTag + unrouted + selectorErrors + truncated + notAccepted;
    return attributes == met && validBytes == headerBytes + attributeBytes + bytesNotWalked;
}

quint64 Counters::losses() const
{
    quint64 sum = 0;
    for (const Line& line : lines())
        sum += line.isLoss ? this->*line.counter : 0;
    return sum;
}

const std::vector<Line>& lines()
{
    using C = Counters;
    static const std::vector<Line> all{
        {"datagrams", "datagrams", "datagrams received", &C::datagrams, false},
        {"wire lost", "wire_lost",
         "sequence numbers that never came: 'ip -s link' shows what network cards dropped, kernel below "
         "what this machine did",
         &C::wireLost, true},
        {"wire duplicates", "wire_duplicates",
         "datagrams that came twice, by a second route or mirror: 'vk410 record' keeps who sent them",
         &C::wireDuplicates, true},
        {"wire reordered", "wire_reordered",
         "datagrams that came after a later one: 'ip route' shows whether there are several ways",
         &C::wireReordered, true},
        {"kernel", "kernel_dropped",
         "dropped by the system because the socket's buffer was full: 'sudo sysctl -w "
         "net.core.rmem_max=8388608'",
         &C::kernelDropped, true},
        {"framing", "framing",
         "TCP streams given up at an impossible length: is this the mass-data port? 'vk410 monitor "
         "tcp://HOST:PORT' takes another",
         &C::framing, true},
        {"invalid", "invalid",
         "datagrams without the magic: is something else sending? 'sudo tcpdump -c 3 -Xni any port PORT' "
         "shows who",
         &C::invalid, true},
        {"selector errors", "malformed_selector",
         "attributes with a refused selector word, and the rest of their datagrams: 'vk410 record SOURCE "
         "-o a.pcap', then 'vk410 inspect a.pcap --json' names them",
         &C::selectorErrors, true},
        {"truncated", "malformed_truncated",
         "attributes that would leave their datagram: 'vk410 record SOURCE -o a.pcap', then 'vk410 inspect"
         " a.pcap --json' names them",
         &C::truncated, true},
        {"unknown tag", "unknown_tag",
         "attributes of a kind that the library does not know: 'vk410 record SOURCE -o a.pcap', then "
         "'vk410 inspect a.pcap' lists the tags",
         &C::unknownTag, true},
        {"unrouted", "unrouted",
         "attributes for which no processor is registered: 'vk410 monitor SOURCE --tag panorama=TAG' takes "
         "another tag, and so do zerospan=TAG and df=TAG",
         &C::unrouted, true},
        {"not accepted", "not_accepted",
         "attributes that their processor dropped: 'vk410 monitor SOURCE --scan-range JOB:START-STOP/STEP'"
         " says what a direction finder scans",
         &C::notAccepted, true},
        {"delivered", "delivered", "attributes that their processor took", &C::delivered, false},
        {"map writes", "map_writes", "traces written into a map", &C::mapWrites, false},
        {"map rejected", "map_rejected",
         "traces that a map refused: 'vk410 record SOURCE -o a.pcap', then 'vk410 inspect a.pcap' shows "
         "their sizes",
         &C::mapRejected, true},
        {"viewer skipped", "viewer_skipped", "frames that a slow viewer did not get; the data is not lost",
         &C::viewerSkipped, false},
        {"recorder skipped", "recorder_skipped",
         "datagrams that the disk was too slow for: 'iostat -x 1' shows how busy it is, --record takes "
         "another",
         &C::recorderSkipped, true},
        {"mirror disconnected", "mirror_disconnected", "mirror clients cut because they did not read",
         &C::mirrorDisconnected, false},
        {"bytes not walked", "bytes_not_walked", "bytes behind the last attribute that could be read",
         &C::bytesNotWalked, false},
    };
    return all;
}

void Ledger::DatagramDone(const DatagramReport& report)
{
    ++m_counters.datagrams;
    m_counters.bytes += report.size;
    if (!report.valid) {
        ++m_counters.invalid;
        return;
    }
    // Only a valid datagram's sequence number is believed: the others may be anybody's.
    if (report.hasSequence)
        m_sequence.take(report.sequence);
    m_counters.validBytes += report.size;
    m_counters.headerBytes += std::min<quint64>(report.size, wire::datagram::headerSize);
    m_counters.bytesNotWalked += report.bytesNotWalked;
}

void Ledger::AttributeDone(const AttributeReport& report)
{
    ++m_counters.attributes;
    m_counters.attributeBytes += report.size;
    switch (report.outcome) {
    case AttributeOutcome::Dispatched:
        ++m_counters.delivered;
        break;
    case AttributeOutcome::UnknownTag:
        ++m_counters.unknownTag;
        ++m_unroutedByTag[report.tag];
        break;
    case AttributeOutcome::Unrouted:
        ++m_counters.unrouted;
        ++m_unroutedByTag[report.tag];
        break;
    case AttributeOutcome::SelectorError:
        ++m_counters.selectorErrors;
        break;
    case AttributeOutcome::Truncated:
        ++m_counters.truncated;
        break;
    }
}

void Ledger::AttributeNotAccepted(const char* reason)
{
    // It was dispatched before its processor dropped it.
    --m_counters.delivered;
    ++m_counters.notAccepted;
    ++m_reasons[reason];
}

void Ledger::StreamBroken(quint32 /*claimedLength*/)
{
    ++m_counters.framing;
}

void Ledger::MirrorClientCut(qint64 /*waiting*/)
{
    ++m_counters.mirrorDisconnected;
}

Counters Ledger::counters() const
{
    Counters counters = m_counters;
    counters.wireLost = m_sequence.lost();
    counters.wireDuplicates = m_sequence.duplicates();
    counters.wireReordered = m_sequence.reordered();
    return counters;
}

} // namespace ledger
