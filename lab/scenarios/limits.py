# SPDX-License-Identifier: MIT
"""What the daemon does when its descriptors or its memory are used up, from its start on or for a while."""
import resource
import time
from pathlib import Path

from lab.daemon import LOG
from lab.life import Life, wait_until
from lab.refused import (LAST_WORDS, LONGEST_CALL_REAL_S, LONGEST_CYCLE_REAL_S, LONGEST_END_REAL_S, MISSING, Trial,
                         ask_for_cycle, said)
from lab.scenarios.refused import BROKEN, GAVE_UP, WENT_ON, WITH_LESS, Refused

SHORT_REAL_S = 0.25    # at any speed of these scenarios longer than a cycle
NOT_HURT = "found the port with what it had"
LOWEST_DESCRIPTORS, LOWEST_LOADED, ABOVE_HEALTHY = 3, 4, 2
# A healthy daemon holds a few more for a moment than at rest: the pipe of a script, probe sockets, a configuration file.
FOR_A_MOMENT = 6
PLENTY_OF_DESCRIPTORS = 1024
KIB, MIB = 1 << 10, 1 << 20
MORE_AT_THE_START = [0, 64 * KIB, 128 * KIB, 256 * KIB, 512 * KIB, MIB, 2 * MIB, 8 * MIB, 64 * MIB, 256 * MIB]
MORE_FOR_A_WHILE = [0, 64 * KIB, 256 * KIB, MIB]


def errors(lines, text):
    """What was told of something that failed; a program that cannot be started is told without a level."""
    return [body for level, _, body in lines if level in ("Error", "Critical")] + \
        [line for line in text.splitlines() if line.startswith("popen faild")]


def is_over(life):
    return Path(f"/proc/{life.pid}/stat").read_text().rpartition(")")[2].split()[0] == "Z"


class UsedUp(Refused):
    """Base of those that set a limit and take it back."""
    what = kind = plenty = None

    def lives(self, stage):
        step = int(stage.settings["options"].get("step", 1))
        for limit in self.at_the_start()[::step]:
            self.note_life(stage, f"{limit} {self.what} at the start", *self.from_the_start(stage, limit))
        self.for_a_while(stage, self.meanwhile()[::step])

    def at_the_start(self):
        raise NotImplementedError

    def meanwhile(self):
        raise NotImplementedError

    def limit_from_the_start(self, limit):
        raise NotImplementedError

    def limit_now(self, trial, limit):
        raise NotImplementedError

    def lift(self, trial):
        resource.prlimit(trial.life.pid, self.kind, (self.plenty, self.plenty))

    def from_the_start(self, stage, limit):
        self.page.clear()
        self.limit_from_the_start(limit)
        trial = Trial(stage.router, self.healthy, page=self.page)
        recovered = unhurt = False
        if trial.is_up():
            trial.wait(lambda: trial.verdicts() > 0 or errors(trial.life.lines(), trial.log()), LONGEST_CYCLE_REAL_S)
            time.sleep(SHORT_REAL_S)
            trial.look_for_spin()
            unhurt = trial.verdicts() > 0
            self.lift(trial)
            recovered = trial.recovers(lambda: True)
        gone, done = trial.end()
        if trial.trouble:
            return BROKEN, trial.trouble, done
        if recovered:
            if unhurt:
                return NOT_HURT, [], done
            told = errors(done["lines"], trial.log())
            return (WENT_ON, told[:1], done) if told else (BROKEN, ["it told nothing of what it lacked"], done)
        words = said(done["lines"], LAST_WORDS if gone else MISSING)
        if not words:
            return BROKEN, ["it ended without a word" if gone else "no verdict"], done
        return GAVE_UP if gone else WITH_LESS, words[-1:], done

    def for_a_while(self, stage, limits):
        """One life: each limit is set in the middle of a cycle, and taken back."""
        self.page.clear()
        trial = Trial(stage.router, self.healthy, page=self.page)
        trial.is_up()
        trial.next_verdict()
        for limit in limits:
            begun = trial.log().count("Start to detect in")
            trial.wait(ask_for_cycle, LONGEST_CALL_REAL_S)
            trial.wait(lambda: trial.log().count("Start to detect in") > begun, LONGEST_CYCLE_REAL_S)
            self.limit_now(trial, limit)
            time.sleep(SHORT_REAL_S)
            trial.look_for_spin()
            self.lift(trial)
            found = trial.recovers(lambda: True)
            self.note_life(stage, f"{limit} {self.what} for a while", WENT_ON if found else BROKEN,
                           trial.trouble or ["no verdict"], {"lines": trial.life.lines(), "output": ""})
            if trial.is_gone():
                break
        _, done = trial.end()
        if trial.trouble:
            self.note_life(stage, f"the life with few {self.what} for a while", BROKEN, trial.trouble, done)


class DescriptorsUsedUp(UsedUp):
    name = "descriptors-used-up"
    rank = 84
    summary = "every small number of descriptors, from the start on and for a while in a cycle (--option step=)"
    story = """
        The daemon is started with every number of descriptors that is too small for it, and a running one has its number
        lowered in the middle of a cycle. It gives up with the lines that are described, or tells what it lacks and goes on;
        once it has descriptors again, the next cycle finds the port.
    """
    what, kind, plenty = "descriptors", resource.RLIMIT_NOFILE, PLENTY_OF_DESCRIPTORS

    def at_the_start(self):
        held = sum(self.healthy.values()) - self.healthy["threads"]
        return range(LOWEST_DESCRIPTORS, held + FOR_A_MOMENT + ABOVE_HEALTHY + 1)

    meanwhile = at_the_start

    def lives(self, stage):
        for limit in range(LOWEST_LOADED, self.at_the_start().stop):
            self.note_life(stage, f"{limit} descriptors before the start", *self.before_the_start(limit))
        super().lives(stage)

    def before_the_start(self, limit):
        """The program itself is loaded with that many already; in real time, so only the beginning is seen."""
        life = Life("-d", "7", descriptors=limit)
        wait_until(lambda: is_over(life) or life.said("Device eth0 link status change to up!", 0)
                   or errors(life.lines(), LOG.read_text(errors="replace")), LONGEST_CYCLE_REAL_S)
        by_itself = is_over(life)
        life.signal()
        done = life.end(LONGEST_END_REAL_S)
        words = said(done["lines"], LAST_WORDS)
        if done["status"] != 0 or done["left"] or (by_itself and not words):
            return BROKEN, [f"status {done['status']}, {done['left']} left", *words], done
        return (GAVE_UP if words else NOT_HURT), words, done

    def limit_from_the_start(self, limit):
        self.page.layout.descriptors = limit

    def limit_now(self, trial, limit):
        resource.prlimit(trial.life.pid, self.kind, (limit, self.plenty))


class MemoryUsedUp(UsedUp):
    name = "memory-used-up"
    rank = 84
    summary = "no more memory than the daemon has, or a little more, from the start on and for a while in a cycle"
    story = """
        The daemon may take no more memory than it has as it begins, or a little more, and a running one no more than it has
        in the middle of a cycle. It gives up with the lines that are described, or tells what it lacks and goes on; once
        there is memory again, the next cycle finds the port.
    """
    what, kind, plenty = "bytes more", resource.RLIMIT_AS, resource.RLIM_INFINITY

    def at_the_start(self):
        return MORE_AT_THE_START

    def meanwhile(self):
        return MORE_FOR_A_WHILE

    def limit_from_the_start(self, limit):
        self.page.layout.more_memory = limit

    def limit_now(self, trial, limit):
        pages = int(Path(f"/proc/{trial.life.pid}/statm").read_text().split()[0])
        resource.prlimit(trial.life.pid, self.kind, (pages * resource.getpagesize() + limit, self.plenty))
