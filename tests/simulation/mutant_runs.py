# SPDX-License-Identifier: MIT
"""What reaches which mutant, and whether that fails with it."""
import json
import os
import re
import resource
import signal
import subprocess
import time
from collections import Counter
from pathlib import Path

from mutant_build import test_programs

KEPT_LIVES = Path(__file__).resolve().parent / "regressions"
SHORTEST_LIMIT_S = 20    # of a test program
LIFE_LIMIT_S = 300       # which ends itself when it needs too much of the processor
TIMES_AS_LONG = 10       # as it takes without a mutant
MOST_LIVES = 75         # that are played with one mutant
LIVES_UNMOVED = 40       # after so many that all went on as they do without it, no more are played
SLOW_S = 1.5             # of a test program whose tests are looked at one by one
LARGEST_FILE = 1 << 28
FAILED_TEST = re.compile(r"^\[  FAILED  \] ([\w/.]+\.[\w/.]+)", re.M)
FAILED_LIFE = re.compile(r"^seed \d+: FAILED: (.*?), hash [0-9a-f]{16}", re.M)
HASH = re.compile(r", hash ([0-9a-f]{16})")


def limit_files():
    resource.setrlimit(resource.RLIMIT_FSIZE, (LARGEST_FILE, LARGEST_FILE))


def end(run):
    if run.poll() is None:
        os.killpg(run.pid, signal.SIGKILL)
    return run.communicate()[0]


def output_of(command, limit_s, number=None, reached=None):
    """Status (None when it took too long) and what was printed."""
    environment = {name: value for name, value in os.environ.items() if not name.startswith("MUTANT")}
    if number is not None:
        environment["MUTANT"] = str(number)
    if reached:
        environment["MUTANTS_REACHED"] = str(reached)
    run = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL, text=True,
                           errors="replace", env=environment, start_new_session=True, preexec_fn=limit_files)
    try:
        output = run.communicate(timeout=limit_s)[0]
        return run.returncode, output
    except subprocess.TimeoutExpired:
        return None, end(run)


class Runs:
    """Things that are run, by name: how long each takes, and the numbers of the mutants that it reaches."""

    def __init__(self, work, part):
        self.build_folder = work / part
        self.reach_file = work / "reached"
        self.book = work / f"reached_by_{part}.json"
        self.known = json.loads(self.book.read_text()) if self.book.exists() else {}
        self.catches = Counter()

    def record_one(self, name, count):
        self.reach_file.write_bytes(bytes(count))
        start = time.monotonic()
        status, output = output_of(self.command(name), 600, reached=self.reach_file)
        reached = [number for number, byte in enumerate(self.reach_file.read_bytes()) if byte]
        if status == 0 and reached:
            self.known[name] = {"seconds": round(time.monotonic() - start, 3), "reached": reached,
                                "hash": (HASH.findall(output) or [""])[0]}
        elif status != 0:
            print(f"left out, as it fails anyway: {name}", flush=True)

    def keep(self):
        self.book.write_text(json.dumps(self.known))

    def that_reach(self, mutation):
        """Those first that have caught most of this source, or at all, for their time."""
        names = [name for name, known in self.known.items() if mutation.number in known["reached"]]
        return sorted(names, key=lambda name: self.known[name]["seconds"] / self.caught(name, mutation))

    def caught(self, name, mutation):
        return 1 + self.catches[name] + 20 * self.catches[name, mutation.path]

    def note_catch(self, name, mutation):
        self.catches[name] += 1
        self.catches[name, mutation.path] += 1


class UnitTests(Runs):
    """By program; a slow one by each of its tests."""

    def __init__(self, work):
        super().__init__(work, "tests")

    def command(self, name):
        program, _, test = name.partition(" ")
        return [self.build_folder / "bin" / program, "--gtest_brief=1", "--gtest_fail_fast"] + ([f"--gtest_filter={test}"] if test else [])

    def tests_of(self, program):
        suite = ""
        for line in output_of([self.build_folder / "bin" / program, "--gtest_list_tests"], SHORTEST_LIMIT_S)[1].splitlines():
            if line[:1].isalpha() and line.split()[0].endswith("."):
                suite = line.split()[0]
            elif line.startswith("  "):
                yield f"{program} {suite}{line.split()[0]}"

    def record(self, count):
        self.known = {}
        for program in test_programs(self.build_folder):
            self.record_one(program, count)
            if self.known.get(program, {}).get("seconds", 0) > SLOW_S:
                del self.known[program]
                for name in self.tests_of(program):
                    self.record_one(name, count)
        self.keep()

    def that_reach_by_program(self, mutation):
        """As `that_reach`, the tests of one program as one run: its name, and the time that this takes."""
        runs = {}
        for name in self.that_reach(mutation):
            program, _, test = name.partition(" ")
            tests, seconds = runs.get(program, ([], 0))
            runs[program] = (tests + [test] if test else [], seconds + self.known[name]["seconds"])
        found = [(f"{program} {':'.join(tests)}".strip(), seconds) for program, (tests, seconds) in runs.items()]
        return sorted(found, key=lambda run: run[1] / self.caught(run[0].split()[0], mutation))

    def try_mutant(self, mutation):
        runs = self.that_reach_by_program(mutation)
        for name, seconds in runs:
            program = name.split()[0]
            limit = max(SHORTEST_LIMIT_S, TIMES_AS_LONG * seconds)
            status, output = output_of(self.command(name), limit, mutation.number)
            if status == 0:
                continue
            failed = FAILED_TEST.findall(output)
            alone = f"{program} {failed[0]}" if failed else name
            # A test that waits may fail because the machine is busy, and any takes long on one that stands still.
            if all(output_of(self.command(once_more), 2 * limit, mutation.number)[0] == 0 for once_more in (alone, name)):
                continue
            self.note_catch(program, mutation)
            return {"by": program, "how": failed[0] if failed else "too long" if status is None else f"status {status}"}
        return {"by": None, "how": f"{len(runs)} programs reach it"}


class Lives(Runs):
    def __init__(self, work):
        super().__init__(work, "lives")

    def command(self, name):
        return [self.build_folder / "bin" / "simulate", *name.split()]

    def record(self, count, lives):
        self.known = {}
        kept = [f"--life {path}" for path in sorted(KEPT_LIVES.glob("*.life"))]
        for name in kept + [f"--seed {seed}" for seed in range(1, lives + 1)]:
            self.record_one(name, count)
        self.keep()

    def try_mutant(self, mutation):
        """The kept lives come first."""
        moves = False
        names = sorted(self.that_reach(mutation), key=lambda name: not name.startswith("--life"))
        played = 0
        for name in names[:MOST_LIVES]:
            if played == LIVES_UNMOVED and not moves:
                break
            played += 1
            status, output = output_of(self.command(name), LIFE_LIMIT_S, mutation.number)
            if status != 0:
                self.note_catch(name, mutation)
                text = FAILED_LIFE.findall(output)
                return {"by": Path(name.split()[1]).stem, "how": text[0][:160] if text else f"status {status}", "moves": True,
                        "lives": played}
            moves = moves or HASH.findall(output)[:1] != [self.known[name]["hash"]]
        return {"by": None, "how": f"{played} of {len(names)} lives", "moves": moves, "lives": played}
