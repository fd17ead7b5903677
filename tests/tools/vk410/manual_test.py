# SPDX-License-Identifier: MIT
"""The manual pages that the program writes: nothing to complain about, and all that --help says."""
import os
import re
import subprocess
import unittest

import program

VERBS = ("demo", "monitor", "inspect", "doctor", "record", "replay", "export", "check", "simulate", "config")


class Manual(program.Case):
    def setUp(self):
        super().setUp()
        self.assertEqual(self.run_program("help", "--man", "all", ".").returncode, 0)

    def rendered(self, page):
        ran = subprocess.run(
            ["mandoc", "-T", "utf8", "-O", "width=200", self.path(page)], capture_output=True, text=True, check=True
        )
        return re.sub(".\b", "", ran.stdout).replace("−", "-")

    def test_has_a_page_for_every_verb_and_one_for_all(self):
        names = sorted(name for name in os.listdir(self.folder) if name.endswith(".1"))
        self.assertEqual(names, sorted(["vk410.1", *(f"vk410-{verb}.1" for verb in VERBS)]))

    def test_has_nothing_to_complain_about(self):
        for name in (name for name in os.listdir(self.folder) if name.endswith(".1")):
            lint = subprocess.run(["mandoc", "-T", "lint", self.path(name)], capture_output=True, text=True)
            # Pages are found beside each other only where they are installed.
            complaints = [line for line in lint.stdout.splitlines() if "referenced manual not found" not in line]
            self.assertEqual(complaints, [])

    def test_says_what_help_says(self):
        for verb in VERBS:
            page = " ".join(self.rendered(f"vk410-{verb}.1").split())
            for line in self.run_program(verb, "--help").stdout.splitlines()[1:]:
                option = re.match(r"  (?:-\w,)?(--[\w-]+)[^ ]*(?: [^ ]+)*?  +(.*)", line)
                if option and option[1] != "--help":
                    self.assertIn(option[1], page, verb)
                    self.assertIn(" ".join(option[2].split()), page, verb)
                if line.startswith("  vk410 "):
                    self.assertIn(" ".join(line.split()), page)

    def test_names_every_verb(self):
        page = self.rendered("vk410.1")
        for verb in VERBS:
            self.assertRegex(page, rf"\n +{verb}[ \n]")
            self.assertIn(f"vk410-{verb}(1)", page)

    def test_of_one_verb_is_written_alone(self):
        os.mkdir(self.path("one"))
        self.assertEqual(self.run_program("help", "--man", "doctor", "one").returncode, 0)
        self.assertEqual(os.listdir(self.path("one")), ["vk410-doctor.1"])


class Help(program.Case):
    def test_begins_its_descriptions_in_small_letters(self):
        begun = set()
        for arguments in ([], *([verb] for verb in VERBS)):
            for line in self.run_program(*arguments, "--help").stdout.splitlines():
                described = re.match(r"  [-a-z][-\w,]*(?: [A-Z][\w:=|]*)*(?: REQUIRED)?(?: \.\.\.)?  +(\w+)", line)
                if described and described[1].istitle() and len(described[1]) > 1:
                    begun.add(described[1])
        self.assertEqual(begun, {"Prometheus"})

    def test_of_a_verb_is_the_same_both_ways(self):
        self.assertEqual(self.run_program("help", "monitor").stdout, self.run_program("monitor", "--help").stdout)
        self.assertEqual(self.run_program("help").stdout, self.run_program("--help").stdout)

    def test_fits_a_screen_and_ends_with_three_examples(self):
        for verb in VERBS:
            lines = self.run_program(verb, "--help").stdout.splitlines()
            self.assertLessEqual(len(lines), 40)
            self.assertEqual(lines[-4], "Examples:", verb)
            self.assertTrue(all("vk410 " + verb in line or "vk410 config" in line for line in lines[-3:]))

    def test_examples_of_config_work(self):
        lines = self.run_program("config", "--help").stdout.splitlines()
        for example in lines[-3:]:
            ran = subprocess.run(
                ["sh", "-c", example], cwd=self.folder, env=self.environment, capture_output=True, text=True
            )
            self.assertEqual(ran.returncode, 0, ran.stderr)
            self.assertIn("[monitor]", ran.stdout)

    def test_that_cannot_be_given_says_why(self):
        cases = [
            (["help", "dance"], "vk410 help: expected a verb, found 'dance'; 'vk410 --help' lists them\n"),
            (["help", "--man", "dance", "."], "vk410 help: expected a verb, found 'dance'; 'vk410 --help' lists them\n"),
            (
                ["help", "--man", "all", "no/folder"],
                "vk410 help: no/folder/vk410.1: expected a file that can be written, found: No such file or directory; "
                "choose a folder that exists and that you may write to\n",
            ),
            (["help", "--completion", "fish"], "vk410 help: --completion: expected bash, found 'fish'; 'vk410 help --help' shows how\n"),
        ]
        for arguments, said in cases:
            ran = self.run_program(*arguments)
            self.assertEqual((ran.returncode, ran.stdout, ran.stderr), (2, "", said))


if __name__ == "__main__":
    unittest.main()
