# SPDX-License-Identifier: MIT
"""Plays one scenario from its opening lines to its exit status, and reports all that was seen."""
import json
import os
import signal
import traceback
from dataclasses import asdict

from lab.router import Router
from lab.scenarios import load_scenarios
from lab.screen import Screen

PASSED, FAILED = 0, 1


class Stage:
    """What a scenario's script works with: the router, and the checks and facts that it leaves behind."""

    def __init__(self, router, screen):
        self.router = router
        self.screen = screen
        self.checks = []
        self.facts = {}

    def check(self, what, passed, detail=""):
        """Notes one thing that must hold; returns whether it does."""
        self.checks.append({"what": what, "passed": bool(passed), "detail": str(detail)})
        self.screen.check(what, bool(passed), str(detail))
        return bool(passed)

    def note(self, name, value):
        self.facts[name] = value
        return value

    def passed(self):
        return bool(self.checks) and all(check["passed"] for check in self.checks)


def perform(scenario, stage):
    """Runs the script; a failure of the lab itself counts as a failed check."""
    try:
        stage.router.build()
        scenario.play(stage)
        stage.screen.write()
        scenario.judge(stage)
    except Exception as error:    # pylint: disable=broad-except
        traceback.print_exc()
        stage.check("the lab itself works", False, error)


def report_of(scenario, stage):
    router = stage.router
    return {
        "scenario": scenario.name,
        "passed": stage.passed(),
        "checks": stage.checks,
        "facts": stage.facts,
        "console": router.console,
        "events": [asdict(event) for event in router.timeline.events],
        "lines": [asdict(line) for line in router.daemon.lines],
        "probes": [asdict(probe) for probe in router.sniffer.probes],
    }


def keep_up(settings, screen):
    screen.write(f"\nThe router stays up. Enter it with:\n"
                 f"  nsenter --target {settings['host_pid']} --mount --net --pid\nCtrl-C ends it.")
    try:
        signal.pause()
    except KeyboardInterrupt:
        screen.write()


def play(settings, report_descriptor):
    """Returns the exit status: 0 only when every check of the scenario holds."""
    scenario = load_scenarios()[settings["scenario"]]
    screen = Screen(settings["color"], settings["log"])
    stage = Stage(Router(scenario, settings["speed"], screen), screen)
    screen.title(scenario, settings["speed"])
    perform(scenario, stage)
    screen.closing(stage.passed(), scenario.verdict(stage))
    with os.fdopen(report_descriptor, "w") as stream:
        if settings["want_report"]:
            json.dump(report_of(scenario, stage), stream)
    if settings["keep"]:
        keep_up(settings, screen)
    return PASSED if stage.passed() else FAILED
