# SPDX-License-Identifier: MIT
"""Adds up what gcov knows of the daemon's rooms, prints it, and judges it: coverage.sh says how."""
import argparse
import json
import re
import subprocess
import sys
from collections import defaultdict
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
ROOMS = ("core", "status", "adapters", "model", "probes", "platform")
LEAST_PERCENT = 90.0


class Coverage:
    """How often each line and each function of the daemon's own files ran, over all objects that hold it."""

    def __init__(self):
        self.lines = defaultdict(lambda: defaultdict(int))        # file -> line -> count
        self.functions = defaultdict(lambda: defaultdict(int))    # file -> (first line, name) -> count

    def add(self, found):
        for text in found.splitlines():
            for file in json.loads(text)["files"]:
                path = Path(file["file"])
                if path.is_relative_to(ROOT) and path.relative_to(ROOT).parts[0] in ROOMS and path.exists():
                    self.add_file(str(path.relative_to(ROOT)), file)

    def add_file(self, name, file):
        for line in file["lines"]:
            self.lines[name][line["line_number"]] += line["count"]
        for function in file["functions"]:
            key = function["start_line"], plain_name(function["demangled_name"])
            self.functions[name][key] += function["execution_count"]

    def share(self, room=""):
        """Lines that ran, and all lines, of a room or of the whole."""
        counts = [count for name, lines in self.lines.items() if name.startswith(room) for count in lines.values()]
        return sum(count > 0 for count in counts), len(counts)

    def idle_functions(self):
        """(file, first line, name) of every function that nothing called."""
        return sorted((file, *key) for file, functions in self.functions.items()
                      for key, count in functions.items() if count == 0)

    def idle_lines(self):
        """file -> lines that did not run."""
        idle = {file: sorted(line for line, count in lines.items() if count == 0) for file, lines in self.lines.items()}
        return {file: lines for file, lines in sorted(idle.items()) if lines}


def run_gcov(notes):
    """What gcov knows of one object, as lines of JSON."""
    return subprocess.run(["gcov", "--json-format", "--stdout", str(notes)], cwd=notes.parent, check=True,
                          capture_output=True, text=True).stdout


def plain_name(signature):
    """The name without return type, arguments and namespaces of no name."""
    name = signature.replace("(anonymous namespace)::", "").partition("(")[0]
    class_and_operator = re.search(r"\S*operator\b.*$", name)
    return class_and_operator.group() if class_and_operator else re.split(r"\s", name)[-1]


def read_coverage(build):
    """Test programs count as well: of a function in a header, the linker may have taken their copy."""
    notes = sorted(build.rglob("*.gcno"))
    if not notes:
        sys.exit(f"coverage_report.py: nothing was built with counters in {build}")
    coverage = Coverage()
    with ThreadPoolExecutor() as pool:
        for found in pool.map(run_gcov, notes):
            coverage.add(found)
    return coverage


def read_exceptions(path):
    """function -> reason"""
    reasons = {}
    for text in path.read_text(encoding="utf-8").splitlines():
        if text.strip() and not text.startswith("#"):
            function, _, reason = text.partition("\t")
            reasons[function] = reason.strip()
    return reasons


def percent(part, whole):
    return 100.0 * part / whole if whole else 100.0


def ranges(lines):
    """1, 2, 3, 7 -> 1-3, 7"""
    spans = []
    for line in lines:
        if spans and line == spans[-1][1] + 1:
            spans[-1][1] = line
        else:
            spans.append([line, line])
    return ", ".join(f"{first}" if first == last else f"{first}-{last}" for first, last in spans)


def print_idle(coverage, reasons):
    print("\nLines that did not run")
    for file, lines in coverage.idle_lines().items():
        print(f"   {file}: {ranges(lines)}")
    print("\nFunctions that nothing called")
    for file, line, name in coverage.idle_functions():
        print(f"   {file}:{line} {name}: {reasons.get(name) or 'NO REASON'}")


def print_shares(coverage):
    """Prints them; returns what is below the bound."""
    low = []
    print("Lines covered")
    for room in (*ROOMS, ""):
        ran, lines = coverage.share(f"{room}/" if room else "")
        print(f"   {room or 'total':<10} {percent(ran, lines):6.2f} %   {ran:5} of {lines}")
        if percent(ran, lines) < LEAST_PERCENT:
            low.append(f"{room or 'total'}: below {LEAST_PERCENT:.0f} %")
    return low


def judge_functions(coverage, reasons):
    """What is wrong with the list of reasons."""
    known = {name for functions in coverage.functions.values() for _, name in functions}
    wrong = [f"{file}:{line} {name}: nothing calls it, and no reason is given"
             for file, line, name in coverage.idle_functions() if not reasons.get(name)]
    return wrong + [f"{name}: has a reason, but does not exist" for name in reasons if name not in known]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", type=Path, required=True)
    parser.add_argument("--exceptions", type=Path, required=True)
    parser.add_argument("--unbound", action="store_true", help="judge nothing")
    options = parser.parse_args()
    coverage, reasons = read_coverage(options.build), read_exceptions(options.exceptions)
    wrong = print_shares(coverage)
    wrong += judge_functions(coverage, reasons)
    print_idle(coverage, reasons)
    if options.unbound:
        return 0
    print("\n" + "\n".join(f"WRONG {text}" for text in wrong) if wrong else "\nAll bounds hold.")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
