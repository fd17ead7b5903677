# SPDX-License-Identifier: MIT
"""What the reference's generator gets to see of headers and guides."""
import sys
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "docs" / "doxygen"))
import filter as shown  # noqa: E402


class Headers(unittest.TestCase):
    def expect(self, lines, expected):
        self.assertEqual(list(shown.header(lines)), expected)

    def test_say_what_the_file_is_for(self):
        self.expect(["#pragma once", "// Framing.", '#include "x.h"'], ["/// @file", "/// Framing.", '#include "x.h"'])

    def test_have_labels_as_paragraphs(self):
        self.expect(["/// Units:  bytes."], [r"/// @label{Units} bytes."])

    def test_keep_words_that_only_look_like_labels(self):
        self.expect(["/// The Order: first."], ["/// The Order: first."])

    def test_have_comments_behind_a_declaration_as_its_documentation(self):
        self.expect(["    int tag; // known or not"], ["    int tag; ///< known or not"])
        self.expect(["} // namespace wire"], ["} // namespace wire"])

    def test_let_a_docstring_hold_until_the_next_empty_line(self):
        self.expect(
            ["/// Limits.", "int low();", "int high();", "", "int other();"],
            ["/// Limits.", "int low();", "/** Limits. */ int high();", "", "int other();"],
        )

    def test_document_each_declaration_once_however_many_lines_it_has(self):
        lines = ["/// Sum.", "int sum(int a,", "        int b)", "{", "    return a + b;", "}"]
        self.expect(lines, lines)
        lines = ["/// Size.", "[[nodiscard]] inline long", "size(View prefix)", "{", "}"]
        self.expect(lines, lines)

    def test_leave_a_docstring_with_the_class_that_it_describes(self):
        lines = ["/// A view.", "class View {", "public:", "    int size();"]
        self.expect(lines, lines)

    def test_let_what_the_compiler_makes_speak_for_itself(self):
        self.expect(
            ["    /// Takes the bytes.", "    explicit D(Bytes b);", "    D(const D&) = delete;", "    ~D();"],
            ["    /// Takes the bytes.", "    explicit D(Bytes b);", "", ""],
        )

    def test_keep_the_number_of_every_line(self):
        for header in sorted(ROOT.glob("*/**/*.h")):
            if header.relative_to(ROOT).parts[0] in ("wire", "platform", "devicecontrol"):
                lines = header.read_text(encoding="utf-8").split("\n")
                with self.subTest(header=header.name):
                    self.assertEqual(len(list(shown.header(lines))), len(lines))


class Guides(unittest.TestCase):
    def expect(self, text, expected):
        self.assertEqual(shown.guide("page", text), expected)

    def test_have_the_anchors_that_links_use(self):
        self.expect("## How it `ends`\n", "## How it `ends` {#page-how-it-ends}\n")
        self.expect("## Twice\n## Twice\n", "## Twice {#page-twice}\n## Twice {#page-twice-1}\n")

    def test_link_to_headings_of_their_own_and_of_others(self):
        self.expect("[a](#twice), [b](other.md#there)", "[a](@ref page-twice), [b](@ref other-there)")
        self.expect("[over\ntwo lines](other.md#there)", "[over\ntwo lines](@ref other-there)")

    def test_keep_the_names_of_files_that_are_no_part_of_the_site(self):
        self.expect("[`df.bin`](samples/df.bin), [x](other.md)", "`df.bin`, [x](other.md)")

    def test_leave_code_as_it_is(self):
        text = "```text\n## no heading [a](b)\n```\n"
        self.expect(text, text)


if __name__ == "__main__":
    unittest.main(verbosity=2)
