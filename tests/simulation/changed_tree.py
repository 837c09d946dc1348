# SPDX-License-Identifier: MIT
"""A copy of the tree in which sources are changed, one at a time, so that little is built anew; and lives played there."""
import fcntl
import os
import re
import shutil
import subprocess
import sys
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
LONGEST_BUILD_S = 1800
LONGEST_BATCH_S = 1800
COUNTS = re.compile(r"^\d+ events:.*?(?=^\d+ lives, )", re.M | re.S)    # all that lives came to, but for the time
FAILED = re.compile(r"^seed (\d+): FAILED: (.*?), hash [0-9a-f]{16}", re.M)
# As it ships, but compiled in half of the time, and without what only a debugger reads.
OPTIONS = ["-DCMAKE_BUILD_TYPE=RelWithDebInfo", "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -DNDEBUG",
           "-DCMAKE_C_FLAGS_RELWITHDEBINFO=-O1 -DNDEBUG", "-DWAN_DETECT_LIBS=bundled", "-DWAN_DETECT_SIMULATION=ON",
           "-DWAN_DETECT_LAB=OFF", "-DWAN_DETECT_SHARED_HEADERS=ON"]


@dataclass
class Failure:
    seed: int
    text: str
    lives: int    # played until then, this one included


class ChangedTree:
    """`folder` gets the copy (tree/), its build (build/), and the program of the tree as it is (simulate)."""

    def __init__(self, folder, jobs):
        self.tree = folder / "tree"
        self.build_folder = folder / "build"
        self.unchanged_program = folder / "simulate"
        self.program = self.build_folder / "bin" / "simulate"
        self.jobs = jobs
        self.saved = {}
        self.moved = False
        self.fails_anyway = {}    # seed: whether its life fails in the tree as it is
        self.usual_counts = {}    # first seed, number of lives: what they come to in the tree as it is
        folder.mkdir(parents=True, exist_ok=True)
        self.lock = (folder / "lock").open("w")    # until this process ends
        try:
            fcntl.flock(self.lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except OSError:
            sys.exit(f"somebody else works in {folder}; --work takes another folder")
        self.copy_tree()
        self.configure()
        built, output = self.build("simulate")
        if not built:
            sys.exit(f"the tree as it is does not build:\n{output}")
        shutil.copy2(self.program, self.unchanged_program)

    def copy_tree(self):
        """Only what differs is written, so that the next build is short."""
        names = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=ROOT,
                               check=True, capture_output=True).stdout.decode().split("\0")
        kept = set()
        for name in filter(None, names):
            source, target = ROOT / name, self.tree / name
            if not source.is_file():
                continue
            kept.add(name)
            if not target.exists() or target.read_bytes() != source.read_bytes():
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copyfile(source, target)
                shutil.copymode(source, target)
        for target in self.tree.rglob("*"):
            if target.is_file() and str(target.relative_to(self.tree)) not in kept:
                target.unlink()

    def configure(self):
        quick = []
        if shutil.which("clang++-14"):
            quick.append("-DWAN_DETECT_TEST_COMPILER=clang++-14")
        if shutil.which("ld.lld"):
            quick += ["-DWAN_DETECT_TEST_LINKER=lld", "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld"]
        subprocess.run(["cmake", "-G", "Ninja", "-S", self.tree, "-B", self.build_folder, *OPTIONS, *quick], check=True,
                       stdout=subprocess.DEVNULL)

    def build(self, *targets):
        """Whether that worked, and what was printed."""
        run = subprocess.run(["ninja", "-C", self.build_folder, "-j", str(self.jobs), *targets], capture_output=True,
                             text=True, timeout=LONGEST_BUILD_S)
        return run.returncode == 0, run.stdout + run.stderr

    def change(self, name, text):
        path = self.tree / name
        self.saved.setdefault(name, path.read_text())
        path.write_text(text)

    def restore(self):
        for name, text in self.saved.items():
            (self.tree / name).write_text(text)
        self.saved = {}

    def play(self, program, first, count):
        """All that was printed. A failed life does not stop the others."""
        run = subprocess.run([program, "--from", str(first), "--lives", str(count), "--jobs", str(self.jobs)],
                             capture_output=True, text=True, timeout=LONGEST_BATCH_S, errors="replace")
        return run.stdout

    def usual_counts_of(self, first, count):
        if (first, count) not in self.usual_counts:
            self.usual_counts[first, count] = COUNTS.findall(self.play(self.unchanged_program, first, count))
        return self.usual_counts[first, count]

    def is_caught_anyway(self, seed):
        if seed not in self.fails_anyway:
            output = self.play(self.unchanged_program, seed, 1)
            self.fails_anyway[seed] = bool(re.search(r"\bFAILED\b", output))
        return self.fails_anyway[seed]

    def play_until_failure(self, most, batch=25, compare=False):
        """The first life that fails here and not in the tree as it is; None when there is none. With `compare` also
        whether the lives came to anything else than in the tree as it is."""
        played = 0
        self.moved = False
        while played < most:
            count = min(batch, most - played)
            output = self.play(self.program, played + 1, count)
            for seed, text in sorted((int(seed), text) for seed, text in FAILED.findall(output)):
                if not self.is_caught_anyway(seed):
                    return Failure(seed, text, seed)
            if compare and not self.moved:
                self.moved = COUNTS.findall(output) != self.usual_counts_of(played + 1, count)
            played += count
            batch = min(2 * batch, 400)
        return None


def default_jobs():
    return os.cpu_count() or 1
