# SPDX-License-Identifier: MIT
"""Every fenced block of every document is held against something.

console   "$ command", then what it prints on both streams; run in a folder with the samples of docs/samples
json      parsed, as a whole or line by line; below <!-- name.json --> the commands of the document find it by that name
cpp, cmake, python, js
          an excerpt of a file that is built or run, named above it: <!-- path --> or <!-- path: region, region -->;
          in the file a region stands between two comments [region]
text      output and pictures; only the options of vk410 in them are checked
"""
import json
import os
import re
import shutil
import subprocess
import tempfile
import textwrap
import unittest
from functools import lru_cache
from pathlib import Path

from documents import ROOT, blocks, documents, read

PROGRAM = Path(os.environ["VK410_PROGRAM"])
BUILD = Path(os.environ["VK410_BUILD"])
TIMEOUT_S = 60

# Console blocks that need more than the program and the samples, and the test that runs them.
RUN_ELSEWHERE = {"docs/wireshark.md": "tests/wireshark/documentation_test.py"}

EXCERPTS = {"cpp", "cmake", "python", "js"}


def name_of(path):
    return str(path.relative_to(ROOT))


def commands(block):
    """Commands of a console block, and what they print."""
    for example in re.split(r"^\$ ", block.text, flags=re.M)[1:]:
        command, _, printed = example.partition("\n")
        yield command, printed


def region(text, name):
    """What stands between two comments [name], moved to the left edge."""
    parts = re.split(rf"^\s*(?://|#) \[{re.escape(name)}\]\n", text, flags=re.M)
    if len(parts) != 3:
        raise ValueError(f"[{name}] stands {len(parts) - 1} times in the source, not twice")
    return textwrap.dedent(re.sub(r"^\s*// clang-format (?:on|off)\n", "", parts[1], flags=re.M))


def excerpt(source):
    """The text that a comment above a block names."""
    path, _, regions = source.partition(": ")
    text = read(ROOT / path)
    if not regions:
        return "".join(line for line in text.splitlines(keepends=True) if "SPDX-License" not in line)
    return "\n".join(region(text, name) for name in regions.split(", "))


@lru_cache
def compiled():
    """Files that this build compiles."""
    return {entry["file"] for entry in json.loads(read(BUILD / "compile_commands.json"))}


def run(command, folder):
    """What a command prints on both streams."""
    found = [PROGRAM.parent, *(path for path in (BUILD / "examples").iterdir() if path.is_dir())]
    environment = dict(os.environ, LC_ALL="C.UTF-8", TZ="UTC", PATH=":".join([*map(str, found), os.environ["PATH"]]))
    ran = subprocess.run(
        ["sh", "-c", f"{{ {command}\n}} 2>&1"],
        cwd=folder,
        env=environment,
        stdout=subprocess.PIPE,
        timeout=TIMEOUT_S,
        check=False,
    )
    return ran.stdout.decode()


def parse(text):
    """JSON as a whole, or an object a line."""
    try:
        return [json.loads(text)]
    except json.JSONDecodeError:
        return [json.loads(line) for line in text.splitlines() if line]


def fault(block, folder):
    """What is wrong with a block; nothing when it holds."""
    if block.language == "text":
        return None
    if block.language == "console":
        for command, printed in commands(block):
            output = run(command, folder)
            if output != printed:
                return f"{command}\nprints\n{output}"
        return None
    if block.language == "json":
        try:
            parse(block.text)
        except json.JSONDecodeError as error:
            return f"no JSON: {error}"
        if block.source:
            (folder / block.source).write_text(block.text, encoding="utf-8")
        return None
    if block.language not in EXCERPTS:
        return f"'{block.language}': nothing checks it; output and pictures are 'text'"
    if not block.source:
        return "above it: which file it is taken from"
    path = ROOT / block.source.partition(": ")[0]
    if block.language == "cpp" and str(path) not in compiled():
        return f"{path}: this build does not compile it"
    if excerpt(block.source) != block.text:
        return f"differs from {block.source}:\n{excerpt(block.source)}"
    return None


class Blocks(unittest.TestCase):
    def test_hold(self):
        for path in documents():
            with tempfile.TemporaryDirectory() as temporary:
                folder = Path(temporary) / "samples"
                shutil.copytree(ROOT / "docs" / "samples", folder)
                for block in blocks(read(path)):
                    if block.language == "console" and name_of(path) in RUN_ELSEWHERE:
                        continue
                    with self.subTest(document=name_of(path), line=block.line):
                        self.assertIsNone(fault(block, folder))

    def test_that_run_elsewhere_do(self):
        for document, test in RUN_ELSEWHERE.items():
            self.assertIn(Path(document).name, read(ROOT / test))

    def test_are_found(self):
        shown = [block for path in documents() for block in blocks(read(path))]
        fences = sum(len(re.findall("^```", read(path), re.M)) for path in documents())
        self.assertEqual(2 * len(shown), fences)
        self.assertGreater(sum(len(list(commands(block))) for block in shown if block.language == "console"), 15)

    def test_name_jobs_that_run_knows(self):
        usage = subprocess.run([ROOT / "run", "--help"], capture_output=True, text=True, check=True).stdout
        known = set(re.findall(r"^  ([a-z]+)", usage, re.M))
        named = {job for path in documents() for job in re.findall(r"\./run ([a-z]+)", read(path))}
        self.assertGreater(len(named), 3)
        self.assertLessEqual(named - {"alone"}, known)

    def test_name_verbs_and_options_that_the_program_knows(self):
        for path in documents():
            for verb, rest in re.findall(r"(?:^|[`$|;&(] ?)vk410 ([a-z]+)((?: [^`|;&\n]*)?)", read(path), re.M):
                options = set(re.findall(r"(?<![\w-])--[a-z][a-z-]*", rest))
                with self.subTest(document=name_of(path), command=f"vk410 {verb}{rest}"):
                    self.assertLessEqual(options, options_of(verb))


@lru_cache
def options_of(verb):
    shown = subprocess.run([PROGRAM, verb, "--help"], capture_output=True, text=True, check=True).stdout
    return set(re.findall(r"--[a-z][a-z-]*", shown))


class Faults(unittest.TestCase):
    """What is wrong with a block is noticed."""

    def setUp(self):
        self.folder = Path(self.enterContext(tempfile.TemporaryDirectory()))

    def expect(self, markdown, said):
        (block,) = blocks(markdown)
        self.assertRegex(fault(block, self.folder) or "", said)

    def test_of_no_language_and_of_unknown_ones(self):
        self.expect("```\nvk410\n```", "nothing checks it")
        self.expect("```rust\nfn main() {}\n```", "nothing checks it")

    def test_of_commands_that_print_something_else(self):
        self.expect("```console\n$ echo a\nb\n```", "echo a\nprints\na")

    def test_of_json_that_is_none(self):
        self.expect('```json\n{"a": }\n```', "no JSON")

    def test_of_code_from_nowhere(self):
        self.expect("```cpp\nint a;\n```", "which file")
        self.expect("<!-- cmake/nowhere.cpp -->\n```cpp\nint a;\n```", "does not compile it")

    def test_of_code_that_is_not_that_of_its_source(self):
        self.expect("<!-- CMakePresets.json -->\n```cmake\nproject(a)\n```", "differs from")


if __name__ == "__main__":
    unittest.main(verbosity=2)
