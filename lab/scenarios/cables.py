# SPDX-License-Identifier: MIT
"""Cables pulled and plugged while the daemon runs."""
from lab.router import WAN_RESULT, content
from lab.scenarios.base import FIRST_CYCLE_S, SECOND_CYCLE_S, Scenario
from lab.upstream import DhcpServer, Silent

LINK_SEEN_S = 30
PAUSE_S = 30
RHYTHM_S = 1.0    # of the link scan, and of a cycle that has no candidate


class WanLoss(Scenario):
    """Base of those in which the cable of the WAN port eth0 is pulled."""

    @staticmethod
    def pull(stage):
        """Pulls the cable once the link scan runs, and waits until it was seen."""
        router = stage.router
        router.daemon.wait_for("update_eth_link_status_trigger", "Success Cyclic scanning", LINK_SEEN_S)
        router.unplug("eth0")
        stage.note("loss_seen", router.daemon.wait_for("wan_detect_process_link_change", "Wan down!!", LINK_SEEN_S))

    def wait_for_both_cycles(self, stage):
        """Waits for the cycle that swaps, and for the one that confirms."""
        router = stage.router
        first = stage.note("first_end", router.cycle_over(FIRST_CYCLE_S))
        stage.note("result_after_first", content(WAN_RESULT))
        stage.note("second_end", None if first is None else router.cycle_over(SECOND_CYCLE_S, first + 1))

    def judge(self, stage):
        stage.check("the loss of the link was seen", stage.facts["loss_seen"] is not None)
        self.judge_wait(stage, "the cycle opens after the last change of the WAN port's link", "cycle")
        super().judge(stage)


class CableMove(WanLoss):
    name = "cable-move"
    rank = 5
    summary = "the cable of a working line is moved to another port: the WAN role follows"
    story = """
        The WAN port eth0 works. Then its cable is pulled and plugged into eth3. Ten seconds after the loss a cycle
        opens; eth3 joins it nine seconds after its link came up, answers, and gets the WAN role. The quiet device in
        eth2, there all the time, is no candidate. After the swap both background threads pause for 20 s, and a full
        cycle confirms the port 21 s later.
    """
    cables = {"eth0": DhcpServer(), "eth2": Silent()}
    winner = "eth3"

    def play(self, stage):
        router = stage.router
        router.attach("eth3", DhcpServer(), plugged=False)
        self.start_connected(stage)
        self.pull(stage)
        stage.note("plugged_at", router.clock.now())
        router.plug("eth3")
        self.wait_for_both_cycles(stage)
        for kind in ("scan pause", "combo pause"):
            router.clock.wait_until(lambda kind=kind: router.waits.of(kind), PAUSE_S)
        router.show_panel()

    def judge(self, stage):
        super().judge(stage)
        self.judge_wait(stage, "the new port joins after its link came up", "settle", self.winner)
        self.judge_wait(stage, "the full cycle follows the swap", "full")
        self.judge_wait(stage, "the link scan pauses", "scan pause")
        self.judge_wait(stage, "the combo switch pauses", "combo pause")

    def figures(self, stage):
        return plug_to_verdict(stage, self.winner, stage.facts["plugged_at"])


def plug_to_verdict(stage, port, plugged):
    """Where the time between a plug and the verdict went, from the log."""
    router = stage.router
    settle, lines = router.waits.of("settle", port), router.daemon.lines
    opened = next(line.at for line in lines if line.matches("uloop_start_wan_detect", f"{port}、"))
    verdict = next(line.at for line in lines if line.at >= opened and "treat it as wan" in line.body)
    scan, rhythm, probes = settle.begun - plugged, opened - settle.ended, verdict - opened
    beyond = verdict - plugged - settle.fixed - min(scan, RHYTHM_S) - min(rhythm, RHYTHM_S)
    stage.note("plug_to_verdict", {"total": verdict - plugged, "scan": scan, "settle": settle.lasted(),
                                   "pass": rhythm, "probes": probes, "beyond": beyond})
    return [f"From the plug to the verdict: {verdict - plugged:.2f} s",
            f"  {scan:5.2f} s  until the link scan saw the port (fixed rhythm of {RHYTHM_S:g} s)",
            f"  {settle.lasted():5.2f} s  until the port counted as settled (fixed {settle.fixed:g} s)",
            f"  {rhythm:5.2f} s  until the next pass of the cycle (fixed rhythm of {RHYTHM_S:g} s)",
            f"  {probes:5.2f} s  for the pass, its probes and their answers",
            f"Beyond the fixed waits: {beyond:.2f} s, of which the probes took {probes:.2f} s"]


class CableBack(WanLoss):
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
        self.start_connected(stage)
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
