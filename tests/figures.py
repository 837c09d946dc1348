#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Figures of the house: lengths of functions and files, circles of units, written-twice code, mutable globals.

    tests/figures.py             the table, room by room
    tests/figures.py --check     only the daemon's bounds; status 1 when one is broken
    tests/figures.py --circles   only circles of units, and includes that do not go down; status 1 when there is one

A unit is a source with its header. Code counts as written twice where 60 tokens in a row stand again elsewhere, names,
numbers and texts counting as equal. Wants universal-ctags.
"""
import argparse
import collections
import json
import re
import statistics
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
DAEMON = ("core", "status", "adapters", "model", "probes", "platform")
ROOMS = DAEMON + ("compat", "lab", "bench", "tests/unit")
WINDOW = 60
# Which rooms each room may include, besides itself, as docs/architecture.md draws it.
BELOW = {
    "core": {"probes/discovery", "probes/arp", "probes/dns", "probes/lan", "status", "adapters", "model", "platform"},
    "status": {"platform"},
    "probes/wire": {"model", "platform"},
    "probes/discovery": {"probes/wire", "model", "platform"},
    "probes/arp": {"probes/wire", "model", "platform"},
    "probes/dns": {"probes/arp", "probes/wire", "model", "platform"},
    "probes/lan": {"probes/arp", "probes/wire", "model", "platform"},
    "adapters": {"model", "platform"},
    "model": {"platform"},
    "platform": set(),
}
# Circles that are known, and are to go; none may come.
KNOWN_CIRCLES = []
BOUNDS = {"median": 9, "p90": 24, "longest": 60, "clones": 7.0}
TOKEN = re.compile(r'"(?:[^"\\\n]|\\.)*"|\'(?:[^\'\\\n]|\\.)*\'|[A-Za-z_]\w*|\d[\w.\']*|[^\s\w]')
KEYWORDS = frozenset("""auto bool break case char class const constexpr continue default delete do double else enum extern
    false float for if int int8_t int16_t int32_t int64_t long namespace new nullptr operator private public return short
    signed sizeof size_t static struct switch template this true typename uint8_t uint16_t uint32_t uint64_t union
    unsigned using void volatile while""".split())


def sources(room):
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", f"{room}/*.cpp", f"{room}/*.h"], cwd=ROOT,
                            check=True, capture_output=True, text=True).stdout.split()
    return [ROOT / name for name in sorted(set(listed)) if (ROOT / name).exists()]


def percentile(values, share):
    return sorted(values)[min(len(values) - 1, int(len(values) * share))] if values else 0


def function_lengths(files):
    """(lines, name, file) of every function with a body."""
    if not files:
        return []
    tags = subprocess.run(["ctags", "--output-format=json", "--fields=+ne", "--kinds-C++=f", "--languages=C++",
                           "--langmap=C++:+.h", "-f", "-", *map(str, files)], check=True, capture_output=True, text=True)
    found = [json.loads(line) for line in tags.stdout.splitlines()]
    return [(tag["end"] - tag["line"] + 1, tag["name"], tag["path"]) for tag in found if "end" in tag]


def without_comments(text):
    keep_lines = lambda match: "\n" * match.group().count("\n") if match.group()[0] == "/" else match.group()
    return re.sub(r'"(?:[^"\\\n]|\\.)*"|//[^\n]*|/\*.*?\*/', keep_lines, text, flags=re.S)


def is_comment(line):
    return line.lstrip().startswith("//") and "SPDX" not in line


def normalised(token):
    if token[0] in "\"'":
        return "T"
    if token[0].isdigit():
        return "N"
    return "I" if (token[0].isalpha() or token[0] == "_") and token not in KEYWORDS else token


def tokens(path):
    for number, line in enumerate(without_comments(path.read_text(encoding="utf-8")).splitlines(), 1):
        if not line.lstrip().startswith("#"):
            yield from ((normalised(token), number) for token in TOKEN.findall(line))


def clones(files):
    """Lines that stand in a run of WINDOW tokens which stands somewhere else too, and all lines of code."""
    places = collections.defaultdict(list)
    streams = {path: list(tokens(path)) for path in files}
    for path, stream in streams.items():
        for start in range(len(stream) - WINDOW + 1):
            places[tuple(token for token, _ in stream[start:start + WINDOW])].append((path, start))
    twice = set()
    for found in places.values():
        if len(found) > 1:
            for path, start in found:
                twice.update((path, line) for _, line in streams[path][start:start + WINDOW])
    code = sum(len({line for _, line in stream}) for stream in streams.values())
    return len(twice), code


def mutable_globals(files):
    """Variables at file scope that are neither constant nor declared elsewhere."""
    pattern = re.compile(r"^(?=\w)(?:static |inline )?(?!const|extern|using|typedef|return|struct \w+ \{|class|enum|template|"
                         r"namespace|static_assert|static const)[\w:<>,\[\] *]+?[ *&](\w+)(?:\[[^\]]*\])?(?: = [^;]*)?;$", re.M)
    return sum(len(pattern.findall(without_comments(path.read_text(encoding="utf-8")))) for path in files
               if path.suffix == ".cpp")


def units(files):
    """Which units each unit includes."""
    known = {str(path.relative_to(ROOT).with_suffix("")) for path in files}
    arrows = collections.defaultdict(set)
    for path in files:
        own = str(path.relative_to(ROOT).with_suffix(""))
        for header in re.findall(r'^#include "([^"]+)\.h"', path.read_text(encoding="utf-8"), flags=re.M):
            if header in known and header != own:
                arrows[own].add(header)
    return arrows


def circles(arrows):
    """Groups of units that include each other, by Tarjan's algorithm."""
    index, low, on_stack, stack, groups = {}, {}, set(), [], []

    def visit(unit):
        index[unit] = low[unit] = len(index)
        stack.append(unit)
        on_stack.add(unit)
        for other in sorted(arrows.get(unit, ())):
            if other not in index:
                visit(other)
                low[unit] = min(low[unit], low[other])
            elif other in on_stack:
                low[unit] = min(low[unit], index[other])
        if low[unit] == index[unit]:
            group = []
            while not group or group[-1] != unit:
                group.append(stack.pop())
                on_stack.discard(group[-1])
            if len(group) > 1:
                groups.append(sorted(group))

    sys.setrecursionlimit(10000)
    for unit in sorted(arrows):
        if unit not in index:
            visit(unit)
    return groups


def room_of(unit):
    return str(Path(unit).parent)


def wrong_ways(arrows):
    """Includes from one room into another that is not below it."""
    return [f"{unit} includes {other}" for unit in sorted(arrows) for other in sorted(arrows[unit])
            if room_of(other) != room_of(unit) and room_of(other) not in BELOW.get(room_of(unit), set())]


def circles_and_directions(files):
    """What is wrong with the includes, known circles apart; these must still be there, for else they are no longer known."""
    arrows = units(files)
    found = circles(arrows)
    return (["a circle of units: " + ", ".join(group) for group in found if group not in KNOWN_CIRCLES] +
            ["no circle any more, take it off the list: " + ", ".join(group) for group in KNOWN_CIRCLES if group not in found] +
            ["an include that does not go down: " + way for way in wrong_ways(arrows)])


def tell(broken, fine):
    print("\n".join(broken) or fine)
    return 1 if broken else 0


def measure(files):
    lengths = function_lengths(files)
    lines = [path.read_text(encoding="utf-8").splitlines() for path in files]
    counts = [len(text) for text in lines]
    numbers = [length for length, _, _ in lengths]
    twice, code = clones(files)
    return {
        "lines": sum(counts), "functions": len(numbers),
        "median": int(statistics.median(numbers)) if numbers else 0, "p90": percentile(numbers, 0.9),
        "longest": max(numbers, default=0), "over60": sum(number > 60 for number in numbers),
        "files": f"{int(statistics.median(counts))}/{percentile(counts, 0.9)}/{max(counts)}",
        "comments": 100 * sum(map(is_comment, sum(lines, []))) / max(1, sum(counts)),
        "clones": 100 * twice / max(1, code), "globals": mutable_globals(files),
    }


def show(name, figures):
    print(f"{name:<12}{figures['lines']:>7}{figures['functions']:>7}{figures['median']:>8}{figures['p90']:>5}"
          f"{figures['longest']:>5}{figures['over60']:>5}{figures['files']:>14}{figures['comments']:>9.1f} %"
          f"{figures['clones']:>7.1f} %{figures['globals']:>9}")


def broken_bounds(files):
    figures = measure(files)
    broken = [f"{name} is {figures[name]:g}, at most {bound}" for name, bound in BOUNDS.items() if figures[name] > bound]
    return broken + ["a circle of units: " + ", ".join(group) for group in circles(units(files))]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--check", action="store_true", help="only the daemon's bounds")
    parser.add_argument("--circles", action="store_true", help="only circles of units and the direction of includes")
    options = parser.parse_args()
    daemon = [path for room in DAEMON for path in sources(room)]
    if options.circles:
        return tell(circles_and_directions(daemon), "no circle that is not known, and all includes go down")
    if options.check:
        return tell(broken_bounds(daemon), "the daemon is within its bounds")
    print(f"{'room':<12}{'lines':>7}{'funcs':>7}{'median':>8}{'p90':>5}{'max':>5}{'>60':>5}{'file m/p90/max':>14}"
          f"{'comments':>11}{'clones':>9}{'globals':>9}")
    for room in ROOMS:
        if files := sources(room):
            show(room, measure(files))
    show("daemon", measure(daemon))
    for group in circles(units(daemon)):
        print("circle:", ", ".join(group))
    for length, name, path in sorted(function_lengths(daemon), reverse=True)[:10]:
        print(f"  {length:4} lines  {name}  {Path(path).relative_to(ROOT)}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
