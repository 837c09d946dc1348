# SPDX-License-Identifier: MIT
"""The line comes back, but serves only long after its link came up: nobody may have to touch a cable for that."""
from lab.late import Booting, Switch
from lab.roles import swapped_to
from lab.scenarios.base import SECOND_CYCLE_S, late_s
from lab.scenarios.cables import WanLoss
from lab.scenarios.static import GATEWAY, NETWORK
from lab.upstream import DhcpServer, Gateway, PppoeServer

BOOT_S = 60
FORWARD_DELAY_S = 30
FOUND_S = 200
# From the end of a pause to the swap: the next poll, a look at the LAN hosts, the answer, the command.
LISTING_S = 6
SILENT_STAGES = 3


class ModemBoots(WanLoss):
    """Base: the WAN port eth0 loses its link, and the line that comes up in eth3 serves later."""
    cables = {"eth0": DhcpServer()}
    winner = "eth3"
    kinds = ("discover",)
    asked = SILENT_STAGES
    longest_pause_s = 60    # in which the modem may begin to serve: a second round is over by then

    def __init__(self):
        self.modem = Booting(DhcpServer(), BOOT_S)

    def served_at(self):
        return self.modem.serves_at

    def play(self, stage):
        router = stage.router
        router.attach("eth3", self.modem, plugged=False)
        self.start_connected(stage)
        self.pull(stage)
        router.plug("eth3")
        swap = swapped_to(router, "eth3", FOUND_S)
        stage.note("found_at", swap and swap.at)
        stage.note("served_at", self.served_at())
        first = router.cycle_over(SECOND_CYCLE_S)
        stage.note("second_end", None if first is None else router.cycle_over(SECOND_CYCLE_S, first + 1))
        router.show_panel()

    def judge(self, stage):
        super().judge(stage)
        served, found = stage.facts["served_at"], stage.facts["found_at"]
        early = [probe for probe in stage.router.probes("eth3", self.kinds) if served and probe.at < served]
        stage.check("it was asked before, in vain, until it was given up", len(early) >= self.asked, len(early))
        latest = self.longest_pause_s + LISTING_S + late_s(stage)
        stage.check(f"it is found within {latest:g} s of its first service", found and served and
                    0 <= found - served <= latest, f"serves at {served}, found at {found}")


class DhcpModem(ModemBoots):
    name = "modem-dhcp"
    rank = 20
    summary = "a modem with DHCP that serves 60 s after its link came up: it is found by itself"
    story = """
        The WAN port eth0 works; then its cable is moved to eth3, to a modem that has to boot. Its link is there at once, a
        DHCP server only a minute later. By then the port was asked three times, twice over. The ports are listed anew
        after growing pauses, and so it is found.
    """


class PppoeModem(ModemBoots):
    name = "modem-pppoe"
    rank = 20
    summary = "a modem with PPPoE that serves 60 s after its link came up: it is found by itself"
    story = "As with DHCP: the link of eth3 is there at once, the PPPoE server behind it a minute later."
    cables = {"eth0": PppoeServer()}
    kinds = ("padi",)

    def __init__(self):
        self.modem = Booting(PppoeServer(), BOOT_S)

    def configure(self, config):
        config.set_wan_type("pppoe")


class StaticModem(ModemBoots):
    name = "modem-static"
    rank = 20
    summary = "a static gateway that answers 60 s after its link came up: it is found by itself"
    story = """
        The connection has a static address. The link of eth3 is there at once, the gateway's address a minute later; one
        search in vain had dropped the port long before.
    """
    cables = {"eth0": Gateway(GATEWAY)}
    kinds = ("arp",)
    asked = 1

    def __init__(self):
        self.modem = Booting(Gateway(GATEWAY), BOOT_S)

    def configure(self, config):
        config.set_wan_type("static")
        config.protocol["static"].update(NETWORK)


class PortBehindSwitch(ModemBoots):
    name = "stp"
    rank = 20
    summary = "the line comes through a switch that forwards 30 s after the link came up: it is found by itself"
    story = """
        The cable of the WAN port eth0 is moved to eth3, where a switch guards against loops: the link is there at once, and
        for 30 s nothing passes. Three stages go by unanswered meanwhile.
    """
    longest_pause_s = 30    # the first one: the stages begin 9 s after the link came up and take 10 s

    def __init__(self):
        self.modem = Switch(DhcpServer(), FORWARD_DELAY_S)

    def served_at(self):
        return self.modem.forwards_at
