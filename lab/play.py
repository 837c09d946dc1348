# SPDX-License-Identifier: MIT
"""Plays one scenario from its opening lines to its exit status, and reports all that was seen."""
import json
import os
import signal
import traceback
from dataclasses import asdict

from lab import sanitizers, valgrind
from lab.daemon import PROGRAM
from lab.router import Router
from lab.scenarios import load_scenarios
from lab.screen import Screen

PASSED, FAILED, INTERRUPTED = 0, 1, 130
# A call to another service or a command may be under way, and a sanitizer looks for leaks last.
LONGEST_END_S = 60


class Stage:
    """What a scenario's script works with: the router, and the checks and facts that it leaves behind."""

    def __init__(self, router, screen, settings):
        self.settings = settings
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
        if not stage.settings["keep"]:
            end_daemon(stage)
    except Exception as error:    # pylint: disable=broad-except
        traceback.print_exc()
        stage.check("the lab itself works", False, error)


def end_daemon(stage):
    """Ends the daemon as a router does, and looks at what a sanitizer has to say."""
    daemon = stage.router.daemon
    if daemon.pid is None:
        return
    stage.check("the daemon ends when it is asked to", daemon.stop(LONGEST_END_S))
    if sanitizers.built_in(PROGRAM):
        found = stage.note("sanitizer_reports", sanitizers.reports("wan_detect"))
        stage.check("the sanitizers have nothing to report", not found, "\n".join(found))
    if daemon.under_valgrind:
        found = stage.note("valgrind", valgrind.complaints(daemon.pid))
        stage.check("valgrind found no error, no byte and no descriptor left behind", not found, "\n".join(found))


def figures_of(scenario, stage):
    """What a scenario that came to its end has to tell in figures."""
    return scenario.figures(stage) if stage.passed() else []


def report_of(scenario, stage):
    router = stage.router
    return {
        "scenario": scenario.name,
        "passed": stage.passed(),
        "checks": stage.checks,
        "facts": stage.facts,
        "console": router.console,
    } | all_that_was_seen(router, scenario.reports_all)


def all_that_was_seen(router, wanted):
    seen = {"events": router.timeline.events, "lines": router.daemon.lines, "waits": router.waits.over,
            "probes": router.sniffer.probes}
    return {name: [asdict(one) for one in of_one_kind] if wanted else [] for name, of_one_kind in seen.items()}


def keep_up(settings, screen):
    screen.write(f"\nThe router stays up. Enter it with:\n"
                 f"  {settings['how_to_enter']}\nCtrl-C ends it.")
    try:
        signal.pause()
    except KeyboardInterrupt:
        screen.write()


def play(settings, report_descriptor):
    """Returns the exit status: 0 only when every check of the scenario holds."""
    scenario = load_scenarios()[settings["scenario"]]
    screen = Screen(settings["color"], settings["log"])
    stage = Stage(Router(scenario, settings["speed"], screen, settings["valgrind"]), screen, settings)
    screen.title(scenario, settings["speed"])
    try:
        perform(scenario, stage)
    except KeyboardInterrupt:
        screen.write()
        return INTERRUPTED
    screen.closing(stage.passed(), scenario.verdict(stage), figures_of(scenario, stage))
    with os.fdopen(report_descriptor, "w") as stream:
        if settings["want_report"]:
            json.dump(report_of(scenario, stage), stream)
    if settings["keep"]:
        keep_up(settings, screen)
    return PASSED if stage.passed() else FAILED
