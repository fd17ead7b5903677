#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Shows the reference's generator the house style of headers and guides.

Headers: what the file is for stands behind #pragma once; labels (Shape, Units, ...) become paragraphs; a comment behind
a declaration documents it; a docstring holds for all declarations below it up to the next empty line.
Guides: headings get the anchors that links to them use.
Every line stays where it is, so that warnings name the right one.
"""
import re
import sys
from pathlib import Path

LABELS = "Shape|Units|Result|Errors|Owner|Order|Source|Thread"
LABEL = re.compile(rf"^({LABELS}):\s+")
# A comment behind a declaration documents it.
BEHIND = re.compile(r"^(.*[;,{}\w])(\s+)// (.*)$")


def docstring(line):
    """The text of a /// line, its label as a paragraph of its own; None for other lines."""
    match = re.match(r"^\s*///(?!<) ?(.*)$", line)
    return match and LABEL.sub(r"@label{\1} ", match[1].lstrip() if LABEL.match(match[1].lstrip()) else match[1])


def header(lines):
    """Lines of a header as the generator understands them."""
    text, indent, spread = [], 0, False  # the docstring above, its indentation, whether it has its declaration already
    is_open = False  # a declaration goes on in the next line
    is_file = False
    for line in lines:
        if line == "#pragma once":
            is_file = True
            yield "/// @file"
            continue
        if is_file and line.startswith("//"):
            yield "/" + line
            continue
        is_file = False
        own = len(line) - len(line.lstrip())
        doc = docstring(line)
        if doc is not None:
            if spread or own != indent:
                text, spread = [], False
            text.append(doc)
            indent, is_open = own, False
            yield line[:own] + "/// " + doc
            continue
        code = line.strip()
        if not code or own < indent:
            text, spread, is_open = [], False, False
        elif (spread or not text) and re.search(r"= (default|delete);|^(virtual )?~|^extern template ", code):
            yield ""  # speaks for itself
            continue
        elif text and own == indent and not is_open and not re.match(r"[}{:#]|//|friend |static_assert", code):
            if spread and not BEHIND.match(line):
                line = " " * own + "/** " + " ".join(text) + " */ " + code
            spread = True
        bare = re.sub(r"\s*//.*$", "", code)
        if own == indent or is_open:
            is_open = bool(bare) and not (own == indent and bare[-1] in ";,}")
        if re.match(r"(class|struct|enum|namespace)\b.*\{$", bare):
            text, spread, is_open = [], False, False
        behind = BEHIND.match(line)
        if behind and behind[1].strip() not in ("}", "};"):
            line = f"{behind[1]}{behind[2]}///< {behind[3]}"
        yield line


def anchor(heading, taken):
    """The anchor that code hosts give to a heading."""
    text = re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", heading).strip().lower()
    base = re.sub(r"[^\w\- ]", "", text).replace(" ", "-")
    count = taken[base] = taken.get(base, -1) + 1
    return f"{base}-{count}" if count else base


def link(stem, match):
    """A link as the generator resolves it; to files that are no part of the reference: their name alone."""
    text, target = match[1], match[2]
    path, _, fragment = target.partition("#")
    if "://" in target:
        return match[0]
    if fragment:
        target = f"@ref {Path(path).stem if path else stem}-{fragment}"
    elif not path.endswith((".md", ".png")):
        return text
    return f"[{text.replace('`', '')}]({target})"  # no code in the text of a link


def guide(stem, text):
    """A guide as the generator understands it."""
    taken = {}

    def heading(match):
        name = anchor(match[2], taken)
        return match[0] + (f" {{#{stem}-{name}}}" if len(match[1]) > 1 else "")

    def prose(part):
        part = re.sub(r"!\[([^\]]*)\]\([^)]*/([^)/]+)\)", r"![\1](\2)", part)
        part = re.sub(r"(?<!!)\[([^\]]*)\]\(([^)\s]+)\)", lambda match: link(stem, match), part)
        return re.sub(r"^(#+) (.*)$", heading, part, flags=re.M)

    parts = re.split(r"(^```.*?^```$)", text, flags=re.S | re.M)
    return "".join(part if part.startswith("```") else prose(part) for part in parts)


def main():
    path = Path(sys.argv[1])
    text = path.read_text(encoding="utf-8")
    sys.stdout.write(guide(path.stem, text) if path.suffix == ".md" else "\n".join(header(text.split("\n"))))


if __name__ == "__main__":
    main()
