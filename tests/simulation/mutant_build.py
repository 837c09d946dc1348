# SPDX-License-Identifier: MIT
"""One build with all mutants in it."""
import json
import re
import shutil
import subprocess
import sys
from pathlib import Path

from mutations import NAMED_CONSTANT

ROOT = Path(__file__).resolve().parents[2]
# Without what only a debugger reads.
OPTIONS = ["-DCMAKE_BUILD_TYPE=RelWithDebInfo", "-DWAN_DETECT_LIBS=bundled", "-DWAN_DETECT_LAB=OFF", "-DWAN_DETECT_SHARED_HEADERS=ON"]
PARTS = {"tests": ["-DWAN_DETECT_SIMULATION=OFF", "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -DNDEBUG -w",
                   "-DCMAKE_C_FLAGS_RELWITHDEBINFO=-O1 -DNDEBUG"],
         "lives": ["-DWAN_DETECT_SIMULATION=ON", "-DWAN_DETECT_TESTS=OFF", "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O2 -DNDEBUG -w",
                   "-DCMAKE_C_FLAGS_RELWITHDEBINFO=-O2 -DNDEBUG"]}
HEADER = """#pragma once
extern int chosen_mutant;
extern unsigned char *reached_mutants;
inline bool mutant(int number)
{
    reached_mutants[number] = 1;
    return number == chosen_mutant;
}
"""
# Before anything else of the program; by calls that are no door of the simulation. The map outlives whoever forks.
SOURCE = """#include "platform/mutant.h"
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
static unsigned char unheeded[%(count)d];
int chosen_mutant = -1;
unsigned char *reached_mutants = unheeded;
__attribute__((constructor(101))) static void choose_mutant()
{
    if (const char *number = getenv("MUTANT"))
        chosen_mutant = atoi(number);
    const char *path = getenv("MUTANTS_REACHED");
    const int file = path ? openat(AT_FDCWD, path, O_RDWR) : -1;
    if (file < 0)
        return;
    void *map = mmap(nullptr, sizeof unheeded, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (map != MAP_FAILED)
        reached_mutants = static_cast<unsigned char *>(map);
    close_range(static_cast<unsigned>(file), static_cast<unsigned>(file), 0);
}
"""
ERROR = re.compile(r"^(\S*?):(\d+):(\d+): (?:fatal )?error: .*$", re.M)
TESTED_ROOMS = ("core", "model", "platform", "probes")
MOST_ROUNDS = 60


def with_mutations(text, mutations):
    """A source with all of them. Where one stands within another, the outer one's wrong text is as it was: no more than
    one is chosen."""
    mutations = sorted(mutations, key=lambda m: (m.start, -m.end, m.number))
    pieces, at = [], 0
    for named in NAMED_CONSTANT.finditer(text):
        inner = [m for m in mutations if named.start() <= m.start < named.end()]
        if inner:
            before = [m for m in mutations if at <= m.start < named.start()]
            pieces += [rendered(text[at:named.start()], at, before), as_macro(text, named, inner)]
            at = named.end()
    pieces.append(rendered(text[at:], at, [m for m in mutations if m.start >= at]))
    return '#include "platform/mutant.h"\n' + "".join(pieces)


def rendered(text, offset, mutations):
    pieces, at = [], 0
    while mutations:
        first = mutations[0]
        inner = [m for m in mutations if m.start < first.end]
        mutations = mutations[len(inner):]
        pieces.append(text[at:first.start - offset])
        at = first.end - offset
        within = rendered(text[first.start - offset:at], first.start, inner[1:])
        pieces.append(first.form % (f"mutant({first.number})", within))
    return "".join(pieces) + text[at:]


def as_macro(text, found, inner):
    """A named constant becomes what is worked out where it is read."""
    value = rendered(text[found.start(3):found.end(3)], found.start(3), inner)
    return f"#define {found.group(2)} (static_cast<{found.group(1)}>({' '.join(value.split())}))"


def test_programs(build_folder):
    targets = subprocess.run(["ninja", "-C", build_folder, "-t", "targets", "all"], capture_output=True, text=True,
                             check=True).stdout
    return sorted(set(re.findall(rf"tests/unit/(?:{'|'.join(TESTED_ROOMS)})/CMakeFiles/(\w+_test)\.dir/", targets)))


def copy_tree(folder, changed):
    """The tree as it is, but for the sources whose text `changed` holds. Only what differs is written, so that the next
    build is short."""
    names = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=ROOT, check=True,
                           capture_output=True).stdout.decode().split("\0")
    texts = {name: (ROOT / name).read_bytes() for name in names if (ROOT / name).is_file()}
    texts.update({name: text.encode() for name, text in changed.items()})
    for name, text in texts.items():
        if not (folder / name).exists() or (folder / name).read_bytes() != text:
            (folder / name).parent.mkdir(parents=True, exist_ok=True)
            (folder / name).write_bytes(text)
            if (ROOT / name).exists():
                shutil.copymode(ROOT / name, folder / name)
    for path in list(folder.rglob("*")):
        if path.is_file() and str(path.relative_to(folder)) not in texts:
            path.unlink()


def configure(tree, build_folder, part):
    quick = []
    if shutil.which("clang++-14"):
        quick.append("-DWAN_DETECT_TEST_COMPILER=clang++-14")
    if shutil.which("ld.lld"):
        quick += ["-DWAN_DETECT_TEST_LINKER=lld", "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld"]
    subprocess.run(["cmake", "-G", "Ninja", "-S", tree, "-B", build_folder, *OPTIONS, *PARTS[part], *quick], check=True,
                   stdout=subprocess.DEVNULL)


class MutantBuild:
    """A mutant keeps its number from build to build, so that little is compiled anew."""

    def __init__(self, work, jobs, mutations):
        self.folder, self.tree = work, work / "tree"
        self.jobs = jobs
        self.mutations = mutations
        self.left_out_book, self.numbers_book = work / "left_out.json", work / "numbers.json"
        self.left_out = set(json.loads(self.left_out_book.read_text())) if self.left_out_book.exists() else set()
        self.numbers = json.loads(self.numbers_book.read_text()) if self.numbers_book.exists() else {}
        self.take_numbers()

    def take_numbers(self):
        for mutation in self.mutations:
            mutation.number = self.numbers.get(mutation.key)

    def give_numbers(self):
        drawn = {mutation.key for mutation in self.mutations}
        self.numbers = {key: number for key, number in self.numbers.items() if key in drawn}
        free = sorted(set(range(len(drawn))) - set(self.numbers.values()))
        for mutation in self.mutations:
            if mutation.key not in self.numbers:
                self.numbers[mutation.key] = free.pop(0)
        self.numbers_book.write_text(json.dumps(self.numbers))
        self.take_numbers()

    def kept(self):
        """Those in the build, in the order in which they were drawn."""
        return [mutation for mutation in self.mutations if mutation.key in self.numbers and mutation.key not in self.left_out]

    def dropped(self):
        return [mutation for mutation in self.mutations if mutation.key in self.left_out]

    def write_tree(self):
        texts = {"platform/mutant.h": HEADER, "platform/mutant.cpp": SOURCE % {"count": len(self.mutations)}}
        for path in {mutation.path for mutation in self.kept()}:
            of_this = [mutation for mutation in self.kept() if mutation.path == path]
            texts[path] = with_mutations((ROOT / path).read_text(), of_this)
        copy_tree(self.tree, texts)

    def build(self):
        """Again and again without those that the compiler does not take."""
        self.give_numbers()
        self.write_tree()
        for part in PARTS:
            configure(self.tree, self.folder / part, part)
            self.build_targets(part, "wan_detect_core", "wan_detect_model")
            self.build_targets(part, *(test_programs(self.folder / part) if part == "tests" else ["simulate"]))
        print(f"{len(self.kept())} mutants, {len(self.dropped())} of those drawn do not compile")

    def build_targets(self, part, *targets):
        for _ in range(MOST_ROUNDS):
            run = subprocess.run(["ninja", "-C", self.folder / part, "-k", "0", "-j", str(self.jobs), *targets],
                                 capture_output=True, text=True)
            if run.returncode == 0:
                return
            if not self.drop_blamed(self.folder / part, run.stdout):
                sys.exit(run.stdout[-6000:])
            self.write_tree()

    def drop_blamed(self, build_folder, output):
        """For each line with an error the mutant that stands nearest before its place."""
        blamed = set()
        by_number = {mutation.number: mutation for mutation in self.mutations}
        for found in ERROR.finditer(output):
            path = (build_folder / found.group(1)).resolve()
            lines = path.read_text().splitlines()
            at, column = int(found.group(2)) - 1, int(found.group(3))
            near = [(column - m.start() if m.start() < column else 1000 + m.start(), int(m.group(1)))
                    for m in re.finditer(r"\bmutant\((\d+)\)", lines[at])]
            if not near:
                near = [(0, mutation.number) for mutation in self.kept()
                        if mutation.function.isupper() and re.search(rf"\b{mutation.function}\b", lines[at])]
            if not near:
                before = re.findall(r"\bmutant\((\d+)\)", "\n".join(lines[max(0, at - 8):at]))
                near = [(0, int(number)) for number in before[-1:]]
            blamed.update(by_number[number].key for distance, number in near if distance == min(near)[0])
        print(f"{len(blamed)} do not compile", flush=True)
        self.left_out |= blamed
        self.left_out_book.write_text(json.dumps(sorted(self.left_out), indent=0))
        return bool(blamed)
