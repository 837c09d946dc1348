# SPDX-License-Identifier: MIT
"""The bus daemon or the network manager is away for a few seconds: that tells nothing of the WAN port."""
from lab.roles import stop_serving, swapped_to, swaps
from lab.scenarios.base import FIRST_CYCLE_S, SECOND_CYCLE_S, START_PAUSE_S, Scenario, late_s
from lab.upstream import DhcpServer, Silent

AWAY_S = 3
PATIENCE_S = 10    # ten times a second
EARLY_S = 1
AT_ONCE_S = 3
AMID_PAUSE_S = 5
DELAY_S = 2
PASS = ("uloop_start_wan_detect", "Start to detect in")


class Away(Scenario):
    """Base: the WAN port eth0 works, and so would eth2; a pass falls into the absence."""
    cables = {"eth0": DhcpServer(), "eth2": DhcpServer()}
    winner = "eth0"

    def play(self, stage):
        router = stage.router
        self.start_connected(stage)
        position = router.daemon.position()
        self.ask_and_leave(router)
        stage.note("pass", router.daemon.wait_for(*PASS, FIRST_CYCLE_S, position))
        router.clock.sleep(AWAY_S)
        stage.note("ended_before", router.cycle_over(0, position))
        self.come_back(router)
        stage.note("end", router.cycle_over(FIRST_CYCLE_S, position))
        router.show_panel()

    def judge(self, stage):
        stage.check("the pass came, and had not ended when they came back",
                    stage.facts["pass"] is not None and stage.facts["ended_before"] is None)
        self.judge_untouched(stage)
        super().judge(stage)

    @staticmethod
    def judge_untouched(stage):
        probes, commands = stage.router.probes(), stage.note("swaps", swaps(stage.router))
        stage.check("no probe left any port", not probes, probes)
        stage.check("no role is moved", not commands, commands)


class BusAway(Away):
    name = "bus-away"
    rank = 27
    summary = "the bus daemon is away for 3 s when a pass wants to know whether the WAN port works: the port keeps its role"
    story = """
        The WAN port eth0 works, and another line is in eth2. A full cycle is asked for, and then the bus daemon is killed.
        The pass that falls into its absence asks again every second; when the bus is back it learns that eth0 works.
    """

    @staticmethod
    def ask_and_leave(router):
        router.bus.call("wan_detect", "wan_detect", delay=DELAY_S)
        router.bus.kill_broker()
        router.say("the bus daemon is killed")

    @staticmethod
    def come_back(router):
        router.bus.start_broker()
        router.say("the bus daemon runs again")


class ManagerAway(Away):
    name = "manager-away"
    rank = 27
    summary = "the network manager is away for 3 s when a pass wants to ask it: the WAN port keeps its role"
    story = """
        The WAN port eth0 works, and another line is in eth2. The network manager, which had answered at the start, is
        restarted. The pass that falls into its absence asks again every second.
    """

    @staticmethod
    def ask_and_leave(router):
        router.bus.kill_manager()
        router.say("the network manager is killed")
        router.bus.call("wan_detect", "wan_detect")

    @staticmethod
    def come_back(router):
        router.bus.start_manager()
        router.say("the network manager runs again")


class BusRestartedAtStart(Away):
    name = "bus-away-start"
    rank = 27
    summary = "the bus daemon is restarted while the daemon waits before its first cycle: a WAN port that works keeps its role"
    story = """
        The daemon has just started, and is in its pause of 15 s, in which it hears nothing. The bus daemon is restarted, so
        the first question for the state of the network goes to nobody. The WAN port eth0 works all the time.
    """

    def play(self, stage):
        router = stage.router
        router.clock.wait_until(lambda: router.health.state == "connected", FIRST_CYCLE_S)
        self.start(stage)
        router.clock.sleep(AMID_PAUSE_S)
        router.bus.kill_broker()
        router.bus.start_broker()
        router.say("the bus daemon was restarted")
        stage.note("restarted_at", router.clock.now())
        self.wait_for_loop(stage)
        stage.note("end", router.cycle_over(START_PAUSE_S + PATIENCE_S))
        router.clock.sleep(PATIENCE_S)
        stage.note("offered", "wan_detect" in router.bus.objects())
        router.show_panel()

    def judge(self, stage):
        stage.check("the bus was restarted in the pause", stage.facts["restarted_at"] < START_PAUSE_S)
        stage.check("the daemon's object is back", stage.facts["offered"])
        self.judge_untouched(stage)
        # Whether a cycle opens at all is its own affair; the role says enough.
        stage.check("the WAN role stays with eth0", stage.note("wan_port", stage.router.wan_port()) == "eth0")
        stage.check("the daemon still runs", stage.router.daemon.running())


class ManagerGone(Scenario):
    name = "manager-gone"
    rank = 27
    summary = "the network manager goes for good: after ten seconds the pass judges without it"
    story = """
        The server behind eth0 ends, and the network manager is gone as well. The pass asks for it every second, ten times.
        Then the WAN port counts as disconnected, and the line in eth2 is found.
    """
    cables = {"eth0": DhcpServer(), "eth2": DhcpServer()}

    def play(self, stage):
        router = stage.router
        self.start_connected(stage)
        stop_serving(router.line("eth0")[1])
        router.bus.kill_manager()
        router.say("the server behind eth0 and the network manager are gone")
        self.watch_cycle(stage, lambda: router.bus.call("wan_detect", "wan_detect"))

    @staticmethod
    def watch_cycle(stage, begin):
        """How long after the first pass of the cycle eth2 was asked, and who had the role after its swap."""
        router, position = stage.router, stage.router.daemon.position()
        begin()
        looked = router.daemon.wait_for(*PASS, START_PAUSE_S + FIRST_CYCLE_S, position)
        swap = swapped_to(router, "eth2", SECOND_CYCLE_S, position)
        stage.note("swapped", swap is not None)
        asked = router.probes("eth2")
        stage.note("asked_after_s", asked[0].at - router.daemon.lines[looked].at if asked and looked is not None else None)
        stage.note("wan_port", router.wan_port())
        router.show_panel()

    def judge(self, stage):
        self.judge_asked(stage, PATIENCE_S - EARLY_S, PATIENCE_S + AT_ONCE_S + late_s(stage))
        super().judge(stage)

    @staticmethod
    def judge_asked(stage, least, most):
        after = stage.facts["asked_after_s"]
        stage.check(f"the other port is asked {least:g} to {most:g} s after the pass began",
                    after is not None and least <= after <= most, f"{after} s")
        stage.check("it gets the role", stage.facts["swapped"] and stage.facts["wan_port"] == "eth2")

    def verdict(self, stage):
        return "the other line was found as soon as it ought to be" if stage.passed() else "a check failed"


class NoManagerEver(ManagerGone):
    name = "manager-never"
    rank = 27
    summary = "there never was a network manager: the first pass judges without it, at once"
    story = "The daemon starts on a router without a network manager. Nobody is waited for, and the line in eth2 is found."
    cables = {"eth0": Silent(), "eth2": DhcpServer()}

    def play(self, stage):
        stage.router.bus.kill_manager()
        self.watch_cycle(stage, lambda: self.start(stage))

    def judge(self, stage):
        self.judge_asked(stage, -EARLY_S, AT_ONCE_S + late_s(stage))
        Scenario.judge(self, stage)
