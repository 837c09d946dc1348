#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Checks how the daemon's sources say their log lines, as far as the compiler does not.

    tests/check_log_lines.py                status 1 when a line is said in a wrong way
    tests/check_log_lines.py --self-test    this check on lines that are wrong

A line ends with one line break, and it is not said with LOG inside a lambda, for its name would be operator().
"""
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
# A text that programs search for as it is.
WITHOUT_BREAK = {'"Failed to add event to ubusd"'}
ROOMS = ("core", "status", "adapters", "model", "probes", "platform")
TEXT = r'"(?:[^"\\\n]|\\.)*"'
# Comments, texts and directives; the latter hold the macros themselves.
SKIPPED = re.compile(TEXT + r"|'(?:[^'\\\n]|\\.)*'|//[^\n]*|/\*.*?\*/|^[ \t]*#(?:[^\n]*\\\n)*[^\n]*", re.S | re.M)
LINE = re.compile(r"\b(LOG|LOG_AS)\(")
LAMBDA = re.compile(r"\[[^\[\]]*\]\s*(?:\([^()]*\))?\s*(?:mutable|noexcept|\s)*(?:->\s*[\w:<>*& ]+)?$")
END = re.compile(r'(?<!\\)(?:\\\\)*\\n"$')


def blanked(text, keep_texts):
    """The same without comments and directives, and with or without what stands in texts; every place stays where it is."""
    def blank(match):
        part = match.group()
        return part if keep_texts and part[0] == '"' else re.sub(r"[^\n]", " ", part)
    return SKIPPED.sub(blank, text)


def open_braces(code, end):
    """Where the braces begin that are open at this place."""
    places = []
    for place in range(end):
        if code[place] == "{":
            places.append(place)
        elif code[place] == "}" and places:
            places.pop()
    return places


def literal_after(text, place):
    """The first text after this place, its parts joined; None where a bracket closes or a statement ends before."""
    found = re.compile(r'[^"();]*((?:%s\s*(?:PRI\w+\s*)?)+)' % TEXT).match(text, place)
    return found.group(1).strip() if found else None


def wrong_lines(name, source):
    text, code = blanked(source, True), blanked(source, False)
    wrong = []
    for line in LINE.finditer(code):
        where = f"{name}:{code.count(chr(10), 0, line.start()) + 1}"
        start = line.end()
        if line.group(1) == "LOG_AS": # behind the name, which may be a text itself
            start = text.index(",", start)
        elif any(LAMBDA.search(code[:brace].rstrip()) for brace in open_braces(code, line.start())):
            wrong.append(f"{where}: LOG in a lambda; say it with LOG_AS")
        literal = literal_after(text, start)
        if literal and literal not in WITHOUT_BREAK and not END.search(literal):
            wrong.append(f"{where}: the text does not end with a line break: {literal}")
        if literal and re.search(r'\\n"$', literal) and r'\n\n"' in literal:
            wrong.append(f"{where}: the text ends with more than one line break: {literal}")
    return wrong


def self_test():
    sources = [('void f()\n{\n    LOG(Error, "x\\n");\n    LOG_AS("g", Error, "x" "y\\n");\n}\n', 0),
               ('void f()\n{\n    LOG(Error, "x");\n}\n', 1),
               ('void f()\n{\n    LOG_AS("g", Error, "x %d", 1);\n}\n', 1),
               ('void f()\n{\n    LOG(Error, "x\\n\\n");\n}\n', 1),
               ('void f()\n{\n    each([&](int a) {\n        LOG(Error, "x %d\\n", a);\n    });\n}\n', 1),
               ('void f()\n{\n    each([&](int a) {\n        LOG_AS("f", Error, "x %d\\n", a);\n    });\n    LOG(Error, "y\\n");\n}\n', 0),
               ('// LOG(Error, "x")\n#define L LOG(Error, "x")\n', 0)]
    failed = [source for source, wanted in sources if len(wrong_lines("f.cpp", source)) != wanted]
    print("\n".join(failed) or "the check notices what is wrong")
    return 1 if failed else 0


def main():
    if sys.argv[1:] == ["--self-test"]:
        return self_test()
    files = sorted(path for room in ROOMS for kind in ("*.cpp", "*.h") for path in (ROOT / room).rglob(kind))
    wrong = [line for path in files for line in wrong_lines(path.relative_to(ROOT), path.read_text(encoding="utf-8"))]
    print("\n".join(wrong) or f"{len(files)} files, every line is said as it should be")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
