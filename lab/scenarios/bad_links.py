# SPDX-License-Identifier: MIT
"""Answers that come late, several times, out of order, or not at all."""
from lab.bad_link import BadLink, Quality
from lab.router import WAN_RESULT, content
from lab.scenarios.static import GATEWAY, NETWORK
from lab.scenarios.trouble import FOUND_S, MOST_CYCLES, Trouble, cycle_open
from lab.upstream import DhcpServer, Gateway, PppoeServer, Silent

MOST_CYCLES_OF_POOR_LINE = 10
NOT_FOUND_S = 15


class BadLinks(Trouble):
    """Base of those with one line of poor quality."""
    in_time_ms, too_late_ms, jitter_ms = 1000, 8000, 1000    # answers are collected for 2.5 s
    asks_again = False    # a port without an answer is only asked again by the next cycle
    harm = {}    # of every quality
    answered = ()    # line of the log when an answer was taken
    nothing = ("uloop_wan_detect_using_proto_detect", "No device using protocol")

    @property
    def line(self):
        return self.cables[self.winner]

    def find(self, stage, title, most_cycles=MOST_CYCLES, **quality):
        """With such a line the port has to be found, within so many cycles; returns the lines of the last one."""
        router, needed, held = stage.router, 0, None
        self.line.quality = Quality(**quality, **self.harm)
        while held != self.winner and needed < most_cycles:
            needed += 1
            held, start = self.look(router)
        stage.check(f"{title}: the line is found", held == self.winner, f"not in {needed} cycles")
        stage.facts.setdefault("cycles", {})[title] = needed
        return router.daemon.lines[start:]

    def look(self, router):
        """The result of a cycle that began with the WAN role elsewhere, None when it was ended without, and its first
        line in the log."""
        router.clock.wait_until(lambda: not cycle_open(router), FOUND_S)
        self.misplace(router)
        start = router.daemon.position()
        router.bus.call("wan_detect", "wan_detect")
        ended = router.daemon.wait_for("uloop_wan_detect_end", "Wan Detection over!", NOT_FOUND_S, start)
        if ended is None:    # a cycle without a candidate stays open: the next one takes its place
            router.bus.call("wan_detect", "wan_detect")
            router.cycle_over(FOUND_S, start)
        return content(WAN_RESULT), start

    def count(self, lines):
        return sum(line.matches(*self.answered) for line in lines)

    def trouble_late_answers(self, stage, title):
        lines = self.find(stage, title, delay_ms=self.in_time_ms)
        stage.check(f"{title}: one was taken", self.count(lines) == 1, self.count(lines))

    def trouble_each_answer_three_times(self, stage, title):
        lines = self.find(stage, title, copies=3)
        stage.check(f"{title}: one of them is taken", self.count(lines) == 1, self.count(lines))

    def trouble_half_of_the_answers_lost(self, stage, title):
        self.find(stage, title, MOST_CYCLES_OF_POOR_LINE, lost=0.5)

    def trouble_answers_after_the_end(self, stage, title):
        """Nobody waits for them any more; a later look finds the line when it is as it should be."""
        router = stage.router
        self.line.quality = Quality(delay_ms=self.too_late_ms, **self.harm)
        router.clock.wait_until(lambda: not cycle_open(router), FOUND_S)
        self.misplace(router)
        start = router.daemon.position()
        router.bus.call("wan_detect", "wan_detect")
        told = router.daemon.wait_for(*self.nothing, FOUND_S, start)
        stage.check(f"{title}: the first look finds nothing", told is not None)
        self.line.quality = Quality()
        if self.asks_again:
            router.bus.call("wan_detect", "wan_detect")
        found = router.clock.wait_until(lambda: content(WAN_RESULT) == self.winner, FOUND_S)
        stage.check(f"{title}: a later one does", found)

    def trouble_everything_together(self, stage, title):
        self.find(stage, title, MOST_CYCLES_OF_POOR_LINE, delay_ms=20, jitter_ms=self.jitter_ms, lost=0.2, copies=2,
                  both_ways=True)
        self.line.quality = Quality()
        self.finds_again(stage, f"{title}, and then a good line")

    def figures(self, stage):
        told = ", ".join(f"{title} {cycles}" for title, cycles in stage.facts["cycles"].items())
        return super().figures(stage) + [f"Cycles until the line was found: {told}; "
                                         f"{self.line.lost} frames lost, {self.line.passed} passed"]


class BadDhcpLink(BadLinks):
    name = "bad-link-dhcp"
    rank = 78
    summary = "DHCP answers that are late, lost, doubled, out of order"
    story = "The line to the DHCP server gets worse in every way. What comes in time counts once, anything else never."
    answered = ("recv_dhcp_discovery_packet", "Success parse dhcp discovery packet in dev=eth2")

    def __init__(self):
        self.cables = {"eth0": Silent(), "eth2": BadLink(DhcpServer())}


class BadPppoeLink(BadLinks):
    name = "bad-link-pppoe"
    rank = 78
    summary = "PPPoE answers that are late, lost, doubled, out of order"
    story = "The line to the PPPoE server gets worse in every way. What comes in time counts once, anything else never."
    answered = ("recv_pppoe_discovery_packet", "Success parse pppoe discovery offer(PADO) packet in dev=eth2")

    def __init__(self):
        self.cables = {"eth0": Silent(), "eth2": BadLink(PppoeServer())}

    def configure(self, config):
        config.set_wan_type("pppoe")


class BadStaticLinks(BadLinks):
    """Base of those with a static connection."""
    wan = "eth3"
    winner = "eth3"

    def configure(self, config):
        config.set_wan_type("static")
        config.protocol["static"].update(NETWORK)


class BadArpLink(BadStaticLinks):
    name = "bad-link-arp"
    rank = 78
    summary = "ARP answers of the gateway that are late, lost, doubled, out of order"
    story = """
        The line to the gateway of a static connection gets worse in every way. It is asked three times, a third of a
        second apart. A port that does not answer leaves the cycle; the next cycle asks it again.
    """
    in_time_ms, too_late_ms, jitter_ms = 100, 8000, 150
    asks_again = True
    answered = ("check_ip_using_arp_blocked", "and mac is overwriten")
    nothing = ("uloop_wan_detect_using_arp", "Can't find gateway ip")

    def __init__(self):
        self.cables = {"eth0": Silent(), "eth3": BadLink(Gateway(GATEWAY, dns=False))}


class BadDnsLink(BadStaticLinks):
    name = "bad-link-dns"
    rank = 78
    summary = "DNS answers that are late, lost, doubled, out of order"
    story = """
        The gateway of a static connection answers on two ports; names are resolved behind eth3 only, and its line gets
        worse in every way. Answers are waited for three seconds; without one eth2 wins, which stands first.
    """
    too_late_ms = 10000
    asks_again = True
    harm = {"spare_arp": True}
    answered = ("wait_dns_response", "dnslookup success, eth=eth3, dev_ip")
    nothing = ("uloop_wan_detect_using_dns", "Use first priority device:eth2")

    def __init__(self):
        self.cables = {"eth0": Silent(), "eth2": Gateway(GATEWAY, dns=False), "eth3": BadLink(Gateway(GATEWAY))}
