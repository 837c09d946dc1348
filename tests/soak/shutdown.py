# SPDX-License-Identifier: MIT
"""Ends at a thousand random moments in several labs, and one summary."""
import argparse
import statistics
import sys
import time
from collections import Counter

from labs import add_common_options, joined, play_side_by_side, tell_failures

# Real seconds that one life may take in a lab at ten times the speed, before the run is stuck.
SLOWEST_LIFE_S = 15
SET_UP_S = 180
BAR_WIDTH = 50


def parse_options():
    parser = argparse.ArgumentParser(prog="tests/soak/shutdown.sh", description=__doc__)
    add_common_options(parser)
    parser.add_argument("--times", type=int, default=1000, help="of all labs together (default: 1000)")
    parser.add_argument("--moments", default="", help="only those whose names hold this")
    return parser.parse_args()


def histogram(title, counts):
    print(f"  {title}:")
    most = max(counts.values())
    for what, count in sorted(counts.items(), key=lambda item: -item[1]):
        print(f"    {count:5}  {'#' * -(-BAR_WIDTH * count // most):<{BAR_WIDTH}}  {what}")


def tell(reports, real_s):
    facts = [report["facts"]["ends"] for report in reports]
    total = {name: sum((Counter(fact[name]) for fact in facts), Counter()) for name in ("phases", "moments", "last")}
    seconds = [value for fact in facts for value in fact["seconds"]]
    several, wrong = (sum(fact[name] for fact in facts) for name in ("several", "wrong"))
    print(f"\n{len(seconds)} ends in {len(facts)} labs, {real_s:.0f} s; {several} of them by several signals, {wrong} were "
          "not as they should be")
    print(f"  until the end: median {statistics.median(seconds):.2f} s, longest {max(seconds):.2f} s real")
    slowest = Counter()
    for fact in facts:
        for moment, longest in fact["by_moment"].items():
            slowest[moment] = max(slowest[moment], longest)
    print("  longest by moment: " + ", ".join(f"{what} {value:.2f} s" for what, value in slowest.most_common(8)))
    histogram("aimed at", total["moments"])
    histogram("hit, by what the log had told last", total["phases"])
    missed = sum((Counter(fact["missed"]) for fact in facts), Counter())
    print(f"  lives ended elsewhere, for the moment did not come: {joined(missed) or 'none'}")
    print(f"  functions that had spoken last: {joined(total['last'])}")


def main():
    options = parse_options()
    limit_s = SET_UP_S + SLOWEST_LIFE_S * 10 / options.speed * options.times / options.labs
    started = time.monotonic()
    reports = play_side_by_side(options, "ends", options.times, "ends", limit_s, f"moments={options.moments}")
    if all("ends" in report["facts"] for report in reports):
        tell(reports, time.monotonic() - started)
    failed = tell_failures(reports)
    print("FAILED" if failed else "PASSED")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
