# SPDX-License-Identifier: MIT
"""What scenarios of a failing world share: one trouble after the other, and after each the daemon does its work."""
import subprocess

from lab import sanitizers
from lab.bus import uci
from lab.daemon import PROGRAM
from lab.router import WAN_RESULT, content
from lab.scenarios.base import LATE_REAL_S, Scenario
from lab.scenarios.storm import footprint
from lab.upstream import DhcpServer, Silent
from lab.vitals import cpu_seconds, loop_turns

FOUND_S = 60
MOST_CYCLES = 3
PATIENCE = 10    # times as long
CALM_S = 60
RELOAD = "/sbin/wanlan_port_reload"
OPENING = ("uloop_init_wan_detect_all", "uloop_start_wan_detect")
# Processor time per second of the daemon's own. The idle daemon takes a fifth of it; what spins takes all of a
# processor, which is a share of 1 / speed.
CPU_SHARE = 0.025


class Trouble(Scenario):
    """Each method `trouble_...` brings one trouble, in their order; its checks are its own."""
    wan = "eth2"
    cables = {"eth0": Silent(), "eth2": DhcpServer()}
    winner = "eth2"
    growth_kb = 512

    def play(self, stage):
        self.start_connected(stage)
        before = stage.note("before", footprint(stage.router))
        pid = stage.router.daemon.pid
        cpu, began = cpu_seconds(pid), stage.router.clock.now()
        for name in self.troubles():
            title = name.removeprefix("trouble_").replace("_", " ")
            stage.router.say(title)
            getattr(self, name)(stage, title)
            if not stage.check(f"{title}: the daemon lives", stage.router.daemon.running()):
                return
        stage.note("cpu_share", (cpu_seconds(pid) - cpu) / (stage.router.clock.now() - began))
        stage.router.clock.wait_until(lambda: as_before(before, stage.note("after", footprint(stage.router))), CALM_S)

    def troubles(self):
        """Names of the methods, those of base classes first."""
        named = [name for kind in reversed(type(self).__mro__) for name in vars(kind) if name.startswith("trouble_")]
        return list(dict.fromkeys(named))

    def judge(self, stage):
        # The cycle that follows every swap may just have taken the result away.
        stage.router.clock.wait_until(lambda: content(WAN_RESULT) == self.winner, CALM_S)
        super().judge(stage)
        facts = stage.facts
        if "after" not in facts:
            stage.check("every trouble was gone through", False)
            return
        before, after = facts["before"], facts["after"]
        stage.check("it holds the descriptors and threads it held before", as_before(before, after),
                    f"{before} before, {after} after")
        grown = facts["after"]["resident_kb"] - facts["before"]["resident_kb"]
        if not sanitizers.built_in(PROGRAM):    # they keep what was freed
            stage.check(f"its memory did not grow by {self.growth_kb} kB", grown <= self.growth_kb, f"{grown} kB")
        stage.check(f"it took less than {CPU_SHARE:.1%} of its time of one processor", facts["cpu_share"] < CPU_SHARE,
                    f"{facts['cpu_share']:.2%}")

    def figures(self, stage):
        facts = stage.facts
        return [f"Processor time: {facts['cpu_share']:.2%} of the daemon's own; resident memory: "
                f"{facts['before']['resident_kb']} kB before, {facts['after']['resident_kb']} kB after; at most "
                f"{facts.get('most_cycles', 1)} cycle(s) to recover"]

    def verdict(self, stage):
        return "whatever failed, the daemon went on" if stage.passed() else "a check failed"

    # --- words that the troubles are told in --------------------------------------------------------------------------

    @staticmethod
    def in_time(stage, what, seconds, limit):
        """Checks that something took at most so long; None stands for never. A busy machine gets its real time."""
        late = limit + LATE_REAL_S * stage.router.clock.speed
        stage.check(what, seconds is not None and seconds <= late,
                    "never" if seconds is None else f"{seconds:.1f} s")

    @staticmethod
    def misplace(router, port="eth0"):
        """Gives the WAN role to another port behind the daemon's back, and waits until the network is down."""
        uci("set", f"switch.wan.switch_port=port{router.port(port).number}")
        uci("commit", "switch")
        subprocess.run([RELOAD], check=False)    # it may be without its bridge
        router.clock.wait_until(lambda: router.health.state != "connected", CALM_S)

    def finds_again(self, stage, title):
        """The WAN role goes astray, and the next cycle brings it home; returns how many seconds that took. On a busy
        machine answers may come too late for a cycle, so there are some more; the figures tell how many were needed."""
        began, cycles, held = stage.router.clock.now(), 0, None
        while held != self.winner and cycles < MOST_CYCLES:
            cycles += 1
            held = self.one_cycle(stage.router)
        stage.facts["most_cycles"] = max(cycles, stage.facts.get("most_cycles", 1))
        stage.check(f"{title}: the next cycle finds {self.winner}", held == self.winner, f"the result is {held}")
        return stage.router.clock.now() - began

    def one_cycle(self, router):
        """Who has the WAN role after a cycle that began without one, None when the result says something else."""
        router.clock.wait_until(lambda: not cycle_open(router), FOUND_S)
        self.misplace(router)
        start = router.daemon.position()
        router.bus.call("wan_detect", "wan_detect")
        swapped = router.daemon.wait_for("switch_wan_to_dev", "success switching wan dev to", FOUND_S, start)
        if swapped is None or router.cycle_over(FOUND_S, swapped) is None:
            return None
        holder = router.wan_port()
        return holder if content(WAN_RESULT) == holder else None

    @staticmethod
    def loop_turns_during(stage, title, seconds, least=None):
        """Checks that the event loop turns for so many of the daemon's seconds, at least once a second or so often; a
        busy machine may take longer for it."""
        pid, clock = stage.router.daemon.pid, stage.router.clock
        before, least = loop_turns(pid), least or seconds
        clock.sleep(seconds)
        clock.wait_until(lambda: loop_turns(pid) - before >= least, PATIENCE * seconds)
        turned = loop_turns(pid) - before
        stage.check(f"{title}: the event loop goes on", turned >= least, f"{turned} turns")


def as_before(before, after):
    """Whether two footprints are the same; in fast time on a busy machine some script's output is always being read."""
    pipes = abs(after["descriptors"].get("pipe", 0) - before["descriptors"].get("pipe", 0))
    others = [{kind: count for kind, count in held["descriptors"].items() if kind != "pipe"}
              for held in (before, after)]
    return pipes <= 1 and others[0] == others[1] and before["threads"] == after["threads"]


def cycle_open(router):
    """Whether a cycle has begun and not ended yet; one that is only due counts as none."""
    for line in reversed(router.daemon.lines):
        if line.function == "uloop_wan_detect_end" and "Wan Detection over!" in line.body:
            return False
        if line.function in OPENING and "Entering function" in line.body:
            return True
    return False
