# SPDX-License-Identifier: MIT
"""Undoes one mend of the daemon after the other (undone/*.undo) and tells after how many lives the simulation notices.

An .undo file begins with what goes wrong without the mend, in lines with "#". Then for each place: "@@ PATH", lines
with "-" that the source holds once, whatever their spaces and line ends, and lines with "+" that take their place.
"""
import argparse
import re
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from changed_tree import ROOT, ChangedTree, default_jobs  # noqa: E402

UNDONE = Path(__file__).resolve().parent / "undone"


class Undo:
    def __init__(self, path):
        self.name = path.stem
        self.story = []
        self.places = []    # path, what is there, what comes in its place
        for line in path.read_text().splitlines():
            if line.startswith("@@ "):
                self.places.append((line[3:], [], []))
            elif line.startswith("#"):
                self.story.append(line[1:].strip())
            elif line[:1] in ("-", "+"):
                self.places[-1][1 if line[0] == "-" else 2].append(line[1:])
            elif line.strip():
                raise ValueError(f"{path}: no line of an undone mend: {line}")

    def apply(self, read, write):
        """None, or why it does not apply."""
        texts = {}
        for name, before, after in self.places:
            text = texts.get(name) or read(name)
            pattern = re.compile(r"\s*".join(re.escape(word) for word in re.findall(r"\w+|[^\w\s]", " ".join(before))))
            found = pattern.findall(text)
            if len(found) != 1:
                return f"{name} holds it {len(found)} times: {before[0].strip()}"
            texts[name] = pattern.sub(lambda _: "\n".join(after), text, count=1)
        for name, text in texts.items():
            write(name, text)
        return None


def undone_named(names):
    undone = [Undo(path) for path in sorted(UNDONE.glob("*.undo"))]
    unknown = set(names) - {undo.name for undo in undone}
    if unknown:
        sys.exit(f"no undone mend is called {', '.join(sorted(unknown))}")
    return [undo for undo in undone if not names or undo.name in names]


def try_one(tree, undo, lives):
    """What stands in the table: whether it was caught, and how."""
    try:
        if why := undo.apply(lambda name: (tree.tree / name).read_text(), tree.change):
            return False, f"does not apply: {why}"
        built, output = tree.build("simulate")
        if not built:
            error = next((line for line in output.splitlines() if " error: " in line), output[-200:])
            return False, f"does not build: {error}"
        failure = tree.play_until_failure(lives)
        if not failure:
            return False, f"not caught in {lives} lives"
        return True, f"life {failure.lives}: {failure.text}"
    finally:
        tree.restore()


def main():
    parser = argparse.ArgumentParser(prog="sharp.sh", description=__doc__.splitlines()[0])
    parser.add_argument("names", nargs="*", metavar="NAME", help="of undone mends (default: all)")
    parser.add_argument("--lives", type=int, default=10_000, help="most that are played for each (default: 10000)")
    parser.add_argument("--work", type=Path, default=ROOT / "build" / "changed", help="folder of the copy and its build")
    parser.add_argument("--jobs", type=int, default=default_jobs())
    parser.add_argument("--apply-only", action="store_true", help="only tell which ones still apply")
    options = parser.parse_args()
    undone = undone_named(options.names)
    if options.apply_only:
        flaws = [f"{undo.name}: {why}" for undo in undone
                 if (why := undo.apply(lambda name: (ROOT / name).read_text(), lambda *_: None))]
        print("\n".join(flaws) or f"all {len(undone)} apply")
        return bool(flaws)
    tree = ChangedTree(options.work.resolve(), options.jobs)
    caught = 0
    for undo in undone:
        start = time.monotonic()
        is_caught, how = try_one(tree, undo, options.lives)
        caught += is_caught
        took_s = time.monotonic() - start
        print(f"{'caught' if is_caught else 'MISSED':<7} {undo.name:<34} {how}  ({took_s:.0f} s)", flush=True)
        if not is_caught:
            print(f"        {' '.join(undo.story)}", flush=True)
    print(f"{caught} of {len(undone)} caught")
    return caught != len(undone)


if __name__ == "__main__":
    sys.exit(main())
