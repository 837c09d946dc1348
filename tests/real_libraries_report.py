#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Judges what the tests said on the real libraries: every case passes, or it is an exception and has its reason.

    tests/real_libraries_report.py [--unit JUNIT] [--lab JUNIT]... --exceptions FILE
    tests/real_libraries_report.py --self-test
"""
import argparse
import sys
import xml.etree.ElementTree as xml
from collections import namedtuple
from pathlib import Path

PASSED, FAILED, SKIPPED = "passed", "failed", "skipped"
TITLES = {"unit": "unit tests", "lab": "lab"}
Verdict = namedtuple("Verdict", "lines good")


def outcome(case):
    """CTest says it in an attribute, pytest by what stands inside."""
    if case.find("failure") is not None or case.find("error") is not None or case.get("status") == "fail":
        return FAILED
    if case.find("skipped") is not None or case.get("status") in ("notrun", "disabled"):
        return SKIPPED
    return PASSED


def name_of(case):
    """suite.test of a unit test, test_file.py::test_name of one in the lab."""
    module = (case.get("classname") or "").rpartition(".")[2]
    return f"{module}.py::{case.get('name')}" if module.startswith("test_") else case.get("name")


def read_outcomes(text):
    return {name_of(case): outcome(case) for case in xml.fromstring(text).iter("testcase")}


def read_exceptions(text):
    """Reasons by the names of the cases: name, a tab, the reason."""
    lines = [line for line in text.splitlines() if line.strip() and not line.startswith("#")]
    return dict(line.split("\t", 1) for line in lines)


def is_of_the_lab(name):
    return "::" in name


def judge(kind, outcomes, exceptions):
    """The figures of one kind of tests, and what is wrong with them."""
    expected = {name: reason for name, reason in exceptions.items() if is_of_the_lab(name) == (kind == "lab")}
    excepted = [name for name, seen in outcomes.items() if seen == FAILED and name in expected]
    failed = [name for name, seen in outcomes.items() if seen == FAILED and name not in expected]
    skipped = [name for name, seen in outcomes.items() if seen == SKIPPED and name in expected]
    failed += [name for name, seen in outcomes.items() if seen == SKIPPED and name not in expected]
    passed = [name for name, seen in outcomes.items() if seen == PASSED]
    unknown = [name for name in expected if name not in outcomes]
    figures = f"{TITLES[kind]}: {len(passed)} passed, {len(excepted)} excepted, {len(failed)} failed"
    lines = [figures + (f", {len(skipped)} skipped" if skipped else "")]
    lines += [f"   excepted: {name}: {expected[name]}" for name in excepted]
    lines += [f"   an exception that passes: {name}" for name in passed if name in expected]
    lines += [f"   skipped: {name}" for name in skipped]
    lines += [f"   an exception that no case has the name of: {name}" for name in unknown]
    lines += [f"   failed: {name}" for name in failed]
    lines += [] if passed else ["   nothing passed at all"]
    return Verdict(lines, bool(passed) and not failed and not unknown)


def self_test():
    outcomes = read_outcomes("""<testsuites><testsuite>
        <testcase name="a.b" status="run"/><testcase name="a.c" status="fail"><failure/></testcase>
        <testcase name="a.d" status="notrun"><skipped/></testcase>
        <testcase classname="tests.lab.test_x" name="test_y[1]"/>
        <testcase classname="tests.lab.test_x" name="test_z"><error/></testcase></testsuite></testsuites>""")
    assert outcomes == {"a.b": PASSED, "a.c": FAILED, "a.d": SKIPPED, "test_x.py::test_y[1]": PASSED,
                        "test_x.py::test_z": FAILED}, outcomes
    units = {name: seen for name, seen in outcomes.items() if not is_of_the_lab(name)}
    lab = {name: seen for name, seen in outcomes.items() if is_of_the_lab(name)}
    exceptions = read_exceptions("# name, a tab, the reason\na.c\twhy not\ntest_x.py::test_z\tneither\n")
    assert not judge("unit", units, exceptions).good, "what is skipped wants a reason, too"
    exceptions["a.d"] = "nothing to look at"
    assert judge("unit", units, exceptions).good and judge("lab", lab, exceptions).good
    assert judge("unit", units, exceptions).lines[:2] == ["unit tests: 1 passed, 1 excepted, 0 failed, 1 skipped",
                                                          "   excepted: a.c: why not"]
    assert not judge("unit", units, {}).good and not judge("lab", lab, {}).good
    assert "   failed: a.c" in judge("unit", units, {}).lines
    assert "   an exception that passes: a.b" in judge("unit", units, {"a.c": "", "a.b": ""}).lines
    assert not judge("unit", units, {"a.c": "", "a.d": "", "a.e": ""}).good
    assert not judge("unit", {}, {}).good
    print("the report notices what is wrong")


def parse_options():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--unit", type=Path)
    parser.add_argument("--lab", type=Path, action="append", help="may be named several times")
    parser.add_argument("--exceptions", type=Path)
    parser.add_argument("--self-test", action="store_true")
    return parser.parse_args()


def main(options):
    if options.self_test:
        return self_test()
    exceptions = read_exceptions(options.exceptions.read_text(encoding="utf-8"))
    good = True
    for kind, paths in (("unit", [options.unit] if options.unit else []), ("lab", options.lab or [])):
        if paths:
            outcomes = [read_outcomes(path.read_text(encoding="utf-8")) for path in paths]
            verdict = judge(kind, {name: seen for part in outcomes for name, seen in part.items()}, exceptions)
            print("\n".join(verdict.lines))
            good = good and verdict.good
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main(parse_options()))
