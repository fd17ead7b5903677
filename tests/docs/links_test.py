# SPDX-License-Identifier: MIT
"""Every link of every document leads to something that is there."""
import re
import sys
import unittest

from documents import ROOT, documents, links, read, without_blocks

sys.path.insert(0, str(ROOT / "docs" / "doxygen"))
from filter import anchor  # noqa: E402


def anchors(path):
    taken = {}
    return {anchor(heading, taken) for heading in re.findall(r"^#+ (.*)$", without_blocks(read(path)), re.M)}


def target_of(path, link):
    """The file that a link leads to."""
    name = link.partition("#")[0]
    return (path.parent / name).resolve() if name else path


def fault(path, link):
    """What is wrong with a link; nothing when it leads somewhere."""
    if re.match(r"[a-z]+:", link):
        return None
    there, fragment = target_of(path, link), link.partition("#")[2]
    if not there.exists() or not there.is_relative_to(ROOT):
        return f"{link}: no such file"
    if fragment and fragment not in anchors(there):
        return f"{link}: no such heading"
    return None


class Links(unittest.TestCase):
    def test_lead_to_files_and_headings_that_are_there(self):
        for path in documents():
            with self.subTest(document=str(path.relative_to(ROOT))):
                self.assertEqual([text for text in (fault(path, link) for link in links(path)) if text], [])

    def test_are_found(self):
        names = {str(path.relative_to(ROOT)) for path in documents()}
        self.assertLessEqual({"README.md", "ARCHITECTURE.md", "docs/wire-format.md"}, names)
        self.assertGreaterEqual(sum(len(links(path)) for path in documents()), 20)

    def test_that_lead_nowhere_are_noticed(self):
        readme = ROOT / "README.md"
        self.assertEqual(fault(readme, "docs/nowhere.md"), "docs/nowhere.md: no such file")
        self.assertEqual(fault(readme, "#no-heading"), "#no-heading: no such heading")
        self.assertIsNone(fault(readme, "docs/page.md#the-displays"))

    def test_reach_every_guide_from_the_readme(self):
        reached, waiting = set(), [ROOT / "README.md"]
        while waiting:
            path = waiting.pop()
            if path not in reached and path.suffix == ".md" and path.exists():
                reached.add(path)
                waiting += [target_of(path, link) for link in links(path)]
        guides = {*(ROOT / "docs").glob("*.md"), *(ROOT / "examples").glob("*.md")}

        self.assertEqual(sorted(guide.name for guide in guides - reached), [])


if __name__ == "__main__":
    unittest.main(verbosity=2)
