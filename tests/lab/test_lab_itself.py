# SPDX-License-Identifier: MIT
"""The lab tells the truth: cables, servers, commands and time, and what becomes of it when it is ended."""
import os
import signal
import subprocess
import sys
import time
from collections import Counter
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import pytest

from conftest import MOST_PLAYED_AGAIN, Player, Seen, assert_all_held

ROOT = Path(__file__).resolve().parent.parent.parent
STARTED_S = 20
ENDED_S = 30  # only ends a wait for something that does not come


@pytest.mark.scenario("empty")
def test_cables_servers_commands_and_time_behave(seen):
    """The checks of the scenario say so."""


@pytest.mark.parametrize("checks, status", [([("one holds", True), ("one does not", False)], 1), ([("all hold", True)], 1)])
def test_a_scenario_that_does_not_hold_fails_each_test_that_looks_at_it(checks, status):
    report = {"checks": [{"what": what, "passed": passed, "detail": ""} for what, passed in checks],
              "facts": {}, "lines": [], "console": []}
    with pytest.raises(pytest.fail.Exception):
        assert_all_held(Seen(status, "", report))


def seen_with_status(status):
    return Seen(status, "", {"checks": [{"what": "it holds", "passed": status == 0, "detail": ""}], "facts": {}, "lines": [],
                             "console": []})


class Spoilt(Player):
    """Plays nothing: the first so many plays of each scenario fail."""

    def __init__(self, failing):
        self.pool, self.played, self.again = ThreadPoolExecutor(2), {}, {}
        self.failing, self.plays = failing, Counter()

    def play(self, arguments):
        self.plays[arguments] += 1
        return seen_with_status(1 if self.plays[arguments] <= self.failing else 0)


@pytest.mark.parametrize("failing, plays, status", [(0, 1, 0), (1, 2, 0), (2, 2, 1)])
def test_a_scenario_that_failed_is_played_once_more_and_that_is_told(failing, plays, status):
    player = Spoilt(failing)
    assert [player.result(("one",), False).status for _ in range(3)] == [status] * 3
    assert player.plays == {("one",): plays}
    assert list(player.again) == [("one",)][:failing]


def test_where_many_scenarios_fail_they_have_failed():
    player = Spoilt(1)
    statuses = [player.result((str(number),), False).status for number in range(MOST_PLAYED_AGAIN + 1)]
    assert statuses == [0] * MOST_PLAYED_AGAIN + [1]


def descendants(pid):
    """Every process below that one, as the host sees them."""
    found = []
    try:
        children = Path(f"/proc/{pid}/task/{pid}/children").read_text(encoding="ascii").split()
    except OSError:
        return found
    for child in children:
        found += [int(child)] + descendants(int(child))
    return found


def alive(pid):
    try:
        return Path(f"/proc/{pid}/stat").read_text(encoding="ascii").rpartition(")")[2].split()[0] != "Z"
    except OSError:
        return False


def wait_until(condition, seconds):
    end = time.monotonic() + seconds
    while not condition() and time.monotonic() < end:
        time.sleep(0.02)
    return condition()


@pytest.fixture
def running_lab(request):
    """A lab that was started by itself, with its front end's process and all that it started."""
    command = [sys.executable, "-m", "lab", "empty", "--keep", "--build", request.config.getoption("--build")]
    # Programs that a script starts in its background inherit that Ctrl-C is ignored.
    front = subprocess.Popen(command, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                             preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL))
    for line in front.stdout:
        if "nsenter" in line:
            break
    yield front, descendants(front.pid)
    front.kill()
    front.wait()


@pytest.mark.parametrize("number", [signal.SIGKILL, signal.SIGTERM, signal.SIGINT])
def test_nothing_survives_the_end_of_the_front_end(running_lab, number):
    front, processes = running_lab
    assert len(processes) > 5
    os.kill(front.pid, number)
    assert wait_until(lambda: not any(alive(pid) for pid in processes), ENDED_S), [p for p in processes if alive(p)]


def test_the_command_that_enters_a_kept_router_works(request):
    command = [sys.executable, "-m", "lab", "empty", "--keep", "--build", request.config.getoption("--build")]
    with subprocess.Popen(command, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True) as front:
        enter = next(line.split() for line in front.stdout if "nsenter" in line)
        told = subprocess.run([*enter, "ip", "-brief", "address", "show", "br-lan"], capture_output=True, text=True,
                              timeout=STARTED_S, check=False)
        front.terminate()
    assert "192.168.1.1/24" in told.stdout


def test_an_unknown_scenario_is_refused():
    done = subprocess.run([sys.executable, "-m", "lab", "no-such"], cwd=ROOT, capture_output=True, text=True,
                          timeout=STARTED_S, check=False)
    assert done.returncode == 2
    assert "dhcp" in done.stderr


def test_every_scenario_has_a_line_in_the_list():
    done = subprocess.run([sys.executable, "-m", "lab", "--list"], cwd=ROOT, capture_output=True, text=True,
                          timeout=STARTED_S, check=True)
    lines = done.stdout.splitlines()
    assert len(lines) > 15
    assert all(len(line.split()) > 3 for line in lines)
