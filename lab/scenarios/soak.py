# SPDX-License-Identifier: MIT
"""Hundreds of cycles with everything going wrong around the daemon, looked over in quiet moments."""
import json
import os
import random
import signal
import statistics
from collections import Counter
from pathlib import Path

from lab import config, sanitizers
from lab.bus import uci
from lab.cyclebook import CycleBook
from lab.daemon import LOG, PROGRAM
from lab.life import adopt_orphans, wait_until
from lab.mishaps import Commands, FaultyBus, FaultyLines, rebuild_ports
from lab.results import ResultReader
from lab.router import PROTOCOL_RESULT, WAN_RESULT, content
from lab.scenarios.storm import Storm, footprint
from lab.storm import PORTS

FOR_EVER_S = 1e9
QUIET_AFTER_CYCLES = 25
REST_S = 90                 # in which the daemon comes to rest when everything is mended
SEEN_S = 6                  # until the network manager has looked at the WAN port anew
SWAP_PAUSE_S = 22           # after a swap the daemon looks again
END_REAL_S = 5
ASK_S = 30
TRIES = 3                   # of a question, for a busy machine delays a server's answer
LOOK_REAL_S = 0.2
STRAY_REAL_S = COLLECTED_REAL_S = 3
PROGRESS_REAL_S = 5
STALE = ("/tmp/.uci",)      # changes that were saved but never committed lie here
# Resident memory may differ so much between the first quarter of the quiet moments and the last. An address sanitizer
# keeps what was released in quarantine, and both sanitizers remember where memory came from: this grows, up to a limit.
SLACK_KB = {"": 256, "libasan": 24 << 10, "libtsan": 24 << 10}
QUESTIONS = [("eth1", None, "dhcp"), ("eth2", "dhcp", "dhcp"), ("eth5", None, "pppoe"), ("eth5", "pppoe", "pppoe"),
             ("eth5", "dhcp", "static"), ("eth2", "pppoe", "static"), ("eth4", None, "dhcp"), ("eth0", None, "dhcp")]
ASKED_AT_A_TIME = 3


class Soak(Storm):
    name = "soak"
    rank = 81
    summary = "the storm with failing scripts, servers, bus and configuration, for so many cycles (--count N)"
    story = """
        As in the storm, but for as long as it takes; besides, scripts fail, hang or are missing, servers and the bus
        die and come back, interfaces are deleted, and the configuration is changed by hand or broken. After every few
        cycles all is mended for a moment: the daemon must come to rest, answer rightly and hold what it held at first.
    """
    reports_all = False

    def play(self, stage):
        adopt_orphans()
        router, seed = stage.router, stage.settings["seed"]
        self.pristine = {package: (config.FOLDER / package).read_text() for package in ("protocol", "sysmode")}
        self.dice = random.Random(f"soak {seed}")
        self.book, self.results = CycleBook(router.clock), ResultReader(PORTS)
        self.moments, self.troubles, self.asked = [], [], Counter()
        follower = router.daemon.follower
        told = follower.on_line
        follower.on_line = lambda line: (self.book.take(line), told(line))
        self.start_connected(stage)
        self.results.start()
        self.actors = [FaultyLines(router, FOR_EVER_S, seed, list(self.cables)),
                       FaultyBus(router, FOR_EVER_S, seed, self.types), Commands(router, FOR_EVER_S, seed)]
        self.quiet_moment(stage)
        for actor in self.actors:
            actor.start()
        while self.book.ended < stage.settings["count"] and self.all_well(router):
            self.disturb(stage)
            self.quiet_moment(stage)

    def all_well(self, router):
        """Whether there is any sense in going on."""
        return router.daemon.running() and not any(actor.broken for actor in self.actors) and len(self.troubles) < 10

    def disturb(self, stage):
        router = stage.router
        until = min(self.book.ended + QUIET_AFTER_CYCLES, stage.settings["count"])
        for actor in self.actors:
            actor.go_on()
        last_told = router.clock.now()
        while self.book.ended < until and self.all_well(router):
            router.clock.sleep(LOOK_REAL_S * router.clock.speed)
            self.book.look()
            if router.clock.now() - last_told > PROGRESS_REAL_S * router.clock.speed:
                last_told = router.clock.now()
                self.tell_progress(stage)
        for actor in self.actors:
            actor.rest()
        self.tell_progress(stage)

    def tell_progress(self, stage):
        stage.screen.write(f"progress: {self.book.ended} of {stage.settings['count']}")

    # --- quiet moments ------------------------------------------------------------------------------------------------

    def quiet_moment(self, stage):
        """Everything is mended; the daemon comes to rest and is looked over."""
        router = stage.router
        router.say("everything is mended")
        self.mend(router)
        if not self.comes_to_rest(router):
            self.trouble(router, f"the daemon does not come to rest: WAN {router.wan_port()}, {router.health.state}, "
                         f"result {content(WAN_RESULT)!r}, running {self.book.running}, due {self.book.due}")
            return
        self.judge_result(router)
        for question in self.dice.sample(QUESTIONS, ASKED_AT_A_TIME):
            self.ask(router, *question)
        self.reopen_log(router)
        held = footprint(router)
        held["zombies"] = lasting_zombies(router.daemon.pid)
        held["stray"] = lasting_stray_files()
        self.moments.append(held)

    def mend(self, router):
        for package, text in self.pristine.items():
            (config.FOLDER / package).write_text(text)
        for path in STALE:
            for file in Path(path).glob("*"):
                file.unlink()
        uci("set", "network.auto_wan_detect.fake_wan_port=-1")
        for path in ("switch.gaming", "switch.lan_agg.lacpports"):
            uci("delete", path)
        uci("set", "switch.lan_agg.enable_agg=0")
        for package in ("network", "switch"):
            uci("commit", package)
        rebuild_ports()
        self.allow_all(router)

    def allow_all(self, router):
        for port in PORTS:
            router.bus.send("wan_detect_add_banned_dev", name=port, time=0)
        for name in self.cables:
            if not router.line(name)[1].plugged:
                router.plug(name)
        self.actors[1].types = ("dhcp",)
        self.actors[1].configure()
        self.actors[1].types = self.types
        router.bus.call("wan_detect", "set", enable=True)

    def comes_to_rest(self, router):
        """A cycle asked for ends with a port that works, and no further one is due. The network manager needs a moment
        to see that a connection is another one now, so the question may come too early."""
        def quiet():
            self.book.look()
            if not self.book.ends or not self.book.at_rest() or router.health.state != "connected":
                return False
            ended, outcome, _ = self.book.ends[-1]
            return outcome == "found" and router.clock.now() - ended > SWAP_PAUSE_S
        for _ in range(TRIES):
            router.clock.sleep(SEEN_S)
            position = router.daemon.position()
            router.bus.call("wan_detect", "wan_detect", delay=0)
            router.cycle_over(REST_S, position)
            if router.clock.wait_until(quiet, REST_S):
                return True
        return False

    def judge_result(self, router):
        held, wan = content(WAN_RESULT), config.wan_port_name()
        if held != wan or wan not in PORTS or wan == "eth5":
            self.trouble(router, f"the result file holds {held!r}, the WAN role is with {wan}, the last cycle "
                         f"{self.book.ends[-1]}")

    def ask(self, router, port, protocol, wanted):
        """A one-shot request on a port with a known upstream."""
        arguments = {"device": port, "timeout": 4000} | ({"protocol": protocol} if protocol else {})
        for _ in range(TRIES):
            start = router.daemon.position()
            reply = router.bus.call("wan_detect", "proto_detect", **arguments)
            over = router.daemon.wait_for("uloop_proto_detect_end", "Detection over!", ASK_S, start)
            found = content(PROTOCOL_RESULT)
            self.asked["questions"] += 1
            if reply == {"err_code": 0} and over is not None and found == wanted:
                return
            self.asked["asked again"] += 1
            if found != "static":    # no late answer explains this
                break
        self.trouble(router, f"asked for {protocol} on {port}: reply {reply}, file {found!r}, wanted {wanted}")

    def reopen_log(self, router):
        """The log is closed, emptied and opened again."""
        closed = router.bus.call("wan_detect", "log", level=-1)
        os.truncate(LOG, 0)
        opened = router.bus.call("wan_detect", "log", level=7)
        if (closed, opened) != ({"err_code": 0}, {"err_code": 0}):
            self.trouble(router, f"the log: {closed}, {opened}")

    def trouble(self, router, what):
        router.say(f"TROUBLE: {what}")
        self.troubles.append(f"{router.clock.now():.1f} s: {what}")

    # --- judgement ----------------------------------------------------------------------------------------------------

    def judge(self, stage):
        router, book, (lines, bus, commands) = stage.router, self.book, self.actors
        broken = [str(actor.broken) for actor in self.actors if actor.broken]
        stage.check("the lab held out", not broken and router.health.is_alive() and self.results.is_alive(), broken)
        stage.check("the daemon lived through it", router.daemon.running())
        stage.check(f"{stage.settings['count']} cycles are over", book.ended >= stage.settings["count"], book.ended)
        stage.check("every cycle that began has ended", book.opened == book.ended and not book.running,
                    f"{book.opened} began, {book.ended} ended")
        stage.check("every request that was taken has ended", book.requests == book.requests_over,
                    f"{book.requests} taken, {book.requests_over} ended")
        stage.check("nothing was said that nobody can explain", not book.faults, "\n".join(book.faults[:10]))
        stage.check("the quiet moments were quiet, and the results right", not self.troubles, "\n".join(self.troubles))
        stage.check("no result file held a half", not self.results.wrong,
                    f"{len(self.results.wrong)} of {self.results.reads} reads: {Counter(self.results.wrong)}")
        stage.check("every call got the reply that it must get", not bus.wrong, bus.wrong[:5])
        stage.check("the object came back with the bus", not bus.absent, bus.absent)
        self.judge_footprints(stage)
        self.judge_end(stage)
        stage.note("soak", {"cycles": book.ended, "outcomes": book.outcomes, "swaps": book.swaps, "stages": book.stages,
                            "requests": book.requests, "turns": lines.count, "calls": bus.called,
                            "explained": book.explained, "questions": self.asked,
                            "mishaps": Counter(lines.done) + Counter(bus.done) + Counter(commands.done),
                            "quiet": len(self.moments), "reads": self.results.reads,
                            "resident_kb": [held["resident_kb"] for held in self.moments],
                            "log_lines": router.daemon.position(), "seconds": router.clock.now()})

    def judge_footprints(self, stage):
        moments = self.moments
        if not stage.check("there were quiet moments", len(moments) > 1, len(moments)):
            return
        for what in ("descriptors", "threads"):
            seen = [held[what] for held in moments]
            stage.check(f"the same {what} in every quiet moment", all(held == seen[0] for held in seen), seen)
        stage.check("no zombie", not any(held["zombies"] for held in moments))
        stage.check("no stray file", not any(held["stray"] for held in moments), [held["stray"] for held in moments])
        resident = [held["resident_kb"] for held in moments[1:]]    # before the first, nothing had happened yet
        quarter = max(1, len(resident) // 4)
        first, last = statistics.median(resident[:quarter]), statistics.median(resident[-quarter:])
        slack = max(kb for name, kb in SLACK_KB.items() if sanitizers.links(PROGRAM, name))
        stage.check("memory does not grow", last - first <= slack, f"{first} kB, then {last} kB, of {resident}")

    def judge_end(self, stage):
        daemon = stage.router.daemon
        if not daemon.running():
            return
        os.kill(daemon.pid, signal.SIGTERM)
        ended = wait_until(lambda: os.waitpid(daemon.pid, os.WNOHANG)[1:] if not daemon.running() else None, END_REAL_S)
        status = os.waitstatus_to_exitcode(ended[0]) if ended else None
        stage.check(f"it ends with status 0 within {END_REAL_S} s", status == 0, status)
        daemon.pid = None if ended else daemon.pid
        if sanitizers.built_in(PROGRAM):
            found = stage.note("sanitizer_reports", sanitizers.reports("wan_detect"))
            stage.check("the sanitizers have nothing to report", not found, "\n".join(found))

    def figures(self, stage):
        return []

    def verdict(self, stage):
        return json.dumps(stage.facts.get("soak"))


def lasting_zombies(pid):
    """Dead children of the daemon that it has not collected even a moment later."""
    def dead():
        found = set()
        for path in Path("/proc").glob("[0-9]*/stat"):
            try:
                state, parent = path.read_text().rpartition(")")[2].split()[:2]
            except OSError:
                continue
            if state == "Z" and int(parent) == pid:
                found.add(int(path.parent.name))
        return found
    first = dead()
    return sorted(first & dead()) if first and not wait_until(lambda: not first & dead(), COLLECTED_REAL_S) else []


def stray_files():
    """Half-made configuration and saved changes that nobody committed."""
    known = {"network", "switch", "protocol", "sysmode"}
    found = [str(path) for path in config.FOLDER.iterdir() if path.name not in known]
    return found + [f"{path}: {text}" for folder in STALE for path in Path(folder).glob("*") if (text := content(path))]


def lasting_stray_files():
    """Those that are there a moment later too: a combo port may change its side in a quiet moment."""
    return stray_files() if not wait_until(lambda: not stray_files(), STRAY_REAL_S) else []
