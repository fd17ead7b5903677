# SPDX-License-Identifier: MIT
"""What `vk410 export` writes is what was sent: read back with NumPy, csv and json."""
import contextlib
import csv
import io
import json
import math
import os
import signal
import socket
import subprocess
import time
import unittest

import numpy

import program
from program import PANORAMA_LEVELS_AT, datagrams_of, free_port, renumbered

NO_LEVEL = 32766
SAMPLES = os.path.join(os.path.dirname(__file__), "../../../docs/samples")
DF_RANGES = ["--scan-range", "1:156.75M-156.85M/12.5k", "--scan-range", "2:433.9M-433.95M/12.5k"]


def raw_levels(datagram, count=None):
    levels = datagram[PANORAMA_LEVELS_AT:]
    return numpy.frombuffer(levels, ">i2")[:count].astype(int)


def rows_of(text):
    rows = list(csv.reader(io.StringIO(text)))
    return rows[0], rows[1:]


class Levels(program.Case):
    def setUp(self):
        super().setUp()
        stream = self.simulated("band", "--count", 30, "--seed", 7, truth="truth.ndjson")
        self.datagrams = datagrams_of(stream)
        self.write("a.bin", stream)
        self.truth = self.objects(self.read("truth.ndjson"))

    def expected_times(self):
        start = self.truth[0]["startNs"]
        return [start + line["atNs"] for line in self.truth if line["type"] == "trace"]

    def expected_grid(self):
        start = self.truth[0]
        return start["centreHz"] + numpy.linspace(-0.5, 0.5, start["points"]) * start["spanHz"]

    def test_as_numpy_arrays_are_what_was_sent(self):
        ran = self.run_program("export", "a.bin", "-o", "a.npy")

        self.assertEqual((ran.returncode, ran.stdout), (0, ""))
        self.assertIn("30 traces to a.npy, a.time.npy, a.grid.npy; no losses\n", ran.stderr)
        levels = numpy.load(self.path("a.npy"), mmap_mode="r")
        self.assertEqual((levels.shape, levels.dtype), ((30, 1601), numpy.float32))
        for row, datagram in zip(levels, self.datagrams):
            numpy.testing.assert_allclose(row, raw_levels(datagram) / 10, rtol=1e-6)
        times = numpy.load(self.path("a.time.npy"))
        self.assertEqual(list(times["device_ns"]), self.expected_times())
        self.assertFalse(times["lost_before"].any())
        numpy.testing.assert_allclose(numpy.load(self.path("a.grid.npy")), self.expected_grid(), rtol=1e-12)

    def test_as_numpy_arrays_are_read_as_the_guide_does(self):
        self.run_program("export", "a.bin", "-o", "a.npy")
        before = os.getcwd()
        os.chdir(self.folder)
        self.addCleanup(os.chdir, before)
        with contextlib.redirect_stdout(io.StringIO()) as printed:
            # [reading]
            levels, times, grid = (numpy.load(name) for name in ("a.npy", "a.time.npy", "a.grid.npy"))
            print(grid[levels[0].argmax()], "Hz is the strongest at", times["device_ns"][0])
            # [reading]
        strongest = self.expected_grid()[raw_levels(self.datagrams[0]).argmax()]
        self.assertEqual(printed.getvalue(), f"{strongest} Hz is the strongest at {self.expected_times()[0]}\n")

    def test_as_csv_have_time_and_grid_in_every_row(self):
        ran = self.run_program("export", "a.bin")

        self.assertEqual(ran.returncode, 0)
        head, rows = rows_of(ran.stdout)
        self.assertEqual(
            head, ["received_ns", "device_ns", "lost_before", "start_hz", "step_hz", "count", "level_dbuv"]
        )
        self.assertEqual(len(rows), 30)
        for row, datagram, time in zip(rows, self.datagrams, self.expected_times()):
            self.assertEqual(row[1:6], [str(time), "0", "95000000", "6250", "1601"])
            self.assertEqual([round(float(cell) * 10) for cell in row[6:]], list(raw_levels(datagram)))

    def test_as_ndjson_have_time_and_grid_in_every_object(self):
        ran = self.run_program("export", "a.bin", "-o", "a.ndjson")

        self.assertEqual((ran.returncode, ran.stdout), (0, ""))
        objects = self.objects(self.read("a.ndjson"))
        self.assertEqual(len(objects), 30)
        for each, datagram, time in zip(objects, self.datagrams, self.expected_times()):
            self.assertEqual((each["type"], each["device_ns"], each["lost_before"]), ("levels", time, 0))
            self.assertEqual((each["start_hz"], each["step_hz"]), (95e6, 6250))
            self.assertEqual([round(level * 10) for level in each["level_dbuv"]], list(raw_levels(datagram)))

    def test_that_were_not_measured_are_nan_empty_and_null(self):
        self.write("gap.bin", self.with_level(3, NO_LEVEL))

        self.run_program("export", "gap.bin", "-o", "gap.npy")
        levels = numpy.load(self.path("gap.npy"))
        self.assertTrue(math.isnan(levels[0, 3]))
        self.assertEqual(numpy.isnan(levels).sum(), 1)
        _, rows = rows_of(self.run_program("export", "gap.bin").stdout)
        self.assertEqual(rows[0][6 + 3], "")
        first = self.objects(self.run_program("export", "gap.bin", "--format", "ndjson").stdout)[0]
        self.assertIsNone(first["level_dbuv"][3])
        self.assertNotIn(3276.6, first["level_dbuv"])

    def with_level(self, index, raw):
        at = PANORAMA_LEVELS_AT + 2 * index
        first = self.datagrams[0]
        return b"".join([first[:at] + raw.to_bytes(2, "big") + first[at + 2 :], *self.datagrams[1:]])

    def test_keep_their_sign_and_zeros(self):
        for raw in (-5, 5, 0, -100, 32765, -32768):
            self.write("a.bin", self.with_level(0, raw & 0xFFFF))
            _, rows = rows_of(self.run_program("export", "a.bin").stdout)
            self.assertEqual(float(rows[0][6]), raw / 10)

    def test_of_another_span_in_the_middle_begin_other_arrays(self):
        other = datagrams_of(self.simulated("band", "--count", 20, "--seed", 7, "--span", 2e6, "--points", 401))
        self.write("both.bin", b"".join(renumbered(self.datagrams + other + self.datagrams[:5])))

        ran = self.run_program("export", "both.bin", "-o", "both.npy")

        self.assertEqual(ran.returncode, 0, ran.stderr)
        shapes = [numpy.load(self.path(name)).shape for name in ("both.npy", "both-0001.npy", "both-0002.npy")]
        self.assertEqual(shapes, [(30, 1601), (20, 401), (5, 1601)])
        grid = numpy.load(self.path("both-0001.grid.npy"))
        self.assertEqual((len(grid), grid[0], grid[-1]), (401, 99e6, 101e6))
        numpy.testing.assert_allclose(
            numpy.load(self.path("both-0001.npy"))[4], raw_levels(other[4]) / 10, rtol=1e-6
        )
        self.assertEqual(len(numpy.load(self.path("both-0001.time.npy"))), 20)
        _, rows = rows_of(self.run_program("export", "both.bin").stdout)
        self.assertEqual(
            [(row[3], row[4], row[5], len(row) - 6) for row in (rows[29], rows[30], rows[50])],
            [
                ("95000000", "6250", "1601", 1601),
                ("99000000", "5000", "401", 401),
                ("95000000", "6250", "1601", 1601),
            ],
        )

    def test_behind_a_loss_say_how_much_is_missing(self):
        self.write("hole.bin", b"".join(self.datagrams[:10] + self.datagrams[13:]))

        ran = self.run_program("export", "hole.bin")

        self.assertEqual(ran.returncode, 1)
        self.assertIn("27 traces; wire lost 3\n", ran.stderr)
        _, rows = rows_of(ran.stdout)
        self.assertEqual([row[2] for row in rows[9:12]], ["0", "3", "0"])

    def test_of_a_cut_recording_end_with_one_and_what_came_before(self):
        self.write("cut.bin", b"".join(self.datagrams)[:-7])

        ran = self.run_program("export", "cut.bin")

        self.assertEqual(ran.returncode, 1)
        self.assertEqual(len(ran.stdout.splitlines()), 1 + 29)
        self.assertRegex(
            ran.stderr.splitlines()[-1],
            r"^vk410 export: 29 traces; the recording is not whole: cut\.bin: byte 95120: expected a datagram of 3280 bytes, "
            "found 3273",
        )

    def test_that_come_twice_or_late_are_no_losses(self):
        numbered = renumbered(self.datagrams)
        twice = numbered[:5] + numbered[4:]
        late = numbered[:5] + [numbered[6], numbered[5]] + numbered[7:]
        for stream, said in ((twice, "31 traces; no losses, wire duplicates 1\n"),
                             (late, "30 traces; no losses, wire reordered 1\n")):
            self.write("a.bin", b"".join(stream))
            ran = self.run_program("export", "a.bin")
            self.assertIn(said, ran.stderr)
            self.assertEqual(ran.returncode, 0)

    def test_as_numpy_arrays_are_not_mixed_with_parts_of_an_earlier_export(self):
        for left in ("a-0001.npy", "a-0002.grid.npy"):
            self.write(left, "earlier")
            self.write("a.npy", "mine")
            ran = self.run_program("export", "a.bin", "-o", "a.npy")
            self.assertEqual((ran.returncode, ran.stdout), (2, ""))
            self.assertEqual(
                ran.stderr.splitlines()[-1],
                f"vk410 export: {left}: expected nothing of an earlier export beside a.npy, found it; remove it, or name "
                "another file",
            )
            self.assertEqual((self.read(left), self.read("a.npy")), ("earlier", "mine"))
            os.remove(self.path(left))

    def test_as_numpy_arrays_leave_no_companions_of_earlier_ones(self):
        self.run_program("export", "a.bin", "-o", "a.npy")
        ran = self.run_program("export", "a.bin", "--tag", "panorama=301", "-o", "a.npy")
        self.assertEqual(ran.returncode, 1)  # nothing of that tag
        self.assertFalse(os.path.exists(self.path("a.time.npy")) or os.path.exists(self.path("a.grid.npy")))

    def test_as_numpy_arrays_can_be_read_while_a_live_export_goes_on(self):
        port = free_port()
        process = self.start("export", f"udp://127.0.0.1:{port}", "-o", "a.npy")
        self.until_said(process, "listening")
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            for datagram in self.datagrams[:3]:
                sender.sendto(datagram, ("127.0.0.1", port))
        shapes = None
        end = time.monotonic() + 20
        while shapes != [(3, 1601), (3,)] and time.monotonic() < end:
            time.sleep(0.1)
            try:
                shapes = [numpy.load(self.path(name)).shape for name in ("a.npy", "a.time.npy")]
            except (FileNotFoundError, ValueError, EOFError):
                pass  # not begun yet
        self.assertEqual(shapes, [(3, 1601), (3,)])
        self.assertIsNone(process.poll())
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(20), 0)

    def test_as_numpy_arrays_do_not_go_into_pipes_and_devices(self):
        os.mkfifo(self.path("pipe.npy"))
        for place in ("pipe.npy", "/dev/null"):
            ran = self.run_program("export", "sim:band", "--format", "npy", "-o", place)
            self.assertEqual((ran.returncode, ran.stdout), (2, ""))
            self.assertEqual(
                ran.stderr.splitlines()[-1],
                f"vk410 export: {place}: expected a file for NumPy, whose header is written again and again, found a pipe "
                "or a device; csv and ndjson can go there",
            )

    def test_are_written_in_the_form_of_an_ending_in_capitals(self):
        for name in ("A.CSV", "A.NDJSON", "A.NPY"):
            self.assertEqual(self.run_program("export", "a.bin", "-o", name).returncode, 0)
        self.assertTrue(self.read("A.CSV").startswith("received_ns,"))
        self.assertEqual(len(self.objects(self.read("A.NDJSON"))), 30)
        self.assertEqual(numpy.load(self.path("A.NPY")).shape, (30, 1601))
        self.assertEqual(len(numpy.load(self.path("A.time.npy"))), 30)

    def test_for_a_reader_that_has_gone_say_so(self):
        reader, writer = os.pipe()
        os.close(reader)
        ran = subprocess.run(
            ["vk410", "export", "a.bin"], cwd=self.folder, env=self.environment, stdout=writer, stderr=subprocess.PIPE,
            text=True, preexec_fn=lambda: signal.signal(signal.SIGPIPE, signal.SIG_IGN), restore_signals=False,
        )
        os.close(writer)
        self.assertEqual(ran.returncode, 2)
        self.assertIn("stdout: could not be written to its end: Broken pipe; who read it has gone", ran.stderr)
        self.assertNotIn("disk", ran.stderr)

    def test_of_a_live_receiver_come_while_they_are_sent(self):
        port = free_port()
        process = self.start("export", f"udp://127.0.0.1:{port}", "--for", 1, "--format", "ndjson")

        out, err, code = self.send_until_done(self.datagrams[:5], port, process)

        self.assertEqual(code, 0, err)
        objects = self.objects(out)
        self.assertGreater(len(objects), 5)
        self.assertGreater(objects[-1]["received_ns"], objects[0]["received_ns"])

    def test_of_a_long_recording_take_no_more_memory(self):
        def peak_kib(name):
            process = self.start("export", name, "-o", name + ".csv")
            _, status, usage = os.wait4(process.pid, 0)
            process.returncode = os.waitstatus_to_exitcode(status)
            self.assertEqual(process.returncode, 0)
            return usage.ru_maxrss

        self.write("small.bin", b"".join(renumbered(self.datagrams)))
        self.write("large.bin", b"".join(renumbered(self.datagrams * 200)))  # 20 MB
        self.environment["ASAN_OPTIONS"] = "quarantine_size_mb=1"
        self.assertLess(peak_kib("large.bin") - peak_kib("small.bin"), 8 * 1024)

    def test_never_go_into_their_own_recording(self):
        for verb in ("export", "record"):
            for name in ("own.csv", "own.npy"):
                self.write(name, b"".join(self.datagrams))
                ran = self.run_program(verb, name, "-o", "./" + name)
                self.assertEqual((ran.returncode, ran.stdout), (2, ""))
                self.assertEqual(
                    ran.stderr,
                    f"vk410 {verb}: ./{name}: expected another file than the one that is read; name a new one\n",
                )
                with open(self.path(name), "rb") as file:
                    self.assertEqual(file.read(), b"".join(self.datagrams))

    def test_leave_an_earlier_result_alone_where_there_is_nothing_to_read(self):
        for arguments in (["missing.bin"], ["sim:nothing"], ["a.bin", "--tag", "foo=3"]):
            for name in ("earlier.csv", "earlier.npy"):
                self.write(name, "mine")
                self.assertEqual(self.run_program("export", *arguments, "-o", name).returncode, 2)
                self.assertEqual(self.read(name), "mine")

    def test_of_a_recording_that_was_not_waited_for_end_with_one(self):
        self.write("long.bin", b"".join(self.datagrams) * 4000)
        ran = self.run_program("export", "long.bin", "-o", "a.csv", "--for", 0.05)
        self.assertEqual(ran.returncode, 1)
        self.assertRegex(ran.stderr, r"; stopped after [0-9]+ of [0-9]+ bytes of the recording\n$")

    def test_of_datagrams_that_come_late_tell_of_each_loss_once(self):
        swapped = renumbered(self.datagrams)
        for at in range(4, 28, 2):  # each overtaken by the one behind it, and none is missing
            swapped[at], swapped[at + 1] = swapped[at + 1], swapped[at]
        self.write("late.bin", b"".join(swapped))
        ran = self.run_program("export", "late.bin")
        heads, rows = rows_of(ran.stdout)
        self.assertEqual(sum(int(row[heads.index("lost_before")]) for row in rows), 1)

    def test_without_any_time_have_none(self):
        stamp = PANORAMA_LEVELS_AT - 50 + 32  # in the optional header
        untimed = [each[:stamp] + bytes(8) + each[stamp + 8 :] for each in self.datagrams]
        self.write("untimed.bin", b"".join(untimed))
        heads, rows = rows_of(self.run_program("export", "untimed.bin").stdout)
        self.assertEqual(heads[:2], ["received_ns", "device_ns"])
        self.assertEqual({tuple(row[:2]) for row in rows}, {("", "")})
        objects = self.objects(self.run_program("export", "untimed.bin", "--format", "ndjson").stdout)
        self.assertEqual({(each["received_ns"], each["device_ns"]) for each in objects}, {(None, None)})

    def test_show_progress_on_a_terminal_only(self):
        self.write("large.bin", b"".join(renumbered(self.datagrams * 800)))

        said, code = self.on_a_terminal("export", "large.bin", "-o", "large.csv")

        self.assertEqual(code, 0)
        self.assertRegex(said, r"\r\x1b\[K[0-9]+ traces, [0-9.]+ MB/s, [0-9]+ %, [0-9:]+ left")
        self.assertNotIn("left", self.run_program("export", "large.bin", "-o", "large.csv").stderr)


class LevelsOfAKnownScene(program.Case):
    def test_are_where_the_truth_says(self):
        self.write(
            "scene.json",
            json.dumps(
                {
                    "kind": "band",
                    "centreHz": 100e6,
                    "spanHz": 1e6,
                    "points": 201,
                    "signals": [{"type": "carrier", "frequencyHz": 100.25e6, "levelDbuv": 42}],
                }
            ),
        )
        self.write("a.bin", self.simulated("scene.json", "--count", 10, "--seed", 3, truth="truth.ndjson"))
        self.run_program("export", "a.bin", "-o", "a.npy")
        truth = [line for line in self.objects(self.read("truth.ndjson")) if line["type"] == "trace"]
        levels = numpy.load(self.path("a.npy"))
        grid = numpy.load(self.path("a.grid.npy"))
        for row, line in zip(levels, truth):
            signal = line["signals"][0]
            self.assertEqual(grid[row.argmax()], signal["frequencyHz"])
            self.assertAlmostEqual(row.max(), signal["level"], delta=0.5)


class DirectionFinding(program.Case):
    def test_samples_are_what_the_truth_says(self):
        stream = self.simulated(SAMPLES + "/df.json", "--count", 40, "--seed", 2, truth="truth.ndjson")
        self.write("df.bin", stream)

        ran = self.run_program("export", "df.bin", "--what", "df", *DF_RANGES, "-o", "df.npy")

        self.assertEqual(ran.returncode, 0, ran.stderr)
        samples = numpy.load(self.path("df.npy"))
        truth = self.objects(self.read("truth.ndjson"))
        seen = 0
        for line in (line for line in truth if line["type"] == "trace"):
            at = truth[0]["startNs"] + line["atNs"]
            for signal in line["signals"]:
                found = samples[
                    (samples["device_ns"] == at) & (numpy.abs(samples["frequency_hz"] - signal["frequencyHz"]) < 1)
                ]
                self.assertEqual(len(found), 1)
                self.assertEqual(found["validity"][0], b"valid")
                self.assertAlmostEqual(found["azimuth_deg"][0], signal["azimuthDeg"], delta=0.11)
                self.assertAlmostEqual(found["elevation_deg"][0], signal["elevationDeg"], delta=0.11)
                seen += 1
        self.assertGreater(seen, 20)

    def test_samples_are_the_same_in_every_form(self):
        recording = SAMPLES + "/df.bin"
        arguments = ["export", recording, "--what", "df", *DF_RANGES]
        self.run_program(*arguments, "-o", "df.npy")
        samples = numpy.load(self.path("df.npy"))
        head, rows = rows_of(self.run_program(*arguments).stdout)
        blocks = self.objects(self.run_program(*arguments, "--format", "ndjson").stdout)
        self.assertEqual((len(samples), len(rows)), (28, 28))
        self.assertEqual([block["type"] for block in blocks], ["df"] * 4)
        self.assertEqual(tuple(head), samples.dtype.names)
        for index, name in enumerate(head):
            cells = [row[index] for row in rows]
            if name == "validity":
                self.assertEqual(cells, [text.decode() for text in samples[name]])
                self.assertEqual(cells, [text for block in blocks for text in block[name]])
                continue
            numbers = [float(cell) if cell else math.nan for cell in cells]
            numpy.testing.assert_allclose(numbers, samples[name], rtol=1e-6)
            if name in blocks[0] and isinstance(blocks[0][name], list):
                inside = [math.nan if number is None else number for block in blocks for number in block[name]]
                numpy.testing.assert_allclose(inside, samples[name], rtol=1e-6)

    def test_samples_are_not_mixed_with_an_earlier_export_of_traces(self):
        self.write("df.time.npy", "earlier")
        ran = self.run_program("export", SAMPLES + "/df.bin", "--what", "df", *DF_RANGES, "-o", "df.npy")
        self.assertEqual(ran.returncode, 2)
        self.assertIn("df.time.npy: expected nothing of an earlier export beside df.npy, found it", ran.stderr)
        self.assertEqual(self.read("df.time.npy"), "earlier")
        self.assertFalse(os.path.exists(self.path("df.npy")))

    def test_without_scan_ranges_says_what_is_missing(self):
        ran = self.run_program("export", SAMPLES + "/df.bin", "--what", "df")
        self.assertEqual(ran.returncode, 1)
        self.assertIn(
            "0 blocks; expected to know what the direction finder scans; --scan-range JOB:START-STOP/STEP says it\n",
            ran.stderr,
        )


class ZeroSpan(program.Case):
    def test_traces_lie_on_their_time_axis(self):
        stream = self.simulated("zerospan", "--count", 10, "--seed", 3)
        self.write("a.bin", stream)
        ran = self.run_program("export", "a.bin", "--what", "zerospan", "-o", "a.npy")
        self.assertEqual(ran.returncode, 0, ran.stderr)
        levels = numpy.load(self.path("a.npy"))
        self.assertEqual(levels.shape, (10, 1001))
        for row, datagram in zip(levels, datagrams_of(stream)):
            raw = numpy.frombuffer(datagram[16 + 12 + 96 :][: 2 * 1001], ">i2")
            numpy.testing.assert_allclose(row, raw / 10, rtol=1e-6)
        numpy.testing.assert_allclose(numpy.load(self.path("a.grid.npy")), numpy.linspace(0, 0.02, 1001))
        first = self.objects(
            self.run_program("export", "a.bin", "--what", "zerospan", "--format", "ndjson").stdout
        )[0]
        self.assertEqual((first["type"], first["start_s"], first["step_s"]), ("zerospan", 0, 2e-5))

    def test_of_the_second_field_are_parts_of_full_scale(self):
        # count 2, selector bits 0 and 23; the second field: half and all of full scale
        header = bytearray(96)
        header[24:32] = (1000).to_bytes(8, "big")
        header[48:56] = (5_000_000).to_bytes(8, "big")
        attribute = (1801).to_bytes(2, "big") + (8 + 96 + 8).to_bytes(2, "big") + (2).to_bytes(2, "big")
        attribute += bytes([0, 96]) + 0x800001.to_bytes(4, "big") + header
        attribute += b"".join(level.to_bytes(2, "big", signed=True) for level in (10, 20, 16384, 32767))
        size = (16 + len(attribute)).to_bytes(4, "big")
        self.write("a.bin", bytes.fromhex("000C5A10") + bytes(4) + bytes(4) + size + attribute)
        ran = self.run_program("export", "a.bin", "--what", "zerospan2", "--format", "ndjson")
        self.assertEqual(ran.returncode, 0, ran.stderr)
        (trace,) = self.objects(ran.stdout)
        self.assertEqual(trace["part_of_full_scale"], [0.5, 1.0])
        self.assertEqual(trace["device_ns"], 5_000_000)


if __name__ == "__main__":
    unittest.main()
