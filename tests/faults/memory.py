#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Refuses every allocation of the daemon's start-up and first cycles, one per life, in several labs at once.

    tests/faults/memory.py --build build/release              every allocation
    tests/faults/memory.py --build build/release --distinct   the first one of each call stack
    tests/faults/memory.py --build build/release --row 5      five in a row

Prints how many lives came to which end; the exit status is 0 only when none of them did harm.
"""
import argparse
import json
import subprocess
import sys
import tempfile
import time
from collections import Counter
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
TIME_LIMIT_S = 6 * 3600
LABS, SPEED = 3, 100


def parse_options():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("--build", default=str(ROOT / "build" / "release"), help="build folder with the programs")
    parser.add_argument("--labs", type=int, default=LABS, help=f"labs at the same time (default: {LABS})")
    parser.add_argument("--speed", type=float, default=SPEED, help=f"times faster than real (default: {SPEED})")
    parser.add_argument("--from", dest="first", type=int, default=1, help="number of the first allocation to refuse")
    parser.add_argument("--to", dest="last", type=int, help="of the last one (default: as many as a healthy life makes)")
    parser.add_argument("--step", type=int, default=1, help="every how manieth")
    parser.add_argument("--row", type=int, default=1, help="how many in a row (default: 1)")
    parser.add_argument("--distinct", action="store_true", help="only the first allocation of each call stack")
    return parser.parse_args()


def start_lab(options, index, report):
    chosen = {"first": options.first + index * options.step, "step": options.step * options.labs, "row": options.row}
    if options.last:
        chosen["last"] = options.last
    if options.distinct:
        chosen["distinct"] = 1
    command = [sys.executable, "-m", "lab", "memory-refused", "--build", options.build, "--speed", str(options.speed),
               "--report", report, "--time-limit", str(TIME_LIMIT_S)]
    for name, value in chosen.items():
        command += ["--option", f"{name}={value}"]
    return subprocess.Popen(command, cwd=ROOT, stdout=subprocess.DEVNULL)


def tell(broken):
    print(f"\n{broken['what']}: {'; '.join(broken['why'])}\n  {' < '.join(broken['stack'])}")
    for level, function, body in broken["lines"][-10:]:
        print(f"    {level} {function}: {body}")


def main():
    options = parse_options()
    start = time.monotonic()
    with tempfile.TemporaryDirectory(prefix="memory-") as folder:
        reports = [Path(folder) / f"{index}.json" for index in range(options.labs)]
        labs = [start_lab(options, index, str(report)) for index, report in enumerate(reports)]
        passed = all([lab.wait() == 0 for lab in labs])
        seen = [json.loads(report.read_text()) for report in reports if report.exists() and report.stat().st_size]
    outcomes = sum((Counter(report["facts"].get("outcomes", {})) for report in seen), Counter())
    for report in seen:
        for broken in report["facts"].get("broken", []):
            tell(broken)
    counts = sorted(report["facts"]["healthy"]["allocations"] for report in seen if "healthy" in report["facts"])
    print(f"\n{sum(outcomes.values())} lives in {time.monotonic() - start:.0f} s, {options.labs} labs, "
          f"{options.speed:g} times faster than real; healthy lives made {counts} allocations")
    for outcome, count in sorted(outcomes.items()):
        print(f"{count:7} {outcome}")
    return 0 if passed and len(seen) == options.labs and outcomes else 1


if __name__ == "__main__":
    sys.exit(main())
