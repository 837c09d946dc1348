# SPDX-License-Identifier: MIT
"""Somebody other than the daemon moves the WAN role: what he chose stays, and is looked after."""
from lab.health import STATE_FILE
from lab.roles import move_role, swapped_to, swaps
from lab.scenarios.base import FIRST_CYCLE_S, SECOND_CYCLE_S, START_PAUSE_S, Scenario, late_s
from lab.scenarios.cables import LINK_SEEN_S
from lab.scenarios.links import LINK_CHANGE
from lab.scenarios.modems import LISTING_S
from lab.scenarios.polling import NOBODY, PAUSES_S
from lab.upstream import DhcpServer, Silent

ADOPTED_S = 2
SCAN_S = 1
WAN_LOST = "Wan down!! Begin detecting in 10000ms"
LOSS_WAIT_S = 10
QUIET_S = 30
START_WITHOUT_LINK_S = 75


class ChosenPort(Scenario):
    """Base: somebody gives the role to eth3, which works and may not be asked, while a cycle is open."""
    winner = "eth3"

    def configure(self, config):
        config.network["auto_wan_detect"]["wan_port_pool"] = "1 2 3 5"

    def move_and_watch(self, stage):
        router = stage.router
        move_role(router, "eth3")
        stage.note("ended", router.cycle_over(SECOND_CYCLE_S))
        router.clock.sleep(QUIET_S)
        router.show_panel()

    def judge(self, stage):
        commands = stage.note("swaps", swaps(stage.router))
        stage.check("the daemon itself moves no role", not commands, commands)
        stage.check("the cycle ends", stage.facts["ended"] is not None)
        super().judge(stage)


class MovedWhileOpen(ChosenPort):
    name = "role-moved"
    rank = 23
    summary = "somebody moves the WAN role while a cycle is open: the cycle takes the new port as the current one"
    story = """
        The WAN port eth0 has a link and no service, and nobody else is there to ask: the cycle is open. Then somebody gives
        the role to eth3, a port that the daemon must not choose by itself. The line there works, so the cycle ends with
        eth3, and takes nothing back.
    """
    cables = {"eth0": Silent(), "eth3": DhcpServer()}

    def play(self, stage):
        self.start(stage)
        stage.router.daemon.wait_for(*NOBODY, START_PAUSE_S + FIRST_CYCLE_S)
        self.move_and_watch(stage)


class MovedDuringStage(ChosenPort):
    name = "role-moved-stage"
    rank = 23
    summary = "somebody moves the WAN role while a cycle's stages run: what they find does not undo it"
    story = """
        Behind eth1 and eth2 addresses are offered, but nobody resolves names. While the cycle finds that out somebody gives
        the role to eth3, whose line works: there the role stays.
    """
    cables = {"eth0": Silent(), "eth1": DhcpServer(dns=False), "eth2": DhcpServer(dns=False), "eth3": DhcpServer()}

    def play(self, stage):
        router = stage.router
        self.start(stage)
        stage.note("stage", router.daemon.wait_for("uloop_start_wan_detect", "using protocol detect",
                                                   START_PAUSE_S + FIRST_CYCLE_S))
        self.move_and_watch(stage)


class MovedAtRest(Scenario):
    name = "role-moved-rest"
    rank = 23
    summary = "somebody moves the WAN role while no cycle is open: the daemon watches the new port within 2 s"
    story = """
        Lines work behind eth0 and eth3; the role is moved from eth0 to eth3 by somebody else. From then on the loss of eth0
        is none of the WAN port, and the loss of eth3 is: it opens a cycle, and eth0, whose cable is back by then, gets
        the role.
    """
    cables = {"eth0": DhcpServer(), "eth3": DhcpServer()}
    winner = "eth0"

    def play(self, stage):
        router = stage.router
        self.start_connected(stage)
        router.daemon.wait_for("update_eth_link_status_trigger", "Success Cyclic scanning", LINK_SEEN_S)
        move_role(router, "eth3")
        moved = router.daemon.position()
        router.clock.sleep(ADOPTED_S + late_s(stage) / 2)
        stage.note("old_lost", self.lose(router, "eth0"))
        router.clock.sleep(ADOPTED_S)
        stage.note("opened_by_old", router.daemon.wait_for(LINK_CHANGE, "Begin detecting", 0, moved))
        before = router.daemon.position()
        stage.note("new_lost", self.lose(router, "eth3"))
        stage.note("opened_by_new", router.daemon.wait_for(LINK_CHANGE, WAN_LOST, LINK_SEEN_S, before))
        router.plug("eth0")
        first = router.cycle_over(FIRST_CYCLE_S, before)
        stage.note("second_end", None if first is None else router.cycle_over(SECOND_CYCLE_S, first + 1))
        router.show_panel()

    @staticmethod
    def lose(router, name):
        position = router.daemon.position()
        router.unplug(name)
        return router.daemon.wait_for(LINK_CHANGE, f"Device {name} link status change to down!", LINK_SEEN_S, position)

    def judge(self, stage):
        facts = stage.facts
        stage.check("both losses were seen", None not in (facts["old_lost"], facts["new_lost"]))
        stage.check("that of the former WAN port opens no cycle", facts["opened_by_old"] is None)
        stage.check("that of the new one does", facts["opened_by_new"] is not None)
        super().judge(stage)


class MovedToDeadPort(Scenario):
    name = "role-moved-dead"
    rank = 23
    summary = "somebody moves the WAN role to a port without a link: that counts as a loss of the WAN port, at once"
    story = """
        The line in eth0 works. Somebody gives the role to eth4, where no cable is. Two seconds later the daemon has noticed,
        and 10 s after that a cycle opens. eth0 had its link all the time, so it is asked when the ports are listed anew, and
        gets its role back.
    """
    cables = {"eth0": DhcpServer()}
    winner = "eth0"

    def play(self, stage):
        router = stage.router
        self.start_connected(stage)
        router.daemon.wait_for("update_eth_link_status_trigger", "Success Cyclic scanning", LINK_SEEN_S)
        position, moved_at = router.daemon.position(), stage.note("moved_at", router.clock.now())
        move_role(router, "eth4")
        lost = router.daemon.wait_for(LINK_CHANGE, WAN_LOST, LINK_SEEN_S, position)
        stage.note("lost_after_s", None if lost is None else router.daemon.lines[lost].at - moved_at)
        swap = swapped_to(router, "eth0", FIRST_CYCLE_S + PAUSES_S[0], position)
        stage.note("found_after_s", swap and swap.at - moved_at)
        first = router.cycle_over(SECOND_CYCLE_S, position)
        stage.note("second_end", None if first is None else router.cycle_over(SECOND_CYCLE_S, first + 1))
        router.show_panel()

    def judge(self, stage):
        lost, found = stage.facts["lost_after_s"], stage.facts["found_after_s"]
        latest = ADOPTED_S + SCAN_S + late_s(stage)
        stage.check(f"within {latest:g} s it counts as a loss", lost is not None and lost <= latest, f"{lost} s")
        latest += LOSS_WAIT_S + PAUSES_S[0] + LISTING_S
        stage.check(f"within {latest:g} s the line is found", found is not None and found <= latest, f"{found} s")
        super().judge(stage)


class UnknownAtStart(Scenario):
    name = "wan-unknown"
    rank = 23
    summary = "the WAN role names no port at the start and is put right later: from then on its link is watched"
    story = """
        The configuration names a WAN port that does not exist, while the network is up by other means: the daemon has
        nothing to look after. Then the role is given to eth0, which has a link, and nothing is said to the daemon. When
        eth0 loses its cable, and with it the network, that is noticed, and the line is found in eth3.
    """
    cables = {"eth0": DhcpServer()}
    winner = "eth3"
    managed = False

    def configure(self, config):
        config.switch["wan"]["switch_port"] = "port9"

    def play(self, stage):
        router = stage.router
        router.attach("eth3", DhcpServer(), plugged=False)
        router.health.publish("connected")
        self.start(stage)
        router.daemon.wait_for("main", "Wan detect start uloop", START_WITHOUT_LINK_S + FIRST_CYCLE_S)
        stage.note("state", STATE_FILE.read_text())
        router.daemon.wait_for("update_eth_link_status_trigger", "Success Cyclic scanning", LINK_SEEN_S)
        stage.note("opened", any(line.function == "uloop_start_wan_detect" for line in router.daemon.lines))
        move_role(router, "eth0")
        router.clock.sleep(ADOPTED_S + late_s(stage) / 2)
        position = router.daemon.position()
        router.health.publish("disconnected")
        router.unplug("eth0")
        router.plug("eth3")
        stage.note("loss_seen", router.daemon.wait_for(LINK_CHANGE, WAN_LOST, LINK_SEEN_S, position))
        first = router.cycle_over(FIRST_CYCLE_S + PAUSES_S[0], position)
        router.health.publish("connected")
        stage.note("second_end", None if first is None else router.cycle_over(SECOND_CYCLE_S, first + 1))
        router.show_panel()

    def judge(self, stage):
        stage.check("no cycle was open before", stage.facts["opened"] is False)
        stage.check("the loss of the port named later is seen", stage.facts["loss_seen"] is not None)
        super().judge(stage)
