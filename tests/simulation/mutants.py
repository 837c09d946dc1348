#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Mutants of core/ and model/: does the simulation notice, do the unit tests of the room, or neither?

    mutants.py list [--count N]               what would be tried
    mutants.py run [--from A] [--to B]        tries these, but for those that were tried before; can be ended at any time
    mutants.py table                          what is known so far, as Markdown

Which mutants there are, and their order, follows from the sources and the seed only. A mutant that does not compile, or
from which the compiler makes the same program, is none and does not count.
"""
import argparse
import hashlib
import json
import os
import random
import re
import signal
import subprocess
import sys
import time
from collections import Counter
from dataclasses import dataclass
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from changed_tree import ROOT, ChangedTree, default_jobs  # noqa: E402
from mutations import mutations_of  # noqa: E402

ROOMS = ("core", "model")
LEFT_OUT = {"core/cycle_ways.cpp"}    # the table of the ways, which only builds for tests read
SHORTEST_LIMIT_S = 60    # of a test program
TIMES_AS_LONG = 10       # as it takes in the tree as it is
LIKE_NO_MUTANT = ("does not compile", "same program")


@dataclass
class Mutant:
    number: int    # from 0, in the order in which they are tried
    path: str
    line: int
    kind: str
    before: str
    after: str
    text: str    # of the whole source

    @property
    def room(self):
        return self.path.split("/")[0]

    @property
    def key(self):
        """The same while the source around it is."""
        return hashlib.sha256(f"{self.path}:{self.text}".encode()).hexdigest()[:16]

    def __str__(self):
        return f"{self.path}:{self.line} {self.kind}: {self.before} -> {self.after}"


def short(text):
    text = " ".join(text.split())
    return text if len(text) <= 70 else text[:67] + "..."


def all_mutants(seed):
    found = []
    for room in ROOMS:
        for path in sorted((ROOT / room).glob("*.cpp")):
            name = str(path.relative_to(ROOT))
            text = path.read_text()
            found += [] if name in LEFT_OUT else [(name, text, mutation) for mutation in mutations_of(text)]
    random.Random(seed).shuffle(found)
    return [Mutant(i, name, text.count("\n", 0, m.start) + 1, m.kind, short(text[m.start:m.end]),
                   short(m.instead) or "(nothing)", text[:m.start] + m.instead + text[m.end:])
            for i, (name, text, m) in enumerate(found)]


class Book:
    """What became of each mutant, a line of JSON for each."""

    def __init__(self, path):
        self.path = path
        self.entries = {}
        if path.exists():
            for line in path.read_text().splitlines():
                entry = json.loads(line)
                self.entries[entry["key"]] = entry

    def add(self, mutant, entry):
        entry = {"key": mutant.key, "number": mutant.number, "mutant": str(mutant), "room": mutant.room,
                 "kind": mutant.kind, **entry}
        self.entries[mutant.key] = entry
        with self.path.open("a") as file:
            file.write(json.dumps(entry) + "\n")


class UnitTests:
    """The test programs of each room, those first that have caught most so far for their time."""

    def __init__(self, tree):
        self.tree = tree
        self.catches = Counter()
        self.seconds = {}    # that each takes in the tree as it is
        targets = subprocess.run(["ninja", "-C", tree.build_folder, "-t", "targets", "all"], capture_output=True,
                                 text=True, check=True).stdout
        self.programs = {room: sorted(set(re.findall(rf"tests/unit/{room}/CMakeFiles/(\w+_test)\.dir/", targets)))
                         for room in ROOMS}

    def passes(self, program):
        run = subprocess.Popen([self.tree.build_folder / "bin" / program, "--gtest_brief=1", "--gtest_fail_fast"],
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL,
                               start_new_session=True)
        try:
            return run.wait(max(SHORTEST_LIMIT_S, TIMES_AS_LONG * self.seconds.get(program, 0))) == 0
        except subprocess.TimeoutExpired:
            return False
        finally:
            if run.poll() is None:
                os.killpg(run.pid, signal.SIGKILL)
                run.wait()

    def prepare(self):
        """Builds all of them; those that fail in the tree as it is do not count."""
        for room, programs in self.programs.items():
            built, output = self.tree.build(*programs)
            if not built:
                sys.exit(f"the tests of the tree as it is do not build:\n{output[-3000:]}")
            failing = [program for program in programs if not self.passes_in_time(program)]
            if failing:
                print(f"left out, since they fail anyway: {', '.join(failing)}")
            self.programs[room] = [program for program in programs if program not in failing]

    def passes_in_time(self, program):
        start = time.monotonic()
        passed = self.passes(program)
        self.seconds[program] = time.monotonic() - start
        return passed

    def first_that_fails(self, room):
        for program in sorted(self.programs[room], key=lambda name: self.seconds[name] / (1 + self.catches[name])):
            if not self.tree.build(program)[0] or not self.passes(program):
                self.catches[program] += 1
                return program
        return None


def digest(path):
    return hashlib.sha256(path.read_bytes()).hexdigest()


def try_mutant(tree, tests, mutant, lives):
    tree.change(mutant.path, mutant.text)
    start = time.monotonic()
    try:
        if not tree.build("simulate")[0]:
            return {"outcome": "does not compile"}
        if digest(tree.program) == digest(tree.unchanged_program):
            return {"outcome": "same program"}
        built = time.monotonic()
        failure = tree.play_until_failure(lives, compare=True)
        played = time.monotonic()
        program = tests.first_that_fails(mutant.room) if tests else None
        return {"outcome": "tried", "simulation": failure and failure.text[:160], "life": failure and failure.lives,
                "moves": bool(failure) or tree.moved, "unit": program, "build_s": round(built - start, 1), "play_s": round(played - built, 1),
                "test_s": round(time.monotonic() - played, 1)}
    finally:
        tree.restore()


def run(options):
    tree = ChangedTree(options.work.resolve(), options.jobs)
    tests = None
    if not options.no_tests:
        tests = UnitTests(tree)
        tests.prepare()
    book = Book(options.book)
    for mutant in all_mutants(options.seed)[options.first:options.to]:
        if mutant.key in book.entries:
            continue
        entry = try_mutant(tree, tests, mutant, options.lives)
        book.add(mutant, entry)
        print(f"{mutant.number:4} {mutant}  |  {entry['outcome']}  simulation: {entry.get('simulation')}  "
              f"tests: {entry.get('unit')}", flush=True)


# --- the table

def share(part, whole):
    return f"{part} ({100 * part / whole:.0f} %)" if whole else "0"


def row(name, entries):
    by_simulation = sum(bool(entry["simulation"]) for entry in entries)
    by_tests = sum(bool(entry["unit"]) for entry in entries)
    neither = sum(not entry["simulation"] and not entry["unit"] for entry in entries)
    count = len(entries)
    return (f"| {name} | {count} | {share(by_simulation, count)} | {share(by_tests, count)} | {share(count - neither, count)} "
            f"| {share(neither, count)} |")


def table(options):
    mutants = {mutant.key: mutant for mutant in all_mutants(options.seed)}
    entries = [entry for key, entry in Book(options.book).entries.items() if key in mutants]
    tried = sorted((entry for entry in entries if entry["outcome"] == "tried"), key=lambda entry: entry["number"])
    print("| | mutants | simulation | unit tests of the room | either | neither |\n|---|---|---|---|---|---|")
    for room in ROOMS:
        print(row(f"`{room}/`", [entry for entry in tried if entry["room"] == room]))
    for kind in sorted({entry["kind"] for entry in tried}):
        print(row(kind, [entry for entry in tried if entry["kind"] == kind]))
    print(row("all", tried))
    others = Counter(entry["outcome"] for entry in entries if entry["outcome"] != "tried")
    print("\nNot counted: " + ", ".join(f"{outcome}: {others[outcome]}" for outcome in LIKE_NO_MUTANT) + ".")
    checks = Counter(entry["simulation"].split(":")[0] for entry in tried if entry["simulation"])
    print("\n| check | mutants |\n|---|---|\n" + "\n".join(f"| {check} | {count} |" for check, count in checks.most_common()))
    for title, wanted in (("Noticed by neither, although lives went another way",
                           lambda e: not e["simulation"] and not e["unit"] and e["moves"]),
                          ("Noticed by neither, and no life went another way",
                           lambda e: not e["simulation"] and not e["unit"] and not e["moves"]),
                          ("Noticed by the unit tests only", lambda e: not e["simulation"] and e["unit"])):
        print(f"\n{title}:\n")
        for entry in filter(wanted, tried):
            print(f"- `{entry['mutant']}`" + (f" ({entry['unit']})" if entry["unit"] else ""))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("what", choices=["list", "run", "table"])
    parser.add_argument("--from", dest="first", type=int, default=0, metavar="A")
    parser.add_argument("--to", type=int, default=400, metavar="B", help="the first that is not tried (default: 400)")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--lives", type=int, default=400, help="most that are played with each (default: 400)")
    parser.add_argument("--jobs", type=int, default=default_jobs())
    parser.add_argument("--no-tests", action="store_true", help="the simulation alone")
    parser.add_argument("--work", type=Path, default=ROOT / "build" / "changed", help="folder of the copy and its build")
    parser.add_argument("--book", type=Path, help="what is known so far (default: book.jsonl in that folder)")
    options = parser.parse_args()
    options.book = options.book or options.work / "book.jsonl"
    options.book.parent.mkdir(parents=True, exist_ok=True)
    if options.what == "run":
        return run(options)
    if options.what == "table":
        return table(options)
    mutants = all_mutants(options.seed)
    for mutant in mutants[options.first:options.to]:
        print(f"{mutant.number:4} {mutant}")
    print(f"{len(mutants)} in all: {dict(Counter(mutant.kind for mutant in mutants))}")


if __name__ == "__main__":
    sys.exit(main())
