# SPDX-License-Identifier: MIT
"""`vk410 inspect` of live streams: the table, the JSON and the explanation that it gives of recordings."""
import re
import signal
import socket
import unittest

import program
from program import datagrams_of, free_port


class InspectLive(program.Case):
    def setUp(self):
        super().setUp()
        self.datagrams = datagrams_of(self.simulated("demo", "--count", 12, "--seed", 1))

    def from_udp(self, *arguments):
        port = free_port()
        process = self.start("inspect", f"udp://127.0.0.1:{port}", *arguments)
        return self.send_until_done(self.datagrams, port, process)

    def test_of_udp_ends_after_a_count_with_a_table(self):
        out, err, code = self.from_udp("--count", 100)
        self.assertEqual(code, 0, err)
        self.assertRegex(out, r"^udp://127\.0\.0\.1:\d+: 100 datagrams, \d+ bytes\n")
        self.assertRegex(out, r"udp 127\.0\.0\.1:\d+ > 127\.0\.0\.1:\d+: 100 datagrams, 0 invalid")
        rows = {line.split()[0]: line.split() for line in out.splitlines() if re.match(r" ?\d+ ", line)}
        self.assertEqual(set(rows), {"501", "1801", "5301"})
        tag, channel, attributes, size, count, span, selectors, gaps, rate, age = rows["501"]
        self.assertEqual((channel, count, span, gaps), ("0", "1601", "10000000", "0"))
        self.assertGreater(float(rate), 0)
        self.assertLess(float(age), 1)

    def test_of_udp_ends_after_a_time(self):
        out, err, code = self.from_udp("--for", 0.7)
        self.assertEqual(code, 0, err)
        self.assertRegex(out, r"\n +501 ")

    def test_prints_its_result_on_ctrl_c(self):
        port = free_port()
        process = self.start("inspect", f"udp://127.0.0.1:{port}")
        self.until_said(process, "listening")
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            sender.sendto(self.datagrams[0], ("127.0.0.1", port))
        process.send_signal(signal.SIGINT)
        out, err = process.communicate(timeout=20)
        # Whichever of datagram and signal came first.
        self.assertIn((process.returncode, "1 datagrams" in out, "none came" in err), ((0, True, False), (1, False, True)))

    def test_gives_json_of_every_datagram(self):
        out, _, code = self.from_udp("--count", 24, "--json")
        objects = self.objects(out)
        self.assertEqual(code, 0)
        datagrams = [each for each in objects if each["type"] == "datagram"]
        self.assertEqual([each["index"] for each in datagrams], list(range(24)))
        sizes = [each["size"] for each in datagrams]
        self.assertEqual([each["offset"] for each in datagrams], [sum(sizes[:i]) for i in range(24)])
        self.assertTrue(all(each["received"] > 0 and each["source"].startswith("udp 127.0.0.1") for each in datagrams))

    def test_explains_one_datagram(self):
        out, err, code = self.from_udp("--explain", 5)
        self.assertEqual(code, 0, err)
        self.assertRegex(out, r"^datagram 5: \d+ bytes at byte \d+ of the file\n")

    def test_of_tcp_sees_every_datagram_of_the_stream(self):
        port = free_port()
        sender = self.start("simulate", "band", "--rate", 200, "--seed", 1, "--tcp", f"127.0.0.1:{port}")
        self.until_said(sender, "waiting for a client")
        ran = self.run_program("inspect", f"tcp://127.0.0.1:{port}", "--count", 30, "--json")
        self.assertEqual(ran.returncode, 0, ran.stderr)
        datagrams = [each for each in self.objects(ran.stdout) if each["type"] == "datagram"]
        first = datagrams[0]["sequence"]
        self.assertEqual([each["sequence"] for each in datagrams], list(range(first, first + 30)))
        self.assertTrue(all(each["source"].startswith(f"tcp 127.0.0.1:{port} > ") for each in datagrams))

    def test_of_a_simulation_needs_no_socket(self):
        ran = self.run_program("inspect", "sim:df", "--count", 3)
        self.assertEqual(ran.returncode, 0)
        self.assertIn("sim:df: 3 datagrams, 14874 bytes\n", ran.stdout)

    def test_shows_what_is_not_sound(self):
        port = free_port()
        process = self.start("inspect", f"udp://127.0.0.1:{port}", "--count", 10)
        out, _, code = self.send_until_done([b"\xff" + self.datagrams[0][1:]], port, process)
        self.assertEqual(code, 1)
        self.assertIn("10 errors: 10 Bad Magic\n", out)

    def test_says_so_when_nothing_comes(self):
        port = free_port()
        ran = self.run_program("inspect", f"udp://127.0.0.1:{port}", "--for", 0.3)
        self.assertEqual((ran.returncode, ran.stdout), (1, ""))
        self.assertRegex(
            ran.stderr.splitlines()[-1],
            rf"^vk410 inspect: udp://127\.0\.0\.1:{port}: expected datagrams, none came in 0\.\d s; 'vk410 doctor "
            rf"udp://127\.0\.0\.1:{port}' says why$",
        )
        ran = self.run_program("inspect", f"udp://127.0.0.1:{port}", "--for", 0.3, "--explain", 2)
        self.assertEqual(ran.returncode, 2)
        self.assertIn("expected datagram 2, found 0 before the end; they count from 0\n", ran.stderr)

    def test_of_a_recording_takes_a_count_too(self):
        self.write("a.bin", b"".join(self.datagrams))
        ran = self.run_program("inspect", "a.bin", "--count", 2)
        self.assertEqual(ran.returncode, 0)
        self.assertIn("a.bin: 2 datagrams,", ran.stdout)

    def test_shows_progress_on_a_terminal(self):
        self.write("a.bin", b"".join(self.datagrams) * 800)
        said, code = self.on_a_terminal("inspect", "--json", "a.bin")
        self.assertEqual(code, 0)
        self.assertRegex(said, r"\r\x1b\[K[0-9.]+ MB/s, [0-9]+ %, [0-9:]+ left")
        said, code = self.on_a_terminal("inspect", "sim:band", "--for", 1.5)
        self.assertEqual(code, 0)
        self.assertRegex(said, r"\r\x1b\[K[0-9]+ datagrams, [0-9.]+ MB/s, [0-9]+ %, 0:0[0-9] left")

    def test_record_shows_progress_on_a_terminal(self):
        said, code = self.on_a_terminal("record", "sim:band", "-o", "a.pcap", "--for", 1.5)
        self.assertEqual(code, 0)
        self.assertRegex(
            said,
            r"\r\x1b\[K[0-9]+ datagrams, [0-9.]+ MB, [0-9.]+ MB/s, skipped 0, [0-9.]+ GB of disk left, [0-9]+ %, "
            r"0:0[0-9] left",
        )


if __name__ == "__main__":
    unittest.main()
