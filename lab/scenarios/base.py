# SPDX-License-Identifier: MIT
"""What every scenario has, and the plain course: start, find the port, swap, confirm."""
from lab.network import bridge_members
from lab.router import WAN_RESULT, content

# Bounds in the daemon's own seconds. They only end a wait for something that does not come.
START_PAUSE_S = 15
FIRST_CYCLE_S = 60
SECOND_CYCLE_S = 60
CONNECTED_S = 60
# How far from its length a wait may seem to be, in real seconds: lines are read in passing, and machines are busy.
EARLY_REAL_S = 0.05
LATE_REAL_S = 0.8


def late_s(stage):
    """How much later than it ought to something may seem to come, in the daemon's own seconds."""
    return LATE_REAL_S * stage.router.clock.speed


class Scenario:
    name = None           # a class without a name is no scenario of its own
    rank = 50             # place in the list
    summary = ""          # one line for --list
    story = ""            # a few sentences for the opening
    port_count = 5
    port_names = None     # of each port, by its number; None for eth0, eth1 and so on
    wan = "eth0"          # port that holds the WAN role at the start
    combo = {}            # combo ports and the medium each starts with: {"eth4": "sfp"}
    cables = {}           # what is plugged in at the start: {"eth2": DhcpServer()}
    managed = True        # the network manager looks at the WAN port; else it has no connection, ever
    places_address = True    # the network manager gives a static address to the WAN port
    stock_manager = False    # its replies have no "state", as those of a stock network manager
    winner = None         # port that must hold the WAN role at the end
    needs_users = False   # files of other users than root are part of it
    reports_all = True    # log, events, waits and probes go into the report; not for hours of them

    def configure(self, config):
        """Changes the configuration before it is written."""

    def play(self, stage):
        self.start(stage)
        self.wait_for_swap_and_confirmation(stage)
        stage.router.show_panel()

    def start(self, stage):
        router = stage.router
        router.show_panel()
        stage.note("start_status", router.daemon.start())
        router.say("the daemon starts")

    def wait_for_swap_and_confirmation(self, stage):
        """Waits for two ends of a cycle: the one that swaps, and the one that finds the new port good."""
        router = stage.router
        first = router.cycle_over(START_PAUSE_S + FIRST_CYCLE_S)
        stage.note("first_end", first)
        stage.note("result_after_first", content(WAN_RESULT))
        stage.note("second_end", None if first is None else router.cycle_over(SECOND_CYCLE_S, first + 1))

    def wait_for_loop(self, stage):
        """Waits until start-up is over."""
        return stage.router.daemon.wait_for("main", "Wan detect start uloop", START_PAUSE_S + FIRST_CYCLE_S)

    def start_connected(self, stage):
        """Starts the daemon with a WAN port that works, and waits until start-up is over."""
        router = stage.router
        stage.note("connected", bool(router.clock.wait_until(lambda: router.health.state == "connected", CONNECTED_S)))
        self.start(stage)
        return self.wait_for_loop(stage)

    def judge(self, stage):
        stage.check("the daemon went to the background by itself", stage.facts.get("start_status") == 0,
                    f"exit status {stage.facts.get('start_status')}")
        stage.check("the daemon still runs", stage.router.daemon.running())
        if self.winner:
            self.judge_winner(stage)

    def judge_winner(self, stage):
        router, result = stage.router, stage.note("result", content(WAN_RESULT))
        stage.check(f"the result file names {self.winner}", result == self.winner, f"it holds {result!r}")
        wan = stage.note("wan_port", router.wan_port())
        stage.check(f"the configuration gives the WAN role to {self.winner}", wan == self.winner, f"it is {wan}")
        self.judge_bridge(stage, outside=[self.winner])

    def judge_bridge(self, stage, outside):
        members = stage.note("bridge", bridge_members())
        wanted = sorted(port.name for port in stage.router.ports if port.name not in outside)
        stage.check(f"the LAN bridge holds every port but {', '.join(outside)}", members == wanted,
                    f"it holds {', '.join(members)}")

    def judge_wait(self, stage, what, kind, port="", after=0.0):
        """Checks one of the daemon's fixed waits; returns it, None when it did not happen."""
        wait, speed = stage.router.waits.of(kind, port, after), stage.router.clock.speed
        if not wait:
            stage.check(what, False, "it did not happen")
            return None
        early, late = EARLY_REAL_S * speed, LATE_REAL_S * speed
        stage.check(f"{what}: {wait.fixed:g} s", -early <= wait.lasted() - wait.fixed <= late + wait.slack, f"{wait.lasted():.1f} s")
        return wait

    def figures(self, stage):
        """Lines to tell before the closing one."""
        return []

    def verdict(self, stage):
        """The closing line."""
        holder = stage.facts.get("wan_port")
        if holder != self.winner:
            return f"the WAN role is with {holder}, but the line is in {self.winner}"
        return f"the line in {self.winner} was found and has the WAN role" if stage.passed() else "a check failed"
