# SPDX-License-Identifier: MIT
"""Every link of every document leads to something that is there."""
import re
import subprocess
import sys
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "docs" / "doxygen"))
from filter import anchor  # noqa: E402

LINK = re.compile(r"\[[^\]]*\]\(([^)\s]+)\)")


def documents():
    """All Markdown files that are kept or about to be."""
    listed = subprocess.run(
        ["git", "ls-files", "--cached", "--others", "--exclude-standard", "*.md"],
        cwd=ROOT,
        capture_output=True,
        text=True,
        check=False,
    ).stdout.split()
    if listed:
        return [ROOT / name for name in listed if (ROOT / name).exists()]
    built = {"build", "node_modules"}  # an unpacked archive, no checkout
    return [path for path in ROOT.rglob("*.md") if not built & set(path.relative_to(ROOT).parts)]


def prose(text):
    """The text without code."""
    text = re.sub(r"^```.*?^```$", "", text, flags=re.S | re.M)
    return re.sub(r"`[^`\n]*`", "", text)


def anchors(path):
    taken = {}
    text = re.sub(r"^```.*?^```$", "", path.read_text(encoding="utf-8"), flags=re.S | re.M)
    return {anchor(heading, taken) for heading in re.findall(r"^#+ (.*)$", text, re.M)}


def broken(path):
    """Links of a document that lead nowhere."""
    found = []
    for target in LINK.findall(prose(path.read_text(encoding="utf-8"))):
        name, _, fragment = target.partition("#")
        if re.match(r"[a-z]+:", target):
            continue
        there = (path.parent / name).resolve() if name else path
        if not there.exists() or not there.is_relative_to(ROOT):
            found.append(f"{target}: no such file")
        elif fragment and fragment not in anchors(there):
            found.append(f"{target}: no such heading")
    return found


class Links(unittest.TestCase):
    def test_lead_to_files_and_headings_that_are_there(self):
        for path in documents():
            with self.subTest(document=str(path.relative_to(ROOT))):
                self.assertEqual(broken(path), [])

    def test_are_found(self):
        names = {str(path.relative_to(ROOT)) for path in documents()}
        self.assertLessEqual({"README.md", "ARCHITECTURE.md", "docs/wire-format.md"}, names)
        links = [link for path in documents() for link in LINK.findall(prose(path.read_text(encoding="utf-8")))]
        self.assertGreaterEqual(len(links), 20)

    def test_reach_every_guide_from_the_readme(self):
        reached, waiting = set(), [ROOT / "README.md"]
        while waiting:
            path = waiting.pop()
            if path in reached:
                continue
            reached.add(path)
            for target in LINK.findall(prose(path.read_text(encoding="utf-8"))):
                there = (path.parent / target.partition("#")[0]).resolve()
                if there.suffix == ".md" and there.exists():
                    waiting.append(there)
        guides = set((ROOT / "docs").glob("*.md"))

        self.assertEqual(sorted(guide.name for guide in guides - reached), [])


if __name__ == "__main__":
    unittest.main(verbosity=2)
