# SPDX-License-Identifier: MIT
"""What the daemon does when it is refused memory: one allocation in each of its lives."""
import time
from collections import Counter
from pathlib import Path

from lab import sanitizers
from lab.daemon import PROGRAM
from lab.faults import FaultPage
from lab.lan import LanHost
from lab.life import adopt_orphans
from lab.mounts import STATE
from lab.refused import LAST_WORDS, MISSING, Trial, said
from lab.scenarios.base import Scenario
from lab.stacks import Stacks
from lab.upstream import DhcpServer, Silent

SWAP = Path("/usr/sbin/network_lanwan_swap")
NO_SWAP = "#!/bin/sh\n"    # the configuration stays, so that every cycle has the same verdict
KNOWN_REAL_S = 10.0
SHOWN_LINES, SHOWN_OUTPUT = 40, 2000

WENT_ON = "went on, and the next cycle found the port"
WITH_LESS = "went on with a smaller model, as described"
GAVE_UP = "gave up in start-up, as described"
HASH_TABLE = "ended in a hash table with status 255, as described"
NOT_REACHED = "ended before the refusal"
SPARED = "not refused: json-c before 0.17 would not look"
SANITIZERS_OWN = "refused to a sanitizer, which cannot do without"
BROKEN = "BROKEN"
# A hash table that finds no memory ends the process at once.
HASH_TABLE_STATUS = 255
HASH_TABLE_FUNCTIONS = {"add_record", "add_device", "add_protocol", "add_arp_entry"}
SANITIZERS_FUNCTION = "__sanitizer::GetThreadStackTopAndBottom"
# json-c loses a value that it cannot add to its object.
LEAKS_BY_ITSELF = {"json_tokener_parse_ex"}
# A life whose end could not wait for a thread frees less; one that leaks does so every time.
LEAK_TRIES = 3


def bare_name(function):
    """That of a template without its result and its arguments."""
    return function.partition("<")[0].split()[-1] if function.split() else ""


class Refused(Scenario):
    """Base of those that start the daemon again and again."""
    managed = False
    cables = {"eth0": Silent(), "eth2": DhcpServer(dns=False), "eth3": LanHost()}
    page = healthy = stacks = None
    living = 0    # allocations that a healthy life does not free

    def play(self, stage):
        adopt_orphans()
        SWAP.write_text(NO_SWAP)
        stage.note("broken", [])
        stage.note("outcomes", Counter())
        stage.router.clock.wait_until(self.cables["eth3"].known, KNOWN_REAL_S * stage.router.clock.speed)
        self.page = FaultPage(STATE / "faults", stage.router.clock)
        self.healthy = self.healthy_life(stage)
        start = time.monotonic()
        self.lives(stage)
        stage.note("seconds", round(time.monotonic() - start, 1))

    def healthy_life(self, stage):
        """What a life without refusals holds at rest; what it counted stays on the page."""
        self.page.clear()
        self.prepare_healthy_life()
        trial = Trial(stage.router, page=self.page)
        found = trial.is_up() and trial.next_verdict() and trial.another_cycle()
        if not trial.is_gone():
            self.stacks = Stacks(Path(f"/proc/{trial.life.pid}/maps").read_text())
        allocations = self.page.memory.allocations
        trial.end()
        self.living = self.page.memory.living
        stage.note("healthy", {"found": found, "held": trial.held, "cpu_share": trial.cpu_share,
                               "allocations": allocations, "trouble": trial.trouble})
        return trial.held

    def prepare_healthy_life(self):
        """Says on the page what is to be counted in it."""

    def lives(self, stage):
        raise NotImplementedError

    def one_life(self, stage, refuse, refused):
        """The class of a life with this refusal, why it is in that one, and what it left."""
        for _ in range(LEAK_TRIES):
            self.page.clear()
            refuse()
            outcome, why, done = self.live_once(stage, refused)
            if SANITIZERS_FUNCTION in self.stacks.names(self.page.stack()):
                return SANITIZERS_OWN, [], done
            lost = self.page.memory.living - self.living
            if lost <= 0 or outcome in (BROKEN, HASH_TABLE) or LEAKS_BY_ITSELF & set(self.stacks.names(self.page.stack())):
                return outcome, why, done
        return BROKEN, [f"{lost} allocations were never freed"], done

    def live_once(self, stage, refused):
        trial = Trial(stage.router, self.healthy, page=self.page)
        recovered = refused_at_start = False
        if trial.is_up():
            refused_at_start = refused()
            trial.next_verdict()
            recovered = trial.recovers(refused)
        gone, done = trial.end()
        if gone and done["status"] == HASH_TABLE_STATUS and not done["left"] and \
                HASH_TABLE_FUNCTIONS & set(map(bare_name, self.stacks.names(self.page.stack()))):
            return HASH_TABLE, [], done
        if trial.trouble:
            return BROKEN, trial.trouble, done
        if recovered:
            return WENT_ON if refused() else SPARED if self.page.memory.spared else NOT_REACHED, [], done
        words = said(done["lines"], LAST_WORDS) if gone else said(done["lines"], MISSING) if refused_at_start else []
        if not words:
            return BROKEN, ["it ended without a word" if gone else "no verdict"], done
        return GAVE_UP if gone else WITH_LESS, words[-1:], done

    def note_life(self, stage, what, outcome, why, done):
        stage.facts["outcomes"][outcome] += 1
        if outcome == BROKEN:
            stage.router.say(f"{what}: {'; '.join(why)}")
            stage.facts["broken"].append({"what": what, "why": why, "stack": self.stacks.names(self.page.stack()),
                                          "lines": done["lines"][-SHOWN_LINES:], "output": done["output"][-SHOWN_OUTPUT:]})

    def judge(self, stage):
        healthy = stage.facts["healthy"]
        stage.check("a life without refusals is well", healthy["found"] and not healthy["trouble"], healthy)
        if sanitizers.built_in(PROGRAM) and SANITIZERS_OWN not in stage.facts["outcomes"]:
            found = stage.note("sanitizer_reports", sanitizers.reports("wan_detect"))
            stage.check("the sanitizers have nothing to report", not found, "\n".join(found))
        for broken in stage.facts["broken"]:
            stage.check(broken["what"], False, f"{'; '.join(broken['why'])}; {' < '.join(broken['stack'])}")
        stage.check("every other life went on, or gave up as described", sum(stage.facts["outcomes"].values()) > 0)

    def figures(self, stage):
        facts = stage.facts
        lives = sum(facts["outcomes"].values())
        return [f"{lives} lives in {facts['seconds']} s; a healthy one allocates {facts['healthy']['allocations']} times"] + \
            [f"{count:6} {outcome}" for outcome, count in sorted(facts["outcomes"].items())]

    def verdict(self, stage):
        return "nothing that is refused does harm" if stage.passed() else "something that is refused does harm"


class MemoryRefused(Refused):
    name = "memory-refused"
    rank = 83
    summary = "an allocation refused in each of many lives (--option sample=N, distinct=1, first=, last=, step=, row=)"
    story = """
        The daemon is started again and again, and in each life another one of its allocations is refused, whichever library
        asks for it. It has to give up in the way that is described, or to go on: with its bus object, with the descriptors
        and threads of a healthy life, and with the right port in the next cycle.
    """

    def prepare_healthy_life(self):
        self.page.memory.surveying = 1

    def lives(self, stage):
        options = stage.settings["options"]
        row = int(options.get("row", 1))
        lives = stage.note("lives", [])
        for number in self.numbers(stage, options):
            outcome, why, done = self.one_life(
                stage, lambda: self.page.refuse_memory(number, row), lambda: self.page.memory.refused > 0)
            lives.append([number, outcome, why])
            self.note_life(stage, f"allocation {number}", outcome, why, done)

    def numbers(self, stage, options):
        """Which allocations to refuse: all, those of a range, the first one of each stack, or some of these."""
        first, step = int(options.get("first", 1)), int(options.get("step", 1))
        count = stage.facts["healthy"]["allocations"]
        if "distinct" not in options and "sample" not in options:
            return range(first, int(options.get("last", count)) + 1, step)
        first_of = {}
        for number in range(1, count + 1):
            first_of.setdefault(self.page.layout.survey[number], number)
        numbers = sorted(first_of.values())
        if "sample" in options:
            step = max(1, len(numbers) // int(options["sample"]))
        return numbers[first - 1::step]
