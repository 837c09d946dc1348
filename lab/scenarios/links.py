# SPDX-License-Identifier: MIT
"""Links that come and go at bad moments: within a wait, within a cycle, while no cycle is open, and over the bus."""
import json

from lab.router import WAN_RESULT, content
from lab.scenarios.base import FIRST_CYCLE_S, START_PAUSE_S, Scenario
from lab.scenarios.cables import LINK_SEEN_S, WanLoss
from lab.upstream import DhcpServer, Silent

LINK_CHANGE = "wan_detect_process_link_change"
SHORT_S = 3
SETTLE_S = 9
QUIET_S = 15


class PulledTwice(WanLoss):
    name = "cable-twice"
    rank = 50
    summary = "the WAN cable is pulled, put back and pulled again: the 10 s begin anew with each change"
    story = """
        The WAN port eth0 works. Its cable is pulled, put back three seconds later, and pulled for good after three more
        seconds; then it is plugged into eth3. One cycle opens, ten seconds after the last of the three changes.
    """
    cables = {"eth0": DhcpServer()}
    winner = "eth3"

    def play(self, stage):
        router = stage.router
        router.attach("eth3", DhcpServer(), plugged=False)
        self.start_connected(stage)
        self.pull(stage)
        first_loss = router.clock.now()
        for change in (router.plug, router.unplug):
            router.clock.sleep(SHORT_S)
            position = router.daemon.position()
            change("eth0")
            router.daemon.wait_for(LINK_CHANGE, "Reset start detecting time to 10000ms", LINK_SEEN_S, position)
        router.plug("eth3")
        self.wait_for_both_cycles(stage)
        opened = router.daemon.wait_for("uloop_start_wan_detect", "Entering function", 0)
        stage.note("opened_after_s", None if opened is None else router.daemon.lines[opened].at - first_loss)
        router.show_panel()

    def judge(self, stage):
        super().judge(stage)
        after = stage.facts["opened_after_s"]
        stage.check("no cycle opened before", after and after >= 10 + 2 * SHORT_S, f"{after} s after the first loss")


class PulledInCycle(Scenario):
    name = "pull-in-cycle"
    rank = 51
    summary = "the WAN cable is pulled in the middle of a probe stage: the cycle looks again after 1 s"
    story = """
        Nobody answers, so the cycle probes and probes. In the middle of a stage the cable of the WAN port eth0 is pulled:
        the stage is dropped, and a second later the cycle filters its candidates again. It stays open, and finds the
        line when that is plugged into eth3.
    """
    cables = {"eth0": Silent(), "eth2": Silent()}
    winner = "eth3"

    def play(self, stage):
        router = stage.router
        router.attach("eth3", DhcpServer(), plugged=False)
        self.start(stage)
        router.daemon.wait_for("update_eth_link_status_trigger", "Success Cyclic scanning", START_PAUSE_S + LINK_SEEN_S)
        router.daemon.wait_for("dhcp_detect_for_all_link_device", "Send dhcp discovery success", FIRST_CYCLE_S)
        router.unplug("eth0")
        lost = stage.note("loss_seen", router.daemon.wait_for(LINK_CHANGE, "Wan down during detecting!!", LINK_SEEN_S))
        if lost is None:
            return
        router.daemon.wait_for("uloop_start_wan_detect", "using protocol detect", LINK_SEEN_S, lost)
        router.plug("eth3")
        first = stage.note("first_end", router.cycle_over(FIRST_CYCLE_S))
        stage.note("result_after_first", content(WAN_RESULT))
        stage.note("second_end", None if first is None else router.cycle_over(FIRST_CYCLE_S, first + 1))
        router.show_panel()

    def judge(self, stage):
        stage.check("the loss was seen during the cycle", stage.facts["loss_seen"] is not None)
        self.judge_wait(stage, "the cycle looks again after the loss", "cycle")
        self.judge_wait(stage, "the new port joins after its link came up", "settle", self.winner)
        stage.check("the cycle's first end is the one with the verdict", stage.facts.get("result_after_first") == "eth3",
                    stage.facts.get("result_after_first"))
        super().judge(stage)


class ShortLink(Scenario):
    name = "short-link"
    rank = 52
    summary = "a port comes up during a cycle and goes down within its 9 s: it joins only when it stays up"
    story = """
        A cycle is open and has no candidate. The line is plugged into eth2 for three seconds only: the port is not taken.
        The second time the cable stays, and nine seconds later the port joins the cycle.
    """
    cables = {"eth0": Silent()}
    winner = "eth2"

    def play(self, stage):
        router = stage.router
        router.attach("eth2", DhcpServer(), plugged=False)
        self.start(stage)
        self.wait_for_loop(stage)
        router.daemon.wait_for("uloop_start_wan_detect", "Zero device need to detect", FIRST_CYCLE_S)
        router.plug("eth2")
        router.daemon.wait_for(LINK_CHANGE, "Noticed dev:eth2 turned up during detecting!", LINK_SEEN_S)
        router.clock.sleep(SHORT_S)
        router.unplug("eth2")
        stage.note("skipped", router.daemon.wait_for("delay_trigger_thread", "device eth2 turned down during 9000ms delay",
                                                     SETTLE_S + LINK_SEEN_S))
        stage.note("asked_before", len(router.probes("eth2")))
        stage.note("plugged_at", router.clock.now())
        router.plug("eth2")
        self.wait_for_swap_and_confirmation(stage)
        router.show_panel()

    def judge(self, stage):
        stage.check("the port that went down again is left out", stage.facts["skipped"] is not None)
        stage.check("and was not asked", stage.facts["asked_before"] == 0)
        self.judge_wait(stage, "the second time it joins", "settle", "eth2", stage.facts["plugged_at"])
        super().judge(stage)


class PlugAtRest(Scenario):
    name = "plug-at-rest"
    rank = 53
    summary = "a cable is plugged in while no cycle is open: nothing happens"
    story = """
        The WAN port eth0 works and the daemon is at rest. A second DHCP line is plugged into eth2 and pulled again. The
        daemon sees both, and does nothing.
    """
    cables = {"eth0": DhcpServer()}

    def play(self, stage):
        router = stage.router
        router.attach("eth2", DhcpServer(), plugged=False)
        self.start_connected(stage)
        for change, word in ((router.plug, "up"), (router.unplug, "down")):
            change("eth2")
            stage.note(word, router.daemon.wait_for(LINK_CHANGE, f"Ignore: Device eth2 link status change to {word}!",
                                                    LINK_SEEN_S))
            router.clock.sleep(QUIET_S)
        router.say(f"{QUIET_S} s later")

    def judge(self, stage):
        super().judge(stage)
        router = stage.router
        stage.check("both changes were seen and ignored", None not in (stage.facts["up"], stage.facts["down"]))
        stage.check("no cycle was opened",
                    not any(line.function == "uloop_start_wan_detect" for line in router.daemon.lines))
        stage.check("no probe left any port", not router.probes(), router.probes())
        stage.check("the WAN role stays with eth0", stage.note("wan_port", router.wan_port()) == "eth0")

    def verdict(self, stage):
        return "nothing was touched" if stage.passed() else "something happened that should not have"


class Hotplug(WanLoss):
    name = "hotplug"
    rank = 54
    summary = "link changes reported over the bus beside the link scan: each counts once, whoever is first"
    story = """
        The cable of the WAN port is moved from eth0 to eth3, and each change is reported over the bus at the same moment as
        the link scan may see it: one cycle opens, and the port joins once. A port reported up that has no cable is taken
        back by the scan before it can join.
    """
    cables = {"eth0": DhcpServer()}
    winner = "eth3"
    reports = [({"name": "eth4", "status": True}, 0), ({"name": "eth4", "status": True}, 0),
               ({"name": "eth77", "status": True}, -96), ({"status": True}, -99), ({"name": "eth4"}, -99)]

    def play(self, stage):
        router = stage.router
        router.attach("eth3", DhcpServer(), plugged=False)
        self.start_connected(stage)
        router.daemon.wait_for("update_eth_link_status_trigger", "Success Cyclic scanning", LINK_SEEN_S)
        router.unplug("eth0")
        stage.note("down_reply", self.report(router, name="eth0", status=False))
        stage.note("loss_seen", router.daemon.wait_for(LINK_CHANGE, "Wan down!!", LINK_SEEN_S))
        stage.note("replies", [self.report(router, **report) for report, _ in self.reports])
        stage.note("taken_back", router.daemon.wait_for(LINK_CHANGE, "Device eth4 link status change to down!",
                                                        LINK_SEEN_S))
        router.plug("eth3")
        stage.note("up_reply", self.report(router, name="eth3", status=True))
        self.wait_for_both_cycles(stage)
        router.show_panel()

    @staticmethod
    def report(router, **report):
        router.say(f"the bus is told {json.dumps(report)}")
        return router.bus.call("wan_detect", "hotplug", **report)

    def judge(self, stage):
        super().judge(stage)
        facts, lines = stage.facts, stage.router.daemon.lines
        stage.check("the reports are accepted", facts["down_reply"] == facts["up_reply"] == {"err_code": 0})
        wanted = [{"err_code": code} for _, code in self.reports]
        stage.check("odd ones are answered with their codes", facts["replies"] == wanted, facts["replies"])
        stage.check("the scan takes the wrong one back", facts["taken_back"] is not None)
        for what, text in (("the loss of eth0", "Wan down!!"), ("the link of eth3", "Noticed lan dev:eth3 turned up")):
            count = sum(line.matches(LINK_CHANGE, text) for line in lines)
            stage.check(f"{what} counts once", count == 1, f"{count} times")
        stage.check("eth4 does not join", not any(line.matches("delay_trigger_thread", "Add device eth4")
                                                  for line in lines))
