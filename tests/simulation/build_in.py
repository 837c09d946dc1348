# SPDX-License-Identifier: MIT
"""Builds changes of the daemon into its sources beside what they change, so that one program plays with any of them.

A function with a change begins with a copy of its body in which the change is made, for when that change is in force
(changed.h). The place of a change, or where no statement begins there its function, says that a life came to it.
"""
import re
import subprocess
import sys
from dataclasses import dataclass

from mutant_build import ROOT, configure, copy_tree

DECLARED = 'extern "C" bool is_changed(int number); extern "C" void reach_change(int number);\n'
BODY = re.compile(r"^\{\n(.*?)^\}", re.M | re.S)    # of a function, as the sources are formatted
VOID = re.compile(r"\bvoid\s+[\w:]+\(|^\w+::~?\w+\(", re.M)
BEGINS_NO_STATEMENT = re.compile(r"\s*(?:case\b|default\b|else\b|[^\w\s*(+-])")


@dataclass
class Place:
    start: int
    end: int
    instead: str
    when: str = ""    # it makes a difference: where that is known before


def replaced(text, places, offset=0):
    for place in sorted(places, key=lambda place: -place.start):
        text = text[:place.start - offset] + place.instead + text[place.end - offset:]
    return text


def returns_nothing(text, body):
    head = text[:body.start()]
    return VOID.search(head[max(head.rfind("\n\n"), head.rfind(";\n"), head.rfind("\n}"), 0):]) is not None


def begins_statement(text, place):
    before = text[:place.start].rstrip()
    while before.rsplit("\n", 1)[-1].lstrip().startswith("//"):
        before = before.rsplit("\n", 1)[0].rstrip()
    return before[-1:] in "{};" and not BEGINS_NO_STATEMENT.match(text[place.start:])


def build_in(text, changes):
    """`changes`: number -> places. What comes in the place of a comment outside of functions is there for all."""
    bodies = list(BODY.finditer(text))
    in_body, others = {}, []
    for number, places in changes.items():
        for place in places:
            body = next((i for i, body in enumerate(bodies) if body.start(1) <= place.start and place.end <= body.end(1)), None)
            if body is None and re.sub(r"//.*|\s", "", text[place.start:place.end]):
                raise ValueError(f"neither in one function nor beside all: {text[place.start:place.end]}")
            if body is None:
                others.append(place)
            else:
                in_body.setdefault(body, {}).setdefault(number, []).append(place)
    edits = others
    for i, of_body in in_body.items():
        body = bodies[i]
        copies, notes = "", ""
        for number, places in of_body.items():
            changed = replaced(body[1], places, body.start(1)) + ("return;\n" if returns_nothing(text, body) else "")
            copies += f"if (is_changed({number})) {{\n{changed}}}\n"
            for place in places:
                note = (f"if ({place.when})\n" if place.when else "") + f"reach_change({number});\n"
                if begins_statement(text, place):
                    edits.append(Place(place.start, place.start, note))
                else:
                    notes += note
        edits.append(Place(body.start(1), body.start(1), notes + copies))
    return DECLARED + replaced(text, edits)


def build(folder, changes, jobs):
    """The program with all changes, path -> number -> places, built in a copy of the tree below `folder`."""
    tree, build_folder = folder / "tree", folder / "build"
    tree.mkdir(parents=True, exist_ok=True)
    copy_tree(tree, {name: build_in((ROOT / name).read_text(), of_source) for name, of_source in changes.items()})
    configure(tree, build_folder, "lives")
    run = subprocess.run(["ninja", "-C", build_folder, "-j", str(jobs), "simulate"], capture_output=True, text=True)
    if run.returncode != 0:
        sys.exit(f"the changes do not build:\n{run.stdout}{run.stderr}")
    return build_folder / "bin" / "simulate"
