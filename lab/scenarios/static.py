# SPDX-License-Identifier: MIT
"""Upstreams with a static address, where the gateway is found by ARP, and tunnels over a static or dynamic address."""
import subprocess

from lab.config import Section
from lab.lan import mac_of
from lab.router import WAN_RESULT, content
from lab.scenarios.base import FIRST_CYCLE_S, START_PAUSE_S, Scenario
from lab.scenarios.dns import REMOTE_DNS
from lab.upstream import DhcpServer, Gateway, PppoeServer, Silent

GATEWAY = "203.0.113.1"
NETWORK = {"ipaddr": "203.0.113.2", "netmask": "255.255.255.0", "gateway": GATEWAY, "pri_dns": GATEWAY}
NOBODY_S = 15


def own_addresses():
    """Every address of the router's own."""
    shown = subprocess.run(["ip", "-brief", "-4", "address"], capture_output=True, text=True, check=True).stdout
    return [word.partition("/")[0] for row in shown.splitlines() for word in row.split()[2:]]


class Static(Scenario):
    name = "static"
    rank = 8
    summary = "a static address: the port behind which the gateway answers ARP wins"
    story = """
        The connection has a static address. The gateway is behind eth3; the devices behind eth0 and eth2 do not know
        its address.
    """
    cables = {"eth0": Silent(), "eth2": Silent(), "eth3": Gateway(GATEWAY)}
    winner = "eth3"
    network = NETWORK

    def configure(self, config):
        config.set_wan_type("static")
        config.protocol["static"].update(self.network)


class TwoGateways(Static):
    name = "two-gateways"
    rank = 9
    summary = "the gateway's address answers on two ports: a DNS question through each decides"
    story = """
        The connection has a static address. The gateway's address answers behind eth1 and behind eth3, but names are
        resolved only behind eth3.
    """
    cables = {"eth0": Silent(), "eth1": Gateway(GATEWAY, dns=False), "eth3": Gateway(GATEWAY)}
    winner = "eth3"


class TwoGatewaysWithoutDns(Static):
    name = "static-priority"
    rank = 9
    summary = "the gateway answers on two ports and names nowhere: the port that stands first in the priority order wins"
    story = """
        The gateway's address answers behind eth1 and behind eth3, and nobody resolves names. The configured order of the
        ports puts eth3 before eth1.
    """
    cables = {"eth0": Silent(), "eth1": Gateway(GATEWAY, dns=False), "eth3": Gateway(GATEWAY, dns=False)}
    winner = "eth3"

    def configure(self, config):
        super().configure(config)
        config.network["auto_wan_detect"]["wan_port_priority"] = "5 4 3 2 1"


class StaticWithoutDnsServer(TwoGateways):
    name = "static-no-dns"
    rank = 9
    summary = "a static connection without a DNS server: the gateway is asked for names instead"
    story = """
        The configuration names no DNS server. The gateway's address answers behind eth1 and behind eth3; the gateway behind
        eth3 resolves names.
    """
    network = NETWORK | {"pri_dns": None}


class StaticRemoteDns(Static):
    name = "static-remote-dns"
    rank = 9
    summary = "the DNS server lies outside the static connection's network: the question goes by way of the gateway"
    story = """
        The DNS server has an address of another network. The gateway's address answers behind eth1 and behind eth3, but
        only behind eth3 the way leads on to the server. Nobody answers ARP for the server itself.
    """
    cables = {"eth0": Silent(), "eth1": Gateway(GATEWAY, dns=False), "eth3": Gateway(GATEWAY, remote_dns=REMOTE_DNS)}
    network = NETWORK | {"pri_dns": REMOTE_DNS}

    def judge(self, stage):
        super().judge(stage)
        questions = stage.router.probes(kinds=("dns",))
        for port in ("eth1", "eth3"):
            gateway = mac_of(stage.router.line(port)[1])
            hops = {(probe.target, probe.next_hop) for probe in questions if probe.port == port}
            stage.check(f"through {port} the server is asked by way of the gateway", hops == {(REMOTE_DNS, gateway)}, hops)
        asked = {probe.port for probe in stage.router.probes(kinds=("arp",)) if probe.target == REMOTE_DNS}
        stage.check("both ports were asked for the server itself before", asked == {"eth1", "eth3"}, asked)


class UnplacedStatic(TwoGateways):
    name = "unplaced-static"
    rank = 9
    summary = "the gateway answers on two ports and the static address is on none: the DNS answer comes all the same"
    story = """
        The network manager has taken the static address off the port without a link, so the router does not own it. The
        gateway's address answers behind eth1 and behind eth3; the one behind eth3 resolves names, and asks by ARP where
        its answer has to go.
    """
    places_address = False

    def judge(self, stage):
        super().judge(stage)
        stage.check("the router does not own the static address", NETWORK["ipaddr"] not in own_addresses(), own_addresses())


class UnplacedStaticRemote(UnplacedStatic, StaticRemoteDns):
    name = "unplaced-static-remote"
    summary = "the same with the name server beyond the gateway"
    story = """
        The DNS server is beyond the gateway behind eth3. Its answer comes back to the gateway, which asks by ARP where the
        static address lives; the router does not own it.
    """
    cables = StaticRemoteDns.cables


class StrictGateway(Static):
    name = "strict-gateway"
    rank = 9
    summary = "a gateway that does not answer ARP requests from a foreign network: found in the connection's own name"
    story = """
        The gateway behind eth3 filters by the reverse path: asked with the address of the router's LAN it stays silent, for
        the way there leads elsewhere. Rounds that look again ask with the static address as well.
    """
    cables = {"eth0": Silent(), "eth1": Silent(), "eth3": Gateway(GATEWAY, remote_dns=REMOTE_DNS, strict=True)}
    places_address = False

    def play(self, stage):
        self.start(stage)
        stage.note("not_found", stage.router.daemon.wait_for("uloop_wan_detect_using_arp", "Can't find gateway ip",
                                                             START_PAUSE_S + FIRST_CYCLE_S))
        self.wait_for_swap_and_confirmation(stage)
        stage.router.show_panel()

    def judge(self, stage):
        stage.check("asked in the LAN bridge's name the gateway stays silent", stage.facts["not_found"] is not None)
        super().judge(stage)


class StaticLate(Static):
    name = "static-late"
    rank = 9
    summary = "nobody answers for the gateway: the cycle goes on until a cable brings the answer"
    story = """
        The devices behind eth0 and eth2 do not know the gateway. The cycle stays open and looks again once a second. Then
        the line is plugged into eth4.
    """
    cables = {"eth0": Silent(), "eth2": Silent()}
    winner = "eth4"

    def play(self, stage):
        router = stage.router
        router.attach("eth4", Gateway(GATEWAY), plugged=False)
        self.start(stage)
        stage.note("not_found", router.daemon.wait_for("uloop_wan_detect_using_arp", "Can't find gateway ip",
                                                       START_PAUSE_S + FIRST_CYCLE_S))
        router.clock.sleep(NOBODY_S)
        stage.note("result_before", content(WAN_RESULT))
        stage.note("ended_before", router.cycle_over(0))
        router.plug("eth4")
        self.wait_for_swap_and_confirmation(stage)
        router.show_panel()

    def judge(self, stage):
        facts = stage.facts
        stage.check("at first the gateway answers nowhere", facts["not_found"] is not None)
        stage.check(f"{NOBODY_S} s later the cycle is still open",
                    facts["ended_before"] is None and facts["result_before"] is None)
        super().judge(stage)


class Tunnel(Scenario):
    """Base of those whose connection needs another one first."""
    kind = None
    winner = "eth3"


class TunnelOverDynamic(Tunnel):
    """Gets its first address by DHCP."""
    cables = {"eth0": Silent(), "eth2": PppoeServer(), "eth3": DhcpServer()}

    def configure(self, config):
        config.set_wan_type(self.kind)
        config.protocol[self.kind] = Section("protocol", snd_conn="dynamic")


class TunnelOverStatic(Tunnel):
    """Its server's address is found by ARP, whatever answers DHCP; names are not asked for."""
    cables = {"eth0": Silent(), "eth1": DhcpServer(), "eth3": Gateway(GATEWAY), "eth4": Gateway(GATEWAY)}

    def configure(self, config):
        config.set_wan_type(self.kind)
        config.protocol[self.kind] = Section("protocol", snd_conn="static", static_ip=NETWORK["ipaddr"],
                                             static_gateway=GATEWAY, static_pridns=NETWORK["pri_dns"])


class L2tpOverDynamic(TunnelOverDynamic):
    name = "l2tp"
    rank = 16
    kind = "l2tp"
    summary = "an L2TP connection over a dynamic address: the DHCP line wins, not the PPPoE one"
    story = "The tunnel needs an address first, and gets it by DHCP: the DHCP line in eth3 is the one to find."


class L2tpOverStatic(TunnelOverStatic):
    name = "l2tp-static"
    rank = 16
    kind = "l2tp"
    summary = "an L2TP connection over a static address: the first port behind which the server answers ARP wins"
    story = """
        The tunnel's own address is static, so nothing is offered. Its server answers behind eth3 and eth4; without any
        further question eth3 wins, which stands first in the priority order.
    """


class PptpOverStatic(TunnelOverStatic):
    name = "pptp"
    rank = 17
    kind = "pptp"
    summary = "a PPTP connection over a static address: the port behind which the server answers ARP wins"
    story = "The tunnel's own address is static, so nothing is offered; its server is behind eth2."
    cables = {"eth0": Silent(), "eth1": DhcpServer(), "eth2": Gateway(GATEWAY)}
    winner = "eth2"


class PptpOverDynamic(TunnelOverDynamic):
    name = "pptp-dynamic"
    rank = 17
    kind = "pptp"
    summary = "a PPTP connection over a dynamic address: the DHCP line wins, not the PPPoE one"
    story = "The tunnel needs an address first, and gets it by DHCP: the DHCP line in eth3 is the one to find."
