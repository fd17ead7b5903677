#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Changes the protocol library in one place at a time and looks whether the unit tests notice.

usage: tests/mutation/mutate.py BUILD_FOLDER [--minutes M] [--seed S] [--jobs N] [--file NAME] [--list]
BUILD_FOLDER/1 and so on, one a job, each get a copy of the tree, in which sources are changed, and a build.
Prints a line a mutant and a summary; survivors are listed with their line. Ends with 1 when fewer than nine of ten are
noticed.
"""
import argparse
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import threading
import time

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
LIBRARY = "devicecontrol/vk410protocol"
TESTS = ("tests/devicecontrol/vk410protocol", "tests/survival")

# What is changed to what. Spaces around binary operators are those of the project's formatting.
OPERATORS = [
    (" < ", " <= "), (" <= ", " < "), (" > ", " >= "), (" >= ", " > "), (" == ", " != "), (" != ", " == "),
    (" && ", " || "), (" || ", " && "), (" + ", " - "), (" - ", " + "), (" * ", " / "), (" / ", " * "),
    (" += ", " -= "), (" -= ", " += "), (" & ", " | "), (" | ", " & "), ("++", "--"),
    ("true", "false"), ("false", "true"), ("if (!", "if ("), ("return !", "return "), ("std::min", "std::max"), ("std::max", "std::min"),
]
NUMBER = re.compile(r"(?<![\w.\"'])(\d+)(?![\w.\"'])")
CONDITION = re.compile(r"\bif \((?!constexpr)(.*)\)( \{)?$")
CALL = re.compile(r"^\s+[\w.>:-]+\(.*\);$")
# Its tests change what lives as long as the process.
ALONE = "mdpifpan_statics_test"
SKIPPED = re.compile(r"^\s*(//|#|static_assert|\[\[|template|using|friend|inline constexpr char)|_Q_assert|_Q_Trace|static_cast<|connect\(|namespace")


def code_of(line):
    """The line without what stands in quotes or behind //."""
    return re.sub(r'"(\\.|[^"\\])*"', lambda text: " " * len(text[0]), line).split("//")[0]


def mutants_of(path):
    """(path, line number, new line, what) for every place."""
    with open(os.path.join(ROOT, path), encoding="utf-8") as file:
        lines = file.read().split("\n")
    for number, line in enumerate(lines):
        code = code_of(line)
        if SKIPPED.search(line) or not code.strip():
            continue
        for old, new in OPERATORS:
            if old in ("true", "false"):
                places = [match.start() for match in re.finditer(rf"\b{old}\b", code)]
            else:
                places = [match.start() for match in re.finditer(re.escape(old), code)]
            for at in places:
                yield path, number, line[:at] + new + line[at + len(old):], f"{old.strip()} -> {new.strip()}"
        for match in NUMBER.finditer(code):
            value = int(match[1])
            yield path, number, line[:match.start()] + str(value + 1) + line[match.end():], f"{value} -> {value + 1}"
        match = CONDITION.search(code)
        if match and line.count("(") == line.count(")"):
            for value in ("true", "false"):
                yield path, number, line[:match.start(1)] + value + line[match.end(1):], f"condition -> {value}"
        if CALL.match(code):
            yield path, number, "", "call removed"


class Bed:
    """A copy of the tree with a build of its own."""

    def __init__(self, folder):
        self.build = os.path.join(os.path.abspath(folder), "build")
        self.source = os.path.join(os.path.abspath(folder), "source")
        self.cores = os.cpu_count()  # until other beds work beside this one
        shutil.rmtree(self.source, ignore_errors=True)
        listed = subprocess.run(["git", "-C", ROOT, "ls-files", "-z"], check=True, stdout=subprocess.PIPE).stdout.decode().split("\0")
        for name in filter(None, listed):
            if os.path.exists(os.path.join(ROOT, name)) and not name.startswith(("docs/", "web/", "fuzz/corpus/")):
                os.makedirs(os.path.dirname(os.path.join(self.source, name)), exist_ok=True)
                # With the time of now: what an earlier run left behind may be the object file of a mutant.
                shutil.copy(os.path.join(ROOT, name), os.path.join(self.source, name))
        # A value that is not there is no value: the library's own checks say so. A test is linked once, not for each mutant.
        self.run(["cmake", "-S", self.source, "-B", self.build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
                  "-DCMAKE_CXX_FLAGS_DEBUG=-O0 -g0 -D_GLIBCXX_ASSERTIONS", "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON", "-DVK410_WERROR=OFF",
                  "-DVK410_BUILD_PAGE=OFF", "-DVK410_BUILD_FUZZ=OFF"], 600)
        # The folder of each test.
        self.tests = {name[:-len(".cpp")]: folder for folder in TESTS
                      for name in sorted(os.listdir(os.path.join(ROOT, folder))) if name.endswith("_test.cpp")}
        if not self.compiles():
            sys.exit("mutate.py: the tree does not build as it is")
        self.seconds = {}
        for test in self.tests:
            begin = time.time()
            if not self.passes(test, 120):
                sys.exit(f"mutate.py: {test} fails as it is")
            self.seconds[test] = time.time() - begin

    def run(self, command, timeout):
        process = subprocess.Popen(command, cwd=self.source, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True)
        try:
            output, _ = process.communicate(timeout=timeout)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            return False
        return process.returncode == 0

    def compiles(self):
        return self.run(["cmake", "--build", self.build, "-j", str(self.cores), "--target", *self.tests], 1800)

    def passes(self, test, timeout):
        program = os.path.join(self.build, self.tests[test], test)
        if test != ALONE:
            return self.run([program, "--gtest_fail_fast", "--gtest_brief=1"], timeout)
        listed = subprocess.run([program, "--gtest_list_tests"], check=False, stdout=subprocess.PIPE, text=True).stdout
        names = [line.strip() for line in listed.splitlines() if line.startswith("  ")]
        return bool(names) and all(self.run([program, f"--gtest_filter=*.{name}"], timeout) for name in names)

    def fate(self, mutant):
        """"invalid" (does not compile), the name of the test that notices it, or None."""
        path, number, line, _ = mutant
        place = os.path.join(self.source, path)
        with open(place, encoding="utf-8") as file:
            before = file.read()
        lines = before.split("\n")
        lines[number] = line
        try:
            with open(place, "w", encoding="utf-8") as file:
                file.write("\n".join(lines))
            if not self.compiles():
                return "invalid"
            own = os.path.basename(path).split(".")[0]
            for test in sorted(self.tests, key=lambda name: (not name.startswith(own), self.seconds[name])):
                if not self.passes(test, 10 + 5 * self.seconds[test]):
                    return test
            return None
        finally:
            with open(place, "w", encoding="utf-8") as file:
                file.write(before)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build")
    parser.add_argument("--minutes", type=float, default=60)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="mutants tried at the same time")
    parser.add_argument("--file", help="only this file of the library")
    parser.add_argument("--list", action="store_true", help="show all mutants, change nothing")
    arguments = parser.parse_args()

    files = sorted(name for name in os.listdir(os.path.join(ROOT, LIBRARY)) if name.endswith(".cpp"))
    mutants = [mutant for name in files if arguments.file in (None, name) for mutant in mutants_of(f"{LIBRARY}/{name}")]
    random.Random(arguments.seed).shuffle(mutants)
    if arguments.list:
        for path, number, line, what in mutants:
            print(f"{path}:{number + 1}: {what}: {line.strip()}")
        return 0
    beds = [Bed(os.path.join(arguments.build, str(job + 1))) for job in range(arguments.jobs)]
    end = time.time() + 60 * arguments.minutes
    untried = iter(mutants)
    noticed, survivors, invalid = 0, [], 0
    lock = threading.Lock()

    def work(bed):
        nonlocal noticed, invalid
        bed.cores = 1
        while time.time() < end:
            with lock:
                mutant = next(untried, None)
            if mutant is None:
                return
            fate = bed.fate(mutant)
            path, number, line, what = mutant
            with lock:
                print(f"{fate or 'SURVIVED':28} {path}:{number + 1}: {what}: {line.strip()}", flush=True)
                invalid += fate == "invalid"
                noticed += fate not in (None, "invalid")
                if fate is None:
                    survivors.append(mutant)

    workers = [threading.Thread(target=work, args=(bed,)) for bed in beds]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    tried = noticed + len(survivors)
    print(f"\n{len(mutants)} places; {tried} mutants tried (and {invalid} that do not compile), {noticed} noticed: {100 * noticed / max(tried, 1):.1f} %")
    for path, number, line, what in survivors:
        print(f"survived: {path}:{number + 1}: {what}: {line.strip() or '(removed)'}")
    return 0 if tried and noticed >= 0.9 * tried else 1


sys.exit(main())
