# SPDX-License-Identifier: MIT
"""Combo ports: one port, two media."""
from lab.bus import uci
from lab.combo import DRIVER
from lab.network import carrier
from lab.scenarios.base import FIRST_CYCLE_S, LATE_REAL_S, Scenario
from lab.upstream import DhcpServer, Silent

TOGGLE_S = 60
LINK_S = 10
START_WITHOUT_LINK_S = 120
PREFERENCE_S = 10    # it is read at every tenth pass, one a second
PREFERENCE = "network.auto_wan_detect.wan_combo_first_priority"


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


class ComboPreference(Scenario):
    name = "combo-preference"
    rank = 15
    summary = "the preferred medium of the WAN combo port is changed in the configuration: the port follows within 10 s"
    story = """
        Both media of the combo port eth4, which has the WAN role, lead to a DHCP server; copper is preferred. Then the
        configuration prefers SFP, and later something that no port has, which counts as copper. The daemon reads the
        preference at every tenth pass. Each change lets both background threads pause once.
    """
    combo = {"eth4": "phy"}
    wan = "eth4"
    cables = {"eth4/phy": DhcpServer(), "eth4/sfp": DhcpServer()}

    def play(self, stage):
        self.start_connected(stage)
        stage.note("changes", [self.prefer(stage, "sfp", "sfp"), self.prefer(stage, "fibre", "phy")])
        for _ in range(2):
            stage.router.daemon.wait_for("wan_combo_auto_switch", "Success get network", 2 * PREFERENCE_S,
                                         stage.router.daemon.position())
        stage.router.show_panel()

    @staticmethod
    def prefer(stage, preference, medium):
        """Changes the preference and waits for the toggle and both pauses."""
        router = stage.router
        asked, position = router.clock.now(), router.daemon.position()
        uci("set", f"{PREFERENCE}={preference}")
        uci("commit", "network")
        router.say(f"the configuration prefers {preference}")
        toggled = router.daemon.wait_for("toggle_combo_state", f"success switch it to {medium}!", TOGGLE_S, position)
        if toggled is None:
            return None
        at = router.daemon.lines[toggled].at
        for kind in ("scan pause", "combo pause"):
            router.clock.wait_until(lambda kind=kind: router.waits.of(kind, after=at), TOGGLE_S)
        return {"after": at - asked, "at": at, "serdes": serdes("port5"), "lines": [position, router.daemon.position()]}

    def judge(self, stage):
        super().judge(stage)
        for change, medium in zip(stage.facts["changes"], ("sfp", "phy")):
            if not stage.check(f"the port changes to {medium}", change and change["serdes"] == medium, change):
                continue
            stage.check("within ten passes of the combo switch", change["after"] <= PREFERENCE_S + self.late(stage),
                        f"{change['after']:.1f} s")
            self.judge_wait(stage, "the link scan pauses", "scan pause", after=change["at"] - 1)
            self.judge_wait(stage, "the combo switch pauses", "combo pause", after=change["at"] - 1)

    @staticmethod
    def late(stage):
        return LATE_REAL_S * stage.router.clock.speed

    def verdict(self, stage):
        return "the port follows the preference" if stage.passed() else "the port does not follow the preference"


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
