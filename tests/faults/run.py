#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Refuses the daemon memory, descriptors and system calls, in lives of its own for each refusal.

    tests/faults/run.py memory       every allocation of start-up and the first cycles, one per life
    tests/faults/run.py calls        every system call of them, one per life
    tests/faults/run.py descriptors  every small number of descriptors
    tests/faults/run.py failing      every kind of call for a while, in one life
    tests/faults/run.py              all of these

Prints how many lives came to which end; the exit status is 0 only when nothing did harm.
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
LABS = 3
SHOWN_LINES = 10
# The scenario, how much faster than real it plays, and whether several labs share its lives.
PARTS = {"memory": ("memory-refused", 100, True), "calls": ("call-refused", 100, True),
         "descriptors": ("descriptors-used-up", 100, False), "failing": ("failing-calls", 50, False)}


def parse_options():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("parts", nargs="*", choices=[*PARTS, []], help="what to refuse (default: everything)")
    parser.add_argument("--build", default=str(ROOT / "build" / "release"), help="build folder with the programs")
    parser.add_argument("--labs", type=int, default=LABS, help=f"labs at the same time (default: {LABS})")
    parser.add_argument("--speed", type=float, help="times faster than real")
    parser.add_argument("--from", dest="first", type=int, default=1, help="number of the first refusal")
    parser.add_argument("--to", dest="last", type=int, help="of the last one (default: as many as a healthy life makes)")
    parser.add_argument("--step", type=int, default=1, help="every how manieth")
    parser.add_argument("--row", type=int, default=1, help="how many allocations are refused in a row (default: 1)")
    parser.add_argument("--distinct", action="store_true", help="of the allocations only the first one of each call stack")
    return parser.parse_args()


def start_lab(options, part, index, labs, report):
    scenario, speed, _ = PARTS[part]
    command = [sys.executable, "-m", "lab", scenario, "--build", options.build, "--speed", str(options.speed or speed),
               "--report", report, "--time-limit", str(TIME_LIMIT_S)]
    chosen = {"first": options.first + index * options.step, "step": options.step * labs, "row": options.row}
    if options.last:
        chosen["last"] = options.last
    if options.distinct:
        chosen["distinct"] = 1
    for name, value in chosen.items():
        command += ["--option", f"{name}={value}"]
    return subprocess.Popen(command, cwd=ROOT, stdout=subprocess.DEVNULL)


def tell(broken):
    print(f"\n{broken['what']}: {'; '.join(broken['why'])}\n  {' < '.join(broken['stack'])}")
    for level, function, body in broken["lines"][-SHOWN_LINES:]:
        print(f"    {level} {function}: {body}")


def play(options, part):
    """Plays one part and prints what came of it; whether nothing did harm."""
    start, labs = time.monotonic(), options.labs if PARTS[part][2] else 1
    with tempfile.TemporaryDirectory(prefix="faults-") as folder:
        reports = [Path(folder) / f"{index}.json" for index in range(labs)]
        playing = [start_lab(options, part, index, labs, str(report)) for index, report in enumerate(reports)]
        passed = all([lab.wait() == 0 for lab in playing])
        seen = [json.loads(report.read_text())["facts"] for report in reports if report.exists() and report.stat().st_size]
    for facts in seen:
        for broken in facts.get("broken", []):
            tell(broken)
    outcomes = sum((Counter(facts.get("outcomes", {})) for facts in seen), Counter())
    healthy = sorted(facts["healthy"]["allocations"] for facts in seen if "healthy" in facts)
    print(f"\n{part}: {sum(outcomes.values())} lives in {time.monotonic() - start:.0f} s; healthy ones allocate "
          f"{'/'.join(map(str, healthy))} times")
    for outcome, count in sorted(outcomes.items()):
        print(f"{count:7} {outcome}", flush=True)
    return passed and len(seen) == labs and bool(outcomes)


def main():
    options = parse_options()
    return 0 if all([play(options, part) for part in options.parts or PARTS]) else 1


if __name__ == "__main__":
    sys.exit(main())
