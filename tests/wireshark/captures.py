# SPDX-License-Identifier: MIT
"""Writes captures: pcap with nanosecond times and raw IP packets."""
import socket
import struct

START_NS = 1_700_000_000_000_000_001
STEP_NS = 1_000_003
RECEIVER, APPLICATION = "192.0.2.1", "192.0.2.2"
PORT, FAR_PORT = 5555, 40000
SYN, FIN, ACK = 0x02, 0x01, 0x10


def checksum(data):
    if len(data) % 2:
        data += b"\0"
    total = sum(struct.unpack(f">{len(data) // 2}H", data))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def ipv4(protocol, payload, number=1, fragment=0):
    """`fragment`: offset in eights, and bit 13 for more to come."""
    header = struct.pack(
        ">BBHHHBBH4s4s",
        0x45,
        0,
        20 + len(payload),
        number & 0xFFFF,
        fragment,
        64,
        protocol,
        0,
        socket.inet_aton(RECEIVER),
        socket.inet_aton(APPLICATION),
    )
    return header[:10] + struct.pack(">H", checksum(header)) + header[12:] + payload


def ipv6(protocol, payload):
    addresses = socket.inet_pton(socket.AF_INET6, "2001:db8::1") + socket.inet_pton(
        socket.AF_INET6, "2001:db8::2"
    )
    return struct.pack(">IHBB", 6 << 28, len(payload), protocol, 64) + addresses + payload


def udp(payload, port=PORT, far_port=FAR_PORT):
    return struct.pack(">HHHH", port, far_port, 8 + len(payload), 0) + payload


def tcp(payload, sequence, flags=ACK, port=PORT, far_port=FAR_PORT):
    return (
        struct.pack(">HHIIBBHHH", port, far_port, sequence & 0xFFFFFFFF, 1, 0x50, flags, 65535, 0, 0)
        + payload
    )


def udp_packets(datagrams, **ports):
    return [ipv4(17, udp(datagram, **ports), number) for number, datagram in enumerate(datagrams)]


def udp_fragments(datagram, size, number=77):
    """One UDP packet in fragments of `size` bytes, a multiple of 8."""
    whole = udp(datagram)
    packets = []
    for at in range(0, len(whole), size):
        more = 0x2000 if at + size < len(whole) else 0
        packets.append(ipv4(17, whole[at : at + size], number, at // 8 | more))
    return packets


def tcp_packets(segments, isn=1000, with_syn=True, with_fin=True, **ports):
    """A connection from its first to its last segment. `None`: a segment of the size before it is missing."""
    packets = [ipv4(6, tcp(b"", isn, SYN, **ports))] if with_syn else []
    sequence, size = isn + 1, 0
    for segment in segments:
        if segment is None:
            sequence += size
            continue
        size = len(segment)
        packets.append(ipv4(6, tcp(segment, sequence, **ports)))
        sequence += size
    if with_fin:
        packets.append(ipv4(6, tcp(b"", sequence, FIN | ACK, **ports)))
    return packets


def cut(stream, sizes):
    """The stream in segments of the given sizes, again and again."""
    segments, at, turn = [], 0, 0
    while at < len(stream):
        segments.append(stream[at : at + sizes[turn % len(sizes)]])
        at += len(segments[-1])
        turn += 1
    return segments


def pcap(packets, captured=262_144):
    """Nanosecond pcap, link type raw IP; of each packet at most `captured` bytes are kept."""
    out = struct.pack("<IHHiIII", 0xA1B23C4D, 2, 4, 0, 0, 262_144, 101)
    for index, packet in enumerate(packets):
        now = START_NS + index * STEP_NS
        kept = packet[:captured]
        out += struct.pack("<IIII", now // 10**9, now % 10**9, len(kept), len(packet)) + kept
    return out


def packets_of(capture, at_most):
    """The same capture with its first packets only; it is one with times in ns."""
    at = 24
    for _ in range(at_most):
        if at + 16 > len(capture):
            break
        at += 16 + struct.unpack_from("<I", capture, at + 8)[0]
    return capture[:at]
