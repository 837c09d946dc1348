# SPDX-License-Identifier: MIT
"""Cables pulled and plugged while the daemon runs."""
from lab.router import WAN_RESULT, content
from lab.scenarios.base import FIRST_CYCLE_S, SECOND_CYCLE_S, START_PAUSE_S, Scenario
from lab.upstream import DhcpServer, Silent

CONNECTED_S = 60
LINK_SEEN_S = 30


class CableMove(Scenario):
    name = "cable-move"
    rank = 5
    summary = "the cable of a working line is moved to another port: the WAN role follows"
    story = """
        The WAN port eth0 works. Then its cable is pulled and plugged into eth3. Ten seconds after the loss a cycle
        opens; eth3 joins it nine seconds after its link came up, answers, and gets the WAN role. The quiet device in
        eth2, there all the time, is not even asked.
    """
    cables = {"eth0": DhcpServer(), "eth2": Silent()}
    winner = "eth3"

    def play(self, stage):
        router = stage.router
        router.attach("eth3", DhcpServer(), plugged=False)
        router.clock.wait_until(lambda: router.health.state == "connected", CONNECTED_S)
        self.start(stage)
        router.daemon.wait_for("main", "Wan detect start uloop", START_PAUSE_S + FIRST_CYCLE_S)
        self.pull(stage)
        router.plug("eth3")
        first = stage.note("first_end", router.cycle_over(FIRST_CYCLE_S))
        stage.note("result_after_first", content(WAN_RESULT))
        stage.note("second_end", None if first is None else router.cycle_over(SECOND_CYCLE_S, first + 1))
        router.show_panel()

    @staticmethod
    def pull(stage):
        """Pulls the cable once the link scan runs, and waits until it was seen."""
        router = stage.router
        router.daemon.wait_for("update_eth_link_status_trigger", "Success Cyclic scanning", LINK_SEEN_S)
        router.unplug("eth0")
        stage.note("loss_seen", router.daemon.wait_for("wan_detect_process_link_change", "Wan down!!", LINK_SEEN_S))

    def judge(self, stage):
        stage.check("the loss of the link was seen", stage.facts["loss_seen"] is not None)
        super().judge(stage)


class CableBack(CableMove):
    name = "cable-back"
    rank = 6
    summary = "the cable of the WAN port is pulled for a moment: the port keeps its role"
    story = """
        The WAN port eth0 works. Its cable is pulled and put back five seconds later. The cycle that opens ten seconds
        after the last change finds the port good and probes nothing.
    """
    cables = {"eth0": DhcpServer(), "eth2": DhcpServer()}
    winner = "eth0"

    def play(self, stage):
        router = stage.router
        router.clock.wait_until(lambda: router.health.state == "connected", CONNECTED_S)
        self.start(stage)
        router.daemon.wait_for("main", "Wan detect start uloop", START_PAUSE_S + FIRST_CYCLE_S)
        self.pull(stage)
        router.clock.sleep(5)
        router.plug("eth0")
        stage.note("first_end", router.cycle_over(FIRST_CYCLE_S))
        router.show_panel()

    def judge(self, stage):
        super().judge(stage)
        stage.check("no probe left any port", not stage.router.probes(), stage.router.probes())


class LateCable(Scenario):
    name = "late-cable"
    rank = 7
    summary = "no cable at all at the start: the daemon waits a minute, then takes the first line that comes"
    story = """
        Nothing is plugged in when the daemon starts. It waits 75 s for a link on the WAN port, opens a cycle without
        candidates, and keeps looking once a second. Then the DHCP line is plugged into eth1.
    """
    winner = "eth1"

    def play(self, stage):
        router = stage.router
        router.attach("eth1", DhcpServer(), plugged=False)
        self.start(stage)
        stage.note("no_candidate", router.daemon.wait_for("uloop_start_wan_detect", "Zero device need to detect", 150))
        router.plug("eth1")
        first = stage.note("first_end", router.cycle_over(FIRST_CYCLE_S))
        stage.note("second_end", None if first is None else router.cycle_over(SECOND_CYCLE_S, first + 1))
        router.show_panel()
