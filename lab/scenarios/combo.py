# SPDX-License-Identifier: MIT
"""Combo ports: one port, two media."""
from lab.combo import DRIVER
from lab.network import carrier
from lab.scenarios.base import FIRST_CYCLE_S, Scenario
from lab.upstream import DhcpServer, Silent

TOGGLE_S = 60
LINK_S = 10
START_WITHOUT_LINK_S = 120


class ComboFallback(Scenario):
    name = "combo"
    rank = 14
    summary = "the WAN port is a combo port: it follows the medium that has a link, and the preferred one if both have"
    story = """
        The WAN role is with the combo port eth4, set to copper, but the line comes in through the SFP cage. The daemon
        changes the port to SFP and finds it good. Then a copper line is plugged in too; copper is preferred, so the
        port changes back.
    """
    combo = {"eth4": "phy"}
    wan = "eth4"
    cables = {"eth4/sfp": DhcpServer()}
    winner = "eth4"

    def play(self, stage):
        router = stage.router
        router.attach("eth4/phy", DhcpServer(), plugged=False)
        self.start(stage)
        first = stage.note("to_sfp", self.toggle(router, "sfp", START_WITHOUT_LINK_S, 0))
        stage.note("serdes_first", serdes("port5"))
        stage.note("first_end", router.cycle_over(FIRST_CYCLE_S))
        router.show_panel()
        router.plug("eth4/phy")
        stage.note("to_phy", None if first is None else self.toggle(router, "phy", TOGGLE_S, first + 1))
        stage.note("serdes_second", serdes("port5"))
        router.clock.wait_until(lambda: carrier("eth4"), LINK_S)
        router.show_panel()

    @staticmethod
    def toggle(router, medium, seconds, after):
        return router.daemon.wait_for("toggle_combo_state", f"success switch it to {medium}!", seconds, after)

    def judge(self, stage):
        stage.check("the port changed to SFP", stage.facts["serdes_first"] == "sfp", stage.facts["serdes_first"])
        stage.check("and back to copper", stage.facts["serdes_second"] == "phy", stage.facts["serdes_second"])
        super().judge(stage)


class ComboWins(Scenario):
    name = "combo-wins"
    rank = 15
    summary = "the line is behind the SFP side of a combo port: the swap keeps that side"
    story = """
        The WAN role is with eth0. The combo port eth4 is set to its SFP cage, and the DHCP line is there. The swap must
        name the side in use.
    """
    combo = {"eth4": "sfp"}
    cables = {"eth0": Silent(), "eth4/sfp": DhcpServer()}
    winner = "eth4"

    def judge(self, stage):
        super().judge(stage)
        side = stage.note("serdes", serdes("port5"))
        stage.check("the port still uses its SFP side", side == "sfp", side)


def serdes(port):
    return (DRIVER / port / "serdes").read_text().strip()
