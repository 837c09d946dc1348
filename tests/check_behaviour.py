#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Checks docs/behaviour.md: every test that it names exists, and no section or row is missing, doubled or malformed.

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
UNIT_TESTS = ROOT / "tests" / "unit"
DECLARED_SECTIONS = re.compile(r"^(\d+) sections\.$", re.MULTILINE)
DECLARED = re.compile(r"^(\d+) behaviours?\.$")
ROW = re.compile(r"^\| (?P<behaviour>[^|]+) \| (?P<tests>`[^`|]+`(?:<br>`[^`|]+`)*) \|$")
HEADER = ("| behaviour | tests |", "|---|---|")
UNIT_TEST = re.compile(r"^TEST(?:_F|_P)?\((\w+),\s*(\w+)\)", re.MULTILINE)
LAB_TEST = re.compile(r"^def (test_\w+)\(", re.MULTILINE)


class Section:
    def __init__(self, name):
        self.name = name
        self.declared = None
        self.rows = []         # (behaviour, names of tests)
        self.malformed = []    # lines of the table that are no rows


def read_sections(text):
    sections = []
    for line in text.splitlines():
        if line.startswith("## "):
            sections.append(Section(line[3:]))
        elif sections and (declared := DECLARED.match(line)):
            sections[-1].declared = int(declared.group(1))
        elif sections and line.startswith("|") and line not in HEADER:
            if row := ROW.match(line):
                sections[-1].rows.append((row["behaviour"], re.findall(r"`([^`]+)`", row["tests"])))
            else:
                sections[-1].malformed.append(line)
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


def written_in(folder):
    """suite.test of each unit test in the sources there."""
    return {".".join(found) for path in folder.rglob("*.cpp")
            for found in UNIT_TEST.findall(path.read_text(encoding="utf-8"))}


class RealTests:
    """Asks each program and reads each file once. A unit test counts only when its source is still there: a program
    that was built earlier may know more."""

    def __init__(self, programs, written):
        self.programs = programs
        self.written = written
        self.known = {}

    def has(self, name):
        place, separator, test = name.partition("::" if "::" in name else "/")
        if not separator:
            return False
        if place not in self.known:
            self.known[place] = self.of_file(place) if separator == "::" else listed_by(self.programs / place)
        return test in (self.known[place] or ()) and (separator == "::" or test in self.written)

    @staticmethod
    def of_file(name):
        path = ROOT / "tests" / "lab" / name
        return set(LAB_TEST.findall(path.read_text(encoding="utf-8"))) if path.exists() else None


def flaws(text, tests):
    sections = read_sections(text)
    declared = DECLARED_SECTIONS.search(text)
    if not declared:
        yield "does not say how many sections it has"
    elif len(sections) != int(declared.group(1)):
        yield f"{len(sections)} sections, but it says {declared.group(1)}"
    behaviours = set()
    for section in sections:
        lines = len(section.rows) + len(section.malformed)
        if section.declared is None:
            yield f"{section.name}: does not say how many behaviours it has"
        elif lines != section.declared:
            yield f"{section.name}: {lines} rows for {section.declared} behaviours"
        for line in section.malformed:
            yield f"{section.name}: not of the form | behaviour | `test`<br>`test` |: {line}"
        for behaviour, names in section.rows:
            if behaviour in behaviours:
                yield f"{section.name}: stands here twice: {behaviour}"
            behaviours.add(behaviour)
            for name in names:
                if not tests.has(name):
                    yield f"{section.name}: there is no test {name}"


def self_test(text, tests):
    """What wrong documents and old programs give, each wrong in one place."""
    named = [name for section in read_sections(text) for _, names in section.rows for name in names]
    unit, lab = (next(name for name in named if sign in name and named.count(name) == 1) for sign in ("/", "::"))
    program, _, test = unit.partition("/")
    lines = text.splitlines()
    first = next(number for number, line in enumerate(lines) if ROW.match(line))
    row = lines[first]
    sections = [number for number, line in enumerate(lines) if line.startswith("## ")]
    wrong = {
        "a test that was renamed": text.replace(f"`{unit}`", f"`{unit}_once`"),
        "a lab test that was renamed": text.replace(f"`{lab}`", f"`{lab}_once`"),
        "a program that is gone": text.replace(f"`{unit}`", f"`no_such_test/{test}`"),
        "a row that was lost": text.replace(row + "\n", "", 1),
        "a row more than declared": text.replace(row, f"{row}\n| something | `{unit}` |", 1),
        "a row in another one's place": "\n".join([*lines[:first], row, row, *lines[first + 2:]]),
        "a row without a test": text.replace(row, "| something | nothing |", 1),
        "a third column": text.replace(row, f"| something | `gone/a.b` | `{unit}` |", 1),
        "a name without backticks": text.replace(row, f"| something | `{unit}`<br>{program}/a.b |", 1),
        "a section that says no number": re.sub(r"^\d+ behaviours\.$", "", text, count=1, flags=re.MULTILINE),
        "a section that was lost": "\n".join(lines[:sections[0]] + lines[sections[1]:]),
        "a document that says no number": DECLARED_SECTIONS.sub("", text),
    }
    found = {what: list(flaws(document, tests)) for what, document in wrong.items()}
    stale = RealTests(tests.programs, tests.written - {test})
    found["a program that is older than its sources"] = list(flaws(text, stale))
    missed = [what for what, told in found.items() if len(told) != 1]
    for what in missed:
        print(f"check_behaviour.py: {what} gives {found[what] or 'nothing'}")
    return 1 if missed else 0


def main():
    parser = argparse.ArgumentParser(description="Does every test that docs/behaviour.md names exist?")
    parser.add_argument("--build", type=Path, default=ROOT / "build" / "release", help="build folder of the unit tests")
    parser.add_argument("--self-test", action="store_true", help="check that wrong documents are noticed")
    options = parser.parse_args()
    text, tests = DOCUMENT.read_text(encoding="utf-8"), RealTests(options.build / "bin", written_in(UNIT_TESTS))
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
