# SPDX-License-Identifier: MIT
"""Writes datagrams, good ones and spoilt ones, byte by byte and independent of the C++ writer."""
import struct
from dataclasses import dataclass, field
from typing import Optional

KNOWN_TAGS = [
    101,
    201,
    301,
    401,
    501,
    601,
    701,
    801,
    901,
    1001,
    1101,
    1201,
    1301,
    1401,
    1601,
    1801,
    1901,
    2401,
    2501,
    5001,
    5101,
    5201,
    5301,
]
EXTENDED_TAGS = [5001, 5101, 5301]
WIDE_BITS = [1, 6, 7, 8, 10, 17, 21]
FIELD_BITS = [bit for bit in range(24) if bit != 22]
UNKNOWN_BITS = [22, 24, 25, 26, 27]
LITTLE = 1 << 29

MAGIC = bytes.fromhex("000C5A10")
MAGIC_TURNED = bytes.fromhex("105A0C00")


def items_of(selectors, count, start=-3):
    """The fields that `selectors` names, `count` different items each, in the order of its bit 29."""
    order = "<" if selectors & LITTLE else ">"
    data = b""
    value = start
    for bit in FIELD_BITS:
        if not selectors >> bit & 1:
            continue
        for _ in range(count):
            value = value * 7 + 1031 * (bit + 1)
            if bit in WIDE_BITS:
                data += struct.pack(order + "I", value * 65537 & 0xFFFFFFFF)
            else:
                data += struct.pack(order + "H", value & 0xFFFF)
    return data


@dataclass
class Attribute:
    tag: int
    selectors: int = 0
    count: int = 0
    data: Optional[bytes] = None  # None: the items that selectors and count ask for
    channel: int = 0
    opt_header: bytes = b""
    claimed_length: Optional[int] = None
    claimed_opt_length: Optional[int] = None
    gaps: bytes = b"\0"  # what fills the bytes of an extended header that nobody interprets

    def build(self):
        data = items_of(self.selectors, self.count & 0xFFFF) if self.data is None else self.data
        behind = self.opt_header + data
        opt_length = len(self.opt_header) if self.claimed_opt_length is None else self.claimed_opt_length
        if self.tag in EXTENDED_TAGS:
            return self._extended(len(behind) + 60 - 24, opt_length) + behind
        return self._normal(len(behind) + 12 - 4, opt_length) + behind

    def _normal(self, length, opt_length):
        length = length if self.claimed_length is None else self.claimed_length
        return struct.pack(">HHHBBI", self.tag, length, self.count, self.channel, opt_length, self.selectors)

    def _extended(self, length, opt_length):
        length = length if self.claimed_length is None else self.claimed_length
        return (
            struct.pack(">H", self.tag)
            + self.gaps * 2
            + struct.pack(">I", length)
            + self.gaps * 16
            + struct.pack(">IIII", self.count, self.channel, opt_length, self.selectors)
            + self.gaps * 20
        )


@dataclass
class Datagram:
    attributes: list = field(default_factory=list)
    sequence: int = 0
    magic: bytes = MAGIC
    tail: bytes = b""
    claimed_total: Optional[int] = None

    def build(self):
        body = b"".join(attribute.build() for attribute in self.attributes) + self.tail
        total = 16 + len(body) if self.claimed_total is None else self.claimed_total
        return self.magic + b"\0" * 4 + struct.pack(">HHI", self.sequence, 0, total) + body


def datagram(*attributes, **more):
    return Datagram(list(attributes), **more).build()
