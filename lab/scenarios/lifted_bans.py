# SPDX-License-Identifier: MIT
"""A link that returns lifts the ban of its port, whoever saw it first; a WAN port that is banned is not good."""
from collections import Counter

from lab.roles import swapped_to, swaps
from lab.scenarios.bans import FOREVER, REQUEST_S, Ban
from lab.scenarios.base import FIRST_CYCLE_S, SECOND_CYCLE_S, START_PAUSE_S, Scenario, late_s
from lab.scenarios.cables import LINK_SEEN_S
from lab.scenarios.links import LINK_CHANGE
from lab.scenarios.modems import LISTING_S
from lab.scenarios.polling import NOBODY
from lab.upstream import DhcpServer, Silent

TRIES = 24
SETTLE_S = 9
BAN_S = 40
WATCHED_S = 25
NOTED = ("Critical", "Error", "Warning", "Notice", "Info")
EVERY_PASS = "Start to detect in"    # a pass has always said whom it looks at
SEEN_UP = {
    "hotplug": ("device_hotplug_event", "Device eth2 link status change to up by ubus!"),
    "pass": ("update_eth_link_status_using_script", "Single shot scanning found eth2 link change to up"),
    "scan": ("update_eth_link_status_trigger", "Cyclic scanning found eth2 link change to up"),
}


class LinkReturns(Ban):
    """Base: eth2 is banned for ever; its cable comes back until the wanted observer is the one who sees it first."""
    winner = "eth2"
    seconds = FOREVER
    observer = None

    def link_returns(self, stage):
        """Whether the wanted observer was first; when another was, the port is banned anew and its cable pulled again."""
        router = stage.router
        for number in range(TRIES):
            self.ban(stage, "eth2", FOREVER)
            if number % 2:
                self.await_moment(router)
            position = router.daemon.position()
            router.plug("eth2")
            self.tell(router)
            router.daemon.wait_for(LINK_CHANGE, "Device eth2 link status change to up!", LINK_SEEN_S, position)
            if router.daemon.wait_for(*SEEN_UP[self.observer], 0, position) is not None:
                return True
            position = router.daemon.position()
            router.unplug("eth2")
            router.daemon.wait_for(LINK_CHANGE, "Device eth2 link status change to down!", LINK_SEEN_S, position)
        return False

    def tell(self, router):
        """Of the link, to whoever wants to know."""

    def await_moment(self, router):
        """At which the wanted observer is likely to be first."""

    def judge(self, stage):
        stage.check(f"the first who saw the link was the {self.observer}", stage.facts["first"])
        super().judge(stage)


class BanLiftedByHotplug(LinkReturns):
    name = "ban-hotplug"
    rank = 33
    summary = "a port is banned until its link returns, and that is reported over the bus: the ban is lifted"
    story = """
        The WAN port eth0 works; eth2, with another line, is banned without an end. Its cable is put back, and the platform
        reports that before the link scan sees it. When eth0 loses its line and a full cycle is asked for, eth2 wins.
    """
    cables = {"eth0": DhcpServer()}
    observer = "hotplug"

    def tell(self, router):
        router.bus.call("wan_detect", "hotplug", name="eth2", status=True)

    def play(self, stage):
        router = stage.router
        router.attach("eth2", DhcpServer(), plugged=False)
        self.start_connected(stage)
        stage.note("first", self.link_returns(stage))
        router.unplug("eth0")
        router.daemon.wait_for(LINK_CHANGE, "Wan down", LINK_SEEN_S)
        position = router.daemon.position()
        listed = self.ask_for_full_cycle(stage)
        stage.note("listed", None if listed is None else router.daemon.lines[listed].body)
        first = router.cycle_over(FIRST_CYCLE_S, position)
        stage.note("second_end", None if first is None else router.cycle_over(SECOND_CYCLE_S, first + 1))
        router.show_panel()

    def judge(self, stage):
        stage.check("the next cycle lists it", stage.facts["listed"] == "Start to detect in 2 device(s):eth0、eth2、",
                    stage.facts["listed"])
        super().judge(stage)


class BanLiftedInCycle(LinkReturns):
    name = "ban-cycle"
    rank = 33
    summary = "a port is banned until its link returns, and the pass of an open cycle sees that first: the ban is lifted"
    story = """
        Nobody is left to ask, and the cycle looks at the links once a second, as the link scan does. eth2 is banned without
        an end. Its cable is put back, and the pass is the first to see it: nine seconds later the port joins, and wins.
    """
    cables = {"eth0": Silent()}
    observer = "pass"

    def await_moment(self, router):
        router.daemon.wait_for("update_eth_link_status_trigger", "Success Cyclic scanning", LINK_SEEN_S,
                               router.daemon.position())

    def play(self, stage):
        router = stage.router
        router.attach("eth2", DhcpServer(), plugged=False)
        self.start(stage)
        router.daemon.wait_for(*NOBODY, START_PAUSE_S + FIRST_CYCLE_S)
        router.daemon.wait_for("update_eth_link_status_trigger", "Success Cyclic scanning", LINK_SEEN_S)
        stage.note("first", self.link_returns(stage))
        position, plugged_at = router.daemon.position(), router.clock.now()
        swap = swapped_to(router, "eth2", FIRST_CYCLE_S)
        stage.note("found_after_s", swap and swap.at - plugged_at)
        first = router.cycle_over(SECOND_CYCLE_S, position)
        stage.note("second_end", None if first is None else router.cycle_over(SECOND_CYCLE_S, first + 1))
        router.show_panel()

    def judge(self, stage):
        found, latest = stage.facts["found_after_s"], SETTLE_S + LISTING_S + late_s(stage)
        stage.check(f"it is found within {latest:g} s", found is not None and found <= latest, f"{found} s")
        super().judge(stage)


class BannedWan(Ban):
    name = "banned-wan"
    rank = 34
    summary = "the WAN port works, but is banned: a cycle looks at the others, and another line wins"
    story = """
        Lines work behind the WAN port eth0 and behind eth2. Somebody bans eth0 for ten minutes and asks for a cycle: eth0 is
        not good enough any more, and eth2 gets the role.
    """
    cables = {"eth0": DhcpServer(), "eth2": DhcpServer()}
    winner = "eth2"
    seconds = 600

    def play(self, stage):
        router = stage.router
        self.start_connected(stage)
        self.ban(stage, "eth0", self.seconds)
        position = router.daemon.position()
        router.bus.call("wan_detect", "wan_detect")
        first = router.cycle_over(FIRST_CYCLE_S, position)
        stage.note("second_end", None if first is None else router.cycle_over(SECOND_CYCLE_S, first + 1))
        router.show_panel()

    def start(self, stage):
        Scenario.start(self, stage)

    def judge(self, stage):
        refused = [line.at for line in stage.router.daemon.lines
                   if line.matches("uloop_wan_detect_end", "About to change eth0 as wan")]
        stage.check("the banned port is never a winner that has to be refused", not refused, refused)
        super().judge(stage)


class BannedWanAlone(BannedWan):
    name = "banned-wan-alone"
    rank = 34
    summary = "the WAN port works, is banned, and there is no other: no line repeats every second until the ban is over"
    story = """
        The only line is behind the WAN port eth0, which is banned for 40 s when a cycle is asked for. The cycle stays open and
        keeps quiet. When the ban has run out it ends with eth0.
    """
    cables = {"eth0": DhcpServer()}
    winner = "eth0"
    seconds = BAN_S

    def play(self, stage):
        router = stage.router
        self.start_connected(stage)
        self.ban(stage, "eth0", self.seconds)
        banned_at, position = router.clock.now(), router.daemon.position()
        router.bus.call("wan_detect", "wan_detect")
        router.clock.sleep(WATCHED_S)
        stage.note("open", router.cycle_over(0, position) is None)
        said = Counter(f"{line.function}: {line.body}" for line in router.daemon.lines[position:]
                       if line.level in NOTED and EVERY_PASS not in line.body)
        stage.note("repeated", {text: count for text, count in said.items() if count > 2})
        router.clock.sleep(max(0, banned_at + BAN_S - router.clock.now()))
        over_at = router.clock.now()
        ended = router.cycle_over(REQUEST_S, position)
        stage.note("ended_after_s", None if ended is None else router.daemon.lines[ended].at - over_at)
        stage.note("swaps", swaps(router))

    def judge(self, stage):
        facts, latest = stage.facts, LISTING_S + late_s(stage)
        stage.check("meanwhile the cycle is open", facts["open"])
        stage.check("and says nothing over and over", not facts["repeated"], facts["repeated"])
        stage.check(f"within {latest:g} s after the ban it ends", facts["ended_after_s"] is not None and
                    facts["ended_after_s"] <= latest, f"{facts['ended_after_s']} s")
        stage.check("no role is moved", not facts["swaps"], facts["swaps"])
        super().judge(stage)
