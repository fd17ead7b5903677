# SPDX-License-Identifier: MIT
"""The guide's tables of values are those of a session: every path, with its type and unit."""
import json
import os
import re
import subprocess
import unittest
import urllib.request

from documents import ROOT, read

# What a value says its type is, by the beginning of its class.
KINDS = {
    "LevelMap": "levels",
    "BearingMap": "bearings",
    "DFSpectrumMap": "direction-finding spectrum",
    "ValueSelection": "selection",
    "ValueNumeric": "number",
    "Value<bool>": "bool",
    "ValueList": "list",
    "ValueCommentedRangeMap": "ranges",
    "ValueFrequencyItemMap": "ranges",
    "any value": "bool",
}


def documented():
    """Path, kind and unit of each row."""
    rows = re.findall(
        r"^\| `(/[\w/]+)` \| `?([^|]*?)`? \| ([^|]*)\|", read(ROOT / "docs" / "developer-guide.md"), re.M
    )
    return {(path, kind_of(text), unit.strip()) for path, text, unit in rows}


def kind_of(text):
    return next(kind for begin, kind in KINDS.items() if text.startswith(begin))


def of_a_session():
    """The same of the values that a session shows."""
    command = [os.environ["VK410_PROGRAM"], "monitor", "sim:demo", "--listen", "127.0.0.1:0"]
    with subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True) as session:
        try:
            address = re.search(r"http://[\d.:]+", next(line for line in session.stderr if "http" in line))[0]
            session.stderr.readline()  # the first status line: the page has the values by then
            with urllib.request.urlopen(f"{address}/api/values", timeout=30) as answer:
                values = json.load(answer)["values"]
        finally:
            session.terminate()
            session.communicate()
    return {(value["path"], value["type"], value["unit"]) for value in values}


class Values(unittest.TestCase):
    def test_of_the_guide_are_those_of_a_session(self):
        expected = of_a_session()
        self.assertGreater(len(expected), 30)
        self.assertEqual(sorted(documented() ^ expected), [])


if __name__ == "__main__":
    unittest.main(verbosity=2)
