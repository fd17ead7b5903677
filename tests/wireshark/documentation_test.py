# SPDX-License-Identifier: MIT
"""docs/wireshark.md and docs/wire-format.md are true: commands are run, numbers are those of wire/*.h."""
import json
import os
import re
import subprocess
import tempfile
import unittest
from pathlib import Path

import readings

DOCS = readings.ROOT / "docs"
WIRE = readings.ROOT / "wire"


def blocks(document, language):
    return re.findall(rf"^```{language}\n(.*?)^```$", (DOCS / document).read_text(), re.S | re.M)


def examples(document):
    """Commands and what they print."""
    found = []
    for block in blocks(document, "console"):
        for example in re.split(r"^\$ ", block, flags=re.M)[1:]:
            command, _, printed = example.partition("\n")
            found.append((command, printed))
    return found


class WiresharkPage(unittest.TestCase):
    def test_shows_what_its_commands_print(self):
        programs = f"{Path(readings.PROGRAM).parent}:{os.environ['PATH']}"
        with tempfile.TemporaryDirectory() as home:
            environment = dict(
                os.environ, HOME=home, XDG_CONFIG_HOME=home, PATH=programs, LC_ALL="C.UTF-8", TZ="UTC"
            )
            for command, printed in examples("wireshark.md"):
                with self.subTest(command=command):
                    ran = subprocess.run(
                        command,
                        shell=True,
                        cwd=readings.ROOT,
                        env=environment,
                        capture_output=True,
                        timeout=readings.TIMEOUT_S,
                        check=False,
                    )
                    self.assertEqual(ran.stdout.decode(), printed)
                    self.assertEqual(ran.returncode, 0, ran.stderr.decode())

    def test_has_commands(self):
        self.assertEqual(len(examples("wireshark.md")), 8)

    def test_names_every_expert_note(self):
        dissector = readings.DISSECTOR.read_text()
        notes = set(re.findall(r'ProtoExpert\.new\("([\w.]+)"', dissector))
        table = (DOCS / "wireshark.md").read_text().split("## Notes")[1]

        self.assertGreater(len(notes), 10)
        self.assertEqual(notes, set(re.findall(r"`(vk410\.\w+)`", table.split("## Where")[0])))


def section(title):
    """Text of the wire-format page below a heading that begins with `title`."""
    page = (DOCS / "wire-format.md").read_text()
    return re.search(rf"^##+ {re.escape(title)}[^\n]*\n(.*?)(?=^##|\Z)", page, re.S | re.M)[1]


def rows(text):
    """Offset, kind and name of each number in the tables of `text`."""
    found = re.findall(r"^\| (\d+) \| ([\w ]+) \| (\w+) \|", text, re.M)
    return [(int(offset), kind, name) for offset, kind, name in found]


def namespace(header, name):
    text = (WIRE / header).read_text()
    return re.search(rf"^namespace {name} \{{\n(.*?)^\}} // namespace {name}$", text, re.S | re.M)[1]


def numbers(name):
    """Offset, bytes and name of each number of a header in wire/layout.h."""
    found = re.findall(r"Field<std::u?int(\d+)_t> (\w+)\{(\d+)\}", namespace("layout.h", name))
    return [(int(offset), str(int(bits) // 8), field) for bits, field, offset in found]


def constant(text, name):
    return int(re.search(rf"\b{name} = (0x[0-9A-F]+|\d+)", text)[1], 0)


class WireFormatPage(unittest.TestCase):
    def test_has_the_offsets_and_widths_of_every_header(self):
        for title, name in (
            ("Datagram", "datagram"),
            ("Attribute, normal form", "attribute"),
            ("Attribute, extended form", "extended"),
        ):
            with self.subTest(header=title):
                self.assertGreater(len(numbers(name)), 2)
                self.assertEqual(rows(section(title)), numbers(name))

    def test_has_the_sizes_of_every_header(self):
        for title, name in (
            ("Attribute, normal form", "attribute"),
            ("Attribute, extended form", "extended"),
        ):
            layout = namespace("layout.h", name)
            with self.subTest(header=title):
                self.assertIn(f"The header takes {constant(layout, 'headerSize')} bytes", section(title))
                self.assertIn(f"takes length + {constant(layout, 'lengthExcludes')} bytes", section(title))
        datagram = namespace("layout.h", "datagram")
        self.assertIn(
            f"a header of {constant(datagram, 'headerSize')} bytes", (DOCS / "wire-format.md").read_text()
        )
        mebibytes = int(re.search(r"defaultMaxSize = (\d+)U << 20U", datagram)[1])
        self.assertIn(f"{constant(datagram, 'headerSize')} to {mebibytes << 20} there", section("Datagram"))
        step = constant(namespace("layout.h", "extended"), "stepFactor")
        self.assertIn(f"moves on by {step} times its size", section("Attribute, extended form"))

    def test_has_both_magics(self):
        datagram = namespace("layout.h", "datagram")
        for name in ("magicLittleEndian", "magicBigEndian"):
            stored = constant(datagram, name).to_bytes(4, "little").hex(" ").upper()
            self.assertIn(f"`{stored}`", section("Datagram"))

    def test_has_every_known_tag(self):
        known = re.search(r"known\{([\d,\s]+)\}", namespace("layout.h", "tag"))[1]
        listed = section("Tags").split("Known are")[1].split(".")[0]

        self.assertEqual(re.findall(r"\d+", listed), re.findall(r"\d+", known))

    def test_has_the_width_of_every_selector_bit(self):
        text = (WIRE / "selectors.h").read_text()
        sizes = re.findall(r"\d+", re.search(r"itemSize\{([\d,\s]+)\}", text)[1])
        table = re.findall(r"^\| ([\d, ]+) \| (\w+)", section("Selectors and items"), re.M)
        shown = {int(bit): width for bits, width in table for bit in bits.split(",")}

        self.assertEqual(sorted(shown), list(range(32)))
        for bit, size in enumerate(sizes + ["0"] * 4):
            self.assertEqual(shown[bit], "none" if size == "0" else size, f"bit {bit}")
        self.assertIn(
            f"above {hex(constant(text, 'tooManyAbove')).upper().replace('X', 'x')} that",
            section("Selectors"),
        )
        self.assertEqual(constant(text, "hostOrderFlag"), 1 << 29)

    def test_has_every_number_of_the_optional_headers(self):
        kinds = {
            "Signed8": "8 bits",
            "Signed16": "16 bits",
            "Signed32": "32 bits",
            "Signed64": "64 bits",
            "Float32": "float",
            "Bytes8": "8 bytes",
        }
        for tag, name in readings.OPT_HEADER_OF_TAG.items():
            with self.subTest(tag=tag):
                table = readings.OPT_HEADERS[name]
                self.assertGreater(len(table), 9)
                self.assertEqual(
                    rows(section(f"Tag {tag}")), [(at, kinds[kind], field) for field, kind, at in table]
                )
                size = constant(namespace("optheader.h", name), "size")
                self.assertRegex((DOCS / "wire-format.md").read_text(), rf"### Tag {tag}\b.*: {size} bytes\n")

    def test_has_the_flags_of_direction_finding(self):
        flags = namespace("optheader.h", "flag")
        method = constant(flags, "method")
        last = method + constant(flags, "methodMask").bit_length() - 1
        expected = [f"bits {method} to {last} the method"] + [
            f"bit {constant(flags, name)} {words}"
            for name, words in (
                ("valid", "valid"),
                ("overflow", "overflow"),
                ("blanking", "blanking"),
                ("endOfSweep", "end of sweep"),
                ("polarFrequency", "where the polar frequency comes from"),
            )
        ]
        text = section("Tag 5301").replace("\n", " ")

        self.assertEqual([words for words in expected if words not in text], [])

    def test_has_an_example_that_is_read_as_it_says(self):
        picture = re.search(r"```text\n(.*?)^```", section("A datagram, byte by byte"), re.S | re.M)[1]
        octets = "".join(re.split(r"  +(?=[a-z])", line)[0] for line in picture.strip().splitlines())
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder) / "example.bin"
            path.write_bytes(bytes.fromhex(octets))
            ran = subprocess.run(
                [readings.PROGRAM, "inspect", path, "--json"],
                capture_output=True,
                timeout=readings.TIMEOUT_S,
                check=True,
            )
        shown = blocks("wire-format.md", "json")[0]

        self.assertEqual(
            [json.loads(line) for line in ran.stdout.splitlines()], list(map(json.loads, shown.splitlines()))
        )


if __name__ == "__main__":
    readings.require_tools()
    unittest.main(verbosity=2)
