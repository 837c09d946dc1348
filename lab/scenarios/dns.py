# SPDX-License-Identifier: MIT
"""Several DHCP lines, and the DNS question that tells them apart."""
from pathlib import Path

from lab.lan import Together, mac_of
from lab.odd_dns import FLAWS, OddDns
from lab.raw_dhcp import RawDhcpServer
from lab.scenarios.base import Scenario
from lab.upstream import DhcpServer, Silent

DNS_LIMIT_S = 3.0
LATE_S = 3.5
HONEST_S = 1.5
REMOTE_DNS = "198.51.100.53"


def port_mac(name):
    return Path(f"/sys/class/net/{name}/address").read_text().strip()


def with_dns(answers):
    """A DHCP server that sends its clients to that name server."""
    return Together(DhcpServer(dns=False), answers, title=DhcpServer.title)


class TwoDhcp(Scenario):
    name = "two-dhcp"
    rank = 4
    summary = "two DHCP servers, one of which leads nowhere: a DNS question through each decides"
    story = """
        DHCP servers answer behind eth1 and behind eth3, but only the one behind eth3 resolves names. It wins although
        eth1 stands before it in the priority order.
    """
    cables = {"eth0": Silent(), "eth1": DhcpServer(dns=False), "eth3": DhcpServer()}
    winner = "eth3"


class TwoDhcpWithoutDns(Scenario):
    name = "dhcp-priority"
    rank = 4
    summary = "two DHCP servers, neither of which resolves names: the port that stands first in the priority order wins"
    story = """
        DHCP servers answer behind eth1 and behind eth3, and no DNS question is answered. The configured order of the ports
        puts eth3 before eth1.
    """
    cables = {"eth0": Silent(), "eth1": DhcpServer(dns=False), "eth3": DhcpServer(dns=False)}
    winner = "eth3"

    def configure(self, config):
        config.network["auto_wan_detect"]["wan_port_priority"] = "5 4 3 2 1"


class UnlearnedDhcp(Scenario):
    name = "unlearned-dhcp"
    rank = 4
    summary = "two DHCP servers that leave no ARP entry behind: the DNS answer comes although nobody owns the offered address"
    story = """
        DHCP servers answer behind eth1 and behind eth3, on raw sockets: the kernels there do not know where the offered
        addresses live, and ask by ARP before they answer a DNS question. Only the one behind eth3 resolves names. It wins
        although eth1 stands before it in the priority order.
    """
    winner = "eth3"
    remote_dns = None

    def __init__(self):
        self.dead_end, self.server = RawDhcpServer(dns=False), RawDhcpServer(remote_dns=self.remote_dns)
        self.cables = {"eth0": Silent(), "eth1": self.dead_end, "eth3": self.server}

    def judge(self, stage):
        super().judge(stage)
        known = stage.note("learned", [server.learned[:1] for server in (self.dead_end, self.server)])
        stage.check("no offer told its kernel where the address lives", known == [[""], [""]], known)
        learned, port = self.server.in_arp_cache(), port_mac("eth3")
        stage.check("the kernel behind eth3 learned it by asking", learned == port, f"it knows {learned!r}, eth3 is {port}")


class UnlearnedDhcpRemote(UnlearnedDhcp):
    name = "unlearned-dhcp-remote"
    summary = "the same with the name server beyond the gateway, which asks for the offered address"
    story = """
        The offer behind eth3 names a name server beyond the gateway. The answer comes back to the gateway, which does not
        know where the offered address lives and asks by ARP. Behind eth1 nobody resolves names.
    """
    remote_dns = REMOTE_DNS

    def judge(self, stage):
        super().judge(stage)
        hops = {(probe.target, probe.next_hop) for probe in stage.router.probes("eth3", kinds=("dns",))}
        gateway = mac_of(stage.router.line("eth3")[1])
        stage.check("the question went by way of the gateway", hops == {(REMOTE_DNS, gateway)}, hops)


class ForgedDns(Scenario):
    name = "forged-dns"
    rank = 4
    summary = "forged and foreign DNS answers do not count: the port with the honest one wins"
    story = """
        DHCP servers answer behind eth1 and behind eth3. Behind eth1 the DNS question is answered at once, six times, and
        every answer has a flaw: its id, its source address, its source port, its protocol, no answer in it, or it is for
        somebody else. The honest answer comes a second and a half later, behind eth3.
    """
    winner = "eth3"

    def __init__(self):
        self.forged, self.honest = OddDns(FLAWS), OddDns(honest_after_s=HONEST_S)
        self.cables = {"eth0": Silent(), "eth1": with_dns(self.forged), "eth3": with_dns(self.honest)}

    def judge(self, stage):
        super().judge(stage)
        sent = stage.note("forged", [flaw for flaw, _ in self.forged.sent])
        stage.check("every forged answer was sent", sent == list(FLAWS), sent)
        times = [after for _, after in self.honest.sent]
        stage.check(f"the honest one came later than all of them, within the {DNS_LIMIT_S:g} s",
                    times and max(after for _, after in self.forged.sent) < times[0] < DNS_LIMIT_S, times)


class LateDns(Scenario):
    name = "late-dns"
    rank = 4
    summary = "a DNS answer after more than 3 s does not count: the port of the higher priority wins"
    story = """
        DHCP servers answer behind eth1 and behind eth3. Behind eth3 names are resolved, but only after three and a half
        seconds; behind eth1 never. The question counts as unanswered, and eth1 wins by its priority.
    """
    winner = "eth1"

    def __init__(self):
        self.late = OddDns(honest_after_s=LATE_S)
        self.cables = {"eth0": Silent(), "eth1": DhcpServer(dns=False), "eth3": with_dns(self.late)}

    def judge(self, stage):
        super().judge(stage)
        times = [after for _, after in self.late.sent]
        stage.note("answered_after_s", times)
        stage.check("the answer was sent, but too late", times and min(times) > DNS_LIMIT_S, times)
