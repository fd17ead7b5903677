# SPDX-License-Identifier: MIT
"""The examples against a simulated receiver: what they print is what was sent."""
import json
import os
import re
import socket
import subprocess
import tempfile
import unittest
from pathlib import Path

PROGRAM = os.environ["VK410_PROGRAM"]
EXAMPLES = Path(os.environ["VK410_EXAMPLES"])
TIMEOUT_S = 60

# One carrier that stands out of the noise, on a channel.
SCENE = {
    "kind": "band",
    "centreHz": 156.8e6,
    "spanHz": 2e6,
    "points": 801,
    "rate": 25,
    "signals": [{"type": "carrier", "frequencyHz": 157.2e6, "levelDbuv": 60}],
}


def free_port(kind=socket.SOCK_STREAM):
    with socket.socket(socket.AF_INET, kind) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Examples(unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        self.path = Path(self.folder)
        (self.path / "scene.json").write_text(json.dumps(SCENE), encoding="utf-8")

    def start(self, *command):
        process = subprocess.Popen(
            list(map(str, command)), cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True
        )
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        return process

    def example(self, name, *arguments):
        return self.start(EXAMPLES / name / name, *arguments)

    def serve(self, scene, *options):
        """A simulated receiver that begins with its first client; its port, once it listens."""
        port = free_port()
        process = self.start(PROGRAM, "simulate", scene, "--tcp", f"127.0.0.1:{port}", "--seed", "1", *options)
        self.assertIn("to", process.stderr.readline())
        return port

    def ended(self, process):
        """What a program has printed at its end."""
        out, err = process.communicate(timeout=TIMEOUT_S)
        return process.returncode, out.splitlines(), err

    def test_minimal_host_writes_every_trace_into_its_map(self):
        port = self.serve("scene.json", "--count", "6")

        code, lines, err = self.ended(self.example("minimal_host", "127.0.0.1", port))

        self.assertEqual((code, err), (0, ""))
        # The first trace brings the grid.
        self.assertEqual(lines, [f"trace {number}: 801 levels" for number in range(6)])

    def test_minimal_host_ends_where_nobody_listens(self):
        self.assertEqual(self.ended(self.example("minimal_host", "127.0.0.1", free_port()))[0], 2)

    def test_own_processor_finds_the_carrier_in_every_trace(self):
        port = free_port(socket.SOCK_DGRAM)
        host = self.example("own_processor", port, 10)
        self.assertEqual(host.stdout.readline(), "listening\n")
        subprocess.run(
            [PROGRAM, "simulate", "scene.json", "--udp", f"127.0.0.1:{port}", "--count", "10"],
            cwd=self.folder,
            check=True,
            capture_output=True,
        )

        code, lines, err = self.ended(host)

        self.assertEqual((code, err, len(lines)), (0, "", 10))
        for line in lines:
            frequency, level = re.fullmatch(r"([\d.]+) MHz: ([\d.]+) dBuV", line).groups()
            self.assertEqual(frequency, "157.200000")
            self.assertAlmostEqual(float(level), 60, delta=1)

    def test_own_processor_says_what_was_dropped(self):
        port = free_port(socket.SOCK_DGRAM)
        host = self.example("own_processor", port, 11)
        self.assertEqual(host.stdout.readline(), "listening\n")
        subprocess.run(
            [PROGRAM, "simulate", "zerospan", "--udp", f"127.0.0.1:{port}", "--count", "10", "--rate", "0"],
            check=True,
            capture_output=True,
        )
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as stranger:
            stranger.sendto(b"no mass data at all", ("127.0.0.1", port))

        code, lines, _ = self.ended(host)

        self.assertEqual(code, 0)
        expected = ["dropped: tag 1801, channel 0"] * 10 + ["dropped: a datagram without the magic"]
        self.assertEqual(lines, expected)

    def test_mirror_client_keeps_every_datagram(self):
        port = self.serve("scene.json", "--count", "12")

        code, lines, _ = self.ended(self.example("mirror_client", "127.0.0.1", port, "kept.bin"))

        size = (self.path / "kept.bin").stat().st_size
        self.assertEqual((code, lines), (0, [f"12 datagrams, {size} bytes, 0 bytes of another one"]))
        table = subprocess.run(
            [PROGRAM, "inspect", "kept.bin"], cwd=self.folder, check=True, capture_output=True, text=True
        ).stdout
        self.assertTrue(table.startswith(f"kept.bin: 12 datagrams, {size} bytes\n"), table)

    def test_mirror_client_gets_whole_datagrams_from_a_mirror(self):
        port, mirror = self.serve("scene.json", "--count", "75"), free_port()
        self.start(
            PROGRAM, "monitor", f"tcp://127.0.0.1:{port}", "--headless", "--for", "30", "--mirror", f"127.0.0.1:{mirror}"
        )
        for _ in range(TIMEOUT_S):  # until the monitor listens
            client = self.example("mirror_client", "127.0.0.1", mirror, "kept.bin")
            if client.stderr.readline() == "connected\n":
                break
            client.wait(timeout=TIMEOUT_S)
        code, lines, _ = self.ended(client)

        datagrams, size, rest = map(int, re.findall(r"\d+", lines[0]))
        self.assertEqual((code, rest), (0, 0))
        self.assertGreater(datagrams, 0)
        self.assertEqual(size, (self.path / "kept.bin").stat().st_size)
        subprocess.run([PROGRAM, "inspect", "kept.bin"], cwd=self.folder, check=True, capture_output=True)

    def test_read_recording_finds_the_emitters_where_they_are(self):
        scene = {
            "kind": "df",
            "qualityFloor": 10,
            "bearingErrorDeg": 0,
            "jobs": [
                {"id": 1, "startHz": 156.75e6, "stopHz": 156.85e6, "stepHz": 12500, "method": 0},
                {"id": 2, "startHz": 433.9e6, "stopHz": 433.95e6, "stepHz": 12500, "method": 2},
            ],
            "signals": [
                {"type": "carrier", "frequencyHz": 156.8e6, "levelDbuv": 50, "azimuthDeg": 12.5},
                {"type": "carrier", "frequencyHz": 433.925e6, "levelDbuv": 50, "azimuthDeg": 300},
            ],
        }
        (self.path / "df.json").write_text(json.dumps(scene), encoding="utf-8")
        port = self.serve("df.json", "--count", "8")
        self.ended(self.example("mirror_client", "127.0.0.1", port, "df.bin"))

        code, lines, err = self.ended(self.example("read_recording", "df.bin"))

        self.assertEqual((code, err), (0, ""))
        found = {line.split(" MHz: ")[0]: line.split(" MHz: ")[1].split(" degrees")[0].strip() for line in lines}
        self.assertEqual(found["156.8000"], "12.5")
        self.assertEqual(found["433.9250"], "300.0")

    def test_read_recording_says_that_a_file_is_cut(self):
        whole = (Path(__file__).resolve().parents[2] / "docs" / "samples" / "df.bin").read_bytes()
        for size in (10, len(whole) - 1):
            (self.path / "cut.bin").write_bytes(whole[:size])
            self.assertEqual(self.ended(self.example("read_recording", "cut.bin"))[0], 1)


if __name__ == "__main__":
    unittest.main(verbosity=2)
