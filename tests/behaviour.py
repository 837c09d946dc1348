#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Makes docs/behaviour.md from tests/behaviour_list.md and from the comments beside the tests that say what they hold.

    tests/behaviour.py                        writes the document
    tests/behaviour.py --check [--build DIR]  is it what would be written, and does DIR/bin know the tests it names?
    tests/behaviour.py --self-test            does this check notice what is wrong?

A comment `// holds: name, name` (in Python `# holds: name`) stands above a test, without an empty line between.
"""
import argparse
import json
import re
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
LIST = Path("tests/behaviour_list.md")
DOCUMENT = Path("docs/behaviour.md")
SOURCES = (("tests/unit", "*.cpp"), ("tests/lab", "test_*.py"))
BEHAVIOUR = re.compile(r"- (?P<name>[a-z0-9-]+): (?P<sentence>.+)")
HOLDS = re.compile(r"^(?://|#) holds: (.+)$", re.MULTILINE)
UNIT_TEST = re.compile(r"^(?:TYPED_)?TEST(?:_F|_P)?\((\w+),\s*(\w+)\)", re.MULTILINE)
LAB_TEST = re.compile(r"^def (test_\w+)\(", re.MULTILINE)


class Test:
    def __init__(self, path, found):
        self.path = path
        self.of_lab = path.suffix == ".py"
        self.name = f"{path.name}::{found.group(1)}" if self.of_lab else ".".join(found.groups())


class Behaviours:
    """The list, the tests that say they hold something of it, and what is wrong with either."""

    def __init__(self, root):
        self.root = root
        self.lines = (root / LIST).read_text(encoding="utf-8").splitlines()
        self.tests = {}   # by name of the behaviour, in the order of the list
        self.flaws = []
        sentences = set()
        for behaviour in filter(None, map(BEHAVIOUR.fullmatch, self.lines)):
            name, sentence = behaviour.groups()
            if name in self.tests or sentence in sentences:
                self.flaws.append(f"{LIST}: stands there twice: {behaviour.group()}")
            sentences.add(sentence)
            self.tests[name] = []
        for folder, pattern in SOURCES:
            for path in sorted((root / folder).rglob(pattern)):
                self.read(path)
        self.flaws += [f"{LIST}: no test holds {name}" for name, tests in self.tests.items() if not tests]
        self.flaws += [f"{LIST}: neither a heading nor a behaviour: {line}"
                       for line in self.lines if line.startswith("-") and not BEHAVIOUR.fullmatch(line)]

    def read(self, path):
        text = path.read_text(encoding="utf-8")
        comments = {comment.start(): comment for comment in HOLDS.finditer(text)}
        end = 0
        for found in (LAB_TEST if path.suffix == ".py" else UNIT_TEST).finditer(text):
            begin, end = max(end, text.rfind("\n\n", 0, found.start())), found.end()
            test = Test(path.relative_to(self.root), found)
            for place in [place for place in comments if begin <= place < end]:
                for name in comments.pop(place).group(1).split(", "):
                    self.hold(name, test)
        self.flaws += [f"{path.relative_to(self.root)}: stands above no test: {comment.group()}"
                       for comment in comments.values()]

    def hold(self, name, test):
        if name in self.tests:
            self.tests[name].append(test)
        else:
            self.flaws.append(f"{test.path}: {test.name} holds {name}, which {LIST} does not know")

    def document(self):
        lines = []
        for line in self.lines:
            behaviour = BEHAVIOUR.fullmatch(line)
            lines.append(f"- {behaviour['sentence']}" if behaviour else line)
            if behaviour:
                lines += [f"  - [`{test.name}`](../{test.path})" for test in self.tests[behaviour["name"]]]
        return "\n".join(lines) + "\n"

    def not_built(self, folder):
        """Of the unit tests that hold something those that no program there knows."""
        known = set().union(*map(listed_by, programs_of(folder.parent)))
        named = {test.name: test for tests in self.tests.values() for test in tests if not test.of_lab}
        return [f"{test.path}: no program of {folder} knows {name}" for name, test in named.items() if name not in known]


def programs_of(build):
    """The test programs that are run there, not what older builds left behind."""
    shown = subprocess.run(["ctest", "--test-dir", build, "--show-only=json-v1"], capture_output=True, text=True, check=True)
    return {Path(build) / test["command"][0] for test in json.loads(shown.stdout)["tests"] if "command" in test}


def listed_by(program):
    """suite.test of each of its tests; those with parameters or types without them."""
    try:
        listing = subprocess.run([program, "--gtest_list_tests"], capture_output=True, text=True, check=True).stdout
    except (OSError, subprocess.CalledProcessError):
        return set()
    tests, suite = set(), ""
    for line in listing.splitlines():
        word = line.split("#")[0].strip()
        if not line.startswith(" "):
            suite = re.sub(r"/\d+$", "", word.rstrip(".")).rpartition("/")[2]
        elif word:
            tests.add(f"{suite}.{word.partition('/')[0]}")
    return tests


def flaws(root, programs=None):
    behaviours = Behaviours(root)
    document = root / DOCUMENT
    found = list(behaviours.flaws)
    if not found and (not document.exists() or document.read_text(encoding="utf-8") != behaviours.document()):
        found.append(f"{DOCUMENT}: is not what the tests say; {Path(__file__).name} writes it anew")
    return found + (behaviours.not_built(programs) if programs else [])


SAMPLE = {
    LIST: "# Title\n\n## Doors\n\nOf wood.\n\n- open: A door opens.\n- shut: A door shuts.\n",
    "tests/unit/doors_test.cpp": "// holds: open\nTEST(doors, open)\n{\n}\n\n// why\n// holds: open, shut\nTEST_P(doors, turn)\n",
    "tests/lab/test_doors.py": "# holds: shut\n@scenario(\n    'doors')\ndef test_a_door_shuts(seen):\n    pass\n",
    "CTestTestfile.cmake": "add_test(doors bin/doors_test)\n",
    "bin/doors_test": "#!/bin/sh\nprintf 'doors.\\n  open\\nAll/doors.\\n  turn/0  # GetParam() = 0\\n'\n",
}
SAMPLE_DOCUMENT = """# Title

## Doors

Of wood.

- A door opens.
  - [`doors.open`](../tests/unit/doors_test.cpp)
  - [`doors.turn`](../tests/unit/doors_test.cpp)
- A door shuts.
  - [`doors.turn`](../tests/unit/doors_test.cpp)
  - [`test_doors.py::test_a_door_shuts`](../tests/lab/test_doors.py)
"""
WRONG = {  # what is wrong: the file, its text, the text in its place, and what the check must tell
    "a document that is older": (DOCUMENT, "doors.turn", "doors.swing", "is not what the tests say"),
    "a behaviour that is not listed": ("tests/unit/doors_test.cpp", ": open\n", ": opened\n", "does not know"),
    "a behaviour that is gone": (LIST, "- open: A door opens.\n", "", "does not know"),
    "a behaviour that no test holds": (LIST, "- shut", "- lock: A door locks.\n- shut", "no test holds lock"),
    "a behaviour under two names": (LIST, "- shut", "- ajar: A door opens.\n- shut", "stands there twice"),
    "a behaviour without a name": (LIST, "- shut: A", "- A", "neither a heading nor a behaviour"),
    "a comment above nothing": ("tests/unit/doors_test.cpp", "open\nTEST", "open\n\nTEST", "stands above no test"),
    "a comment above what is no lab test": ("tests/lab/test_doors.py", "def test", "def rest", "stands above no test"),
    "a test that is not in its program": ("bin/doors_test", "turn", "swing", "knows doors.turn"),
    "a program that cannot be run": ("bin/doors_test", "#!/bin/sh", "#!/no/such/shell", "knows doors.open"),
}


def told_of_sample(change):
    """What is told of a tree that is right but for one change of (file, old text, new text)."""
    with tempfile.TemporaryDirectory() as folder:
        root = Path(folder)
        for name, text in {**SAMPLE, DOCUMENT: SAMPLE_DOCUMENT}.items():
            path = root / name
            path.parent.mkdir(parents=True, exist_ok=True)
            if change and change[0] == name:
                assert change[1] in text
                text = text.replace(change[1], change[2])
            path.write_text(text, encoding="utf-8")
        (root / "bin" / "doors_test").chmod(0o700)
        return flaws(root, root / "bin")


def self_test():
    missed = [f"what is right gives {told}" for told in told_of_sample(None)]
    for what, (*change, expected) in WRONG.items():
        told = told_of_sample(change)
        if not any(expected in line for line in told):
            missed.append(f"{what} gives {told or 'nothing'}")
    return missed


def main():
    parser = argparse.ArgumentParser(description="The behaviours that somebody relies on, and the tests that hold them")
    parser.add_argument("--check", action="store_true", help="write nothing; status 1 when the document is not right")
    parser.add_argument("--build", type=Path, help="with --check: a build folder whose programs must know the tests")
    parser.add_argument("--self-test", action="store_true", help="check that what is wrong is noticed")
    options = parser.parse_args()
    found = self_test() if options.self_test else []
    if options.check:
        found += flaws(ROOT, options.build / "bin" if options.build else None)
    elif not options.self_test:
        behaviours = Behaviours(ROOT)
        found = behaviours.flaws
        (ROOT / DOCUMENT).write_text(behaviours.document(), encoding="utf-8")
    for flaw in found:
        print(flaw)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
