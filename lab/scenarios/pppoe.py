# SPDX-License-Identifier: MIT
"""Upstreams reached by PPPoE."""
from lab.scenarios.base import Scenario
from lab.upstream import DhcpServer, PppoeServer, Silent


class Pppoe(Scenario):
    name = "pppoe"
    rank = 2
    summary = "a PPPoE line among DHCP servers: the configured connection type is what counts"
    story = """
        The connection is configured as PPPoE. Behind eth1 and eth3 DHCP servers answer, as another router in the house
        would; the line itself, with its PPPoE server, is in eth2.
    """
    cables = {"eth0": Silent(), "eth1": DhcpServer(), "eth2": PppoeServer(), "eth3": DhcpServer()}
    winner = "eth2"

    def configure(self, config):
        config.set_wan_type("pppoe")


class TwoPppoe(Scenario):
    name = "two-pppoe"
    rank = 3
    summary = "two PPPoE lines: the port that stands first in the priority order wins"
    story = """
        PPPoE servers answer behind eth2 and behind eth4. The configured order of the ports puts eth4 first, so eth4
        gets the WAN role without any further question.
    """
    cables = {"eth0": Silent(), "eth2": PppoeServer(), "eth4": PppoeServer()}
    winner = "eth4"

    def configure(self, config):
        config.set_wan_type("pppoe")
        config.network["auto_wan_detect"]["wan_port_priority"] = "5 4 3 2 1"
