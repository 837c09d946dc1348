#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Keeps the pictures of `wan_detect --status` in docs/operating.md what the scenario front-panel sees.

    tests/status_pictures.py [--build DIR]            plays it, and writes the pictures
    tests/status_pictures.py --check [--build DIR]    plays it; status 1 when the pictures are others
    tests/status_pictures.py --self-test              does this check notice what is wrong?

Seconds, and addresses that chance gave, are no part of the comparison.
"""
import argparse
import json
import re
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
DOCUMENT = ROOT / "docs" / "operating.md"
PICTURE = re.compile(r"(<!-- picture: ([\w-]+) -->\n```\n\$ [^\n]*\n)(.*?)(```\n)", re.DOTALL)
ANY_MAC = re.compile(r"(?:[0-9A-F]{2}-){5}[0-9A-F]{2}")
PLAIN_MAC = "02-00-00-00-00-01"
CHANCE = [(re.compile(r"\s+"), " "),    # other seconds may begin another line
          (ANY_MAC, PLAIN_MAC), (re.compile(r"10\.10\.(\d+)\.\d{3}"), r"10.10.\1.100"), (re.compile(r"\d+(?:\.\d)? s\b"), "0 s")]


def without_chance(text):
    for pattern, instead in CHANCE:
        text = pattern.sub(instead, text)
    return text


def flaws(document, shown):
    """What is wrong with the pictures of the document, given what was shown."""
    found = PICTURE.findall(document)
    told = [] if found else ["there is no picture"]
    for _, name, text, _ in found:
        if name not in shown:
            told.append(f"the scenario shows no {name}")
        elif without_chance(text) != without_chance(shown[name]["text"]):
            told.append(f"the picture {name} is another one now")
    return told


def with_pictures(document, shown):
    return PICTURE.sub(lambda match: match[1] + ANY_MAC.sub(PLAIN_MAC, shown[match[2]]["text"]) + match[4], document)


def play(build):
    with tempfile.NamedTemporaryFile(suffix=".json") as report:
        subprocess.run([ROOT / "run.sh", "front-panel", "--build", build, "--report", report.name], check=True,
                       stdout=subprocess.DEVNULL)
        return json.loads(Path(report.name).read_text(encoding="utf-8"))["facts"]["shown"]


def self_test(document):
    shown = {name: {"text": text} for _, name, text, _ in PICTURE.findall(document)}
    first = next(iter(shown))
    wrong = {
        "another word": (document, shown | {first: {"text": shown[first]["text"].replace("link", "lynx", 1)}}),
        "a picture of something else": (document.replace(f"picture: {first} ", "picture: nothing "), shown),
        "a document without pictures": (PICTURE.sub("", document), shown),
    }
    missed = [what for what, (text, seen) in wrong.items() if not flaws(text, seen)]
    later = {name: {"text": re.sub(r"\d+ s ago", "1234 s ago", one["text"])} for name, one in shown.items()}
    return missed + (["that only the seconds are others"] if flaws(document, later) else [])


def main():
    parser = argparse.ArgumentParser(description="The pictures of wan_detect --status in docs/operating.md")
    parser.add_argument("--check", action="store_true", help="write nothing; status 1 when a picture is another one")
    parser.add_argument("--self-test", action="store_true", help="check that what is wrong is noticed")
    parser.add_argument("--build", default=str(ROOT / "build" / "release"), help="build folder with the programs")
    options = parser.parse_args()
    document = DOCUMENT.read_text(encoding="utf-8")
    if options.self_test:
        missed = self_test(document)
        for what in missed:
            print(f"status_pictures.py: does not notice {what}")
        return 1 if missed else 0
    shown = play(options.build)
    if not options.check:
        DOCUMENT.write_text(with_pictures(document, shown), encoding="utf-8")
        return 0
    told = flaws(document, shown)
    for flaw in told:
        print(f"docs/operating.md: {flaw}; tests/status_pictures.py writes it")
    return 1 if told else 0


if __name__ == "__main__":
    sys.exit(main())
