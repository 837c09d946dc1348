# SPDX-License-Identifier: MIT
"""Upstreams with a static address, where the gateway is found by ARP, and tunnels over a static or dynamic address."""
from lab.config import Section
from lab.scenarios.base import Scenario
from lab.upstream import DhcpServer, Gateway, PppoeServer, Silent

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


class TunnelOverDynamic(Scenario):
    name = "l2tp"
    rank = 16
    summary = "an L2TP connection over a dynamic address: the DHCP line wins, not the PPPoE one"
    story = "The tunnel needs an address first, and gets it by DHCP: the DHCP line in eth3 is the one to find."
    cables = {"eth0": Silent(), "eth2": PppoeServer(), "eth3": DhcpServer()}
    winner = "eth3"

    def configure(self, config):
        config.set_wan_type("l2tp")
        config.protocol["l2tp"] = Section("protocol", snd_conn="dynamic")


class TunnelOverStatic(Scenario):
    name = "pptp"
    rank = 17
    summary = "a PPTP connection over a static address: the port behind which the server answers ARP wins"
    story = "The tunnel's own address is static, so nothing is offered; its server is behind eth2."
    cables = {"eth0": Silent(), "eth1": DhcpServer(), "eth2": Gateway(NETWORK["gateway"])}
    winner = "eth2"

    def configure(self, config):
        config.set_wan_type("pptp")
        config.protocol["pptp"] = Section("protocol", snd_conn="static", static_ip=NETWORK["ipaddr"],
                                          static_gateway=NETWORK["gateway"], static_pridns=NETWORK["pri_dns"])
