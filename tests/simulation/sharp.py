# SPDX-License-Identifier: MIT
"""Undoes one mend of the daemon after the other (undone/*.undo) and tells after how many lives the simulation notices.

An .undo file begins with what goes wrong without the mend, in lines with "#". Then for each place: "@@ PATH", lines
with "-" that the source holds once, whatever their spaces and line ends, and lines with "+" that take their place; a
line with "?" says when that makes a difference, where it is known before and to be read without a door. Lines with "!"
at the top say why no life shows it.

All are built into one program, beside what they take the place of. The lives of the tree as it is are played once: who
fails there fails anyway, and a life that never comes to the place of a mend goes on as it did when that is undone.
"""
import argparse
import hashlib
import itertools
import json
import os
import re
import subprocess
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
import build_in  # noqa: E402
from mutant_build import ROOT  # noqa: E402

HERE = Path(__file__).resolve().parent
UNDONE = HERE / "undone"
KEPT = HERE / "regressions"
TABLE = HERE / "sharp.md"
ROW = re.compile(r"^\| `(\w+)` \|.*\| ([0-9a-f]{8}) \|$", re.M)
FAILED = re.compile(r"^seed (\d+): FAILED: (.*), hash [0-9a-f]{16}, ", re.M)
NEAR = re.compile(r"^# near (\w+)$", re.M)
ENDED = re.compile(r"^seed (\d+) with hash ([0-9a-f]{16}) reached((?: \d+)*)$", re.M)
CHUNK = 50    # lives of the tree as it is that are played at once


class Undo:
    def __init__(self, path, number):
        self.name = path.stem
        self.number = number    # in the program, from 1
        self.text = path.read_text()
        # Of what is said and changed, wherever that stands by now.
        words = [word for line in self.text.splitlines() if not line.startswith("@@ ") for word in line.split()]
        self.hash = hashlib.sha256(" ".join(words).encode()).hexdigest()[:8]
        self.story = []
        self.unseen = []
        self.places = []    # path, what is there, what comes in its place, when that makes a difference
        for line in self.text.splitlines():
            if line.startswith("@@ "):
                self.places.append((line[3:], [], [], []))
            elif line.startswith("#"):
                self.story.append(line[1:].strip())
            elif line.startswith("!") and not self.places:
                self.unseen.append(line[1:].strip())
            elif line[:1] in ("-", "+", "?"):
                self.places[-1][1 + "-+?".index(line[0])].append(line[1:])
            elif line.strip():
                raise ValueError(f"{path}: no line of an undone mend: {line}")

    def find(self):
        """Where it changes what: path and Place."""
        for name, before, after, when in self.places:
            pattern = re.compile(r"\s*".join(re.escape(word) for word in re.findall(r"\w+|[^\w\s]", " ".join(before))))
            found = list(pattern.finditer((ROOT / name).read_text()))
            if len(found) != 1:
                raise ValueError(f"{name} holds it {len(found)} times: {before[0].strip()}")
            yield name, build_in.Place(found[0].start(), found[0].end(), "\n".join(after), " ".join(when).strip())

    def flaw(self):
        """Why it does not apply, or None."""
        try:
            list(self.find())
        except ValueError as error:
            return str(error)
        return None


class Lines:
    """Entries kept in a file, a line of JSON for each."""

    def __init__(self, path):
        self.path = path
        self.entries = [json.loads(line) for line in path.read_text().splitlines()] if path.exists() else []

    def add(self, entry):
        self.entries.append(entry)
        with self.path.open("a") as file:
            file.write(json.dumps(entry) + "\n")


class Player:
    """Plays lives of the program, on one processor, and remembers what they came to in the tree as it is."""

    def __init__(self, program, folder, processor, word):
        self.program = program
        self.processor = processor
        self.word = word
        self.key = hashlib.sha256(program.read_bytes()).hexdigest()[:16]
        self.usual = Lines(folder / f"usual-{self.key}.jsonl")    # the lives from 1, in order

    def play(self, *words):
        run = subprocess.run([self.program, *map(str, words)], capture_output=True, text=True, errors="replace",
                             preexec_fn=lambda: os.sched_setaffinity(0, {self.processor}))
        return run.stdout

    def usual_life(self, seed):
        while len(self.usual.entries) < seed:
            first = len(self.usual.entries) + 1
            output = self.play("--from", first, "--lives", CHUNK, "--reached")
            failed = {int(one): text for one, text in FAILED.findall(output)}
            ended = {int(one): (hash_, reached) for one, hash_, reached in ENDED.findall(output)}
            for one in range(first, first + CHUNK):
                hash_, reached = ended[one]
                self.usual.add({"seed": one, "hash": hash_, "failed": failed.get(one),
                                "reached": [int(number) for number in reached.split()]})
        return self.usual.entries[seed - 1]

    def holds_word(self, seed):
        return not self.word or self.word in self.play("--seed", seed, "--show")

    def near(self, seed):
        """The kept life near which this one is drawn, or None."""
        found = NEAR.search(self.play("--seed", seed, "--show"))
        return found[1] if found else None

    def lives_of(self, undo, first, last):
        """The seeds of lives that may show that it is undone."""
        for seed in range(first, last + 1):
            usual = self.usual_life(seed)
            if not usual["failed"] and undo.number in usual["reached"] and self.holds_word(seed):
                yield seed

    def kept_life(self, undo):
        """How the life of its name in regressions/ fails when it is undone, which passes in the tree as it is."""
        path = KEPT / f"{undo.name}.life"
        failed = path.exists() and FAILED.search(self.play("--changed", undo.number, "--life", path))
        return failed[2] if failed and not FAILED.search(self.play("--life", path)) else None

    def try_one(self, undo, first, last, likely):
        """The entry of the book. The seeds in `likely` come first."""
        entry = {"name": undo.name, "key": self.key, "text": undo.hash, "kept": self.kept_life(undo), "first": first,
                 "played": 0, "moved": 0}
        for seed in itertools.chain(sorted(likely), self.lives_of(undo, first, last)):
            output = self.play("--changed", undo.number, "--seed", seed, "--reached")
            entry["played"] += 1
            entry["moved"] += self.usual_life(seed)["hash"] not in output
            if failed := FAILED.search(output):
                return {**entry, "lives": seed, "caught": failed[2], "near": self.near(seed)}
        return {**entry, "lives": last, "caught": None}


def all_undone():
    return [Undo(path, i + 1) for i, path in enumerate(sorted(UNDONE.glob("*.undo")))]


def undone_named(names):
    undone = all_undone()
    unknown = set(names) - {undo.name for undo in undone}
    if unknown:
        sys.exit(f"no undone mend is called {', '.join(sorted(unknown))}")
    return [undo for undo in undone if not names or undo.name in names]


def build(folder, jobs):
    changes = {}
    for undo in all_undone():
        for name, place in undo.find():
            changes.setdefault(name, {}).setdefault(undo.number, []).append(place)
    return build_in.build(folder, changes, jobs)


def check_named(text):
    """What stands before the first colon, and what it says without its numbers."""
    name, _, rest = text.partition(": ")
    return f"*{name}*: {re.sub(r' [0-9]+( |$)', ' N ', rest.split(', where')[0]).strip()}" if rest else text


def write_table(book):
    """What the program that played last has come to."""
    rows, drawn, anew, shown, unseen = [], 0, 0, 0, 0
    keys = {entry["key"] for entry in book.entries[-1:]}
    for undo in all_undone():
        entries = [entry for entry in book.entries if entry["name"] == undo.name and entry["text"] == undo.hash
                   and entry["key"] in keys]
        hits = [entry for entry in entries if entry["caught"]]
        kept = next((entry["kept"] for entry in reversed(entries) if entry["kept"]), None)
        first = min(hits, key=lambda entry: entry["lives"], default=None)
        near = first and first["near"]
        drawn += bool(hits)
        anew += bool(hits and near != undo.name)
        shown += bool(hits or kept)
        unseen += bool(undo.unseen and not hits and not kept)
        found = hits[-1]["caught"] if hits else kept
        how = check_named(found) if found else f"no life: {' '.join(undo.unseen)}" if undo.unseen else "-"
        life = f"{first['lives']}{' near its kept one' if near == undo.name else f' near `{near}`' if near else ''}" if first else "-"
        rows.append(f"| `{undo.name}` | {' '.join(undo.story)} | {how} | {life} | {'yes' if kept else '-'} | {undo.hash} |")
    TABLE.write_text(f"""<!-- SPDX-License-Identifier: MIT -->
# Which mend is missed by whom

Written by `sharp.sh --table`; `sharp.sh --apply-only` tells when an undone mend is not the one of this table. Of {len(rows)} mends that are
undone {drawn} are noticed by lives as they are drawn, {anew} of these first by one that is not drawn near the kept life of their name,
{shown} by drawn lives or by that kept life itself, which `./test.sh` plays with the mend in place. The life is the seed of one that fails, so
that so many lives are enough. For {unseen} it is told why no life has shown them; unit tests hold most of these.

| undone | what goes wrong then | is noticed by | life | kept | text |
|---|---|---|---|---|---|
""" + "\n".join(rows) + "\n")


def rows_out_of_date():
    told = dict(ROW.findall(TABLE.read_text())) if TABLE.exists() else {}
    return [f"{undo.name}: {TABLE.name} tells of another one, or of none" for undo in all_undone()
            if told.get(undo.name) != undo.hash]


def main():
    parser = argparse.ArgumentParser(prog="sharp.sh", description=__doc__.splitlines()[0])
    parser.add_argument("names", nargs="*", metavar="NAME", help="of undone mends (default: all)")
    parser.add_argument("--lives", type=int, default=10_000, help="most that are played for each (default: 10000)")
    parser.add_argument("--from", type=int, default=1, dest="first", metavar="SEED", help="of the first life")
    parser.add_argument("--work", type=Path, default=ROOT / "build" / "undone", help="folder of the copy and its build")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 1, help="of the build")
    parser.add_argument("--processor", type=int, default=0, help="that plays")
    parser.add_argument("--with", dest="word", help="only lives whose text holds this, without which nothing differs")
    parser.add_argument("--usual", type=int, metavar="COUNT", help="only play so many lives of the tree as it is")
    parser.add_argument("--table", action="store_true", help=f"only write {TABLE.name} from what was played here")
    parser.add_argument("--apply-only", action="store_true", help="only tell which ones still apply")
    options = parser.parse_args()
    undone = undone_named(options.names)
    flaws = [f"{undo.name}: {flaw}" for undo in undone if (flaw := undo.flaw())]
    if options.apply_only or flaws:
        flaws += rows_out_of_date() if options.apply_only else []
        print("\n".join(flaws) or f"all {len(undone)} apply")
        return bool(flaws)
    if options.table:
        return write_table(Lines(options.work / "book.jsonl"))
    folder = options.work.resolve()
    player = Player(build(folder, options.jobs), folder, options.processor, options.word)
    if options.usual:
        player.usual_life(options.usual)
        print("\n".join(f"seed {usual['seed']}: {usual['failed']}" for usual in player.usual.entries if usual["failed"]))
        return 0
    book = Lines(folder / "book.jsonl")
    caught = 0
    for undo in undone:
        start = time.monotonic()
        likely = {entry["lives"] for entry in book.entries if entry["name"] == undo.name and entry["caught"]}
        entry = player.try_one(undo, options.first, options.first + options.lives - 1,
                               [seed for seed in likely if not player.usual_life(seed)["failed"]])
        book.add(entry)
        caught += entry["caught"] is not None
        how = f"life {entry['lives']}: {entry['caught']}" if entry["caught"] else "not caught"
        print(f"{'caught' if entry['caught'] else 'MISSED'} {undo.name}: {how}  "
              f"({entry['played']} came to it, {entry['moved']} went on in another way, {time.monotonic() - start:.0f} s)", flush=True)
        if not entry["caught"]:
            print(f"        {' '.join(undo.story)}", flush=True)
    print(f"{caught} of {len(undone)} caught")
    return caught != len(undone)


if __name__ == "__main__":
    sys.exit(main())
