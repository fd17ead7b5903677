# SPDX-License-Identifier: MIT
"""Captures of every shape: the dissector finds the datagrams that `vk410 inspect` finds."""
import random
import subprocess
import unittest

import agreement
import captures
import readings
from agreement import ON_PORT
from captures import PORT
from datagrams import MAGIC, Attribute, Datagram, datagram

NO_PORTS = ()
# The dissector believes in such a datagram with the packet that brings the next one.
BEHIND_A_BAD_MAGIC = ("received",)


def trace(sequence, count=20, **more):
    """A datagram of a panorama trace; it has 78 + 2 x count bytes."""
    return datagram(Attribute(501, 1, count, opt_header=bytes(50)), sequence=sequence, **more)


def random_connection(chance, far_port):
    """A stream that is whole, begins or has a hole anywhere, or has datagrams with a spoilt magic."""
    kind = chance.choice(["whole", "cut", "hole", "magic"])
    stream = b""
    for sequence in range(chance.randint(4, 12)):
        spoilt = kind == "magic" and chance.random() < 0.3
        stream += trace(sequence, chance.randrange(300), magic=b"\xFF" + MAGIC[1:] if spoilt else MAGIC)
    segments = captures.cut(stream[chance.randrange(1, 200) if kind == "cut" else 0 :], random_sizes(chance))
    packets = captures.tcp_packets(segments, with_syn=kind != "cut", far_port=far_port)
    if kind == "hole" and len(segments) > 3:
        del packets[chance.randrange(2, len(segments))]
    return packets


def random_sizes(chance):
    return [chance.randrange(1, 1460) for _ in range(5)]


def names(told):
    return [name for name, _ in told]


class UdpCaptures(agreement.AgreementTest):
    def test_of_any_port_are_recognised_by_the_magic(self):
        packets = captures.udp_packets([trace(1), trace(2)], port=1234, far_port=4321)

        expected, told = self.agree(captures.pcap(packets), NO_PORTS, ())

        self.assertEqual(len(expected), 2)
        self.assertEqual(told, [])

    def test_keep_showing_a_sender_whose_magic_is_spoilt(self):
        datagrams = [trace(1), b"\xFF" + trace(2)[1:], b"\0", trace(3)]

        expected, told = self.agree(captures.pcap(captures.udp_packets(datagrams)), NO_PORTS, ())

        self.assertEqual([one["valid"] for one in expected], [True, False, False, True])
        self.assertEqual(names(told), ["vk410.badMagic"] * 2)

    def test_leave_other_traffic_alone(self):
        packets = captures.udp_packets([b"\0\x0C\x5A\x11" + bytes(40), b"hello", b"\0\x0C\x5A"])

        shown = readings.run_tshark(
            "-r", self.file(captures.pcap(packets)), "-T", "fields", "-e", "_ws.col.Protocol"
        )

        self.assertEqual(shown.split(), ["UDP"] * 3)

    def test_on_ports_of_the_preference_are_all_datagrams(self):
        packets = captures.udp_packets([b"hello, receiver", trace(1)]) + captures.udp_packets(
            [b"other"], port=5556
        )

        expected, told = self.agree(captures.pcap(packets))

        self.assertEqual([one["valid"] for one in expected], [False, True])
        self.assertEqual(names(told), ["vk410.badMagic"])

    def test_may_be_decoded_by_hand(self):
        packets = captures.udp_packets([b"hello, receiver"])

        expected, _ = self.agree(captures.pcap(packets), ("-d", f"udp.port=={PORT},vk410"), ())

        self.assertEqual(len(expected), 1)

    def test_of_ip_version_6(self):
        packets = [captures.ipv6(17, captures.udp(trace(sequence))) for sequence in range(3)]

        expected, _ = self.agree(captures.pcap(packets))

        self.assertEqual(len(expected), 3)

    def test_in_fragments(self):
        fragments = captures.udp_fragments(trace(1, 5_000), 1480)
        packets = fragments[1:] + fragments[:1] + captures.udp_packets([trace(2)])

        expected, _ = self.agree(captures.pcap(packets))

        self.assertEqual([one["sequence"] for one in expected], [1, 2])

    def test_of_packets_that_were_captured_in_part_are_not_read(self):
        path = self.file(captures.pcap(captures.udp_packets([trace(1, 200), trace(2)]), captured=200))

        found, told = readings.dissect(path)

        self.assertEqual([one["content"] == [] for one in found], [True, False])
        self.assertEqual(
            told, [("vk410.notCaptured", "172 of 478 bytes were captured; capture whole packets")]
        )
        self.assertEqual([one["sequence"] for one in readings.inspect(path)], [2])


class TcpCaptures(agreement.AgreementTest):
    stream = b"".join(trace(sequence, 20 * sequence) for sequence in range(12))

    def agree_on_stream(self, segments, dissector=ON_PORT, inspector=("--port", PORT), but=(), **connection):
        packets = captures.tcp_packets(segments, **connection)
        return self.agree(captures.pcap(packets), dissector, inspector, but)

    def test_are_cut_into_datagrams_wherever_segments_end(self):
        for sizes in ([1460], [len(self.stream)], [118], [17, 300, 1, 2, 1000], [15], [16], [1, 1, 1]):
            with self.subTest(segments_of=sizes):
                expected, told = self.agree_on_stream(captures.cut(self.stream, sizes))

                self.assertEqual([one["sequence"] for one in expected], list(range(12)))
                self.assertEqual(told, [])

    def test_of_any_port_are_recognised_by_the_magic(self):
        for sizes in ([1460], [118], [17, 300, 1, 2, 1000], [5]):
            with self.subTest(segments_of=sizes):
                expected, told = self.agree_on_stream(
                    captures.cut(self.stream, sizes), NO_PORTS, (), port=9, far_port=10
                )

                self.assertEqual(len(expected), 12)
                self.assertEqual(told, [])

    def test_that_begin_inside_a_datagram_go_on_with_the_next(self):
        for dissector, inspector in ((ON_PORT, ("--port", PORT)), (NO_PORTS, ())):
            for begin, first in ((1, 1), (15, 1), (17, 1), (77, 1), (79, 2), (130, 2)):
                with self.subTest(begin=begin, dissector=dissector):
                    segments = captures.cut(self.stream[begin:], [1460])

                    expected, told = self.agree_on_stream(segments, dissector, inspector, with_syn=False)

                    self.assertEqual([one["sequence"] for one in expected], list(range(first, 12)))
                    self.assertEqual(names(told), ["vk410.noDatagram"])

    def test_with_segments_in_the_wrong_order(self):
        packets = captures.tcp_packets(captures.cut(self.stream, [400]))
        packets[2], packets[3] = packets[3], packets[2]

        expected, _ = self.agree(captures.pcap(packets), ON_PORT + ("-o", "tcp.reassemble_out_of_order:TRUE"))

        self.assertEqual([one["sequence"] for one in expected], list(range(12)))

    def test_with_segments_that_come_twice(self):
        packets = captures.tcp_packets(captures.cut(self.stream, [400]))
        packets[3:3] = [packets[2]]

        expected, _ = self.agree(captures.pcap(packets))

        self.assertEqual([one["sequence"] for one in expected], list(range(12)))

    def test_with_a_hole_lose_the_datagrams_around_it_only(self):
        segments = captures.cut(self.stream, [600])
        segments[4] = None  # bytes 2400 to 2999; datagrams 9 and 10 have bytes 2142 to 3057

        expected, _ = self.agree_on_stream(segments)

        self.assertEqual([one["sequence"] for one in expected], [0, 1, 2, 3, 4, 5, 6, 7, 8, 11])

    def test_with_a_spoilt_magic_show_that_datagram_too(self):
        bad = b"\1\2\3\4" + trace(5, 700)[4:]
        for sizes in ([1460], [5000], [100]):
            with self.subTest(segments_of=sizes):
                stream = trace(4) + bad + bad + trace(6) + bad

                expected, told = self.agree_on_stream(captures.cut(stream, sizes), but=BEHIND_A_BAD_MAGIC)

                self.assertEqual([one["valid"] for one in expected], [True, False, False, True, False])
                self.assertEqual(names(told), ["vk410.badMagic"] * 3)

    def test_with_an_impossible_length_go_on_at_the_next_datagram(self):
        for length in (0, 15, 0x0400_0001, 0xFFFF_FFFF):
            with self.subTest(length=length):
                stream = trace(4) + trace(5, claimed_total=length) + trace(6)

                expected, told = self.agree_on_stream(captures.cut(stream, [1460]))

                self.assertEqual([one["sequence"] for one in expected], [4, 6])
                self.assertEqual(names(told), ["vk410.badLength"])
                self.assertIn(str(length), told[0][1])

    def test_with_bytes_between_datagrams_skip_those(self):
        stream = trace(4) + b"\xAB" * 50 + trace(6) + trace(7)

        expected, told = self.agree_on_stream(captures.cut(stream, [1460]))

        self.assertEqual([one["sequence"] for one in expected], [4, 6, 7])
        self.assertEqual(len(told), 1)

    def test_of_any_segments_holes_and_spoilt_magics(self):
        chance = random.Random(410)
        packets = []
        for far_port in range(20_000, 20_060):
            packets += random_connection(chance, far_port)

        expected, _ = self.agree(captures.pcap(packets), but=BEHIND_A_BAD_MAGIC)

        self.assertGreater(len(expected), 300)
        self.assertEqual({one["valid"] for one in expected}, {True, False})

    def test_of_other_traffic_are_left_alone(self):
        packets = captures.tcp_packets(
            captures.cut(b"GET / HTTP/1.1\r\n\r\n" * 20 + bytes(400), [100]), port=8099
        )

        shown = readings.run_tshark("-r", self.file(captures.pcap(packets)), "-Y", "vk410")

        self.assertEqual(shown, "")

    def test_without_reassembly_say_what_is_missing(self):
        path = self.file(captures.pcap(captures.tcp_packets(captures.cut(self.stream, [300]))))

        _, told = readings.dissect(path, *ON_PORT, "-o", "tcp.desegment_tcp_streams:FALSE")

        self.assertIn("vk410.notCaptured", names(told))


class Recordings(agreement.AgreementTest):
    def record(self, source):
        path = self.folder / "recording.pcap"
        subprocess.run(
            [readings.PROGRAM, "record", str(source), "-o", str(path), "--for", "2"],
            check=True,
            capture_output=True,
            timeout=readings.TIMEOUT_S,
        )
        return path.read_bytes()

    def test_of_simulated_receivers(self):
        for scene, tag in (("band", 501), ("zerospan", 1801), ("df", 5301)):
            with self.subTest(scene=scene):
                recording = captures.packets_of(self.record(f"sim:{scene}"), 25)

                expected, told = self.agree(recording, NO_PORTS, ())

                self.assertGreaterEqual(len(expected), 20)
                self.assertIn(tag, {one["tag"] for found in expected for one in found["content"]})
                self.assertEqual(told, [])

    def test_of_the_samples(self):
        samples = readings.ROOT / "docs" / "samples"
        for recording, datagrams in (
            ((samples / "receiver.pcap").read_bytes(), 3),
            (self.record(samples / "stream.bin"), 3),
            (self.record(samples / "df.bin"), 4),
        ):
            with self.subTest(size=len(recording)):
                expected, _ = self.agree(recording, NO_PORTS, ())

                self.assertEqual(len(expected), datagrams)


class Costs(agreement.AgreementTest):
    def test_of_attributes_that_lie_over_each_other_are_limited(self):
        # Each one has all that follows as its items, so every header is turned once by each one before it.
        header = Attribute(101, 1, 25_000, b"", claimed_length=8).build()
        swapped = b"".join(header[at + 1 : at + 2] + header[at : at + 1] for at in range(0, 12, 2))
        hostile = Datagram(tail=(header + swapped) * 500 + bytes(50_000)).build()
        path = self.file(captures.pcap(captures.udp_packets([hostile])))

        _, told = readings.dissect(path)

        self.assertIn("vk410.limit", names(told))
        self.assertGreater(len(readings.inspect(path)[0]["content"]), 1000)

    def test_of_many_attributes_are_limited(self):
        many = Datagram(tail=Attribute(9999).build() * 25_000).build()
        path = self.file(captures.pcap(captures.tcp_packets(captures.cut(many, [60_000]))))

        found, told = readings.dissect(path)

        self.assertEqual(len(found[0]["content"]), 20_000)
        self.assertIn("vk410.limit", names(told))

    def test_of_long_arrays_are_limited_by_a_preference(self):
        path = self.file(captures.pcap(captures.udp_packets([trace(1, 1000)])))

        shown = [
            readings.run_tshark(
                "-r", path, "-o", f"vk410.max_items:{lines}", "-T", "fields", "-e", "vk410.selBit0"
            )
            .strip()
            .split(",")
            for lines in (0, 5, 5000)
        ]

        self.assertEqual([len(items) for items in shown], [1, 5, 1000])
        self.assertEqual(shown[0], [""])


if __name__ == "__main__":
    readings.require_tools()
    unittest.main(verbosity=2)
