#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Mutants of core/ and model/: does the simulation notice, do the unit tests, or neither?

    mutants.py list               what is drawn
    mutants.py build              one copy of the tree with all of them in it, each behind its number
    mutants.py record             plays and runs everything without any: what reaches which mutant
    mutants.py tests | lives      each mutant with the unit tests, or the lives, that reach it; can be ended and gone on with
    mutants.py table              what is known so far, as Markdown
    mutants.py try KEY            one mutant with the tests and the lives that reach it; KEY may be a part of the words

A mutant's number chooses it in a program of the build: MUTANT=17 build/mutants/build/bin/simulate --seed 1. Which are
drawn follows from their words and the seed. What a compiler does not take with a choice in it (a condition that
declares, a table known at compile time) is found by compiling, and is no mutant.
"""
import argparse
import hashlib
import itertools
import json
import os
import re
import sys
from collections import Counter
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from mutant_build import ROOT, MutantBuild  # noqa: E402
from mutant_runs import Lives, UnitTests  # noqa: E402
from mutations import mutations_of  # noqa: E402

ROOMS = ("core", "model")
LEFT_OUT = {"core/cycle_ways.cpp", "core/cycle_ways.h"}    # the table of the ways, which only builds for tests read
FIRST_OF_ENUM = re.compile(r"^enum class (\w+)[^{]*\{\s*(\w+)", re.M)
SURVIVORS = Path(__file__).resolve().parent / "survivors.txt"


def drawn_mutants(seed, count):
    """By their words, so that the draw stays as it is wherever lines move."""
    paths = [path for room in ROOMS for path in sorted((ROOT / room).glob("*.[ch]*")) if path.suffix in (".cpp", ".h")]
    names = [name for path in paths if (name := str(path.relative_to(ROOT))) not in LEFT_OUT]
    texts = {name: (ROOT / name).read_text() for name in names}
    found = [mutation for name in names for mutation in mutations_of(name, texts[name])]
    zeros = {f"return {type_}::{first};" for text in texts.values() for type_, first in FIRST_OF_ENUM.findall(text)}
    found = [mutation for mutation in found if mutation.after != "return {};" or mutation.before not in zeros]
    found.sort(key=lambda mutation: hashlib.sha256(f"{seed} {mutation.key}".encode()).digest())
    return found[:count]


def reasons():
    """Of the mutants that change nothing that anybody could see: key and reason."""
    lines = [line for line in SURVIVORS.read_text().splitlines() if line and not line.startswith("#")]
    found = {}
    for line in lines:
        if line.startswith("    "):
            found[key] = f"{found[key]} {line.strip()}".strip()
        else:
            key = line
            found[key] = ""
    return found


class Book:
    """What became of each mutant, with each kind of run: a line of JSON for each, of which the last one counts."""

    def __init__(self, path):
        self.path = path
        self.entries = {"tests": {}, "lives": {}}
        for line in path.read_text().splitlines() if path.exists() else []:
            entry = json.loads(line)
            self.entries[entry["run"]][entry["key"]] = entry

    def add(self, run, mutation, entry):
        self.entries[run][mutation.key] = {"run": run, "key": mutation.key, **entry}
        with self.path.open("a") as file:
            file.write(json.dumps(self.entries[run][mutation.key]) + "\n")


def run(options, what):
    mutants = MutantBuild(options.work, options.jobs, drawn_mutants(options.seed, options.count)).kept()
    runs = (UnitTests if what == "tests" else Lives)(options.work)
    book, explained = Book(options.book), reasons()
    if what == "lives":    # those that the tests did not notice come first
        mutants.sort(key=lambda mutation: bool(book.entries["tests"].get(mutation.key, {}).get("by", True)))
    for mutation in mutants:
        known = book.entries[what].get(mutation.key)
        if known and not (options.survivors and not known["by"] and mutation.key not in explained):
            continue
        entry = runs.try_mutant(mutation)
        book.add(what, mutation, entry)
        print(f"{mutation.number:4} {mutation.key}  |  {entry['by'] or 'survives'} {entry['how']}", flush=True)


def try_one(options):
    mutants = MutantBuild(options.work, options.jobs, drawn_mutants(options.seed, options.count)).kept()
    for mutation in [mutation for mutation in mutants if options.key in (str(mutation.number), mutation.key) or
                     (not options.key.isdigit() and options.key in mutation.key)]:
        print(f"{mutation.number} {mutation.key}\n    tests: {UnitTests(options.work).try_mutant(mutation)}"
              f"\n    lives: {Lives(options.work).try_mutant(mutation)}", flush=True)


# --- the table

def share(part, whole):
    return f"{part} ({100 * part / whole:.0f} %)" if whole else "0"


def row(name, mutants, tests, lives, same):
    by_lives = {m.key for m in mutants if lives[m.key]["by"]}
    by_tests = {m.key for m in mutants if tests[m.key]["by"]}
    neither = {m.key for m in mutants} - by_lives - by_tests
    moved = [m for m in mutants if lives[m.key]["moves"]]
    count = len(mutants)
    return (f"| {name} | {count} | {share(len(moved), count)} | {share(len(by_lives), count)} | {share(len(by_tests), count)} "
            f"| {share(len(by_lives | by_tests), count)} | {share(len(neither & same), count)} | {share(len(neither - same), count)} |")


def table(options):
    build = MutantBuild(options.work, options.jobs, drawn_mutants(options.seed, options.count))
    book, why = Book(options.book), reasons()
    tests, lives = book.entries["tests"], book.entries["lives"]
    # Up to the first that was not tried: those that only one of both tried are no fair sample.
    tried = list(itertools.takewhile(lambda mutation: mutation.key in tests and mutation.key in lives, build.kept()))
    print("| | mutants | lives go another way | the simulation fails | unit tests fail | either | nobody could see | neither |")
    print("|---|---|---|---|---|---|---|---|")
    for room in ROOMS:
        print(row(f"`{room}/`", [m for m in tried if m.path.startswith(room + "/")], tests, lives, set(why)))
    for kind in sorted({mutation.kind for mutation in tried}):
        print(row(kind, [mutation for mutation in tried if mutation.kind == kind], tests, lives, set(why)))
    print(row("all", tried, tests, lives, set(why)))
    dropped = Counter(mutation.kind for mutation in build.dropped())
    print(f"\n{len(build.mutations)} were drawn; no mutants, as they do not compile: "
          + ", ".join(f"{kind}: {count}" for kind, count in sorted(dropped.items())) + ".")
    checks = Counter(lives[m.key]["how"].split(":")[0] for m in tried if lives[m.key]["by"])
    print("\n| check | mutants |\n|---|---|\n" + "\n".join(f"| {check} | {count} |" for check, count in checks.most_common()))
    print("\nNoticed by neither:\n")
    for mutation in tried:
        if not lives[mutation.key]["by"] and not tests[mutation.key]["by"]:
            print(f"- `{mutation.key}` ({'moves' if lives[mutation.key]['moves'] else 'same'}) {why.get(mutation.key, '')}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("what", choices=["list", "build", "record", "tests", "lives", "table", "try"])
    parser.add_argument("key", nargs="?", help="of the one that is tried")
    parser.add_argument("--count", type=int, default=640, help="how many are drawn (default: 640)")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--lives", type=int, default=300, help="whose reach is recorded, beside the kept ones (default: 300)")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 1)
    parser.add_argument("--survivors", action="store_true", help="tries again what was not noticed, and has no reason yet")
    parser.add_argument("--work", type=Path, default=ROOT / "build" / "mutants", help="folder of the copy and its build")
    parser.add_argument("--book", type=Path, help="what is known so far (default: book.jsonl in that folder)")
    options = parser.parse_args()
    options.work = options.work.resolve()
    options.book = options.book or options.work / "book.jsonl"
    options.work.mkdir(parents=True, exist_ok=True)
    mutations = drawn_mutants(options.seed, options.count)
    if options.what == "build":
        return MutantBuild(options.work, options.jobs, mutations).build()
    if options.what == "record":
        if options.key != "lives":
            UnitTests(options.work).record(len(mutations))
        if options.key != "tests":
            Lives(options.work).record(len(mutations), options.lives)
        return 0
    if options.what in ("tests", "lives"):
        return run(options, options.what)
    if options.what == "table":
        return table(options)
    if options.what == "try":
        return try_one(options)
    for mutation in mutations:
        print(mutation.key)


if __name__ == "__main__":
    sys.exit(main())
