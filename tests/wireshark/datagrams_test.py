# SPDX-License-Identifier: MIT
"""Datagrams of every kind, good and spoilt, one in each UDP packet: the dissector shows what `vk410 inspect`
finds in them."""
import random
import struct
import unittest

import agreement
import readings
from datagrams import (
    EXTENDED_TAGS,
    FIELD_BITS,
    KNOWN_TAGS,
    LITTLE,
    MAGIC_TURNED,
    UNKNOWN_BITS,
    Attribute,
    Datagram,
    datagram,
)

BYTE_ORDERS = [0, LITTLE]


def reasons(datagrams):
    return [one["reason"] for found in datagrams for one in found["content"] if one["type"] == "error"]


def attributes(datagrams):
    return [one for found in datagrams for one in found["content"] if one["type"] == "attribute"]


def random_attribute(chance):
    selectors = sum(1 << bit for bit in chance.sample(FIELD_BITS, chance.randint(0, 4)))
    selectors |= chance.choice([0, 0, 0, 0, 0, 1 << chance.randrange(32)]) | chance.choice([0, 0, LITTLE])
    return Attribute(
        chance.choice(KNOWN_TAGS + [9999, 0]),
        selectors,
        chance.randrange(12),
        channel=chance.randrange(256),
        opt_header=chance.randbytes(chance.choice([0, 0, 10, 33, 34, 50, 74, 100])),
        claimed_length=chance.choice(
            [None, None, chance.choice([0, 1, 5, 8, 0xFFFF]), chance.randrange(100)]
        ),
        claimed_opt_length=chance.choice([None] * 9 + [chance.randrange(256)]),
    )


def random_datagram(chance):
    """Up to four attributes that may lie over each other, a few bytes changed, the end cut off."""
    attributes_ = [random_attribute(chance) for _ in range(chance.randint(1, 4))]
    changed = bytearray(datagram(*attributes_, sequence=chance.randrange(65536)))
    for _ in range(chance.choice([0, 0, 1, 2, 3])):
        changed[chance.randrange(4, len(changed))] = chance.choice([0, 1, 255, chance.randrange(256)])
    return bytes(changed[: len(changed) - chance.choice([0, 0, 0, 1, 2, 9])])


class GoodDatagrams(agreement.AgreementTest):
    def test_of_every_tag_and_byte_order(self):
        expected, told = self.agree_on_packets(
            [
                datagram(Attribute(tag, 0x0080_0003 | order, 5, channel=7), sequence=65535 - index)
                for index, tag in enumerate(KNOWN_TAGS)
                for order in BYTE_ORDERS
            ]
        )

        self.assertEqual(
            [one["tag"] for one in attributes(expected)], [t for t in KNOWN_TAGS for _ in BYTE_ORDERS]
        )
        self.assertEqual(told, [])

    def test_of_every_selector_bit_alone_and_byte_order(self):
        expected, told = self.agree_on_packets(
            [
                datagram(Attribute(tag, 1 << bit | order, 3))
                for tag in (101, 5101)
                for bit in FIELD_BITS
                for order in BYTE_ORDERS
            ]
        )

        self.assertEqual(len(attributes(expected)), 2 * 23 * 2)
        self.assertTrue(all(len(one["fields"]) == 1 for one in attributes(expected)))
        self.assertEqual(told, [])

    def test_of_all_selector_bits_together(self):
        every = sum(1 << bit for bit in FIELD_BITS if bit < 22)
        expected, _ = self.agree_on_packets(
            [
                datagram(Attribute(tag, every | order | more, 4))
                for tag in (201, 5001)
                for order in BYTE_ORDERS
                for more in (0, 0x0080_0000, 0x1000_0000, 0x4000_0000)
            ]
        )

        self.assertEqual({len(one["fields"]) for one in attributes(expected)}, {22, 23})

    def test_of_bits_that_name_no_field(self):
        words = [
            0,
            0x1000_0000,
            0x2000_0000,
            0x4000_0000,
            0x8000_0000,
            0xF000_0000,
            0x5000_0001,
            0xC000_0003,
            0xE03F_FFFF,
        ]
        _, told = self.agree_on_packets([datagram(Attribute(101, word, 2)) for word in words])

        self.assertEqual(told, [])

    def test_without_items(self):
        self.agree_on_packets([datagram(Attribute(tag, 0x0002_0003, 0)) for tag in KNOWN_TAGS])

    def test_of_several_attributes(self):
        expected, _ = self.agree_on_packets(
            [
                datagram(
                    Attribute(101, 1, 3),
                    Attribute(401, data=b"\xca\xfe\x01", channel=255),
                    Attribute(1301, 0, 2, b"\1" * 8),
                    Attribute(9999, 3, 2, b"\0" * 5, opt_header=b"\x0a\x0b"),
                    Attribute(5302, 1),
                    Attribute(601, 2, 1),
                    Attribute(5301, 0x8000, 4, channel=0x89ABCDEF),
                )
            ]
        )

        self.assertEqual(
            [one["known"] for one in attributes(expected)], [True, True, True, False, False, True, True]
        )

    def test_of_extended_counts_above_16_bits(self):
        expected, _ = self.agree_on_packets(
            [
                datagram(Attribute(tag, 1, count, channel=0xFFFF_FFFF, gaps=b"\xA5"))
                for tag in EXTENDED_TAGS
                for count in (0x0001_0002, 0xFFFF_0000, 0x8000_0001)
            ]
        )

        self.assertEqual([one["count"] for one in attributes(expected)], [2, 0, 1] * 3)

    def test_with_bytes_behind_the_fields(self):
        self.agree_on_packets(
            [
                datagram(Attribute(tag, 1, 2, b"\1\2\3\4" + b"\xEE" * more))
                for tag in (101, 401, 1301, 5301)
                for more in (4, 5, 9)
            ]
        )

    def test_of_a_large_trace(self):
        expected, _ = self.agree_on_packets(
            [datagram(Attribute(101, 0x0001, 32_000)), datagram(Attribute(5301, 0x0002 | LITTLE, 16_000))]
        )

        self.assertEqual([one["count"] for one in attributes(expected)], [32_000, 16_000])


class OptionalHeaders(agreement.AgreementTest):
    def headers(self, tag, size, step):
        values = bytes((index * 37 + 129) & 0xFF for index in range(size + 8))
        return [
            datagram(Attribute(tag, 1 | order, 2, opt_header=values[:length]))
            for order in BYTE_ORDERS
            for length in range(0, size + 8, step)
        ]

    def test_of_tag_301_are_turned_at_every_length(self):
        expected, _ = self.agree_on_packets(self.headers(301, 34, 1))

        turned = [one for one in attributes(expected) if one["optHeader" if "optHeader" in one else "tag"]]
        self.assertEqual(len(turned), 2 * 42)

    def test_of_the_panorama(self):
        self.agree_on_packets(self.headers(501, 50, 1))

    def test_of_zero_span(self):
        self.agree_on_packets(self.headers(1801, 96, 3))

    def test_of_direction_finding(self):
        self.agree_on_packets(self.headers(5301, 74, 3))

    def test_hold_the_largest_and_smallest_numbers(self):
        extremes = [
            b"\x80" + b"\0" * 95,
            b"\x7F" + b"\xFF" * 95,
            b"\xFF" * 96,
            b"\0" * 96,
            b"\x7F\x80\0\0" * 24,
        ]
        self.agree_on_packets(
            [
                datagram(Attribute(tag, 1 | order, 1, opt_header=header[:size]))
                for tag, size in ((301, 34), (501, 50), (1801, 96), (5301, 74))
                for header in extremes
                for order in BYTE_ORDERS
            ]
        )

    def test_of_other_tags_are_bytes(self):
        expected, _ = self.agree_on_packets(
            [datagram(Attribute(tag, 1, 1, opt_header=b"\x01\x02\x03")) for tag in KNOWN_TAGS + [9999]]
        )

        self.assertTrue(all("optHeader" in one for one in attributes(expected)))

    def test_tell_the_centre_frequency_in_64_bits(self):
        header = bytearray(50)
        struct.pack_into(">Ii", header, 0, 0xF000_0001, 20_000_000)
        struct.pack_into(">i", header, 16, 3)
        path = self.file(
            agreement.captures.pcap(
                agreement.captures.udp_packets([datagram(Attribute(501, 1, 1, opt_header=bytes(header)))])
            )
        )

        shown = readings.run_tshark("-r", path, "-T", "fields", "-e", "vk410.ifpan.centreFrequency")

        self.assertEqual(int(shown), 0x3_F000_0001)

    def test_tell_the_flags_of_direction_finding(self):
        header = bytearray(74)
        struct.pack_into(">i", header, 48, 0x0200_0000 | 7 << 12 | 0x12)
        path = self.file(
            agreement.captures.pcap(
                agreement.captures.udp_packets([datagram(Attribute(5301, 1, 1, opt_header=bytes(header)))])
            )
        )
        names = ["valid", "overflow", "blanking", "endOfSweep", "polarFrequencySource", "method"]

        shown = readings.run_tshark(
            "-r",
            path,
            "-T",
            "fields",
            *[word for name in names for word in ("-e", f"vk410.dfscan.dfFlags.{name}")],
        )

        self.assertEqual(
            [{"True": "1", "False": "0"}.get(text, text) for text in shown.split()],
            ["0", "1", "0", "1", "1", "7"],
        )


class SpoiltDatagrams(agreement.AgreementTest):
    def test_of_every_unknown_selector_bit(self):
        expected, told = self.agree_on_packets(
            [
                datagram(Attribute(tag, 1 << bit | below, 2, b"\0" * 12))
                for tag in (101, 5001)
                for bit in UNKNOWN_BITS
                for below in (0, 1, 3)
            ]
        )

        self.assertEqual(reasons(expected), ["Unknown Selector Flag"] * 30)
        self.assertEqual([name for name, _ in told], ["vk410.unknownSelector"] * 30)

    def test_with_too_many_selectors(self):
        words = [0xE040_0000, 0xE040_0001, 0xE07F_FFFF, 0xF000_0001, 0xFFFF_FFFF]
        expected, told = self.agree_on_packets(
            [datagram(Attribute(tag, word, 60_000, b"\0" * 8)) for tag in (101, 5001) for word in words]
        )

        self.assertEqual(reasons(expected), ["Too Many Selector Flags"] * 10)
        self.assertEqual({name for name, _ in told}, {"vk410.tooManySelectors"})

    def test_with_fields_and_headers_that_leave_them(self):
        expected, told = self.agree_on_packets(
            [
                datagram(Attribute(101, 1, 500, b"\0" * 8)),
                datagram(Attribute(101, 0x402, 3, b"\0" * 23)),
                datagram(Attribute(501, 1, 1, b"", claimed_opt_length=50)),
                datagram(Attribute(1301, 0, 3, b"\0" * 11)),
                datagram(Attribute(401, 0, 0, b"", claimed_opt_length=1)),
                datagram(Attribute(5301, 1, 3, b"\0" * 5)),
                datagram(Attribute(5101, 0, 0, b"", claimed_opt_length=0xFFFF_FFFF)),
                datagram(Attribute(101, 0x0040_0003, 5, b"\0" * 29)),
            ]
        )

        self.assertEqual(reasons(expected), ["Truncated"] * 8)
        self.assertEqual([name for name, _ in told], ["vk410.truncated"] * 8)

    def test_with_a_bad_magic(self):
        whole = datagram(Attribute(101, 1, 2), sequence=3)
        magics = [MAGIC_TURNED, b"\0\0\0\0", b"\x00\x0C\x5A\x11", b"\x10\x5A\x0C\x01", b"\x5A\x0C\x00\x10"]
        expected, told = self.agree_on_packets([magic + whole[4:] for magic in magics])

        self.assertEqual([one["valid"] for one in expected], [True] + [False] * 4)
        self.assertEqual([name for name, _ in told], ["vk410.badMagic"] * 4)

    def test_cut_at_every_byte(self):
        whole = datagram(
            Attribute(301, 0x0002_0003, 2, opt_header=bytes(range(20))),
            Attribute(9999, 0, 0, b"\7\7\7"),
            Attribute(401, 0, 0, b"\1\2\3"),
            Attribute(1301, 0, 2, b"\1" * 8),
            Attribute(5301, 0x0002_0003 | LITTLE, 2, opt_header=b"\5" * 74),
            sequence=0x1234,
        )
        expected, _ = self.agree_on_packets([whole[:size] for size in range(1, len(whole) + 1)])

        self.assertEqual(set(reasons(expected)), {"Truncated", "Not Walked"})

    def test_with_every_short_length_of_a_normal_attribute(self):
        lengths = list(range(0, 44)) + [0x7FFF, 0xFFFE, 0xFFFF]
        expected, told = self.agree_on_packets(
            [
                datagram(
                    Attribute(first, 0x0002_0001 | order, 3, claimed_length=length),
                    Attribute(201, 3, 2),
                    Attribute(101, 1, 2),
                )
                for first in (101, 9999, 1301, 401, 301)
                for order in BYTE_ORDERS
                for length in lengths
            ]
        )

        self.assertIn("vk410.overrun", {name for name, _ in told})
        self.assertIn("vk410.turned", {name for name, _ in told})
        self.assertGreater(len(attributes(expected)), 900)

    def test_with_impossible_lengths_of_an_extended_attribute(self):
        lengths = [
            0,
            1,
            35,
            36,
            37,
            43,
            45,
            60,
            0x7FFF_FFE7,
            0x7FFF_FFE8,
            0xFFFF_FFE7,
            0xFFFF_FFE8,
            0xFFFF_FFE9,
            0xFFFF_FFF0,
            0xFFFF_FFFF,
        ]
        expected, told = self.agree_on_packets(
            [
                datagram(Attribute(tag, 1, 4, claimed_length=length), Attribute(101, 1, 2))
                for tag in EXTENDED_TAGS
                for length in lengths
            ]
        )

        self.assertIn("Not Walked", reasons(expected))
        self.assertIn("vk410.notWalked", {name for name, _ in told})

    def test_with_attributes_where_the_thirty_four_fold_step_ends(self):
        def stepped(size, behind):
            extended = Attribute(5101, 0, 0, b"", claimed_length=(size - 24) & 0xFFFF_FFFF).build()
            far = (
                extended + b"\xDD" * (34 * size - len(extended))
                if 34 * size >= len(extended)
                else extended[: 34 * size]
            )
            return Datagram(tail=far + b"".join(one.build() for one in behind)).build()

        normal, extended = Attribute(101, 3, 2), Attribute(5301, 1, 3)
        expected, _ = self.agree_on_packets(
            [
                stepped(size, behind)
                for size in (1, 2, 3, 24, 60, 61)
                for behind in ([], [normal], [normal, normal], [extended], [normal, extended, normal])
            ]
        )

        self.assertIn("Not Walked", reasons(expected))
        self.assertIn((101, 1), {(one["tag"], one["index"]) for one in attributes(expected)})

    def test_with_items_or_rest_of_one_attribute_in_the_next(self):
        self.agree_on_packets(
            [
                datagram(
                    Attribute(101, flags, count, b"", claimed_length=8),
                    Attribute(501, 3, 2, opt_header=b"\3" * 50),
                    Attribute(401, 0, 0, b"\1\2\3\4\5"),
                    Attribute(5001, 0x0002_0005, 3, opt_header=b"\4" * 10),
                )
                for flags in (1, 2, 3, 0x0002_0000, 1 | LITTLE)
                for count in range(1, 40)
            ]
        )

    def test_made_and_changed_at_random(self):
        chance = random.Random(410)
        expected, told = self.agree_on_packets([random_datagram(chance) for _ in range(2500)])

        self.assertEqual(
            set(reasons(expected)),
            {"Truncated", "Not Walked", "Unknown Selector Flag", "Too Many Selector Flags"},
        )
        self.assertLess({"vk410.turned", "vk410.overrun", "vk410.unknownTag"}, {name for name, _ in told})

    def test_that_fuzzing_has_found(self):
        corpus = sorted((readings.ROOT / "fuzz" / "corpus" / "datagram_fuzz").iterdir())
        found = [path.read_bytes() for path in corpus]
        found = [bytes_ for bytes_ in found if 0 < len(bytes_) <= 65_507]
        self.assertGreater(len(found), 100)

        self.agree_on_packets(found)


if __name__ == "__main__":
    readings.require_tools()
    unittest.main(verbosity=2)
