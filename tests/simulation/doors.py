#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Tells which names a program asks the C library for that are neither doors of the simulation nor known to be harmless.

doors.py PROGRAM [--self-test]; ends with 1 when there is one. The program is the daemon, with the stand-ins' libraries in it.
"""
import pathlib
import subprocess
import sys

FOLDER = pathlib.Path(__file__).parent

# What only the program has that the simulation leaves out: the starting of commands, and the bus library.
REPLACED = {
    "clone": "platform/spawn.cpp: the simulation has its own commands",
    "sendmsg": "the bus library: the simulation has its own bus",
    "recvmsg": "the bus library: the simulation has its own bus",
}


def harmless():
    names = set()
    for line in (FOLDER / "harmless.txt").read_text().splitlines():
        words, _, reason = line.partition(": ")
        if line and not line.startswith("#"):
            assert reason.strip(), f"harmless.txt: no reason: {line}"
            names.update(words.split())
    return names


def asked_for(program):
    listed = subprocess.run(["nm", "-D", "--undefined-only", program], check=True, capture_output=True, text=True).stdout
    return {line.split()[-1].split("@")[0] for line in listed.splitlines()}


def forgotten(names):
    known = set((FOLDER / "doors.txt").read_text().split()) | harmless() | set(REPLACED)
    return sorted(names - known)


def main():
    programs = [word for word in sys.argv[1:] if not word.startswith("--")]
    if "--self-test" in sys.argv and forgotten({"read", "strlen", "timerfd_create"}) != ["timerfd_create"]:
        sys.exit("doors.py does not notice a forgotten door")
    for program in programs:
        names = asked_for(program)
        if "read" not in names:
            sys.exit(f"{program}: no program that asks the C library for anything")
        if missing := forgotten(names):
            sys.exit(f"{program}: neither a door (doors.txt) nor harmless (harmless.txt): {' '.join(missing)}")


main()
