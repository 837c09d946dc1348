# SPDX-License-Identifier: MIT
"""What is told of settings that are wrong, how often ports are asked in a long life, and what asking all the time costs."""
import statistics
import threading

from lab.bus import uci
from lab.config import Section
from lab.scenarios.bad_scripts import with_script
from lab.scenarios.base import FIRST_CYCLE_S, START_PAUSE_S
from lab.scenarios.life import SWAP
from lab.scenarios.why import OBJECT, STATE_OBJECT, TOLD_S, Why
from lab.scenarios.why_life import FAILS
from lab.upstream import DhcpServer, Silent

NOTHING = "#!/bin/sh\nexit 0\n"
MINUTE_S = 60
SHORT_S = 5
MEASURED_CYCLES = 4
MOST_MS_PER_CALL = 1.0


class WhyHints(Why):
    name = "why-hints"
    rank = 90
    summary = "settings that a verdict stumbles over: a VLAN, a reserved port, strangers in the pool, several lines"
    story = """
        The WAN interface is configured on a VLAN, the pool names a ninth port of five, and the only DHCP server is behind
        the gaming port. The state object hints at each; then the VLAN goes, and two lines answer, of which one resolves
        names.
    """
    cables = {"eth0": Silent(), "eth1": DhcpServer(), "eth2": Silent()}

    def configure(self, config):
        config.network["auto_wan_detect"]["wan_port_pool"] = "1 2 3 4 5 9"
        config.network["wan"]["device"] = "eth0.2"
        config.switch["gaming"] = Section("gaming", switch_port="port2")

    def hints(self, stage, *wanted):
        self.same(stage, "the hints", self.status(stage, "hints"), list(wanted))

    def play(self, stage):
        router = stage.router
        router.attach("eth3", DhcpServer(dns=False), plugged=False)
        router.attach("eth4", DhcpServer(), plugged=False)
        self.start(stage)
        self.until_why(stage, "eth2", "silent")
        self.hints(stage, "vlan", "pool")
        self.the_reserved_port_answers(stage)
        uci("set", "network.wan.device=eth0")
        uci("commit", "network")
        for name in ("eth3", "eth4"):
            router.plug(name)
        self.until(stage, "both links are seen", lambda: all(self.port(stage, name)["link"] for name in ("eth3", "eth4")), TOLD_S)
        self.look_again(stage)
        self.until_over(stage, 3)
        self.hints(stage, "pool", "several")
        self.reasons(stage, 3, eth1="reserved", eth2="other_answered", eth3="no_name_server", eth4="won")
        self.outcome(stage, 3, asked=["eth2", "eth3", "eth4"], decision="name_server", winner="eth4", swap="done")
        self.explained(stage, "eth3", "Cycle 3, begun # s ago: eth3 was not chosen, for the name server "
                       "behind another port answered first.", "It was asked * within the last hour, the last time # s ago.",
                       "Its last answer: dhcp from *, # s ago.")
        router.show_panel()

    def the_reserved_port_answers(self, stage):
        router = stage.router
        self.same(stage, "a request names the reserved port",
                  router.bus.call(OBJECT, "proto_detect", device="eth1", protocol="dhcp"), {"err_code": 0})
        self.until(stage, "its answer is told", lambda: self.port(stage, "eth1").get("answer", {}).get("protocol") == "dhcp", TOLD_S)
        answer = self.port(stage, "eth1")["answer"]
        stage.check("with the gateway and the name server", (answer.get("gateway"), answer.get("dns")) == ("10.10.2.1", "10.10.2.1") and
                    answer.get("address", "").startswith("10.10.2."), answer)
        self.look_again(stage)
        self.until(stage, "the next cycle opens", lambda: self.cycle(stage, 2), FIRST_CYCLE_S)
        self.until_why(stage, "eth2", "silent")
        self.hints(stage, "vlan", "only_reserved", "pool")
        self.explained(stage, "eth2", "Cycle 2, begun # s ago: eth2 was asked and stayed silent.",
                       "It is asked untagged, and the WAN interface is configured on a VLAN.")


class WhySilence(Why):
    name = "why-silence"
    rank = 90
    summary = "twelve minutes in which nobody answers: the pauses grow, and so few questions go out that the figure holds"
    story = """
        Nobody ever answers. The state object tells how long the next pause is, and how often each port was asked.
        Meant for a high speed.
    """
    reports_all = False
    cables = {"eth0": Silent(), "eth1": Silent(), "eth2": Silent()}
    minutes = 12
    most_questions = 45    # per port and hour, of which the first minutes have the most
    asked = ("eth1", "eth2")
    field, pauses = "retry_pause", [30, 60, 120, 240, 300]

    def play(self, stage):
        self.start(stage)
        told = stage.note("told", self.live(stage))
        self.same(stage, f"each {self.field} that was told", told, self.pauses)
        counts = stage.note("asked_last_hour", {port["name"]: port["asked_last_hour"] for port in self.status(stage, "ports")})
        for name in self.asked:
            stage.check(f"{name} was asked {self.most_questions} times at most", 0 < counts[name] <= self.most_questions, counts)
        stage.router.show_panel()

    def live(self, stage):
        """The pauses that were told, in their order."""
        router, told = stage.router, []
        end = router.clock.now() + self.minutes * MINUTE_S
        while router.clock.now() < end:
            pause = self.status(stage, self.field)
            told += [pause] if pause and pause not in told[-1:] else []
            router.clock.sleep(SHORT_S)
        return told


class WhySwapsFail(WhySilence):
    name = "why-swaps-fail"
    rank = 90
    summary = "the swap command fails for nine minutes: the pause grows to 300 s, and the figure of questions holds"
    story = """
        The line is in eth1, and the swap command fails again and again. The state object tells the pause behind each of
        them, and how often the port was asked. Meant for a high speed.
    """
    minutes = 9
    cables = {"eth0": Silent(), "eth1": DhcpServer()}
    most_questions = 60
    asked = ("eth1",)
    field, pauses = "swap_pause", [21, 42, 84, 168, 300]

    def play(self, stage):
        with with_script(SWAP, FAILS):
            super().play(stage)
            told = self.status(stage, "counters")
        stage.check("each swap but the last one is told as failed", told["swaps"] >= len(self.pauses) and
                    told["swaps_confirmed"] == 0 and told["swaps_failed_in_a_row"] >= told["swaps"] - 1, told)


class WhyPolled(Why):
    name = "why-polled"
    rank = 90
    summary = "somebody asks for the status all the time: a cycle lasts no more than 1 ms longer for each call"
    story = """
        Two DHCP servers answer, nobody resolves names, and the swap command does nothing, so that each cycle takes the
        same way. Some run undisturbed, in others two clients ask for the status as fast as they can.
    """
    managed = False
    cables = {"eth0": Silent(), "eth1": DhcpServer(dns=False), "eth3": DhcpServer(dns=False)}

    def play(self, stage):
        self.start(stage)
        with with_script(SWAP, NOTHING):
            self.until_over(stage, 1)
            alone, polled = [], []
            for number in range(2, 2 + 2 * MEASURED_CYCLES, 2):
                alone.append(self.one_cycle(stage, number)[0])
                polled.append(self.one_cycle(stage, number + 1, clients=2))
        self.compare(stage, alone, polled)
        stage.router.show_panel()

    def one_cycle(self, stage, number, clients=0):
        """Its real milliseconds, and the calls that were answered meanwhile."""
        callers = [Caller(stage.router) for _ in range(clients)]
        self.look_again(stage)
        for caller in callers:
            caller.start()
        stage.router.clock.wait_until(lambda: self.status(stage, "counters")["verdicts"] >= number,
                                      START_PAUSE_S + FIRST_CYCLE_S, 0.1)
        for caller in callers:
            caller.end()
        cycle = self.cycle(stage, number)
        return cycle["took_ms"] / stage.router.clock.speed, sum(caller.calls for caller in callers)

    @staticmethod
    def compare(stage, alone, polled):
        calls = statistics.median(calls for _, calls in polled)
        longer = statistics.median(took for took, _ in polled) - statistics.median(alone)
        stage.note("measured", {"alone_ms": alone, "polled": polled, "ms_per_call": longer / calls})
        stage.check("many calls were answered in each cycle", calls >= 50, polled)
        stage.check(f"a call delays a cycle by {MOST_MS_PER_CALL:g} ms at most", longer <= MOST_MS_PER_CALL * calls,
                    f"{longer:.1f} ms by {calls:g} calls; alone {alone}, polled {polled}")


class Caller(threading.Thread):
    """Asks for the status again and again."""

    def __init__(self, router):
        super().__init__(daemon=True, name="caller")
        self.router, self.calls, self.asking = router, 0, True

    def run(self):
        while self.asking:
            self.calls += "ports" in self.router.bus.call(STATE_OBJECT, "status")

    def end(self):
        self.asking = False
        self.join()
