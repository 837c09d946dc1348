# SPDX-License-Identifier: MIT
"""The time of day jumps; the daemon itself stands still for a while."""
import mmap
import os
import signal
import struct
from pathlib import Path

from lab.mounts import STATE
from lab.scenarios.trouble import FOUND_S, Trouble
from lab.upstream import DhcpServer, Silent

PAGE = STATE / "wall_clock"
FIELDS = struct.Struct("qq")    # seconds added, questions
LIBRARY = "lab_wall_clock.so"
HOUR_S, YEAR_S = 3600, 365 * 86400
JUMPS = {"an hour ahead": HOUR_S, "an hour back": -HOUR_S, "a year ahead": YEAR_S, "to the beginning of time": None}
LOOK_S = 4
DELAY_S = 6     # long enough to see that it is not over at once
STILL_S = 10
STAGE_S = 5
# A scan a second; what was missed is not made up for.
MOST_SCANS_AT_ONCE = 4


class BadClock(Trouble):
    name = "bad-clock"
    rank = 76
    summary = "the time of day jumps by hours and years, the daemon is stopped and continued: nothing moves"
    story = """
        Somebody sets the clock, again and again, while the daemon scans, waits and holds bans. Then the daemon itself
        is stopped, at rest and in the middle of a cycle, and continued, as after a suspend.
    """
    cables = {"eth0": Silent(), "eth2": DhcpServer()}

    def play(self, stage):
        PAGE.write_bytes(FIELDS.pack(0, 0))
        with open(PAGE, "r+b") as stream:
            self.page = mmap.mmap(stream.fileno(), FIELDS.size)
        clock = stage.router.clock
        clock.preloaded.append(str(Path(stage.settings["programs"]) / LIBRARY))
        clock.variables["LAB_WALL_CLOCK"] = str(PAGE)
        super().play(stage)

    def questions(self):
        return FIELDS.unpack_from(self.page)[1]

    def jump(self, stage, seconds):
        now, asked = FIELDS.unpack_from(self.page)
        if seconds is None:
            seconds = -int(stage.router.clock.now()) - int(os.stat(PAGE).st_mtime)
        FIELDS.pack_into(self.page, 0, now + seconds, asked)

    @staticmethod
    def scans(router, start):
        scan = ("update_eth_link_status_trigger", "Success Cyclic")
        return sum(line.matches(*scan) for line in router.daemon.lines[start:])

    def trouble_of_standing_still(self, stage, title):
        """A link is lost meanwhile: one scan tells it, and what was not scanned is not made up for."""
        router = stage.router
        pid = router.daemon.pid
        os.kill(pid, signal.SIGSTOP)
        router.unplug("eth0")
        router.clock.sleep(STILL_S)
        start, began = router.daemon.position(), router.clock.now()
        os.kill(pid, signal.SIGCONT)
        lost = router.daemon.wait_for(None, "found eth0 link change to down", FOUND_S, start)
        seconds = None if lost is None else router.daemon.lines[lost].at - began
        self.in_time(stage, f"{title}: what happened meanwhile is seen in the next scan", seconds, 2)
        router.clock.sleep(1)
        scans = self.scans(router, start)
        passed = router.clock.now() - began
        stage.check(f"{title}: no scan is made up for", scans <= passed + MOST_SCANS_AT_ONCE,
                    f"{scans} in {passed:.1f} s")
        router.plug("eth0")
        router.daemon.wait_for(None, "found eth0 link change to up", FOUND_S, start)

    def trouble_of_jumps(self, stage, _title):
        router = stage.router
        asked = self.questions()
        for what, seconds in JUMPS.items():
            title = f"the clock jumps {what}"
            start, began = router.daemon.position(), router.clock.now()
            router.bus.send("wan_detect_add_banned_dev", name="eth1", time=1)
            router.bus.call("wan_detect", "wan_detect", delay=DELAY_S)
            self.jump(stage, seconds)
            self.loop_turns_during(stage, title, LOOK_S)
            scans = self.scans(router, start)
            stage.check(f"{title}: a scan a second", LOOK_S - 2 <= scans <= LOOK_S + 2, f"{scans} in {LOOK_S} s")
            ended = router.cycle_over(FOUND_S, start)
            wait = router.waits.of("full", after=began - 0.1)
            self.in_time(stage, f"{title}: a delay of {DELAY_S} s lasts as long", wait and wait.lasted(), DELAY_S)
            stage.check(f"{title}: and is not cut short", wait and wait.lasted() >= DELAY_S / 2)
            stage.check(f"{title}: the cycle ends, the ban is over", ended is not None and self.ban_over(router, start))
        stage.note("questions", self.questions() - asked)
        self.finds_again(stage, "after all jumps")

    @staticmethod
    def ban_over(router, start):
        return any(line.matches("update_banned_device_list", "eth1") for line in router.daemon.lines[start:])

    def trouble_of_standing_still_in_a_cycle(self, stage, title):
        """The answers wait in the sockets."""
        router = stage.router
        pid = router.daemon.pid
        self.misplace(router)
        start = router.daemon.position()
        router.bus.call("wan_detect", "wan_detect")
        router.daemon.wait_for("send_dhcp_discovery_all", "success via dev:eth2", FOUND_S, start)
        os.kill(pid, signal.SIGSTOP)
        router.clock.sleep(STAGE_S)
        os.kill(pid, signal.SIGCONT)
        ended = router.cycle_over(FOUND_S, start)
        stage.check(f"{title}: the cycle finds eth2", ended is not None and router.wan_port() == "eth2")
        self.finds_again(stage, title)

    def figures(self, stage):
        return super().figures(stage) + [f"Questions for the time of day while it jumped: {stage.facts['questions']}"]
