#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Draws the states of a cycle in docs/architecture.md from the table of ways in core/cycle_ways.cpp.

    tests/cycle_picture.py               draws the picture
    tests/cycle_picture.py --check       is it the one that would be drawn?
    tests/cycle_picture.py --self-test   does this check notice what is wrong?
"""
import argparse
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
TABLE = ROOT / "core" / "cycle_ways.cpp"
DOCUMENT = ROOT / "docs" / "architecture.md"
WAY = re.compile(r"^ +\{(\w+), (\w+)\}, +// (.+)$", re.MULTILINE)
ANY_WAY = re.compile(r"^ +\{\w+, \w+\}", re.MULTILINE)
PICTURE = re.compile(r"^```mermaid\nstateDiagram-v2\n.*?^```$", re.MULTILINE | re.DOTALL)


def picture(table):
    ways = WAY.findall(table)
    if len(ways) != len(ANY_WAY.findall(table)):
        raise SystemExit(f"{TABLE.name}: a way without a word about it")
    width = max((len(f"{start} --> {end}") for start, end, _ in ways), default=0)
    lines = [f"    {f'{start} --> {end}':{width}} : {why}" for start, end, why in ways]
    return "\n".join(["```mermaid", "stateDiagram-v2", "    [*] --> resting", *lines, "```"])


def is_drawn(table, document):
    found = PICTURE.search(document)
    return bool(found) and found.group() == picture(table)


def self_test(table, document):
    """What is wrong in one place each must be noticed."""
    way = "    {resting, ending}, // a way that nobody drew\n"
    first = WAY.search(table)
    wrong = {
        "a way that is not drawn": (table.replace(first.group(), way + first.group()), document),
        "a way that is gone": (table.replace(first.group() + "\n", ""), document),
        "a way that leads elsewhere": (table.replace(first.group(1), first.group(2), 1), document),
        "a way that is told otherwise": (table.replace(first.group(3), "for fun"), document),
        "a document without a picture": (table, PICTURE.sub("", document)),
    }
    return [what for what, (ways, text) in wrong.items() if is_drawn(ways, text)]


def main():
    parser = argparse.ArgumentParser(description="The picture of a cycle's states, from the table of its ways")
    parser.add_argument("--check", action="store_true", help="write nothing; status 1 when the picture is another one")
    parser.add_argument("--self-test", action="store_true", help="check that what is wrong is noticed")
    options = parser.parse_args()
    table, document = TABLE.read_text(encoding="utf-8"), DOCUMENT.read_text(encoding="utf-8")
    missed = self_test(table, document) if options.self_test else []
    for what in missed:
        print(f"cycle_picture.py: does not notice {what}")
    if options.check and not is_drawn(table, document):
        print("docs/architecture.md: the picture of a cycle is not that of core/cycle_ways.cpp; tests/cycle_picture.py draws it")
        return 1
    if not options.check and not options.self_test:
        DOCUMENT.write_text(PICTURE.sub(lambda _: picture(table), document, count=1), encoding="utf-8")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
