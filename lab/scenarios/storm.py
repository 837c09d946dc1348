# SPDX-License-Identifier: MIT
"""Minutes of everything at once, and a daemon that comes out of it as it went in."""
import os
from collections import Counter
from pathlib import Path

from lab.config import Section
from lab.lan import LanHost, Together
from lab.scenarios.base import Scenario
from lab.scenarios.static import GATEWAY, NETWORK
from lab.storm import PORTS, BusCalls, Cables
from lab.upstream import DhcpServer, Gateway, PppoeServer

SECONDS_PER_MINUTE = 60
CALM_S = 120
SAMPLES, SAMPLE_PAUSE_REAL_S = 50, 0.01
METHODS = {"log", "proto_detect", "set", "hotplug", "wan_detect"}
NEVER_SAID = ("Impos", "impos", "Imps", "Shouldn't happen", "Should not happen")
# A port that was parked and is listed as well counts twice, until the next look at the list puts that right.
COUNTED_TWICE = "Fix recorded!"


class Storm(Scenario):
    name = "storm"
    rank = 80
    summary = "minutes of moved cables, flapping ports, bus calls and bans at once (--minutes N, --seed N)"
    story = """
        Cables are moved and shaken while good and bad calls, bans, one-shot requests and changes of the configuration come in
        over the bus. Afterwards the daemon must answer, hold exactly the descriptors and threads it held before, and end
        when it is asked to. The dice are seeded; the time is the daemon's.
    """
    port_count = len(PORTS)
    combo = {"eth4": "phy"}
    types = ("dhcp", "dhcp", "pppoe", "static", "l2tp", "pptp", "odd")

    def __init__(self):
        self.cables = {"eth0": DhcpServer(), "eth1": Together(DhcpServer(dns=False), Gateway(GATEWAY, dns=False), title="DHCP"),
                       "eth2": Together(DhcpServer(), Gateway(GATEWAY, dns=False), title="DHCP"),
                       "eth3": Together(DhcpServer(), LanHost(), title="DHCP + host"), "eth4/phy": DhcpServer(),
                       "eth4/sfp": DhcpServer(), "eth5": PppoeServer()}

    def configure(self, config):
        config.network["auto_wan_detect"]["fake_wan_port"] = "6"
        config.protocol["static"].update(NETWORK)
        config.protocol["l2tp"] = Section("protocol", snd_conn="dynamic")
        config.protocol["pptp"] = Section("protocol", snd_conn="static", static_ip=NETWORK["ipaddr"],
                                          static_gateway=GATEWAY, static_pridns=NETWORK["pri_dns"])

    def play(self, stage):
        router = stage.router
        self.start_connected(stage)
        before = stage.note("before", footprint(router))
        seconds = stage.settings["minutes"] * SECONDS_PER_MINUTE
        seed = stage.settings["seed"]
        actors = [Cables(router, seconds, seed, list(self.cables)), BusCalls(router, seconds, seed, self.types)]
        for actor in actors:
            actor.start()
        for actor in actors:
            actor.join()
        cables, calls = actors
        stage.note("moves", cables.count)
        stage.note("calls", calls.called)
        stage.note("wrong_replies", calls.wrong)
        stage.note("broken", [str(actor.broken) for actor in actors if actor.broken])
        self.calm_down(router)
        router.clock.wait_until(lambda: stage.note("after", footprint(router)) == before, CALM_S)

    def calm_down(self, router):
        """Everything is plugged in and allowed; one good cycle must come of it."""
        router.say("the storm is over")
        for port in PORTS:
            router.bus.send("wan_detect_add_banned_dev", name=port, time=0)
        for name in self.cables:
            if not router.line(name)[1].plugged:
                router.plug(name)
        BusCalls(router, 0, 0, ("dhcp",)).configure()
        router.bus.call("wan_detect", "set", enable=True)
        start = router.daemon.position()
        router.bus.call("wan_detect", "wan_detect")
        opened = router.daemon.wait_for("generate_possible_wan_dev_list", "Entering function", CALM_S, start)
        if opened is not None:
            router.cycle_over(CALM_S, opened)

    def judge(self, stage):
        super().judge(stage)
        facts, router = stage.facts, stage.router
        stage.check("the lab held out", not facts["broken"] and router.health.is_alive(), facts["broken"])
        stage.check("every method was called", set(facts["calls"]) == METHODS, facts["calls"])
        stage.check("and answered as it should", not facts["wrong_replies"], facts["wrong_replies"][:5])
        stage.check("the daemon answers afterwards", router.bus.call("wan_detect", "log", level=7) == {"err_code": 0})
        for what in ("descriptors", "threads"):
            before, after = facts["before"][what], facts["after"][what]
            stage.check(f"it holds the {what} it held before", before == after, f"{before} before, {after} after")
        said = [line.body for line in router.daemon.lines if any(word in line.body for word in NEVER_SAID)
                and COUNTED_TWICE not in line.body]
        stage.check("no impossible state was met", not said, said[:5])

    def figures(self, stage):
        facts = stage.facts
        ends = sum(line.matches("uloop_wan_detect_end", "Wan Detection over!") for line in stage.router.daemon.lines)
        swaps = sum(line.matches("switch_wan_to_dev", "success switching") for line in stage.router.daemon.lines)
        stage.note("cycles", ends)
        return [f"{facts['moves']} turns at the cables, {sum(facts['calls'].values())} calls; "
                f"{ends} cycles and {swaps} swaps came of it",
                f"Resident memory: {facts['before']['resident_kb']} kB before, {facts['after']['resident_kb']} kB after"]

    def verdict(self, stage):
        return "the daemon came out as it went in" if stage.passed() else "a check failed"


def footprint(router):
    """What the daemon holds between its commands: of several looks the one with the fewest descriptors."""
    looks = []
    for _ in range(SAMPLES):
        looks.append(look(router.daemon.pid))
        router.clock.sleep(SAMPLE_PAUSE_REAL_S * router.clock.speed)
    least = min(looks, key=lambda held: (sum(held["descriptors"].values()), held["threads"]))
    return Footprint(least)


class Footprint(dict):
    """Two are the same when descriptors and threads are; memory is only told."""

    def __eq__(self, other):
        return all(self[what] == other[what] for what in ("descriptors", "threads"))

    __hash__ = None


def look(pid):
    held = Counter()
    for path in Path(f"/proc/{pid}/fd").iterdir():
        try:
            held[os.readlink(path).partition(":")[0]] += 1
        except OSError:    # closed meanwhile
            continue
    status = dict(line.split(":", 1) for line in Path(f"/proc/{pid}/status").read_text().splitlines())
    return {"descriptors": dict(held), "threads": int(status["Threads"]), "resident_kb": int(status["VmRSS"].split()[0])}
