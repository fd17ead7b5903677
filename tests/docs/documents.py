# SPDX-License-Identifier: MIT
"""The documents, and what stands in them."""
import re
import subprocess
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]

FENCE = re.compile(r"^(?:<!-- (?P<source>[^>\n]+) -->\n)?```(?P<language>[^\n]*)\n(?P<text>.*?)^```$", re.S | re.M)
LINK = re.compile(r"\[[^\]]*\]\(([^)\s]+)\)")


@dataclass
class Block:
    """A fenced block: its language, its text, and the comment above it that says where it comes from."""

    language: str
    text: str
    source: str
    line: int


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


def read(path):
    return path.read_text(encoding="utf-8")


def blocks(text):
    return [
        Block(found["language"], found["text"], found["source"] or "", text.count("\n", 0, found.start()) + 1)
        for found in FENCE.finditer(text)
    ]


def without_blocks(text):
    return FENCE.sub("", text)


def links(path):
    """Targets of the links of a document, those in code left out."""
    return LINK.findall(re.sub(r"`[^`\n]*`", "", without_blocks(read(path))))
