# SPDX-License-Identifier: MIT
"""Ports that are flooded while they are probed: the right answer is found, and the flood costs little."""
from lab import config
from lab.flood import Caller, Flood, Watch, threads
from lab.lan import LanHost, Together
from lab.network import run
from lab.router import PROTOCOL_RESULT, WAN_RESULT, content
from lab.scenarios.base import Scenario
from lab.scenarios.static import GATEWAY, NETWORK
from lab.upstream import DhcpServer, Gateway, PppoeServer, Silent

WORKERS = 2
START_S = 200
REQUEST_S = 12    # the longest a one-shot request may take, with the look at the LAN's hosts before it
CYCLE_S = 60
TIMEOUT_MS = 1000
ALL_PORTS = ("eth0", "eth1", "eth2", "eth3", "eth4")
FULL_RATE = 100_000
# What the daemon may cost in a flood; times are real.
MOST_CPU_PERCENT = 25
MOST_GROWTH_KB = 512    # over what it holds once it has probed in silence
LONGEST_CALL_S = 1.0
BUSY_MACHINE_S = 5.0
REACHED_SHARE = 0.95


class Flooded(Scenario):
    """Starts the daemon as shipped, and plays a phase in silence and then one for every kind of flood."""
    log_level = 2
    kinds = ()
    rate = 30_000           # frames per real second and port
    rounds = 1
    one_by_one = False      # floods each port alone as well, and must then reach the rate: nobody else is to be at work
    longest_block_s = 0.0   # what the daemon itself may block for, in its own seconds

    def play(self, stage):
        router = stage.router
        router.show_panel()
        stage.note("start_status", router.daemon.start(self.log_level))
        stage.note("loop", bool(router.clock.wait_until(lambda: threads(router.daemon.pid) == 1 + WORKERS, START_S)))
        phases = stage.note("phases", [])
        for kind, ports in self.floods():
            phases.append(self.phase(stage, kind, ports))
            router.say(self.told(phases[-1]))

    def floods(self):
        yield "silence", ()
        for kind in self.kinds:
            yield kind, ALL_PORTS
            if self.one_by_one:
                yield from ((kind, (port,)) for port in ALL_PORTS)

    def phase(self, stage, kind, ports):
        """Probes in a flood of that kind."""
        router = stage.router
        answers = []
        with Watch(router.daemon.pid) as watch:
            for _ in range(self.rounds):
                self.prepare(stage)
                with Flood(router, ports, kind, self.rate, stage.settings["seed"]) as flood, \
                        Caller(router.bus, self.log_level) as caller:
                    answers += self.probe(stage)
                watch.add_round(flood, caller)
        return {"kind": kind, "ports": list(ports), "answers": answers, **watch.told()}

    def prepare(self, stage):
        """Before the flood of a round."""

    def probe(self, stage):
        """Asks once in every way: what was asked, what came of it, what must come of it."""
        raise NotImplementedError

    @staticmethod
    def told(phase):
        right = sum(got == wanted for _, got, wanted in phase["answers"])
        rates = f"{min(phase['rates'].values()):>7}" if phase["rates"] else "      0"
        return (f"{phase['kind']:>8} on {' '.join(phase['ports']) or 'no port':<24} {rates} frames/s each, {right} of "
                f"{len(phase['answers'])} right; CPU {phase['cpu_percent']:4.1f} %, {phase['taken']} frames reached it, "
                f"{phase['lost']} lost; {phase['rss_after']} kB; calls {phase['call_median_ms']:g} to {phase['call_max_ms']:g} ms")

    def judge(self, stage):
        super().judge(stage)
        stage.check("start-up came to its end", stage.facts["loop"])
        for phase in stage.facts["phases"]:
            self.judge_phase(stage, phase, f"{phase['kind']} on {' '.join(phase['ports']) or 'no port'}")
        phases = stage.facts["phases"]
        first, last = phases[0]["descriptors"], phases[-1]["descriptors"]
        stage.check("it holds as many descriptors as at first", first == last, f"{first} at first, {last} at last")

    def judge_phase(self, stage, phase, where):
        wrong = [f"{what}: {got} instead of {wanted}" for what, got, wanted in phase["answers"] if got != wanted]
        stage.check(f"{where}: what is there is found, and nothing else", not wrong, "; ".join(wrong))
        least = min(phase["rates"].values(), default=0)
        wanted = REACHED_SHARE * self.rate if self.one_by_one and len(phase["ports"]) == 1 else bool(phase["ports"])
        stage.check(f"{where}: the flood was one", least >= wanted, f"{least} frames/s")
        stage.check(f"{where}: it takes at most {MOST_CPU_PERCENT} % of a processor",
                    phase["cpu_percent"] <= MOST_CPU_PERCENT, f"{phase['cpu_percent']} %")
        if phase["ports"]:
            growth = phase["rss_after"] - stage.facts["phases"][0]["rss_after"]
            stage.check(f"{where}: its memory grows by at most {MOST_GROWTH_KB} kB", growth <= MOST_GROWTH_KB, f"by {growth} kB")
        limit = (LONGEST_CALL_S if self.one_by_one else BUSY_MACHINE_S) + stage.router.clock.real(self.longest_block_s)
        stage.check(f"{where}: every call is answered within {limit:.1f} s",
                    phase["calls"] and not phase["refused"] and phase["call_max_ms"] <= 1000 * limit,
                    f"{phase['calls']} calls, at most {phase['call_max_ms']} ms, {phase['refused']}")

    def figures(self, stage):
        return [self.told(phase) for phase in stage.facts["phases"]]

    def verdict(self, stage):
        return "every answer was found in the flood" if stage.passed() else "a check failed"


class FloodedProbes(Flooded):
    name = "hostile"
    rank = 82
    summary = "DHCP and PPPoE answers are found while every port is flooded"
    story = """
        A DHCP server is behind eth2, a PPPoE server behind eth3, nobody behind the others. Garbage, other hosts' DHCP, other
        hosts' PPPoE, and answers with one flaw each come in on all ports. One-shot requests must find both servers, and
        nothing where nothing is. The frames come at a real rate, whatever the speed.
    """
    cables = {"eth0": Silent(), "eth1": Silent(), "eth2": DhcpServer(), "eth3": PppoeServer(), "eth4": Silent()}
    kinds = ("garbage", "dhcp", "pppoe", "near")

    def configure(self, config_):
        config_.network["auto_wan_detect"]["enable"] = "off"    # no cycle of its own comes between

    def probe(self, stage):
        return [("a request on all ports", self.request(stage), "dhcp"),
                ("a request on eth3", self.request(stage, device="eth3"), "pppoe"),
                ("a request on eth1", self.request(stage, device="eth1"), "static")]

    @staticmethod
    def request(stage, **message):
        """What a one-shot request wrote; None when it wrote nothing in time."""
        router = stage.router
        reply = router.bus.call("wan_detect", "proto_detect", timeout=TIMEOUT_MS, **message)
        if reply != {"err_code": 0}:
            return reply
        return router.clock.wait_until(lambda: content(PROTOCOL_RESULT) or None, REQUEST_S)

    def judge_phase(self, stage, phase, where):
        super().judge_phase(stage, phase, where)
        if self.log_level == Flooded.log_level:
            stage.check(f"{where}: no frame finds a full queue", phase["lost"] == 0, phase["lost"])


class FloodedCycles(Flooded):
    name = "hostile-static"
    rank = 82
    summary = "LAN hosts, gateway and name server are found while every port is flooded"
    story = """
        The connection has a static address. The gateway's address answers behind eth1, eth2 and eth3. A host of the LAN is
        behind eth2, and names are not resolved behind eth1: the re-check of the LAN's hosts, ARP and DNS decide for eth3.
        Garbage, other hosts' ARP, other hosts' DNS, and answers with one flaw each come in on all ports meanwhile.
        The frames come at a real rate, whatever the speed.
    """
    cables = {"eth0": Silent(), "eth1": Gateway(GATEWAY, dns=False),
              "eth2": Together(Gateway(GATEWAY), LanHost(), title="gateway + host"), "eth3": Gateway(GATEWAY), "eth4": Silent()}
    kinds = ("garbage", "arp", "dns", "near")
    longest_block_s = 8.0    # the re-check, the search, a question for each next hop, and the DNS probe

    def configure(self, config_):
        config_.set_wan_type("static")
        config_.protocol["static"].update(NETWORK)

    def prepare(self, stage):
        """Gives the role back to a port that leads nowhere."""
        run("network_lanwan_swap", "set", f"port{stage.router.port(self.wan).number}")
        WAN_RESULT.unlink(missing_ok=True)

    def probe(self, stage):
        router = stage.router
        before = len(router.sniffer.probes)
        router.bus.call("wan_detect", "wan_detect", delay=0)
        found = router.clock.wait_until(lambda: content(WAN_RESULT) or None, CYCLE_S)
        if found:
            router.clock.wait_until(lambda: config.wan_port_name() == found, CYCLE_S)
        asked = any(probe.kind == "arp" and probe.port == "eth3" for probe in router.sniffer.probes[before:])
        return [("a cycle", config.wan_port_name(), "eth3"), ("a question by ARP behind eth3", asked, True)]


class FullyFloodedProbes(FloodedProbes):
    name = "hostile-full"
    summary = "the same at 100 000 frames a second and port, on all ports at once and on each alone (--speed 1)"
    rate = FULL_RATE
    one_by_one = True


class FullyFloodedCycles(FloodedCycles):
    name = "hostile-static-full"
    summary = "the same at 100 000 frames a second and port, on all ports at once and on each alone (--speed 1)"
    rate = FULL_RATE
    one_by_one = True
