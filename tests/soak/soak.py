# SPDX-License-Identifier: MIT
"""Thousands of cycles in several labs, and one summary."""
import argparse
import sys
import time
from collections import Counter

from labs import add_common_options, joined, play_side_by_side, tell_failures

# Real seconds that a cycle may take in one lab at ten times the speed, quiet moments included, before the run is stuck.
SLOWEST_CYCLE_S = 12
SET_UP_S = 180
SECONDS_PER_HOUR = 3600
SUMMED = ("cycles", "swaps", "stages", "requests", "turns", "quiet", "reads", "log_lines", "seconds")


def parse_options():
    parser = argparse.ArgumentParser(prog="tests/soak/run.sh", description=__doc__)
    add_common_options(parser)
    parser.add_argument("--cycles", type=int, default=2000, help="of all labs together (default: 2000)")
    return parser.parse_args()


def summed(reports, name):
    total = Counter()
    for report in reports:
        total.update(report["facts"]["soak"][name])
    return total


def tell(reports, real_s):
    facts = [report["facts"]["soak"] for report in reports]
    total = {name: sum(fact[name] for fact in facts) for name in SUMMED}
    hours = total["seconds"] / SECONDS_PER_HOUR
    print(f"\n{total['cycles']} cycles in {len(facts)} labs: {real_s:.0f} s real, {hours:.1f} h of the daemons'")
    print(f"  their ends: {joined(summed(reports, 'outcomes'))}")
    print(f"  {total['swaps']} swaps, {total['stages']} probe stages, {total['requests']} one-shot requests taken")
    print(f"  {total['turns']} turns at the cables; calls: {joined(summed(reports, 'calls'))}")
    mishaps = summed(reports, "mishaps")
    print(f"  {sum(mishaps.values())} mishaps: {joined(mishaps)}")
    print(f"  {total['quiet']} quiet moments, {joined(summed(reports, 'questions'))}")
    print(f"  {total['reads']} reads of result files, {total['log_lines']} log lines")
    print(f"  functions that warned: {joined(summed(reports, 'explained'))}")
    for number, fact in enumerate(facts, 1):
        kb = fact["resident_kb"]
        print(f"  memory in lab {number}: {kb[0]} kB at first, {max(kb)} kB at most, {kb[-1]} kB at the end")


def main():
    options = parse_options()
    limit_s = SET_UP_S + SLOWEST_CYCLE_S * 10 / options.speed * options.cycles / options.labs
    started = time.monotonic()
    reports = play_side_by_side(options, "soak", options.cycles, "cycles", limit_s)
    if all("soak" in report["facts"] for report in reports):
        tell(reports, time.monotonic() - started)
    failed = tell_failures(reports)
    print("FAILED" if failed else "PASSED")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
