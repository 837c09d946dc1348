# SPDX-License-Identifier: MIT
"""A network manager that tells whether the interface is up, and knows no states."""
from lab.roles import stop_serving, swaps
from lab.scenarios.base import CONNECTED_S, FIRST_CYCLE_S, SECOND_CYCLE_S, Scenario
from lab.upstream import DhcpServer

SAID = "Get network status return: "


class StockManager(Scenario):
    name = "stock-manager"
    rank = 26
    summary = "the network manager's reply has no \"state\": up, pending and available say the same"
    story = """
        Lines work behind the WAN port eth0 and behind eth2. The network manager is a stock one: its reply says that the
        interface is up, and names no state. That is a WAN port that works, so eth2 is not even asked. Then the server
        behind eth0 ends. Its interface is pending now, and a cycle finds eth2.
    """
    cables = {"eth0": DhcpServer(), "eth2": DhcpServer()}
    winner = "eth2"
    stock_manager = True

    def play(self, stage):
        router = stage.router
        self.start_connected(stage)
        self.one_cycle(stage, "first_end")
        stage.note("probes_while_up", len(router.probes()))
        stage.note("swaps_while_up", swaps(router))
        stop_serving(router.line("eth0")[1])
        router.say("the server behind eth0 ends")
        router.clock.wait_until(lambda: router.health.state == "connecting", CONNECTED_S)
        position = router.daemon.position()
        first = self.one_cycle(stage, "found")
        stage.note("second_end", None if first is None else router.cycle_over(SECOND_CYCLE_S, first + 1))
        stage.note("said", [line.body.removeprefix(SAID) for line in router.daemon.lines[position:] if SAID in line.body])
        router.show_panel()

    @staticmethod
    def one_cycle(stage, name):
        router = stage.router
        position = router.daemon.position()
        router.bus.call("wan_detect", "wan_detect")
        return stage.note(name, router.cycle_over(FIRST_CYCLE_S, position))

    def judge(self, stage):
        facts = stage.facts
        stage.check("while the interface is up nobody is asked", facts["probes_while_up"] == 0, facts["probes_while_up"])
        stage.check("and nothing is moved", not facts["swaps_while_up"], facts["swaps_while_up"])
        said = facts["said"]
        stage.check("a pending interface is connecting, then the new one is connected",
                    said and said[0] == "connecting" and said[-1] == "connected", said)
        super().judge(stage)
