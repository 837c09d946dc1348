# SPDX-License-Identifier: MIT
"""Upstreams that hand addresses out by DHCP."""
from lab.scenarios.base import Scenario
from lab.upstream import DhcpServer, Silent


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
