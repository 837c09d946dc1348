#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Checks docs/behaviour.md: every test that it names exists, and every section has the rows that it says it has.

    tests/check_behaviour.py [--build DIR]    the document against the test programs in DIR/bin and tests/lab
    tests/check_behaviour.py --self-test      this check against documents that are wrong
"""
import argparse
import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
DOCUMENT = ROOT / "docs" / "behaviour.md"
DECLARED = re.compile(r"^(\d+) behaviours?\.$")
ROW = re.compile(r"^\| (?P<behaviour>.+) \| (?P<tests>[^|]+) \|$")
HEADER = "| behaviour | tests |"
LAB_TEST = re.compile(r"^def (test_\w+)\(", re.MULTILINE)


class Section:
    def __init__(self, name):
        self.name = name
        self.declared = None
        self.rows = []    # (behaviour, names of tests)


def read_sections(text):
    sections = []
    for line in text.splitlines():
        if line.startswith("## "):
            sections.append(Section(line[3:]))
        elif sections and (declared := DECLARED.match(line)):
            sections[-1].declared = int(declared.group(1))
        elif sections and line != HEADER and (row := ROW.match(line)):
            sections[-1].rows.append((row["behaviour"], re.findall(r"`([^`]+)`", row["tests"])))
    return sections


def listed_by(program):
    """suite.test of each of its tests; those of one with parameters without them. None when it cannot be run."""
    try:
        listing = subprocess.run([program, "--gtest_list_tests"], capture_output=True, text=True, check=True).stdout
    except (OSError, subprocess.CalledProcessError):
        return None
    tests, suite = set(), ""
    for line in listing.splitlines():
        word = line.split("#")[0].strip()
        if not line.startswith(" "):
            suite = word.rstrip(".").rpartition("/")[2]
        elif word:
            tests.add(f"{suite}.{word.partition('/')[0]}")
    return tests


class RealTests:
    """Asks each program and reads each file once."""

    def __init__(self, programs):
        self.programs = programs
        self.known = {}

    def has(self, name):
        place, separator, test = name.partition("::" if "::" in name else "/")
        if not separator:
            return False
        if place not in self.known:
            self.known[place] = self.of_file(place) if separator == "::" else listed_by(self.programs / place)
        return test in (self.known[place] or ())

    @staticmethod
    def of_file(name):
        path = ROOT / "tests" / "lab" / name
        return set(LAB_TEST.findall(path.read_text(encoding="utf-8"))) if path.exists() else None


def flaws(text, tests):
    sections = read_sections(text)
    if not sections:
        yield "no section at all"
    for section in sections:
        if section.declared is None:
            yield f"{section.name}: does not say how many behaviours it has"
        elif len(section.rows) < section.declared:
            yield f"{section.name}: {len(section.rows)} rows for {section.declared} behaviours"
        for behaviour, names in section.rows:
            if not names:
                yield f"{section.name}: no test for: {behaviour}"
            for name in names:
                if not tests.has(name):
                    yield f"{section.name}: there is no test {name}"


def self_test(text, tests):
    """What a wrong document gives, for documents made wrong in one place each."""
    named = [name for section in read_sections(text) for _, names in section.rows for name in names]
    unit, lab = (next(name for name in named if sign in name) for sign in ("/", "::"))
    row = next(line for line in text.splitlines() if ROW.match(line) and line != HEADER)
    wrong = {
        "a test that was renamed": text.replace(f"`{unit}`", f"`{unit}_once`", 1),
        "a lab test that was renamed": text.replace(f"`{lab}`", f"`{lab}_once`", 1),
        "a program that is gone": text.replace(f"`{unit}`", f"`no_such_test/{unit.partition('/')[2]}`", 1),
        "a row that was lost": text.replace(row + "\n", "", 1),
        "a row without a test": text.replace(row, "| something | nothing |", 1),
        "a section that says no number": re.sub(r"^\d+ behaviours\.$", "", text, count=1, flags=re.MULTILINE),
    }
    missed = [what for what, document in wrong.items() if len(list(flaws(document, tests))) != 1]
    for what in missed:
        print(f"check_behaviour.py: did not notice {what}")
    return 1 if missed else 0


def main():
    parser = argparse.ArgumentParser(description="Does every test that docs/behaviour.md names exist?")
    parser.add_argument("--build", type=Path, default=ROOT / "build" / "release", help="build folder of the unit tests")
    parser.add_argument("--self-test", action="store_true", help="check that wrong documents are noticed")
    options = parser.parse_args()
    text, tests = DOCUMENT.read_text(encoding="utf-8"), RealTests(options.build / "bin")
    found = list(flaws(text, tests))
    for flaw in found:
        print(f"docs/behaviour.md: {flaw}")
    if found or (options.self_test and self_test(text, tests)):
        return 1
    sections = read_sections(text)
    named = {name for section in sections for _, names in section.rows for name in names}
    print(f"{sum(len(section.rows) for section in sections)} behaviours, held by {len(named)} tests")
    return 0


if __name__ == "__main__":
    sys.exit(main())
