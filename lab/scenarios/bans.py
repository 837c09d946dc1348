# SPDX-License-Identifier: MIT
"""Ports banned over the bus: for a time, until their link returns, and at the last moment."""
from lab.scenarios.base import FIRST_CYCLE_S, SECOND_CYCLE_S, START_PAUSE_S, Scenario
from lab.scenarios.cables import LINK_SEEN_S
from lab.upstream import DhcpServer, Silent

OBJECT_REAL_S = 5
FOREVER = -1
BAN_S = 45
REQUEST_S = 30


class Ban(Scenario):
    """Base of those with a port banned as soon as the daemon listens."""
    banned = "eth2"
    seconds = BAN_S

    def start(self, stage):
        super().start(stage)
        stage.router.bus.wait_for_object("wan_detect", OBJECT_REAL_S)
        self.ban(stage, self.banned, self.seconds)

    @staticmethod
    def ban(stage, port, seconds):
        """Bans a port and waits until the daemon knows."""
        router = stage.router
        router.bus.send("wan_detect_add_banned_dev", name=port, time=seconds)
        router.say(f"the bus bans {port} " + ("until its link returns" if seconds == FOREVER else f"for {seconds} s"))
        stage.note("banned", router.daemon.wait_for("add_unique_banned_device_to_list", f"dev:{port} is banned", REQUEST_S))

    @staticmethod
    def ask_for_full_cycle(stage):
        """Opens a cycle over all linked ports; returns where in the log its listing stands, None when it did not come."""
        router, position = stage.router, stage.router.daemon.position()
        router.bus.call("wan_detect", "wan_detect")
        router.say("a full cycle is asked for")
        opened = router.daemon.wait_for("generate_possible_wan_dev_list", "Entering function", REQUEST_S, position)
        return None if opened is None else router.daemon.wait_for("uloop_start_wan_detect", "Start to detect in", REQUEST_S,
                                                                  opened)


class BanForATime(Ban):
    name = "ban"
    rank = 32
    summary = "a port is banned for 45 s: until then it is no candidate, afterwards it wins"
    story = """
        The line is in eth2, but eth2 is banned for 45 s. The first cycle has no candidate, and neither has one that is asked
        for meanwhile. When the ban has run out, a full cycle finds eth2.
    """
    cables = {"eth0": Silent(), "eth2": DhcpServer()}
    winner = "eth2"

    def play(self, stage):
        router = stage.router
        self.start(stage)
        router.daemon.wait_for("uloop_start_wan_detect", "Zero device need to detect", START_PAUSE_S + FIRST_CYCLE_S)
        stage.note("listed_while_banned", self.listed(stage))
        banned_at = router.daemon.lines[stage.facts["banned"]].at
        router.clock.sleep(max(0, banned_at + BAN_S - router.clock.now()))
        stage.note("ban_over_at", router.clock.now())
        stage.note("listed_after", self.listed(stage))
        self.wait_for_ends(stage)
        router.show_panel()

    def listed(self, stage):
        opened = self.ask_for_full_cycle(stage)
        return None if opened is None else stage.router.daemon.lines[opened].body

    def wait_for_ends(self, stage):
        """Waits for the cycle that finds the port, and for the confirming one."""
        router = stage.router
        found = stage.note("found", router.daemon.wait_for("uloop_wan_detect_using_proto_detect", "treat it as wan",
                                                           FIRST_CYCLE_S))
        first = None if found is None else router.cycle_over(FIRST_CYCLE_S, found)
        stage.note("second_end", None if first is None else router.cycle_over(SECOND_CYCLE_S, first + 1))

    def judge(self, stage):
        facts = stage.facts
        stage.check("while it was banned the port was not listed",
                    facts["listed_while_banned"] == "Start to detect in 1 device(s):eth0、", facts["listed_while_banned"])
        stage.check("afterwards it was", facts["listed_after"] == "Start to detect in 2 device(s):eth0、eth2、",
                    facts["listed_after"])
        early = [probe for probe in stage.router.probes("eth2") if probe.at < facts["ban_over_at"]]
        stage.check("and it was not asked before", not early, early)
        super().judge(stage)


class BanForEver(BanForATime):
    name = "ban-forever"
    rank = 33
    summary = "a port is banned without an end: only the return of its link lifts the ban"
    story = """
        The WAN port eth0 works; eth2, with another line, is banned without an end. A minute later a full cycle does not list
        it. Then its cable is pulled and put back while no cycle is open: the ban is lifted. When eth0 loses its line and a
        full cycle is asked for, eth2 wins.
    """
    cables = {"eth0": DhcpServer(), "eth2": DhcpServer()}
    seconds = FOREVER

    def play(self, stage):
        router = stage.router
        self.start_connected(stage)
        router.clock.sleep(max(0, 60 - router.clock.now()))
        stage.note("listed_while_banned", self.listed(stage))
        router.cycle_over(FIRST_CYCLE_S)
        for change, word in ((router.unplug, "down"), (router.plug, "up")):
            position = router.daemon.position()
            change("eth2")
            router.daemon.wait_for("wan_detect_process_link_change", f"Device eth2 link status change to {word}!",
                                   LINK_SEEN_S, position)
        stage.note("lifted", router.daemon.wait_for("remove_banned_device_from_list", "Success remove dev:eth2",
                                                    LINK_SEEN_S))
        stage.note("ban_over_at", router.clock.now())
        router.unplug("eth0")
        router.daemon.wait_for("wan_detect_process_link_change", "Wan down", LINK_SEEN_S)
        stage.note("listed_after", self.listed(stage))
        self.wait_for_ends(stage)
        router.show_panel()

    def judge(self, stage):
        stage.check("the return of the link lifts the ban", stage.facts["lifted"] is not None)
        super().judge(stage)


class BanAtTheLastMoment(Ban):
    name = "ban-late"
    rank = 34
    summary = "the winner is banned between its detection and the swap: the cycle goes on and finds another port"
    story = """
        DHCP servers answer behind eth2 and eth3. When the offer from eth2 is in, but before the cycle closes, eth2 is
        banned. It is found, and must not be swapped to: a second later the cycle looks again, and eth3 wins.
    """
    cables = {"eth0": Silent(), "eth2": DhcpServer(), "eth3": DhcpServer(dns=False)}
    winner = "eth3"

    def start(self, stage):
        Scenario.start(self, stage)
        stage.router.daemon.wait_for("recv_dhcp_discovery_packet", "Success parse dhcp discovery packet in dev=eth2",
                                     START_PAUSE_S + FIRST_CYCLE_S)
        self.ban(stage, "eth2", 600)

    def judge(self, stage):
        lines, banned = stage.router.daemon.lines, stage.facts["banned"]
        refused = stage.router.daemon.wait_for("uloop_wan_detect_end", "About to change eth2 as wan", 0)
        stage.check("the ban came before the verdict, and the verdict was refused", refused is not None and refused > banned)
        stage.check("the role was never given to eth2", not any(line.matches("switch_wan_to_dev", "wan dev to eth2")
                                                                 for line in lines))
        super().judge(stage)
