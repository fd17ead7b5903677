# SPDX-License-Identifier: MIT
"""Compares the two readings of one capture field by field."""
import tempfile
import unittest
from pathlib import Path

import captures
import readings

ON_PORT = ("-o", f"vk410.udp_ports:{captures.PORT}", "-o", f"vk410.tcp_ports:{captures.PORT}")


def source(datagram):
    return datagram["source"]


class AgreementTest(unittest.TestCase):
    maxDiff = 4000

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def file(self, content, name="capture.pcap"):
        path = self.folder / name
        path.write_bytes(content)
        return path

    def agree(self, capture, dissector=ON_PORT, inspector=("--port", captures.PORT), but=()):
        """Asserts that both read the same, except for the keys `but` of a datagram.
        Result: what they read, and the dissector's notes."""
        path = self.file(capture)
        found, told = readings.dissect(path, *dissector)
        expected = readings.inspect(path, *inspector)
        # Of different connections, the one that has a hole may be read later.
        pairs = zip(sorted(found, key=source), sorted(expected, key=source))
        for index, (one, other) in enumerate(pairs):
            self.same_datagram(one, other, f"datagram {index}", but)
        self.assertEqual(len(found), len(expected))
        return expected, told

    def agree_on_packets(self, datagrams, **more):
        """The same for datagrams in UDP packets; all of them are read, and nothing else."""
        expected, told = self.agree(captures.pcap(captures.udp_packets(datagrams)), **more)
        self.assertEqual([one["size"] for one in expected], [len(one) for one in datagrams])
        return expected, told

    def same_datagram(self, found, expected, where, but):
        contents = [dict(one) for one in found["content"]], [dict(one) for one in expected["content"]]
        left_out = dict.fromkeys([*but, "content"])
        self.assertEqual({**found, **left_out}, {**expected, **left_out}, where)
        for one, other in zip(*contents):
            place = f"{where}, {other['type']} {other.get('index', other.get('attribute'))}"
            if other["type"] == "attribute":
                other = readings.with_names(other)
                self.same_opt_numbers(one.pop("optNumbers", []), other.pop("optNumbers", []), place)
            self.assertEqual(one, other, place)
        self.assertEqual(len(contents[0]), len(contents[1]), where)

    def same_opt_numbers(self, found, expected, where):
        self.assertEqual([name for name, _ in found], [name for name, _ in expected], where)
        for (name, text), (_, value) in zip(found, expected):
            self.assertTrue(readings.same_number(text, value), f"{where}: {name} is {text}, not {value}")
