# SPDX-License-Identifier: MIT
"""Plays each scenario once, in a lab of its own, and gives the tests what was seen there."""
import json
import re
import subprocess
import sys
import tempfile
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parent.parent.parent
# Real seconds at ten times the speed; a slower run gets more.
TIME_LIMIT_S = 60
DEFAULT_SPEED = 10
SHOWN_LOG_LINES = 200

played = {}


def pytest_addoption(parser):
    parser.addoption("--build", default=str(ROOT / "build" / "release"), help="build folder with the programs")
    parser.addoption("--speed", type=float, default=DEFAULT_SPEED, help="how many times faster than real")


class Seen:
    """What a scenario left behind: checks, facts, log lines, probes at the far ends, console output."""

    def __init__(self, status, output, report):
        self.status = status
        self.output = output
        self.report = report
        self.facts = report["facts"]
        self.lines = report["lines"]
        self.console = report["console"]

    def find(self, function, text, start=0, end=None):
        """The log lines of that function whose body holds the text."""
        return [line for line in self.lines[start:end] if line["function"] == function and text in line["body"]]

    def one(self, function, text, start=0, end=None):
        found = self.find(function, text, start, end)
        assert len(found) == 1, f"{len(found)} lines of {function} with {text!r}"
        return found[0]

    def probes(self, port=None, kinds=("discover", "padi")):
        return [probe for probe in self.report["probes"] if probe["kind"] in kinds and port in (None, probe["port"])]

    def failed_checks(self):
        return [check for check in self.report["checks"] if not check["passed"]]


def play(name, build, speed):
    with tempfile.NamedTemporaryFile(prefix="lab-report-") as report:
        limit = TIME_LIMIT_S * max(1.0, DEFAULT_SPEED / speed)
        command = [sys.executable, "-m", "lab", name, "--build", build, "--speed", str(speed),
                   "--report", report.name, "--time-limit", str(limit)]
        done = subprocess.run(command, cwd=ROOT, capture_output=True, text=True, check=False)
        text = Path(report.name).read_text(encoding="utf-8")
    output = done.stdout + done.stderr
    assert text, f"the lab ended with status {done.returncode} and no report\n{output}"
    return Seen(done.returncode, output, json.loads(text))


@pytest.fixture
def seen(request):
    """What the scenario named by the test module, or by the test's mark, left behind."""
    mark = request.node.get_closest_marker("scenario")
    name = mark.args[0]
    if name not in played:
        options = request.config
        try:
            played[name] = play(name, options.getoption("--build"), options.getoption("--speed"))
        except AssertionError as error:
            played[name] = error
    if isinstance(played[name], AssertionError):
        pytest.fail(str(played[name]), pytrace=False)
    request.node.seen = played[name]
    return played[name]


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """Adds what the lab printed and the daemon's last log lines to a failure."""
    outcome = yield
    result = outcome.get_result()
    seen_there = getattr(item, "seen", None)
    if result.failed and seen_there:
        lines = [f"{line['at']:8.1f} {line['level']:<8} {line['function']}: {line['body']}"
                 for line in seen_there.lines[-SHOWN_LOG_LINES:]]
        result.sections.append(("lab", re.sub(r"\033\[[0-9;]*m", "", seen_there.output)))
        result.sections.append(("daemon's log, last lines", "\n".join(lines)))


def pytest_configure(config):
    config.addinivalue_line("markers", "scenario(name): the scenario that the tests of a module look at")
