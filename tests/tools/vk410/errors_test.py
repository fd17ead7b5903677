# SPDX-License-Identifier: MIT
"""What every verb says when it cannot do what it is told: one line, what was expected, what came, what to do."""
import os
import socket
import subprocess
import unittest

import program

SAMPLES = os.path.join(os.path.dirname(__file__), "../../../docs/samples")
UDP = "expected udp://[group@][address]:port, for example udp://:5555; "
TCP = "expected tcp://host:port, for example tcp://192.0.2.7:5555; "
PLACE = "expected address:port, for example 127.0.0.1:7000; "
RANGE = "expected JOB:START-STOP/STEP, for example 1:145M-155M/12.5k; "
EXCLUDED = "expected suppress:START-STOP or blanking:START-STOP, for example suppress:147M-148M; "
SCENE = "expected demo, band, zerospan, df or a scene file, found: No such file or directory; check its name and permissions"
MISSING = "expected a readable file, found No such file or directory; check its name and permissions"
NO_FOLDER = (
    "expected a file that can be written, found: No such file or directory; choose a folder that exists and that you may "
    "write to"
)
FULL = "/dev/full: 24 bytes written, then: No space left on device; is the disk full?"

# What every verb that reads a source says of it.
SOURCES = {
    "udp://127.0.0.1": f"'udp://127.0.0.1': {UDP}the port is missing",
    "udp://127.0.0.1:0": f"'udp://127.0.0.1:0': {UDP}'0' is no port (1 to 65535)",
    "udp://127.0.0.1:70000": f"'udp://127.0.0.1:70000': {UDP}'70000' is no port (1 to 65535)",
    "udp://here:5555": f"'udp://here:5555': {UDP}'here' is no IP address",
    "udp://192.0.2.1@127.0.0.1:5555": f"'udp://192.0.2.1@127.0.0.1:5555': {UDP}'192.0.2.1' is no multicast group",
    "udp://a@127.0.0.1:5555": f"'udp://a@127.0.0.1:5555': {UDP}'a' is no IP address",
    "tcp://:5555": f"'tcp://:5555': {TCP}the host is missing",
    "tcp://host": f"'tcp://host': {TCP}the port is missing",
    "sim:": "'sim:': expected sim:scene, for example sim:band; the scene is missing",
    "sim:nothing": f"nothing: {SCENE}",
    "http://127.0.0.1:80": "'http://127.0.0.1:80': expected udp://..., tcp://..., sim:scene or the path of a recording; this "
    "kind of address is not known",
    "missing.pcap": f"missing.pcap: {MISSING}",
    ".": ".: expected a readable file, found a directory; name one recording in it",
    "pipe": "pipe: expected a readable file, found no regular file; save what it gives in a file first",
    "udp://198.51.100.7:5555": "udp port 5555: cannot listen: Cannot assign requested address; 'ss -ulpn' shows who has the "
    "port, 'ip address' which addresses there are",
}

# (arguments, what is said behind "vk410 VERB: "); words in <> are filled in by the test.
CASES = [
    ("monitor a.bin --frob", "expected no other arguments, found --frob<how>"),
    ("monitor udp://127.0.0.1:<udp>", "udp port <udp>: cannot listen: Address already in use; 'ss -ulpn' shows who has the "
     "port, 'ip address' which addresses there are"),
    ("monitor sim:band --mirror 127.0.0.1:7000", "a mirror needs a tcp:// source; datagrams of other sources can be recorded "
     "and replayed"),
    ("monitor tcp://127.0.0.1:5555 --mirror here:7", f"'here:7': {PLACE}'here' is no IP address"),
    ("monitor tcp://127.0.0.1:5555 --mirror 7000", f"'7000': {PLACE}the port is missing"),
    ("monitor sim:band --record no/folder/a.pcap", "no/folder/a.pcap: No such file or directory; choose a folder that exists "
     "and that you may write to"),
    ("monitor sim:band --record /dev/full", FULL),
    ("monitor sim:band --metrics 70000", "--metrics: expected a port from 0 to 65535, found '70000'<how>"),
    ("monitor sim:band --metrics <tcp>", "metrics port <tcp>: expected a free port, found: The bound address is already in "
     "use; 'ss -tlpn' shows who has it, 0 takes a free one"),
    ("monitor sim:band --listen here:7", f"'here:7': {PLACE}'here' is no IP address"),
    ("monitor sim:band --listen 127.0.0.1:<tcp>", "page 127.0.0.1:<tcp>: The bound address is already in use; 'ss -tlpn' "
     "shows who has it, --listen takes another place"),
    ("monitor sim:band --for soon", "--for: expected a number from 0 up, found 'soon'<how>"),
    ("monitor a.bin --rate fast", "--rate: expected a number from 0 up, found 'fast'<how>"),
    ("monitor a.bin --rate -1", "--rate: expected a number from 0 up, found '-1'<how>"),
    ("monitor a.bin --rate nan", "--rate: expected a number from 0 up, found 'nan'<how>"),
    ("monitor a.bin --tag audio=401", "--tag 'audio=401': expected panorama=TAG, zerospan=TAG or df=TAG, for example "
     "panorama=301"),
    ("monitor a.bin --tag panorama=x", "--tag 'panorama=x': expected panorama=TAG, zerospan=TAG or df=TAG, for example "
     "panorama=301"),
    ("monitor a.bin --df both", "--df: expected one of scan, scif, found 'both'<how>"),
    ("monitor a.bin --scan-range 145M-155M", f"'145M-155M': {RANGE}':' is missing before the start frequency"),
    ("monitor a.bin --scan-range x:145M-155M/1k", f"'x:145M-155M/1k': {RANGE}the job is missing or no number"),
    ("monitor a.bin --scan-range 1.5:1M-2M/1k", f"'1.5:1M-2M/1k': {RANGE}the job is no whole number from 0 to 32767"),
    ("monitor a.bin --scan-range 1:145M", f"'1:145M': {RANGE}'-' is missing before the stop frequency"),
    ("monitor a.bin --scan-range 1:145M-155M", f"'1:145M-155M': {RANGE}'/' is missing before the step"),
    ("monitor a.bin --scan-range 1:145M-155M/1", f"'1:145M-155M/1': {RANGE}the step gives more than 10000000 channels"),
    ("monitor a.bin --scan-range 1:155M-145M/1k", f"'1:155M-145M/1k': {RANGE}the stop frequency lies below the start "
     "frequency"),
    ("monitor a.bin --scan-range 1:1M-2M/1k@10-400", f"'1:1M-2M/1k@10-400': {RANGE}an azimuth is not within 0 and 359.9 "
     "degrees"),
    ("monitor a.bin --scan-range 1:1M-2M/1k@10", f"'1:1M-2M/1k@10': {RANGE}'-' is missing before the sector's end"),
    ("monitor a.bin --scan-range 1:1M-2M/1kHz", f"'1:1M-2M/1kHz': {RANGE}'Hz' is too much"),
    ("monitor a.bin --scan-range 1:1M-2M/1k --scan-range 1:3M-4M/1k", "'1:3M-4M/1k': expected each job once, found job 1 "
     "again; give it another number"),
    ("monitor a.bin --exclude 147M-148M", f"'147M-148M': {EXCLUDED}it begins with neither"),
    ("monitor a.bin --exclude suppress:2M-1M", f"'suppress:2M-1M': {EXCLUDED}the stop frequency lies below the start "
     "frequency"),
    ("demo nothing", f"nothing: {SCENE}"),
    ("demo --drop 2", "--drop: expected a number from 0 to 1, found '2'<how>"),
    ("demo --for soon", "--for: expected a number from 0 up, found 'soon'<how>"),
    ("inspect", "expected SOURCE, found none<how>"),
    ("inspect a.bin --port 0", "--port: expected a port from 1 to 65535, found '0'<how>"),
    ("inspect a.bin --json --explain 1", "expected one of --json and --explain, found both<how>"),
    ("inspect a.bin --explain -1", "--explain: expected a whole number from 0 up, found '-1'<how>"),
    ("inspect a.bin --explain 1.5", "--explain: expected a whole number from 0 up, found '1.5'<how>"),
    ("inspect a.bin --explain 99", "a.bin: expected datagram 99, found 3 before the end; they count from 0"),
    ("inspect a.bin --for 2", "--for: expected a live source, found a.bin; --count N ends in a recording"),
    ("inspect a.bin --count 0", "--count: expected a whole number from 1 up, found '0'<how>"),
    ("inspect udp://:5555 --port 5", "--port: expected a recording to look into, found udp://:5555; a live source has a port "
     "of its own"),
    ("record sim:band", "expected --output, found none<how>"),
    ("record sim:band -o no/folder/a.pcap", "no/folder/a.pcap: No such file or directory; choose a folder that exists and "
     "that you may write to"),
    ("record sim:band -o /dev/full", FULL),
    ("record sim:band -o b.pcap --rotate-size big", "--rotate-size: expected a number from 0 up, found 'big'<how>"),
    ("replay a.bin", "expected one of --udp ADDRESS:PORT and --tcp ADDRESS:PORT, found neither; say where to send to, for "
     "example --udp 127.0.0.1:5555"),
    ("replay a.bin --udp 127.0.0.1:5 --tcp 127.0.0.1:5", "expected one of --udp ADDRESS:PORT and --tcp ADDRESS:PORT, found "
     "both; say where to send to, for example --udp 127.0.0.1:5555"),
    ("replay a.bin --udp here:5", f"'here:5': {PLACE}'here' is no IP address"),
    ("replay a.bin --udp 127.0.0.1:0", f"'127.0.0.1:0': {PLACE}'0' is no port (1 to 65535)"),
    ("replay a.bin --tcp 127.0.0.1:<tcp>", "tcp 127.0.0.1:<tcp>: cannot listen: The bound address is already in use; 'ss "
     "-tlpn' shows who has the port"),
    ("replay a.bin --udp 127.0.0.1:5 --rate -1", "--rate: expected a number from 0 up, found '-1'<how>"),
    ("replay a.bin --udp 127.0.0.1:5 --from x", "--from: expected a number from 0 up, found 'x'<how>"),
    ("export a.bin -o table.xls", "table.xls: expected a file that ends in .csv, .ndjson, .jsonl or .npy, or --format csv, "
     "ndjson or npy; its form cannot be told from its name"),
    ("export a.bin --format xls", "--format: expected one of csv, ndjson, npy, found 'xls'<how>"),
    ("export a.bin --format npy", "expected -o FILE for NumPy, whose header is written last; csv and ndjson can go to stdout"),
    ("export a.bin --what audio", "--what: expected one of levels, zerospan, zerospan2, df, found 'audio'<how>"),
    ("export a.bin -o no/folder/a.csv", f"no/folder/a.csv: {NO_FOLDER}"),
    ("export a.bin -o no/folder/a.npy", f"no/folder/a.npy: {NO_FOLDER}"),
    ("export a.bin --what df -o no/folder/a.npy", f"no/folder/a.npy: {NO_FOLDER}"),
    ("export a.bin -o a.csv --for 0", "--for: expected a number above 0, found '0'<how>"),
    ("check", "expected FILE, found none<how>"),
    ("check a.bin --repair a.bin", "a.bin: expected another file than the one that is checked; name a new one"),
    ("check a.bin --repair no/folder/b.bin", f"no/folder/b.bin.part: {NO_FOLDER}"),
    ("check udp://:5555", "udp://:5555: expected a recording, found the address of a source; 'vk410 record udp://:5555 -o a.pcap "
     "--for 10' makes one of it, 'vk410 doctor udp://:5555' looks at it live"),
    ("replay sim:band --udp 127.0.0.1:5", "sim:band: expected a recording, found the address of a source; 'vk410 record "
     "sim:band -o a.pcap --for 10' makes one of it, 'vk410 doctor sim:band' looks at it live"),
    ("check a.bin --truth missing.ndjson", "missing.ndjson: expected the truth of a simulation, found: No such file or "
     "directory; 'vk410 simulate --truth FILE' writes it"),
    ("check a.bin --port 0", "--port: expected a port from 1 to 65535, found '0'<how>"),
    ("check missing.bin", f"missing.bin: {MISSING}"),
    ("doctor", "expected SOURCE, found none<how>"),
    ("doctor sim:band --for 0", "--for: expected a number from 0.1 to 3600, found '0'<how>"),
    ("doctor sim:band --tag audio=1", "--tag 'audio=1': expected panorama=TAG, zerospan=TAG or df=TAG, for example "
     "panorama=301"),
    ("simulate band", "expected --udp ADDRESS:PORT, --tcp ADDRESS:PORT or --truth FILE, found none; say where to send to, for "
     "example --udp 127.0.0.1:5555"),
    ("simulate nothing --truth -", f"nothing: {SCENE}"),
    ("simulate . --truth -", ".: expected demo, band, zerospan, df or a scene file, found: Is a directory; check its name and "
     "permissions"),
    ("simulate band --truth no/where", f"no/where: {NO_FOLDER}"),
    ("simulate band --truth - --seed 99999999999999999999", "--seed: expected a whole number from 0 up, found "
     "'99999999999999999999'<how>"),
    ("simulate band --truth - --drop 2", "--drop: expected a probability from 0 to 1, found 2"),
    ("simulate band --truth - --drop 0.6 --dup 0.6", "expected fault probabilities of at most 1 together, found 1.2; lower "
     "one"),
    ("simulate band --truth - --points 4 --step 10", "expected one of --points and --step, found both; leave one out"),
    ("simulate band --truth - --step 0", "--step: expected more than 0, found 0"),
    ("simulate band --truth - --span 1001", "band: spanHz: expected an even number of hertz, found 1001"),
    ("simulate band --truth - --for 0", "--for: expected a number above 0, found '0'<how>"),
    ("simulate band --truth - --rate -1", "--rate: expected a number from 0 up, found '-1'<how>"),
    ("simulate band --truth - --count many", "--count: expected a whole number from 0 up, found 'many'<how>"),
    ("simulate --iq x.sigmf-meta --truth -", "x.sigmf-meta: expected a readable .sigmf-meta file, found: No such file or "
     "directory; check its name and permissions"),
    ("simulate bad.json --truth -", "bad.json: expected JSON, found an error at line 2, column 1: syntax error while parsing "
     "object key - unexpected end of input; expected string literal"),
    ("simulate odd.json --truth -", 'odd.json: expected one of kind name iq iqLoop centreHz spanHz points rate noiseDbuvPerHz '
     "windowMs bandwidthHz qualityFloor bearingErrorDeg blankingProbability overflowProbability superResolution signals "
     'jobs, found "pints"'),
    ("simulate band --udp 127.0.0.1", f"'127.0.0.1': {PLACE}the port is missing"),
    ("simulate band --tcp 127.0.0.1:<tcp>", "tcp 127.0.0.1:<tcp>: cannot listen: The bound address is already in use; 'ss "
     "-tlpn' shows who has the port"),
    ("config", "expected --show, found none<how>"),
    ("config --show dance", "expected a verb, found 'dance'; 'vk410 --help' lists them"),
    ("help dance", "expected a verb, found 'dance'; 'vk410 --help' lists them"),
]


class Errors(program.Case):
    def setUp(self):
        super().setUp()
        with open(SAMPLES + "/stream.bin", "rb") as file:
            self.write("a.bin", file.read())
        os.mkfifo(self.path("pipe"))
        self.write("bad.json", "{\n")
        self.write("odd.json", '{"kind":"band","pints":3}')
        self.tcp = socket.create_server(("127.0.0.1", 0))
        self.udp = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.udp.bind(("127.0.0.1", 0))
        self.addCleanup(self.tcp.close)
        self.addCleanup(self.udp.close)

    def filled(self, text, verb):
        return (
            text.replace("<tcp>", str(self.tcp.getsockname()[1]))
            .replace("<udp>", str(self.udp.getsockname()[1]))
            .replace("<how>", f"; 'vk410 {verb} --help' shows how")
        )

    def assert_said(self, arguments, said):
        verb = arguments[0]
        ran = self.run_program(*(self.filled(each, verb) for each in arguments))
        self.assertEqual((ran.returncode, ran.stdout), (2, ""), arguments)
        # Some talk before it is no error.
        self.assertEqual(ran.stderr.splitlines()[-1], f"vk410 {verb}: {self.filled(said, verb)}")
        self.assertNotIn("exception", ran.stderr)

    def test_of_usage_and_surroundings_are_told_in_one_line(self):
        for arguments, said in CASES:
            with self.subTest(arguments):
                self.assert_said(arguments.split(" "), said)

    def test_of_sources_are_told_by_every_verb_that_reads_one(self):
        commands = {
            "monitor": ["--headless"],
            "inspect": [],
            "record": ["-o", "out.pcap"],
            "export": ["-o", "out.csv"],
        }
        for verb, more in commands.items():
            for source, said in SOURCES.items():
                with self.subTest(f"{verb} {source}"):
                    self.assert_said([verb, source, *more], said)
        for source in ("missing.pcap", ".", "pipe"):
            with self.subTest(f"replay {source}"):
                self.assert_said(["replay", source, "--udp", "127.0.0.1:5"], SOURCES[source])
            with self.subTest(f"check {source}"):
                self.assert_said(["check", source], SOURCES[source])

    def test_of_the_program_itself_name_no_verb(self):
        verbs = "demo, monitor, inspect, doctor, record, replay, export, check, simulate, config"
        cases = {
            (): "expected a verb, found none",
            ("dance",): f"expected one of the verbs {verbs}, found 'dance'",
            ("dance", "a.bin"): f"expected one of the verbs {verbs}, found 'dance'",
        }
        for arguments, said in cases.items():
            ran = self.run_program(*arguments)
            self.assertEqual(
                (ran.returncode, ran.stdout, ran.stderr), (2, "", f"vk410: {said}; 'vk410 --help' shows how\n")
            )

    def test_of_empty_names_are_no_silence(self):
        cases = [
            ("--output", ["export", "a.bin", "-o", ""]),
            ("--output", ["record", "sim:band", "-o", ""]),
            ("--record", ["monitor", "sim:band", "--headless", "--record", ""]),
            ("--record", ["demo", "--headless", "--record", ""]),
            ("--mirror", ["monitor", "tcp://127.0.0.1:5", "--mirror", ""]),
            ("--listen", ["monitor", "sim:band", "--listen", ""]),
            ("--repair", ["check", "a.bin", "--repair", ""]),
            ("--truth", ["check", "a.bin", "--truth", ""]),
            ("FILE", ["check", ""]),
            ("FILE", ["replay", "", "--udp", "127.0.0.1:5"]),
            ("--udp", ["replay", "a.bin", "--udp", ""]),
            ("--truth", ["simulate", "band", "--truth", ""]),
            ("--iq", ["simulate", "--iq", "", "--truth", "-"]),
        ]
        for option, arguments in cases:
            with self.subTest(arguments):
                self.assert_said(arguments, f"{option}: expected a name, found an empty text<how>")
        for verb in ("monitor", "inspect"):
            self.assert_said([verb, ""], "expected udp://..., tcp://..., sim:scene or the path of a recording, found an "
                             "empty text")

    def test_of_a_full_disk_come_with_exit_code_two(self):
        cases = [
            (["export", "a.bin", "-o", "/dev/full", "--format", "csv"],
             "vk410 export: /dev/full: could not be written to its end: No space left on device; is the disk full?"),
            (["simulate", "band", "--count", "5", "--rate", "0", "--truth", "/dev/full"],
             "vk410 simulate: /dev/full: could not be written to its end; is the disk full?"),
        ]
        for arguments, said in cases:
            ran = self.run_program(*arguments)
            self.assertEqual(ran.returncode, 2)
            self.assertEqual(ran.stderr.splitlines()[-1], said)

    def test_of_results_that_cannot_be_written_are_told_once(self):
        cases = [
            ("export a.bin", "vk410 export: stdout: could not be written to its end: No space left on device; is the disk full?"),
            ("inspect a.bin --json", "vk410: the results could not be written; check the disk behind stdout"),
            ("check a.bin", "vk410: the results could not be written; check the disk behind stdout"),
            ("config --show", "vk410: the results could not be written; check the disk behind stdout"),
        ]
        for arguments, said in cases:
            with open("/dev/full", "w") as full:
                ran = subprocess.run(
                    ["vk410", *arguments.split()], cwd=self.folder, env=self.environment, stdout=full,
                    stderr=subprocess.PIPE, text=True,
                )
            self.assertEqual(ran.returncode, 2)
            self.assertEqual([line for line in ran.stderr.splitlines() if line.startswith("vk410")], [said])

    def test_of_a_recording_that_is_none_end_with_one(self):
        self.write("text.bin", "this is no recording")
        said = (
            "text.bin: byte 12: expected a pcap or pcapng capture, or datagrams back to back: a datagram length from 16 to "
            "67108864, found "
        )
        for arguments in (
            ["monitor", "text.bin", "--headless"],
            ["record", "text.bin", "-o", "b.pcap"],
            ["replay", "text.bin", "--udp", "127.0.0.1:5"],
            ["export", "text.bin"],
            ["inspect", "text.bin"],
        ):
            ran = self.run_program(*arguments)
            self.assertEqual(ran.returncode, 1, arguments)
            self.assertIn(said, ran.stderr, arguments)


if __name__ == "__main__":
    unittest.main()
