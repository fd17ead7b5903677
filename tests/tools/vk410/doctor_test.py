# SPDX-License-Identifier: MIT
"""Each check of `vk410 doctor`, against senders and receivers that have just that fault."""
import os
import socket
import threading
import time
import unittest

import program
from program import datagrams_of, free_port

SAMPLES = os.path.join(os.path.dirname(__file__), "../../../docs/samples")


class Doctor(program.Case):
    @classmethod
    def setUpClass(cls):
        case = program.Case()
        case.setUp()
        cls.panoramas = datagrams_of(case.simulated("band", "--count", 10, "--seed", 1))
        cls.blocks = datagrams_of(case.simulated("df", "--count", 6, "--seed", 1))
        case.doCleanups()
        case.tearDown()

    def findings(self, text):
        return {each["check"]: each for each in self.objects(text)}

    def examined(self, *arguments):
        ran = self.run_program("doctor", *arguments, "--json")
        return self.findings(ran.stdout), ran.returncode

    def of_udp(self, datagrams, *arguments, seconds=1):
        port = free_port()
        process = self.start("doctor", f"udp://127.0.0.1:{port}", "--for", seconds, "--json", *arguments)
        out, err, code = self.send_until_done(datagrams, port, process)
        self.assertEqual(err, "")
        return self.findings(out), code

    def assert_problem(self, finding, found, fix):
        self.assertEqual(finding["outcome"], "problem", finding)
        self.assertRegex(finding["found"], found)
        self.assertRegex(finding["fix"], fix)

    def problems(self, findings):
        # The size of the socket's buffer is this machine's matter.
        return sorted(
            name for name, each in findings.items() if each["outcome"] == "problem" and name != "socket buffer"
        )

    def test_finds_nothing_where_all_is_fine(self):
        findings, code = self.of_udp(self.panoramas)
        self.assertEqual(self.problems(findings), [])
        self.assertEqual(code, 1 if findings["socket buffer"]["outcome"] == "problem" else 0)
        self.assertEqual([each["number"] for each in findings.values()], list(range(1, len(findings) + 1)))
        self.assertEqual(
            list(findings),
            ["address", "interface", "port", "socket buffer", "datagrams", "firewall", "magic", "sequence", "kernel",
             "contents", "tags", "processors", "maps"],
        )

    def test_of_simulations_and_recordings_is_fine_too(self):
        self.write("a.bin", b"".join(self.panoramas))
        for source in ("sim:band", "a.bin"):
            ran = self.run_program("doctor", source, "--for", 0.5)
            self.assertEqual(ran.returncode, 0, ran.stdout)
            self.assertRegex(ran.stdout, rf"^ 1 address +fine +{source}\n")
            self.assertTrue(ran.stdout.endswith("\nall fine\n"))

    def test_reads_the_address(self):
        findings, code = self.examined("udp://127.0.0.1")
        self.assertEqual((code, list(findings)), (1, ["address"]))
        self.assert_problem(findings["address"], "the port is missing", "write it in that form")

    def test_looks_for_the_interface(self):
        findings, code = self.examined("udp://198.51.100.7:5555", "--for", 0.2)
        self.assertEqual((code, list(findings)), (1, ["address", "interface"]))
        self.assert_problem(
            findings["interface"], r"198\.51\.100\.7 is no address of this machine", "'ip address' lists its addresses"
        )

    def test_names_who_has_the_port(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other:
            other.bind(("127.0.0.1", 0))
            port = other.getsockname()[1]
            findings, code = self.examined(f"udp://127.0.0.1:{port}", "--for", 0.2)
        self.assertEqual(code, 1)
        self.assert_problem(
            findings["port"],
            rf"^process {os.getpid()} \(.*\) has UDP port {port}$",
            rf"^stop process {os.getpid()} \(",
        )

    def test_looks_for_the_scene(self):
        findings, code = self.examined("sim:nothing")
        self.assertEqual((code, list(findings)), (1, ["address", "scene"]))
        self.assert_problem(findings["scene"], "^nothing: expected demo, band, zerospan, df or a scene file", "sim:band")

    def test_reads_the_socket_buffer_back(self):
        findings, _ = self.examined(f"udp://127.0.0.1:{free_port()}", "--for", 0.2)
        with open("/proc/sys/net/core/rmem_max") as file:
            largest = int(file.read())
        self.assertRegex(
            findings["socket buffer"]["found"],
            rf"^\d+ kB granted of 8192 kB, net\.core\.rmem_max is {largest // 1024} kB$",
        )

    def test_says_when_nothing_comes(self):
        port = free_port()
        findings, code = self.examined(f"udp://127.0.0.1:{port}", "--for", 0.3)
        self.assertEqual(code, 1)
        self.assert_problem(findings["datagrams"], r"^none came in 0\.\d s$", rf"sudo tcpdump -c 3 -ni any udp port {port}")
        self.assertEqual(findings["firewall"]["outcome"], "unknown")
        self.assertIn("sudo nft list ruleset", findings["firewall"]["fix"])
        self.assertNotIn("magic", findings)

    def test_sees_that_something_else_is_sent(self):
        findings, code = self.of_udp([b"hello, is this the mass-data port?"])
        self.assertEqual((code, self.problems(findings)), (1, ["magic", "maps"]))
        self.assert_problem(findings["magic"], r"^\d+ of \d+ without the magic of mass data$", "tcpdump")

    def test_counts_what_is_lost_doubled_and_late(self):
        port = free_port()
        process = self.start("doctor", f"udp://127.0.0.1:{port}", "--for", 1.5, "--json")
        sequence = [0, 1, 1, 2, 5, 4, 6]  # 3 is lost, 1 comes twice, 4 is late
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            end = time.monotonic() + 10
            while time.monotonic() < end and process.poll() is None:
                with open("/proc/net/udp") as table:
                    if f":{port:04X} " in table.read():
                        break
            time.sleep(0.3)  # the port is asked for first, then the session listens
            for number in sequence:
                first = self.panoramas[0]
                sender.sendto(first[:8] + number.to_bytes(2, "big") + first[10:], ("127.0.0.1", port))
        out, _ = process.communicate(timeout=20)
        findings = self.findings(out)
        self.assert_problem(
            findings["sequence"], "^1 lost, 1 doubled, 1 out of order on the wire$", "'ip -s link' shows"
        )

    def test_finds_tags_without_a_processor(self):
        findings, code = self.of_udp(self.panoramas, "--tag", "panorama=301")
        self.assertEqual(code, 1)
        self.assert_problem(
            findings["tags"], r"^\d+ attributes without a processor \(tag 501: \d+\)$", "--tag panorama=TAG"
        )
        self.assertEqual(self.problems(findings), ["maps", "tags"])

    def test_finds_that_scan_ranges_are_missing(self):
        findings, code = self.of_udp(self.blocks)
        self.assertEqual(code, 1)
        self.assert_problem(
            findings["processors"],
            r"attributes that their processor dropped \(the receiver is in no mode of direction-finding scans: \d+\)$",
            "--scan-range JOB:START-STOP/STEP",
        )
        ranges = ["--scan-range", "1:145M-155M/12.5k", "--scan-range", "2:430M-440M/25k"]
        findings, _ = self.of_udp(self.blocks, *ranges)
        self.assertEqual(self.problems(findings), [])

    def test_finds_attributes_that_are_refused(self):
        first = self.panoramas[0]
        findings, _ = self.of_udp([first[:25] + b"\x40" + first[26:]])
        self.assert_problem(
            findings["contents"], r"^\d+ attributes with a refused selector word, or cut$", "vk410 inspect udp://127"
        )

    def test_of_tcp_names_a_refused_connection(self):
        port = free_port()
        findings, code = self.examined(f"tcp://127.0.0.1:{port}", "--for", 0.5)
        self.assertEqual((code, list(findings)), (1, ["address", "host", "connection"]))
        self.assert_problem(
            findings["connection"], rf"^TCP port {port}: Connection refused$", f"nothing listens on TCP port {port}"
        )

    def test_of_tcp_names_a_host_that_is_not_there(self):
        findings, code = self.examined("tcp://no.such.host.invalid:5555", "--for", 0.5)
        self.assertEqual((code, list(findings)), (1, ["address", "host"]))
        self.assert_problem(findings["host"], "^'no.such.host.invalid' is no host that can be found: ", "getent hosts")

    def test_of_tcp_names_a_host_that_does_not_answer(self):
        # A listener whose queue is full drops what comes, as a firewall does.
        with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as listener:
            listener.bind(("127.0.0.1", 0))
            listener.listen(0)
            fillers = []
            for _ in range(4):
                filler = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
                filler.setblocking(False)
                filler.connect_ex(listener.getsockname())
                fillers.append(filler)
            findings, code = self.examined(f"tcp://127.0.0.1:{listener.getsockname()[1]}", "--for", 0.5)
            for filler in fillers:
                filler.close()
        self.assertEqual(code, 1)
        self.assert_problem(findings["connection"], "timed out", "nobody answers: is 127.0.0.1 the right address")

    def served(self, content):
        """A TCP server that gives this to all who come."""
        listener = socket.create_server(("127.0.0.1", 0))

        def serve():
            while True:
                try:
                    client, _ = listener.accept()
                    client.sendall(content)
                except OSError:
                    return
                clients.append(client)

        clients = []
        threading.Thread(target=serve, daemon=True).start()
        self.addCleanup(listener.close)
        return listener.getsockname()[1]

    def test_of_tcp_sees_a_silent_receiver(self):
        findings, code = self.examined(f"tcp://127.0.0.1:{self.served(b'')}", "--for", 0.5)
        self.assertEqual(code, 1)
        self.assert_problem(findings["datagrams"], "none came", "is connected and sends nothing")

    def test_of_tcp_sees_that_this_is_another_port(self):
        port = self.served(b"HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n\r\n" * 4)
        findings, code = self.examined(f"tcp://127.0.0.1:{port}", "--for", 0.7)
        self.assertEqual(code, 1)
        self.assert_problem(
            findings["framing"], "^[0-9]+ streams given up at an impossible length$", "this is not the mass-data port"
        )

    def test_of_a_file_says_why_it_cannot_be_read(self):
        findings, code = self.examined("missing.pcap")
        self.assertEqual((code, list(findings)), (1, ["address", "file"]))
        self.assert_problem(findings["file"], "found No such file or directory", "name a pcap or pcapng capture")

    def test_of_a_cut_recording_says_where_it_ends(self):
        self.write("cut.bin", b"".join(self.panoramas)[:-7])
        findings, code = self.examined("cut.bin")
        self.assertEqual((code, self.problems(findings)), (1, ["whole"]))
        self.assert_problem(
            findings["whole"],
            r"^cut\.bin: byte 29520: expected a datagram of 3280 bytes, found 3273",
            r"^'vk410 check cut\.bin --repair OUT' keeps what is sound",
        )
        self.assertRegex(findings["datagrams"]["found"], "^9 datagrams")

    def test_of_what_is_no_recording_says_what_was_expected(self):
        self.write("text.bin", "this is no recording")
        self.write("cut.pcap", bytes.fromhex("a1b23c4d0002"))
        findings, code = self.examined("text.bin")
        self.assertEqual((code, self.problems(findings)), (1, ["datagrams", "whole"]))
        self.assertIn("expected a pcap or pcapng capture, or datagrams back to back", findings["whole"]["found"])
        findings, code = self.examined("cut.pcap")
        self.assertEqual((code, list(findings)), (1, ["address", "file"]))
        self.assertIn("expected a pcap or pcapng capture", findings["file"]["found"])

    def test_of_a_recording_gives_no_advice_for_live_ports(self):
        spoilt = [self.panoramas[0], b"\xff" + self.panoramas[1][1:], *self.panoramas[3:]]
        self.write("spoilt.bin", b"".join(spoilt))
        findings, code = self.examined("spoilt.bin")
        self.assertEqual((code, self.problems(findings)), (1, ["magic", "sequence"]))
        self.assert_problem(findings["magic"], "^1 of 9 without the magic", r"'vk410 check spoilt\.bin --repair OUT'")
        self.assert_problem(
            findings["sequence"], "^2 lost, 0 doubled", r"when they were recorded.*'vk410 inspect spoilt\.bin'"
        )
        for each in findings.values():
            self.assertNotRegex(each["fix"], "tcpdump|nft|ip -s link|sysctl")

    def test_of_live_traffic_names_the_port_to_look_at(self):
        port = free_port()
        process = self.start("doctor", f"udp://127.0.0.1:{port}", "--for", 1, "--json")
        out, _, _ = self.send_until_done([b"hello, is this the mass-data port?"], port, process)
        self.assertIn(f"any port {port}' shows who", self.findings(out)["magic"]["fix"])

    def test_of_a_single_trace_says_that_one_is_not_enough(self):
        self.write("one.bin", self.panoramas[0])
        findings, code = self.examined("one.bin")
        self.assertEqual((code, self.problems(findings)), (1, ["maps"]))
        self.assertIn("the first trace of a panorama only brings its grid", findings["maps"]["fix"])

    def test_names_who_has_the_port_of_a_group(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other:
            other.bind(("", 0))  # and shares it with nobody
            port = other.getsockname()[1]
            findings, code = self.examined(f"udp://239.1.2.3@127.0.0.1:{port}", "--for", 0.2)
        self.assertEqual(code, 1)
        self.assert_problem(
            findings["port"], rf"^process {os.getpid()} \(.*\) has UDP port {port}$", rf"^stop process {os.getpid()} \("
        )

    def test_prints_text_for_people(self):
        ran = self.run_program("doctor", "udp://:")
        self.assertEqual(ran.returncode, 1)
        self.assertEqual(
            ran.stdout,
            " 1 address       problem  'udp://:': expected udp://[group@][address]:port, for example udp://:5555; the "
            "port is missing\n   fix: write it in that form\n1 problem\n",
        )


if __name__ == "__main__":
    unittest.main()
