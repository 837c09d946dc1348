# SPDX-License-Identifier: MIT
"""What every scenario has, and the plain course: start, find the port, swap, confirm."""
from lab.network import bridge_members
from lab.router import WAN_RESULT, content

# Bounds in the daemon's own seconds. They only end a wait for something that does not come.
START_PAUSE_S = 15
FIRST_CYCLE_S = 60
SECOND_CYCLE_S = 60


class Scenario:
    name = None           # a class without a name is no scenario of its own
    rank = 50             # place in the list
    summary = ""          # one line for --list
    story = ""            # a few sentences for the opening
    port_count = 5
    wan = "eth0"          # port that holds the WAN role at the start
    combo = {}            # combo ports and the medium each starts with: {"eth4": "sfp"}
    cables = {}           # what is plugged in at the start: {"eth2": DhcpServer()}
    winner = None         # port that must hold the WAN role at the end

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

    def verdict(self, stage):
        """The closing line."""
        holder = stage.facts.get("wan_port")
        if holder != self.winner:
            return f"the WAN role is with {holder}, but the line is in {self.winner}"
        return f"the line in {self.winner} was found and has the WAN role" if stage.passed() else "a check failed"
