# SPDX-License-Identifier: MIT
"""Upstreams with a static address: nobody offers anything, the gateway is found by ARP."""
from lab.scenarios.base import Scenario
from lab.upstream import Gateway, Silent

NETWORK = {"ipaddr": "203.0.113.2", "netmask": "255.255.255.0", "gateway": "203.0.113.1", "pri_dns": "203.0.113.1"}


class Static(Scenario):
    name = "static"
    rank = 8
    summary = "a static address: the port behind which the gateway answers ARP wins"
    story = """
        The connection has a static address. The gateway is behind eth3; the devices behind eth0 and eth2 do not know
        its address.
    """
    cables = {"eth0": Silent(), "eth2": Silent(), "eth3": Gateway(NETWORK["gateway"])}
    winner = "eth3"

    def configure(self, config):
        config.set_wan_type("static")
        config.protocol["static"].update(NETWORK)


class TwoGateways(Static):
    name = "two-gateways"
    rank = 9
    summary = "the gateway's address answers on two ports: a DNS question through each decides"
    story = """
        The connection has a static address. The gateway's address answers behind eth1 and behind eth3, but names are
        resolved only behind eth3.
    """
    cables = {"eth0": Silent(), "eth1": Gateway(NETWORK["gateway"], dns=False), "eth3": Gateway(NETWORK["gateway"])}
    winner = "eth3"
