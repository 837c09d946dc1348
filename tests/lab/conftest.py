# SPDX-License-Identifier: MIT
"""Plays each scenario once, in a lab of its own and ahead of its tests, and gives them what was seen there."""
import json
import re
import socket
import subprocess
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor, wait
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parent.parent.parent
sys.path[:0] = [str(ROOT), str(ROOT / "tests")]

import skipped    # noqa: E402  pylint: disable=wrong-import-position
from lab.front import EXIT_CANNOT_PLAY, find_programs    # noqa: E402  pylint: disable=wrong-import-position
from lab.sanitizers import built_in    # noqa: E402  pylint: disable=wrong-import-position

# Real seconds at ten times the speed; a slower run gets more.
TIME_LIMIT_S = 180
DEFAULT_SPEED = 10
SHOWN_LOG_LINES = 200
# A machine that stood still for a moment fails a scenario or two; a fault fails more, or the same one again.
MOST_PLAYED_AGAIN = 3
MOST_TOLD_LINES = 6
MOST_TOLD_LETTERS = 2000


def pytest_addoption(parser):
    parser.addoption("--build", default=str(ROOT / "build" / "release"), help="build folder with the programs")
    parser.addoption("--speed", type=float, default=DEFAULT_SPEED, help="how many times faster than real")
    parser.addoption("--labs", type=int, default=3, help="how many labs may play at the same time")


class Seen:
    """What a scenario left behind: checks, facts, log lines, probes at the far ends, console output."""

    def __init__(self, status, output, report):
        self.status = status
        self.output = output
        self.report = report
        if report is None:    # it cannot be played here
            return
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

    def waits(self, kind, port=""):
        """Those of the daemon's fixed waits that came to their end, as (length, fixed length, slack)."""
        return [(wait["ended"] - wait["begun"], wait["fixed"], wait["slack"]) for wait in self.report["waits"]
                if wait["kind"] == kind and wait["port"] == port]

    def failed_checks(self):
        assert self.report["checks"], "nothing was checked"
        return [check for check in self.report["checks"] if not check["passed"]]

    def failures(self):
        """A line for each thing that did not hold."""
        if self.status == EXIT_CANNOT_PLAY:
            return []
        failed = [f"{check['what']}: {check['detail']}" for check in self.failed_checks()]
        return [f"the scenario ended with status {self.status}", *failed] if failed or self.status != 0 else []


class Desk:
    """A process that plays scenarios, and need not start Python for each."""

    def __init__(self):
        self.folder = tempfile.TemporaryDirectory(prefix="lab-desk-", dir="/tmp")    # a socket's path is a short one
        self.socket = str(Path(self.folder.name, "socket"))
        self.complaints = Path(self.folder.name, "complaints")
        command = ["setpriv", "--pdeathsig", "TERM", sys.executable, "-m", "lab.desk", self.socket]
        with self.complaints.open("wb") as stream:
            self.process = subprocess.Popen(command, cwd=ROOT, stdin=subprocess.DEVNULL, stderr=stream)

    def connect(self):
        connection = socket.socket(socket.AF_UNIX)
        while self.process.poll() is None:
            try:
                connection.connect(self.socket)
                return connection
            except (FileNotFoundError, ConnectionRefusedError):
                time.sleep(0.01)    # it is still reading the lab
        raise AssertionError(f"the lab's desk is gone: {self.complaints.read_text(encoding='utf-8')[-MOST_TOLD_LETTERS:]}")

    def play(self, arguments):
        """What the scenario printed, and its status; None when its process died."""
        with self.connect() as connection, connection.makefile("rwb") as stream:
            stream.write(json.dumps(arguments).encode() + b"\n")
            stream.flush()
            output, _, status = stream.read().decode(errors="replace").rpartition("\n")
        return output, int(status) if status.isdecimal() else None

    def end(self):
        self.process.terminate()
        self.process.wait()
        self.folder.cleanup()


class Player:
    """Plays the scenarios of a session ahead of its tests, some at the same time, each only once when it holds."""
    again = {}

    def __init__(self, options):
        self.build, self.speed = options.getoption("--build"), options.getoption("--speed")
        self.pool = ThreadPoolExecutor(options.getoption("--labs"))
        self.desk = Desk()
        self.played = {}
        self.again = {}    # what failed at first in scenarios that were played again

    def ask_for(self, arguments):
        if arguments not in self.played:
            self.played[arguments] = self.pool.submit(self.play, arguments)
        return self.played[arguments]

    def result(self, arguments, may_fail):
        """Of the scenario; one that failed is played once more, when no other one plays, and that is told at the end."""
        failures = [] if may_fail else self.failures(arguments)
        if failures and arguments not in self.again and len(self.again) < MOST_PLAYED_AGAIN:
            wait(self.played.values())
            self.again[arguments] = failures
            self.played[arguments] = self.pool.submit(self.play, arguments)
        return self.ask_for(arguments).result()

    def failures(self, arguments):
        try:
            return self.ask_for(arguments).result().failures()
        except AssertionError as error:
            return [str(error)]

    def play(self, arguments):
        with tempfile.NamedTemporaryFile(prefix="lab-report-") as report:
            limit = TIME_LIMIT_S * max(1.0, DEFAULT_SPEED / self.speed)
            output, status = self.desk.play(["--build", self.build, "--speed", str(self.speed), "--report", report.name,
                                             "--time-limit", str(limit), *arguments])
            text = Path(report.name).read_text(encoding="utf-8")
        if status == EXIT_CANNOT_PLAY:
            return Seen(status, output, None)
        assert text, f"the lab ended with status {status} and no report\n{output}"
        return Seen(status, output, json.loads(text))

    def end(self):
        """Ends what nobody waits for any more."""
        self.pool.shutdown(wait=False, cancel_futures=True)
        self.desk.end()


def scenario_of(item):
    """The scenario that a test looks at, with its further options; None for a test without one."""
    mark = item.get_closest_marker("scenario")
    return mark.args if mark else None


def pytest_collection_modifyitems(config, items):
    """Valgrind and a sanitizer do not get along."""
    if not built_in(find_programs(Path(config.getoption("--build"))) / "wan_detect"):
        return
    for item in items:
        if "--valgrind" in (scenario_of(item) or ()):
            item.add_marker(pytest.mark.skip("the programs are built with a sanitizer"))


def pytest_collection_finish(session):
    """Starts to play, what takes long first."""
    if session.config.option.collectonly:
        return
    session.config.player = Player(session.config)
    wanted = [item for item in session.items if scenario_of(item) and not item.get_closest_marker("skip")]
    for item in sorted(wanted, key=lambda item: not item.get_closest_marker("scenario").kwargs.get("long")):
        session.config.player.ask_for(scenario_of(item))


def pytest_sessionfinish(session):
    if hasattr(session.config, "player"):
        session.config.player.end()


def assert_all_held(seen):
    """Whatever a test is about, what its scenario checks has to hold."""
    if failures := seen.failures():
        pytest.fail("\n".join(failures), pytrace=False)


@pytest.fixture
def seen(request):
    """What the scenario named by the test's mark left behind, once all of its checks held."""
    may_fail = request.node.get_closest_marker("scenario").kwargs.get("may_fail")
    try:
        request.node.seen = request.config.player.result(scenario_of(request.node), may_fail)
    except AssertionError as error:
        pytest.fail(str(error), pytrace=False)
    if request.node.seen.status == EXIT_CANNOT_PLAY:
        pytest.skip(f"{request.node.name}: {request.node.seen.output.strip()}")
    if not may_fail:
        assert_all_held(request.node.seen)
    return request.node.seen


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


def pytest_terminal_summary(terminalreporter, config):
    """What could not be tested here, and what went wrong: last, where it is seen."""
    skipped.pytest_terminal_summary(terminalreporter)
    for report in terminalreporter.stats.get("error", []) + terminalreporter.stats.get("failed", []):
        told = str(report.longrepr).strip().splitlines() or [""]
        terminalreporter.write_line(f"failed: {report.nodeid}: {'; '.join(told[-MOST_TOLD_LINES:])}")
    for arguments, failures in getattr(config, "player", Player).again.items():
        terminalreporter.write_line(f"played twice: {' '.join(arguments)}: {'; '.join(failures[:MOST_TOLD_LINES])}")


def pytest_configure(config):
    config.addinivalue_line("markers", "scenario(name, *options, long=False, may_fail=False): the scenario that the test looks at")
