# SPDX-License-Identifier: MIT
"""The pictures of optional headers in docs/wire-format.md are those of wire/optheader.h."""
import re
import unittest

from documents import ROOT, blocks, read

NAMESPACES = {"301": "opt301", "501": "ifpan", "1801": "zerospan", "5301": "dfscan"}


def drawn(tag):
    """Offset and name of each field of a picture, in order; the last one is the end."""
    section = re.search(rf"^### Tag {tag}\b.*?(?=^##|\Z)", read(ROOT / "docs" / "wire-format.md"), re.S | re.M)[0]
    lines = blocks(section)[0].text.splitlines()
    cells = []
    for offsets, names in zip(lines[::2], lines[1::2]):
        for number in re.finditer(r"\d+", offsets):
            name = re.match(r"\| (\w+) |\|$", names[number.start() :])
            cells.append((int(number[0]), name[1]))
    return cells


def described(namespace):
    """The same from the header."""
    text = re.search(
        rf"^namespace {namespace} \{{\n(.*?)^\}} // namespace {namespace}$", read(ROOT / "wire" / "optheader.h"), re.S | re.M
    )[1]
    fields = [(int(offset), name) for name, offset in re.findall(r'\{"(\w+)", \w+, (\d+)\}', text)]
    return fields, int(re.search(r"\bsize = (\d+)", text)[1])


class OptionalHeaders(unittest.TestCase):
    def test_are_drawn_as_they_are(self):
        for tag, namespace in NAMESPACES.items():
            with self.subTest(tag=tag):
                fields, size = described(namespace)
                cells = drawn(tag)
                self.assertGreater(len(fields), 9)
                self.assertEqual([cell for cell in cells if cell[1]], fields)
                self.assertEqual(cells[-1], (size, None))


if __name__ == "__main__":
    unittest.main(verbosity=2)
