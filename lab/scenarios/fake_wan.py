# SPDX-License-Identifier: MIT
"""The fake WAN: a port kept out of the LAN until detection has decided."""
from lab.network import bridge_members
from lab.router import WAN_RESULT, content
from lab.scenarios.base import FIRST_CYCLE_S, SECOND_CYCLE_S, START_PAUSE_S, Scenario
from lab.upstream import DhcpServer, Silent

NONE = "-1"


class FakeWan(Scenario):
    name = "fake-wan"
    rank = 30
    summary = "the fake WAN port is kept while nothing is found, and dropped with the verdict"
    story = """
        eth4 is the fake WAN port: kept out of the LAN bridge, without a cable. The first cycle is given up without a
        result, so the fake WAN must stay. Then the DHCP line is plugged into eth2: with the verdict the fake WAN goes,
        and eth4 joins the bridge.
    """
    cables = {"eth0": Silent(), "eth3": Silent()}
    winner = "eth2"

    def configure(self, config):
        config.network["auto_wan_detect"]["fake_wan_port"] = "5"

    def play(self, stage):
        router = stage.router
        router.attach("eth2", DhcpServer(), plugged=False)
        self.start(stage)
        router.daemon.wait_for("uloop_wan_detect_using_proto_detect", "No device using", START_PAUSE_S + FIRST_CYCLE_S)
        stage.note("reply", router.bus.call("wan_detect", "wan_detect"))
        given_up = stage.note("given_up", router.cycle_over(FIRST_CYCLE_S))
        self.look(stage, "kept")
        router.plug("eth2")
        found = None if given_up is None else router.cycle_over(SECOND_CYCLE_S, given_up + 1)
        stage.note("found", found)
        self.look(stage, "dropped")
        stage.note("second_end", None if found is None else router.cycle_over(SECOND_CYCLE_S, found + 1))
        router.show_panel()

    @staticmethod
    def look(stage, when):
        stage.note(when, {"result": content(WAN_RESULT), "fake_wan_port": stage.router.fake_wan(),
                          "bridge": bridge_members()})

    def judge(self, stage):
        kept, dropped = stage.facts["kept"], stage.facts["dropped"]
        stage.check("the cycle without a result leaves no result file", kept["result"] is None, kept["result"])
        stage.check("and keeps the fake WAN", kept["fake_wan_port"] == "5", kept["fake_wan_port"])
        stage.check("whose port stays outside the bridge", "eth4" not in kept["bridge"])
        stage.check("the verdict drops the fake WAN", dropped["fake_wan_port"] == NONE, dropped["fake_wan_port"])
        stage.check("and its port joins the bridge", "eth4" in dropped["bridge"])
        super().judge(stage)


class FakeWanWins(Scenario):
    name = "fake-wan-wins"
    rank = 31
    summary = "the fake WAN port itself turns out to be the WAN port"
    story = "eth4 is the fake WAN port, and the DHCP line is there: it becomes the WAN port and is no longer fake."
    cables = {"eth0": Silent(), "eth4": DhcpServer()}
    winner = "eth4"

    def configure(self, config):
        config.network["auto_wan_detect"]["fake_wan_port"] = "5"

    def judge(self, stage):
        super().judge(stage)
        fake = stage.note("fake_wan_port", stage.router.fake_wan())
        stage.check("there is no fake WAN any more", fake == NONE, fake)
