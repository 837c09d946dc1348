# SPDX-License-Identifier: MIT
"""The daemon is asked to end at random moments of its life, over and over."""
import json
import random
import signal
import statistics
import subprocess
import time
from collections import Counter
from pathlib import Path

from lab import config, sanitizers
from lab.bus import uci
from lab.daemon import PROGRAM
from lab.life import Life, adopt_orphans, holds_signals_back, wait_until
from lab.mishaps import replace_file
from lab.moments import (END_FUNCTIONS, MOMENTS, Acts, HurriedLife, Tail, last_function, phase_of,
                         time_of_a_start)
from lab.network import carrier
from lab.results import PROTOCOLS
from lab.router import PROTOCOL_RESULT, WAN_RESULT, content
from lab.scenarios.base import Scenario
from lab.scenarios.soak import stray_files
from lab.scenarios.static import GATEWAY, NETWORK
from lab.lan import Together
from lab.upstream import DhcpServer, Gateway, PppoeServer, Silent

END_REAL_S = 5.0
HUNG_REAL_S = 9.0           # the daemon has to be gone long before that
GONE_REAL_S = 0.5           # until the bus has noticed
HANGING = "#!/bin/sh\nexec sleep 100000\n"
SETTLED_REAL_S = 5.0
PROGRESS_EVERY = 5
TRIES = 3
SHOWN_LINES, SHOWN_OUTPUT = 12, 400
PORTS = [f"eth{number}" for number in range(5)]
# What is plugged in, who has the WAN role, the connection, and the port of the fake WAN.
WORLDS = {
    "two lines": ({"eth0", "eth1", "eth2"}, "eth0", "dhcp", "-1"),
    "static": ({"eth0", "eth1", "eth2"}, "eth0", "static", "-1"),
    "pppoe": ({"eth0", "eth3"}, "eth0", "pppoe", "-1"),
    "no link": ({"eth3"}, "eth0", "dhcp", "-1"),
    "silent": ({"eth0", "eth4/phy"}, "eth0", "pppoe", "-1"),
    "no names": ({"eth0", "eth1", "eth4/sfp"}, "eth0", "static", "-1"),
    "connected": ({"eth0", "eth2"}, "eth2", "dhcp", "-1"),
    "online": ({"eth0", "eth2"}, "eth2", "static", "-1"),
    "combo": ({"eth0", "eth4/sfp"}, "eth4", "dhcp", "-1"),
    "fake WAN": ({"eth0", "eth2"}, "eth0", "dhcp", "4"),
}
GOOD_WORLDS = ("connected", "online")


class Ends(Scenario):
    name = "ends"
    rank = 62
    summary = "SIGTERM and SIGINT at random moments of start-up, cycles, swaps, requests and pauses (--count N)"
    story = """
        The daemon is started again and again in a world that keeps it busy, and asked to end at a random time after a
        line of its log. Each time it must be gone within 5 s with status 0, and leave no process, no object on the bus, no
        half of a file and no unfinished change of the configuration.
    """
    combo = {"eth4": "phy"}
    cables = {"eth0": Silent(), "eth1": Together(DhcpServer(dns=False), Gateway(GATEWAY, dns=False), title="DHCP"),
              "eth2": Together(DhcpServer(), Gateway(GATEWAY, dns=False), title="DHCP"), "eth3": PppoeServer(),
              "eth4/phy": Silent(),
              "eth4/sfp": Together(DhcpServer(dns=False), Gateway(GATEWAY, dns=False), title="DHCP")}
    reports_all = False

    def configure(self, config_):
        config_.protocol["static"].update(NETWORK)

    def play(self, stage):
        adopt_orphans()
        self.dice = random.Random(f"ends {stage.settings['seed']}")
        self.files = {package: (config.FOLDER / package).read_text() for package in ("network", "switch")}
        self.ends, self.wrong, self.missed = [], [], Counter()
        self.start_takes_s = time_of_a_start(stage.router.clock)
        skipped = ("a hanging bus",) if holds_signals_back(PROGRAM) else ()
        wanted = stage.settings["options"].get("moments", "")
        moments = [moment for moment in MOMENTS if moment.title not in skipped and wanted in moment.title]
        count, waiting = stage.settings["count"], []
        for number in range(1, count + 1):
            waiting = waiting or self.dice.sample(moments, len(moments))
            self.one_end(stage.router, waiting.pop())
            if number % PROGRESS_EVERY == 0 or number == count:
                stage.screen.write(f"progress: {number} of {count}")

    # --- one round ----------------------------------------------------------------------------------------------------

    def one_end(self, router, moment):
        """On a busy machine a server may answer too late for the moment to come: then it is tried once more."""
        for _ in range(TRIES):
            end = self.end_of_one_life(router, moment)
            self.judge_end(router, moment, end)
            if end["reached"]:
                return
            self.missed[moment.title] += 1
        self.wrong.append(f"{moment.title}: the moment never came")

    def end_of_one_life(self, router, moment):
        self.make_world(router, moment.world)
        if moment.world in GOOD_WORLDS:
            wait_until(lambda: router.health.state == "connected", SETTLED_REAL_S)
        path = Path(moment.hangs) if moment.hangs else None
        kept = path.read_text() if path else None
        acts = Acts(router)
        late = moment.world in GOOD_WORLDS and path and moment.times > 1
        if path and not late:
            replace_file(path, HANGING, 0o755)
        life = self.hurried_life(router) if moment.line is None else Life("-d", "7", clock=router.clock)
        tail = Tail(router.clock)
        try:
            return self.lead_and_end(router, moment, life, tail, acts, path if late else None)
        finally:
            if path:
                replace_file(path, kept, 0o755)
            acts.undo()
            tail.close()

    def lead_and_end(self, router, moment, life, tail, acts, late_path):
        """Leads the daemon to the moment and asks it to end there; what became of it."""
        if moment.act:
            tail.said(moment.begun, 1)
            getattr(acts, moment.act.replace(" ", "_"))()
        if late_path:
            tail.said(moment.line, 1)
            replace_file(late_path, HANGING, 0o755)
        reached = not moment.line or late_path or tail.said(moment.line, moment.times)
        if moment.hangs:
            reached = reached and wait_until(lambda: "sleep" in life.names(), SETTLED_REAL_S)
        delay = self.dice.uniform(0, moment.within)
        time.sleep(router.clock.real(delay))
        before = [line for line in tail.lines() if line[0] not in END_FUNCTIONS]
        signals = [] if moment.line is None else self.signals()
        for number in signals:
            life.signal(number)
        ended = life.end(HUNG_REAL_S)
        lines = tail.lines()
        return {"reached": bool(reached), "delay": delay, "phase": phase_of(before), "last": last_function(before),
                "signals": len(signals), "status": ended["status"], "seconds": ended["seconds"], "left": ended["left"],
                "reply": acts.reply, "lines": [f"{function}: {body}" for function, body in lines[-SHOWN_LINES:]],
                "output": ended["output"][-SHOWN_OUTPUT:]}

    def hurried_life(self, router):
        """One that forked, for a signal that comes sooner ends the first process alone."""
        while True:
            life = HurriedLife("-d", "7", clock=router.clock, after=self.dice.uniform(0, self.start_takes_s),
                               number=self.dice.choice([signal.SIGTERM, signal.SIGINT]))
            if life.first_status == 0:
                return life
            life.left_behind()

    def signals(self):
        """Mostly one SIGTERM; sometimes SIGINT, sometimes a number of both."""
        choice = self.dice.random()
        if choice < 0.8:
            return [signal.SIGTERM]
        if choice < 0.9:
            return [signal.SIGINT]
        return [self.dice.choice([signal.SIGTERM, signal.SIGINT]) for _ in range(self.dice.randint(2, 6))]

    def make_world(self, router, world):
        plugged, wan, kind, fake = WORLDS[world]
        for path in (WAN_RESULT, PROTOCOL_RESULT):
            path.unlink(missing_ok=True)
        for package, text in self.files.items():
            replace_file(config.FOLDER / package, text, 0o644)
        for option in ("proto", "wan_type"):
            uci("set", f"network.wan.{option}={kind}")
        uci("set", f"network.auto_wan_detect.fake_wan_port={fake}")
        uci("set", f"switch.wan.switch_port=port{router.port(wan).number}")
        for package in ("network", "switch"):
            uci("commit", package)
        for name in self.cables:
            line = router.line(name)[1]
            if line.plugged != (name in plugged):
                (line.plug if name in plugged else line.unplug)()
        chip = router.port("eth4").chip
        (chip.files / "serdes").write_text("sfp" if world == "no names" else "phy")
        subprocess.run(["/sbin/wanlan_port_reload"], check=True)
        wait_until(lambda: carrier("eth0") == ("eth0" in plugged), SETTLED_REAL_S)

    def judge_end(self, router, moment, end):
        """Notes what is wrong with one end."""
        wrong = []
        if end["status"] != 0:
            wrong.append(f"status {end['status']}")
        if end["seconds"] > END_REAL_S:
            wrong.append(f"{end['seconds']} s")
        if end["left"]:
            wrong.append(f"left behind: {end['left']}")
        if not wait_until(lambda: "wan_detect" not in router.bus.objects(), GONE_REAL_S):
            wrong.append("its object is still on the bus")
        wrong += self.wrong_files()
        if end["reached"]:
            self.ends.append(end | {"moment": moment.title})
        router.say(f"{moment.title}: {end['phase']}, {end['seconds']} s")
        if not end["reached"]:
            router.say(f"MISSED: {moment.title}, {end['reply']}, " + "\n".join(end["lines"]))
        if wrong:
            self.wrong.append(f"{moment.title} ({end['phase']}, {end['delay']:.2f} s after): {'; '.join(wrong)}")
            router.say(f"WRONG: {self.wrong[-1]}\n" + "\n".join(end["lines"]) + end["output"])

    @staticmethod
    def wrong_files():
        wrong = []
        for path, allowed in ((WAN_RESULT, PORTS), (PROTOCOL_RESULT, PROTOCOLS)):
            text = content(path)
            if text is not None and text not in allowed:
                wrong.append(f"{path} holds {text!r}")
        wrong += [f"stray: {path}" for path in Path("/tmp").glob("*_detect_result?*")]
        wrong += [f"stray: {path}" for path in stray_files()]
        for package in ("network", "switch", "protocol", "sysmode"):
            if not uci("show", package):
                wrong.append(f"the package {package} cannot be read")
        return wrong

    # --- judgement ----------------------------------------------------------------------------------------------------

    def judge(self, stage):
        seconds = [end["seconds"] for end in self.ends]
        stage.check(f"{stage.settings['count']} ends", len(self.ends) == stage.settings["count"], len(self.ends))
        stage.check("each was as it should be", not self.wrong, "\n".join(self.wrong[:20]))
        if sanitizers.built_in(PROGRAM):
            found = stage.note("sanitizer_reports", sanitizers.reports("wan_detect"))
            stage.check("the sanitizers have nothing to report", not found, "\n".join(found))
        stage.note("ends", {"count": len(self.ends), "wrong": len(self.wrong), "seconds": seconds,
                            "median_s": statistics.median(seconds), "longest_s": max(seconds),
                            "moments": Counter(end["moment"] for end in self.ends),
                            "hit": Counter(f"{end['moment']} > {end['phase']}" for end in self.ends),
                            "phases": Counter(end["phase"] for end in self.ends),
                            "last": Counter(end["last"] for end in self.ends),
                            "by_moment": {title: max(end["seconds"] for end in self.ends if end["moment"] == title)
                                          for title in {end["moment"] for end in self.ends}},
                            "missed": self.missed, "several": sum(end["signals"] > 1 for end in self.ends)})

    def verdict(self, stage):
        return json.dumps({name: value for name, value in stage.facts.get("ends", {}).items() if name != "seconds"})
