# SPDX-License-Identifier: MIT
"""Why a port is WAN, or is not, as the object "wan_detect.state" tells it. What is checked here is read from its methods."""
import re

from lab.config import Section
from lab.lan import LanHost
from lab.scenarios.base import FIRST_CYCLE_S, SECOND_CYCLE_S, START_PAUSE_S, Scenario
from lab.scenarios.static import GATEWAY, NETWORK
from lab.upstream import DhcpServer, Gateway, Silent

OBJECT, STATE_OBJECT = "wan_detect", "wan_detect.state"
OBJECT_REAL_S = 5
POLL_REAL_S = 0.03
KNOWN_REAL_S = 5
BAN_S = 600
RETRY_S = 30
SWAP_PAUSE_S = 21
TOLD_S = 30


class Why(Scenario):
    """Base: asks the state object, and compares what it tells of a port in three ways."""

    def start(self, stage):
        super().start(stage)
        stage.router.bus.wait_for_object(STATE_OBJECT, OBJECT_REAL_S)

    @staticmethod
    def ask(stage, method, **arguments):
        return stage.router.bus.call(STATE_OBJECT, method, **arguments)

    def status(self, stage, field=None):
        told = self.ask(stage, "status")
        return told if field is None else told.get(field)

    def port(self, stage, name):
        return next((port for port in self.status(stage, "ports") if port["name"] == name), {})

    def cycles(self, stage):
        """What is remembered of each cycle, by its number."""
        return {cycle["number"]: cycle for cycle in self.ask(stage, "history")["cycles"]}

    def cycle(self, stage, number):
        return self.cycles(stage).get(number, {})

    def until(self, stage, what, condition, seconds):
        """Waits for something that is asked of the daemon again and again; that it came is a check."""
        value = stage.router.clock.wait_until(condition, seconds, POLL_REAL_S)
        stage.check(what, value)
        return value

    def until_why(self, stage, name, why, seconds=START_PAUSE_S + FIRST_CYCLE_S):
        return self.until(stage, f"{name} comes to be told as {why}", lambda: self.port(stage, name).get("why") == why, seconds)

    def until_over(self, stage, number, seconds=START_PAUSE_S + FIRST_CYCLE_S):
        """Waits for the end of that cycle, and returns what is remembered of it."""
        self.until(stage, f"cycle {number} ends", lambda: "took_ms" in self.cycle(stage, number), seconds)
        return self.cycle(stage, number)

    @staticmethod
    def same(stage, what, told, wanted):
        return stage.check(what, told == wanted, f"{told!r}, and not {wanted!r}")

    def outcome(self, stage, number, **wanted):
        """Compares the fields of a cycle that are named."""
        cycle = self.cycle(stage, number)
        self.same(stage, f"cycle {number} is remembered rightly", {name: cycle.get(name) for name in wanted}, wanted)

    def reasons(self, stage, number, **wanted):
        """Status and history give the same reason for each port."""
        for port in self.status(stage, "ports"):
            if port["name"] in wanted:
                self.same(stage, f"status: why {port['name']}", port.get("why"), wanted[port["name"]])
        told = {port["name"]: port["why"] for port in self.cycle(stage, number).get("ports", [])}
        self.same(stage, f"history: why in cycle {number}", {name: told.get(name) for name in wanted}, wanted)

    def explained(self, stage, name, *wanted):
        """Each of these is a whole sentence of what is told, in this order; a # stands for any figure, a * for any words."""
        told = self.ask(stage, "explain", device=name).get("text", [])
        patterns = [re.escape(sentence).replace(r"\#", r"\d+").replace(r"\*", ".+") for sentence in wanted]
        places = [next((at for at, text in enumerate(told) if re.fullmatch(pattern, text)), None) for pattern in patterns]
        found = None not in places and places == sorted(places)
        stage.check(f"explain {name}: {wanted[0]}", found, told)

    def look_again(self, stage):
        """Asks for a cycle over all ports."""
        self.same(stage, "a cycle is asked for", stage.router.bus.call(OBJECT, "wan_detect"), {"err_code": 0})

    def verdict(self, stage):
        return "the daemon told why" if stage.passed() else "a check failed"


class WhyNot(Why):
    name = "why-not"
    rank = 90
    summary = "every reason why a port is not asked or did not answer, told over the bus; then one wins"
    story = """
        Nine ports, and each falls out for a reason of its own: no link, not in the pool, reserved twice, banned, a host of
        the LAN behind it, silence. While nobody answers the state object tells why; then a line comes into eth8 and wins,
        and it tells that, too, and that the next cycle agreed.
    """
    port_count = 9

    def __init__(self):
        self.host = LanHost()
        self.cables = {"eth0": Silent(), "eth2": Silent(), "eth3": Silent(), "eth4": Silent(), "eth5": DhcpServer(),
                       "eth6": self.host, "eth7": Silent()}

    def configure(self, config):
        config.network["auto_wan_detect"]["wan_port_pool"] = "1 2 4 5 6 7 8 9"
        config.switch["lan_agg"].update(enable_agg="1", lanport="P1 P4", lacpports="2")
        config.switch["gaming"] = Section("gaming", switch_port="port5")

    def play(self, stage):
        router = stage.router
        router.attach("eth8", DhcpServer(), plugged=False)
        router.clock.wait_until(self.host.known, KNOWN_REAL_S * router.clock.speed)
        self.start(stage)
        router.bus.send("wan_detect_add_banned_dev", name="eth5", time=BAN_S)
        self.while_it_starts(stage)
        self.until_why(stage, "eth7", "silent")
        self.while_nobody_answers(stage)
        router.plug("eth8")
        self.until(stage, "the link of eth8 is seen", lambda: self.port(stage, "eth8").get("link"), TOLD_S)
        self.look_again(stage)
        self.until_over(stage, 2)
        self.after_the_win(stage)
        self.until_over(stage, 3, SECOND_CYCLE_S)
        self.after_the_confirmation(stage)
        router.show_panel()

    def while_it_starts(self, stage):
        told = self.status(stage)
        self.same(stage, "the state is told during start-up", (told["starting"], told["cycle"]["state"]), (True, "resting"))
        self.explained(stage, "eth7", "The daemon is starting, and asks nobody so far.", "No cycle has begun so far.")

    def while_nobody_answers(self, stage):
        self.reasons(stage, 1, eth0="not_connected", eth1="no_link", eth2="not_in_pool", eth3="reserved", eth4="reserved",
                     eth5="banned", eth6="lan_hosts", eth7="silent", eth8="no_link")
        self.outcome(stage, 1, opener="start_up", asked=["eth7"], decision="open", winner=None)
        ports = {port["name"]: port for port in self.status(stage, "ports")}
        self.same(stage, "who is in the pool", [name for name, port in ports.items() if not port["pool"]], ["eth2"])
        self.same(stage, "who is reserved as what", {name: port["reserved"] for name, port in ports.items() if "reserved" in port},
                  {"eth3": "aggregation", "eth4": "gaming"})
        stage.check("how long the ban of eth5 lasts", BAN_S - 100 < ports["eth5"].get("banned", 0) < BAN_S, ports["eth5"])
        self.same(stage, "how many hosts of the LAN are behind eth6", ports["eth6"]["lan_hosts"], 1)
        self.same(stage, "how often eth7 was asked", ports["eth7"]["asked_last_hour"], 3)
        self.same(stage, "the hint that only a banned port answers", self.status(stage, "hints"), ["only_banned"])
        self.until(stage, "the next look is told", lambda: self.status(stage, "cycle")["next"] == "look", TOLD_S)
        told = self.status(stage)
        stage.check("and when it comes", told["retry_pause"] == RETRY_S and RETRY_S / 2 < told["cycle"]["next_ms"] / 1000 <= RETRY_S,
                    told["cycle"])
        self.explain_the_silence(stage)

    def explain_the_silence(self, stage):
        self.explained(stage, "eth0", "eth0 is the WAN port.", "Cycle 1, begun # s ago: eth0 did not work as the WAN port.")
        self.explained(stage, "eth1", "eth1 is not asked: it has no link.",
                       "A cable is missing, or the device at its other end is off.")
        self.explained(stage, "eth2", "eth2 may not be WAN: it is not in the pool (network.auto_wan_detect.wan_port_pool).")
        self.explained(stage, "eth3", "eth3 may not be WAN: it is reserved for a link aggregation (switch.lan_agg.lacpports).")
        self.explained(stage, "eth4", "eth4 may not be WAN: it is the gaming port (switch.gaming.switch_port).")
        self.explained(stage, "eth5", "eth5 may not be WAN: it is banned for another # s.",
                       "The ban ends, too, when its link goes and comes back.", "Its last answer: dhcp from *, # s ago.")
        self.explained(stage, "eth6", "eth6 is not asked: 1 host of the LAN is behind it (last seen # s ago).",
                       "A modem that has an address of the LAN's network looks like one.")
        self.explained(stage, "eth7", "Cycle 1, begun # s ago: eth7 was asked and stayed silent.",
                       "It was asked 3 times within the last hour, the last time # s ago.",
                       "All ports are looked at again in # s.")

    def after_the_win(self, stage):
        self.outcome(stage, 1, decision="gave_up", swap="not_needed")
        self.outcome(stage, 2, opener="bus_call", asked=["eth7", "eth8"], decision="only_answer", winner="eth8", swap="done",
                     swap_status=0)
        self.reasons(stage, 2, eth1="no_link", eth2="not_in_pool", eth5="banned", eth6="lan_hosts", eth7="other_answered",
                     eth8="won")
        self.explained(stage, "eth7", "Cycle 2, begun # s ago: eth7 was asked and stayed silent, while another port answered.")
        told = self.status(stage)
        self.same(stage, "the WAN port, the pause and the hint", (told["wan"], told["swap_pause"], told["hints"]),
                  ("eth8", SWAP_PAUSE_S, ["several"]))
        self.same(stage, "a cycle tests the swap", told["cycle"]["next"], "cycle")
        self.explained(stage, "eth8", "eth8 is the WAN port.",
                       "Cycle 2, begun # s ago: eth8 won, for it was the only port that answered.",
                       "The WAN role was moved to it; the next cycle tests that.", "The next cycle begins in # s.")

    def after_the_confirmation(self, stage):
        self.outcome(stage, 2, confirmed=True)
        self.outcome(stage, 3, opener="after_swap", asked=[], decision="wan_works", winner="eth8", swap="not_needed")
        self.reasons(stage, 3, eth1="no_link", eth5="banned", eth8="works")
        self.explained(stage, "eth8", "eth8 is the WAN port.", "Cycle 3, begun # s ago: eth8 worked as the WAN port.",
                       "Cycle 2, begun # s ago: eth8 won, for it was the only port that answered.",
                       "The WAN role was moved to it, and the next cycle agreed.")
        self.explained(stage, "eth7", "Cycle 3, begun # s ago: eth7 was not looked at, for the WAN port works.",
                       "Cycle 2, begun # s ago: eth7 was asked and stayed silent, while another port answered.")
        counted = self.status(stage, "counters")
        self.same(stage, "the counters", [counted[name] for name in ("cycles", "verdicts", "swaps", "swaps_confirmed",
                                                                     "swaps_failed_in_a_row")], [3, 3, 1, 1, 0])


class WhyGateway(Why):
    name = "why-gateway"
    rank = 90
    summary = "a static connection: the gateway is nowhere, then behind two ports, and names tell them apart"
    story = """
        The device behind eth2 does not know the gateway, and the state object tells so. Then the gateway's address comes
        behind eth1 and eth3, and names are resolved behind eth3 only.
    """
    cables = {"eth0": Silent(), "eth2": Silent()}

    def configure(self, config):
        config.set_wan_type("static")
        config.protocol["static"].update(NETWORK)

    def play(self, stage):
        router = stage.router
        router.attach("eth1", Gateway(GATEWAY, dns=False), plugged=False)
        router.attach("eth3", Gateway(GATEWAY), plugged=False)
        self.start(stage)
        self.until_why(stage, "eth2", "no_gateway")
        self.reasons(stage, 1, eth0="not_connected", eth1="no_link", eth2="no_gateway", eth3="no_link")
        self.explained(stage, "eth2", "Cycle 1, begun # s ago: eth2 was not chosen, for the gateway did not answer behind it.")
        for name in ("eth1", "eth3"):
            router.plug(name)
        self.until(stage, "both links are seen", lambda: all(self.port(stage, name)["link"] for name in ("eth1", "eth3")), TOLD_S)
        self.look_again(stage)
        self.until_over(stage, 2)
        self.reasons(stage, 2, eth1="no_name_server", eth2="no_gateway", eth3="won")
        self.outcome(stage, 2, asked=["eth1", "eth2", "eth3"], decision="name_server", winner="eth3", swap="done", swap_status=0)
        self.explained(stage, "eth1", "Cycle 2, begun # s ago: eth1 was not chosen, for the name server "
                       "behind another port answered first.")
        self.explained(stage, "eth3", "Cycle 2, begun # s ago: eth3 won, for the name server behind it answered first.")
        self.same(stage, "the hint that several lines answer", self.status(stage, "hints"), ["several"])
        self.until_over(stage, 3, SECOND_CYCLE_S)
        self.outcome(stage, 2, confirmed=True)
        self.outcome(stage, 3, decision="wan_works", winner="eth3")
        router.show_panel()
