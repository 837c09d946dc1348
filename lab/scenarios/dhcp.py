# SPDX-License-Identifier: MIT
"""Upstreams that hand addresses out by DHCP."""
from lab.config import Section
from lab.lan import LanHost
from lab.scenarios.base import Scenario
from lab.upstream import DhcpServer, Silent

BAN_S = 1800


class Dhcp(Scenario):
    name = "dhcp"
    rank = 1
    summary = "the cable of a DHCP line is in another port than the WAN role"
    story = """
        The WAN role is with eth0, but the cable there leads to a modem that stays silent. The line with the DHCP server
        was plugged into eth2, a quiet device into eth3. The daemon must find eth2, move the WAN role there with the
        router's own swap command, and confirm it with a second cycle.
    """
    cables = {"eth0": Silent(), "eth2": DhcpServer(), "eth3": Silent()}
    winner = "eth2"


class SlowDhcp(Scenario):
    name = "slow-dhcp"
    rank = 10
    summary = "a DHCP server that checks an address before it offers it: found in a later stage"
    story = """
        The server behind eth2 pings an address for three seconds before it offers it. The first stage of 2.5 s ends
        without its answer; the port stays a candidate, and a later stage, which the server answers at once, finds it.
    """
    cables = {"eth0": Silent(), "eth2": DhcpServer(ping_first=True)}
    winner = "eth2"


class Reserved(Scenario):
    name = "reserved"
    rank = 11
    summary = "aggregated, gaming, banned, out-of-pool and LAN ports never win, whatever is behind them"
    story = """
        DHCP servers answer behind five ports that may not be the WAN port: eth1 belongs to a LAN aggregation, eth2 is
        the gaming port, eth3 is banned, eth4 is not in the pool of WAN ports. A host of the LAN is behind eth5.
        The only port left, eth6, has the lowest priority of all and wins.
    """
    port_count = 7
    cables = {"eth0": Silent(), "eth1": DhcpServer(), "eth2": DhcpServer(), "eth3": DhcpServer(), "eth4": DhcpServer(),
              "eth5": LanHost(), "eth6": DhcpServer()}
    winner = "eth6"

    def configure(self, config):
        config.network["auto_wan_detect"].update(wan_port_pool="1 2 3 4 6 7")
        # The second of the labels, which belongs to eth1: the first position is never aggregated.
        config.switch["lan_agg"].update(enable_agg="1", lanport="P1 P2", lacpports="2")
        config.switch["gaming"] = Section("gaming", switch_port="port3")

    def start(self, stage):
        super().start(stage)
        router = stage.router
        stage.note("object_after_s", router.bus.wait_for_object("wan_detect", 5.0))
        router.bus.send("wan_detect_add_banned_dev", name="eth3", time=BAN_S)
        router.say("the bus bans eth3")
