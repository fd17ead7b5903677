# SPDX-License-Identifier: MIT
"""`vk410 check` says what is wrong with a recording, saves what is right, and scores it against the truth."""
import os
import resource
import signal
import struct
import time
import unittest

import program
from program import datagrams_of


def udp_capture(datagrams):
    """A pcap of raw IPv4 packets."""
    capture = struct.pack("<IHHiIII", 0xA1B23C4D, 2, 4, 0, 0, 262144, 101)
    for number, payload in enumerate(datagrams):
        udp = struct.pack(">HHHH", 40000, 5555, 8 + len(payload), 0) + payload
        ip = struct.pack(">BBHHHBBH4s4s", 0x45, 0, 20 + len(udp), number, 0, 64, 17, 0, b"\xc0\0\2\1", b"\xc0\0\2\2")
        capture += struct.pack("<IIII", 1_700_000_000 + number, 5, len(ip + udp), len(ip + udp)) + ip + udp
    return capture


class Check(program.Case):
    def setUp(self):
        super().setUp()
        self.stream = self.simulated("band", "--count", 20, "--seed", 1, truth="truth.ndjson")
        self.datagrams = datagrams_of(self.stream)

    def verdict(self, ran):
        return ran.returncode, ran.stdout.splitlines()[-1]

    def test_of_a_sound_recording_ends_with_zero(self):
        self.write("a.bin", self.stream)
        self.write("a.pcap", udp_capture(self.datagrams))
        for name in ("a.bin", "a.pcap"):
            ran = self.run_program("check", name)
            self.assertEqual(self.verdict(ran), (0, f"{name}: sound"))
            self.assertEqual(ran.stderr, "")

    def test_calls_a_recording_of_a_lossy_stream_sound_and_says_what_was_lost(self):
        self.write("a.bin", b"".join(self.datagrams[:5] + self.datagrams[8:]))
        ran = self.run_program("check", "a.bin")
        self.assertEqual(self.verdict(ran), (0, "a.bin: sound"))
        self.assertRegex(ran.stdout, r"missing +3 ")

    def test_names_what_is_not_sound(self):
        no_magic = b"\xff" + self.datagrams[1][1:]
        bad_selector = self.datagrams[2][:25] + b"\x40" + self.datagrams[2][26:]  # bit 22 names no field
        cases = {
            "cut.bin": (self.stream[:-7], r"cut\.bin: byte 62320: expected a datagram of 3280 bytes, found 3273"),
            "magic.bin": (b"".join([self.datagrams[0], no_magic]), r"invalid +1 "),
            "selector.bin": (
                b"".join([self.datagrams[0], bad_selector]),
                r"Unknown Selector Flag +1  dropped by the library; 'vk410 inspect selector\.bin --json' names them",
            ),
            "cut.pcap": (udp_capture(self.datagrams)[:-5], r"cut\.pcap: byte \d+: expected"),
            "empty.pcap": (udp_capture([]), r"not sound: expected datagrams, found none"),
        }
        for name, (content, said) in cases.items():
            with self.subTest(name):
                self.write(name, content)
                ran = self.run_program("check", name)
                self.assertEqual(ran.returncode, 1)
                self.assertRegex(ran.stdout, said)
                self.assertIn(": not sound", ran.stdout.splitlines()[-1])

    def test_of_what_is_no_recording_ends_with_two(self):
        self.write("text.bin", "this is no recording at all")
        ran = self.run_program("check", "text.bin", "--repair", "good.bin")
        self.assertEqual((ran.returncode, ran.stdout), (2, ""))
        self.assertRegex(
            ran.stderr,
            r"^vk410 check: text\.bin: byte 12: expected a pcap or pcapng capture, or datagrams back to back.*\n$",
        )
        self.assertEqual(sorted(os.listdir(self.folder)), ["text.bin", "truth.ndjson"])

    def test_of_another_port_says_what_it_leaves_out_and_names_the_port_seen(self):
        self.write("a.pcap", udp_capture(self.datagrams))
        ran = self.run_program("check", "a.pcap", "--port", 5556)
        self.assertEqual(self.verdict(ran), (1, "a.pcap: not sound: expected datagrams, found none"))
        self.assertRegex(ran.stdout, r"\nignored +20  packets of other ports; --port 5555 takes most of them\n")
        ran = self.run_program("check", "a.pcap", "--port", 5555)
        self.assertEqual(self.verdict(ran), (0, "a.pcap: sound"))
        self.assertRegex(ran.stdout, r"\nignored +0  packets of other ports\n")
        ran = self.run_program("inspect", "a.pcap", "--port", 5556)
        self.assertIn("20 of other ports, most of port 5555;", ran.stderr)

    def test_that_can_read_nothing_ends_with_two(self):
        ran = self.run_program("check", "missing.bin")
        self.assertEqual((ran.returncode, ran.stdout), (2, ""))
        self.assertEqual(
            ran.stderr,
            "vk410 check: missing.bin: expected a readable file, found No such file or directory; check its name and "
            "permissions\n",
        )

    def test_repairs_a_stream_and_a_capture(self):
        spoilt = b"\xff" + self.datagrams[3][1:]
        good = self.datagrams[:3] + self.datagrams[4:]
        self.write("a.bin", b"".join(self.datagrams[:3] + [spoilt] + self.datagrams[4:]) + b"rest")
        self.write("a.pcap", udp_capture(self.datagrams[:3] + [spoilt] + self.datagrams[4:])[:] + b"rest")
        for name, out in (("a.bin", "good.bin"), ("a.pcap", "good.pcap")):
            ran = self.run_program("check", name, "--repair", out)
            self.assertEqual(ran.returncode, 1)  # the recording that was checked
            self.assertEqual(
                ran.stdout.splitlines()[-1],
                f"{out}: 19 datagrams kept, 1 left out; read again, every byte as it was",
            )
            again = self.run_program("check", out)
            self.assertEqual(self.verdict(again), (0, f"{out}: sound"))
        with open(self.path("good.bin"), "rb") as file:
            self.assertEqual(file.read(), b"".join(good))
        times = [each["received"] for each in self.objects(self.run_program("inspect", "good.pcap", "--json").stdout)
                 if each["type"] == "datagram"]
        self.assertEqual(times[0], 1_700_000_000_000_000_005)
        self.assertEqual(len(times), 19)

    def test_never_repairs_a_file_into_itself(self):
        self.write("a.bin", self.stream)
        ran = self.run_program("check", "a.bin", "--repair", "./a.bin")
        self.assertEqual((ran.returncode, ran.stdout), (2, ""))
        self.assertEqual(
            ran.stderr,
            "vk410 check: ./a.bin: expected another file than the one that is checked; name a new one\n",
        )
        self.assertEqual(self.verdict(self.run_program("check", "a.bin"))[0], 0)

    def test_never_repairs_over_another_file(self):
        self.write("a.bin", self.stream)
        self.write("precious.bin", "mine")
        ran = self.run_program("check", "a.bin", "--repair", "precious.bin")
        self.assertEqual((ran.returncode, ran.stdout), (2, ""))
        self.assertEqual(
            ran.stderr,
            "vk410 check: precious.bin: expected a new file, found one that is there; name another one, or remove it\n",
        )
        self.assertEqual(self.read("precious.bin"), "mine")

    def test_without_anything_sound_repairs_nothing(self):
        self.write("a.bin", b"\xff" + self.datagrams[0][1:])
        ran = self.run_program("check", "a.bin", "--repair", "b.bin")
        self.assertEqual(ran.returncode, 2)
        self.assertIn("expected at least one sound datagram to keep, found none; nothing was written", ran.stderr)

    def test_that_cannot_write_a_repaired_file_ends_with_two(self):
        self.write("a.bin", self.stream)
        self.write("a.pcap", udp_capture(self.datagrams))
        for name in ("a.bin", "a.pcap"):
            for place, said in (("no/folder/out", "choose a folder"), ("/dev/full", "is the disk full?")):
                ran = self.run_program("check", name, "--repair", place)
                self.assertEqual(ran.returncode, 2, ran.stdout)
                self.assertIn(said, ran.stderr)

    def test_leaves_no_half_repaired_file_behind_a_failure(self):
        self.write("a.bin", self.stream * 4)

        def no_room():
            resource.setrlimit(resource.RLIMIT_FSIZE, (100_000, 100_000))
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)

        ran = self.run_program("check", "a.bin", "--repair", "good.bin", preexec_fn=no_room, restore_signals=False)
        self.assertEqual(ran.returncode, 2)
        self.assertIn("good.bin.part: could not be written to its end: File too large; 'ulimit -f' shows", ran.stderr)
        self.assertEqual(sorted(os.listdir(self.folder)), ["a.bin", "truth.ndjson"])

    def test_leaves_no_half_repaired_file_behind_ctrl_c(self):
        self.write("a.bin", self.stream * 3000)
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            process = self.start("check", "a.bin", "--repair", "good.bin")
            while not os.path.exists(self.path("good.bin.part")) and process.poll() is None:
                time.sleep(0.001)
            process.send_signal(number)
            self.assertEqual(process.wait(20), -number)
            self.assertEqual(sorted(os.listdir(self.folder)), ["a.bin", "truth.ndjson"])

    def test_never_repairs_over_what_an_earlier_one_left(self):
        self.write("a.bin", self.stream)
        self.write("good.bin.part", "earlier")
        ran = self.run_program("check", "a.bin", "--repair", "good.bin")
        self.assertEqual((ran.returncode, ran.stdout), (2, ""))
        self.assertIn("good.bin.part: expected no such file, which is what good.bin is called until it is whole", ran.stderr)
        self.assertEqual(self.read("good.bin.part"), "earlier")

    def test_reads_no_truth_of_endless_lines(self):
        self.write("a.bin", self.stream)
        self.write("long.ndjson", '{"type":"start"}\n' + '{"type":"trace"' + " " * (5 << 20))
        for name, line in (("long.ndjson", 2), ("/dev/zero", 1)):
            ran = self.run_program("check", "a.bin", "--truth", name)
            self.assertEqual((ran.returncode, ran.stdout), (2, ""))
            self.assertEqual(
                ran.stderr,
                f"vk410 check: {name}:{line}: expected a line of at most 4194304 bytes, found a longer one; 'vk410 simulate "
                "--truth FILE' writes such files\n",
            )

    def test_finds_all_of_a_simulation_there(self):
        self.write("a.bin", self.stream)
        ran = self.run_program("check", "a.bin", "--truth", "truth.ndjson")
        self.assertEqual(ran.returncode, 0)
        self.assertRegex(ran.stdout, r"sent +20\nthere +20  byte for byte\nnot there +0\ncopies +0 .*\nother datagrams +0 ")

    def test_tells_what_was_lost_on_the_way_from_what_was_spoilt_on_purpose(self):
        stream = self.simulated(
            "band", "--count", 400, "--seed", 5, "--drop", 0.05, "--dup", 0.04, "--corrupt", 0.05, truth="truth.ndjson"
        )
        end = self.objects(self.read("truth.ndjson"))[-1]
        faults = end["faults"]
        datagrams = datagrams_of(stream)
        self.write("a.bin", b"".join(datagrams[:-2] + datagrams[-1:]))  # one more is lost
        ran = self.run_program("check", "a.bin", "--truth", "truth.ndjson")
        self.assertEqual(ran.returncode, 1)
        spoilt = {name: faults[name] for name in ("drop", "corrupt magic", "corrupt selector", "corrupt tag")}
        self.assertGreater(min(spoilt.values()), 0)
        for name, count in spoilt.items():
            self.assertRegex(ran.stdout, rf"  {name} +{count}  on purpose\n")
        self.assertRegex(ran.stdout, r"  lost +1  on the way: network, kernel or recorder\n")
        self.assertRegex(ran.stdout, rf"not there +{sum(spoilt.values()) + 1}\n")
        self.assertRegex(ran.stdout, rf"copies +{faults['duplicate']}  ")
        self.assertRegex(ran.stdout, rf"other datagrams +{sum(spoilt.values()) - faults['drop']}  ")

    def test_refuses_what_is_no_truth(self):
        self.write("a.bin", self.stream)
        cases = {
            "": "{0}: expected at least one trace, found none in 0 lines; 'vk410 simulate --truth FILE' writes them",
            '{"type":"start"}\nnonsense\n': "{0}:2: expected a JSON object with a type, found 'nonsense'; 'vk410 simulate "
            "--truth FILE' writes such files",
            '{"type":"trace","fingerprint":"12"}\n': "{0}:1: expected a fingerprint of 16 hex digits, found '12'; 'vk410 "
            "simulate --truth FILE' writes such files",
            '{"type":"trace"}\n': "{0}:1: expected a fingerprint of 16 hex digits, found ''; 'vk410 simulate --truth FILE' "
            "writes such files",
        }
        for content, said in cases.items():
            with self.subTest(content):
                self.write("bad.ndjson", content)
                ran = self.run_program("check", "a.bin", "--truth", "bad.ndjson")
                self.assertEqual((ran.returncode, ran.stdout), (2, ""))
                self.assertEqual(ran.stderr, "vk410 check: " + said.format("bad.ndjson") + "\n")
        ran = self.run_program("check", "a.bin", "--truth", "missing.ndjson")
        self.assertEqual(ran.returncode, 2)
        self.assertIn("missing.ndjson: expected the truth of a simulation, found: No such file or directory", ran.stderr)

    def test_shows_progress_on_a_terminal(self):
        self.write("a.bin", self.stream * 1500)
        said, code = self.on_a_terminal("check", "a.bin", "--repair", "b.bin")
        self.assertEqual(code, 0)
        self.assertRegex(said, r"\r\x1b\[K[0-9.]+ MB/s, [0-9]+ %, [0-9:]+ left")


if __name__ == "__main__":
    unittest.main()
