# SPDX-License-Identifier: MIT
"""Interfaces that vanish in the middle of a probe, and the LAN bridge itself."""
from lab.router import WAN_RESULT, content
from lab.scenarios.static import GATEWAY, NETWORK
from lab.scenarios.trouble import FOUND_S, MOST_CYCLES, Trouble, cycle_open
from lab.upstream import DhcpServer, Gateway, PppoeServer, Silent
from lab.vanishing import WAYS, come_back, delete_bridge, index_of, make_bridge_again

OTHER = "eth3"
MIDDLE_S = 20
# A probe that spins tells of it all the time.
MOST_LINES_PER_S = 1500


class Vanishing(Trouble):
    """Base of those with two lines of the same kind, of which one vanishes while both are asked."""
    story = """
        Two lines of the same kind are asked. In the middle of a probe one of the ports is deleted, renamed, or moved
        to another namespace, and comes back later. The other line has to be found meanwhile, and both afterwards.
    """
    stages = {}    # name of the probe: the line of the log in its middle

    def vanish(self, stage, title, way, port, middle, expected):
        """The port goes in the middle of the stage; one of the expected ports must be found then."""
        router, tries, asked = stage.router, 0, None
        while asked is None and tries < MOST_CYCLES:    # late answers, on a busy machine, make the stage fall out
            tries += 1
            start, asked = self.go_to(router, middle)
        before = index_of(port)
        WAYS[way][0](router, port)
        stage.check(f"{title}: the port is gone in the middle of it", asked is not None and index_of(port) is None)
        ended = router.cycle_over(FOUND_S, start)
        held = content(WAN_RESULT)
        if held not in expected and ended is not None:
            held = self.one_cycle(router)
        stage.check(f"{title}: a line is found", held in expected, held)
        if ended is not None:
            self.not_said_too_often(stage, title, start, ended)
        come_back(way, router, port)
        stage.note(f"{title}: numbers", [before, index_of(port)])

    def go_to(self, router, middle):
        """Opens a cycle with the WAN role elsewhere; its first line in the log, and that of the middle if it came."""
        router.clock.wait_until(lambda: not cycle_open(router), FOUND_S)
        self.misplace(router)
        start = router.daemon.position()
        router.bus.call("wan_detect", "wan_detect")
        return start, router.daemon.wait_for(*middle, MIDDLE_S, start)

    @staticmethod
    def not_said_too_often(stage, title, start, end):
        lines = stage.router.daemon.lines
        seconds = max(1.0, lines[end].at - lines[start].at)
        stage.check(f"{title}: nothing spins", (end - start) / seconds < MOST_LINES_PER_S,
                    f"{end - start} lines in {seconds:.1f} s")

    def trouble_of_the_other_line(self, stage, _title):
        for way in WAYS:
            for probe, middle in self.stages.items():
                self.vanish(stage, f"{OTHER} is {way} during {probe}", way, OTHER, middle, {self.winner})

    def trouble_of_the_line_itself(self, stage, _title):
        self.vanish(stage, f"{self.winner} is deleted", "deleted", self.winner, next(iter(self.stages.values())),
                    {self.winner, OTHER})
        self.finds_again(stage, "all ports are back")


class VanishingDhcp(Vanishing):
    name = "vanishing-dhcp"
    rank = 77
    summary = "ports are deleted, renamed and moved away during DHCP and DNS probes, the bridge is deleted"
    cables = {"eth0": Silent(), "eth2": DhcpServer(dns=False), OTHER: DhcpServer(dns=False)}
    stages = {"DHCP": ("send_dhcp_discovery_all", f"success via dev:{OTHER}"),
              "DNS": ("gethostbyname_own_implement", "Send dns request")}

    def trouble_of_the_bridge(self, stage, title):
        """Without it nobody can be asked. The cycle stays open until it is back."""
        router = stage.router
        router.clock.wait_until(lambda: not cycle_open(router), FOUND_S)
        self.misplace(router)
        start = router.daemon.position()
        router.bus.call("wan_detect", "wan_detect")
        router.daemon.wait_for(*self.stages["DHCP"], FOUND_S, start)
        delete_bridge()
        router.cycle_over(FOUND_S, start)
        self.misplace(router)
        start = router.daemon.position()
        router.bus.call("wan_detect", "wan_detect")
        told = router.daemon.wait_for("send_dhcp_discovery_all", "Couldn't get br-lan ip", FOUND_S, start)
        stage.check(f"{title}: it is missed", told is not None)
        self.loop_turns_during(stage, title, 3)
        make_bridge_again()
        self.finds_again(stage, title)


class VanishingPppoe(Vanishing):
    name = "vanishing-pppoe"
    rank = 77
    summary = "ports are deleted, renamed and moved away during a PPPoE probe"
    cables = {"eth0": Silent(), "eth2": PppoeServer(), OTHER: PppoeServer()}
    stages = {"PPPoE": ("send_pppoe_discovery_all", f"success via dev:{OTHER}")}

    def configure(self, config):
        config.set_wan_type("pppoe")


class VanishingStatic(Vanishing):
    name = "vanishing-static"
    rank = 77
    summary = "ports are deleted, renamed and moved away during ARP and DNS probes"
    cables = {"eth0": Silent(), "eth2": Gateway(GATEWAY, dns=False), OTHER: Gateway(GATEWAY, dns=False)}
    stages = {"ARP": ("uloop_start_wan_detect", "using arp"),
              "DNS": ("gethostbyname_own_implement", "Send dns request")}

    def configure(self, config):
        config.set_wan_type("static")
        config.protocol["static"].update(NETWORK)
