# SPDX-License-Identifier: MIT
"""Ports with hosts of the LAN behind them, which are never the WAN port."""
from lab.lan import (LanHost, Together, arp_cache, forwarding_records, forwarding_records_by_request,
                     hide_forwarding_file, mac_of, send_from_many)
from lab.scenarios.base import Scenario
from lab.upstream import DhcpServer, Silent

KNOWN_REAL_S = 5
CROWD = 100
CHUNK = 64


class LanHosts(Scenario):
    name = "lan-hosts"
    rank = 18
    summary = "LAN hosts beside DHCP servers: living ones rule their ports out, gone and foreign ones do not"
    story = """
        DHCP servers answer behind eth1 to eth4, and a host is behind each of these ports as well: in eth1 one of the LAN; in
        eth2 one of another network; in eth3 one of the LAN that the bridge learned before a hundred others; in eth4 one of
        the LAN that was switched off, while the ARP cache and the bridge still know it. So eth1 and eth3 are out; of the
        other two eth4 resolves names.
    """
    wan = "eth0"
    winner = "eth4"

    def __init__(self):
        self.hosts = {"eth1": LanHost(), "eth2": LanHost("192.168.7"), "eth3": LanHost(), "eth4": LanHost()}
        self.cables = {"eth0": Silent()} | {
            name: Together(DhcpServer(dns=name != "eth2"), host, title="DHCP + host")
            for name, host in self.hosts.items()}

    def play(self, stage):
        self.prepare(stage)
        super().play(stage)
        stage.note("cache", arp_cache())

    def prepare(self, stage):
        """Lets the kernel learn everybody, the crowd last, for it lists what it learned last first."""
        router = stage.router
        stage.note("known", [name for name, host in self.hosts.items()
                             if router.clock.wait_until(host.known, KNOWN_REAL_S * router.clock.speed)])
        send_from_many(self.hosts["eth3"].line, CROWD)
        stage.note("macs", {name: mac_of(host.line) for name, host in self.hosts.items()})
        order = [record.mac for record in forwarding_records()]
        stage.note("place", order.index(stage.facts["macs"]["eth3"]))
        stage.note("records", len(order))
        self.hosts["eth4"].leave()
        router.say("the LAN host behind eth4 is switched off")

    def judge(self, stage):
        facts, lines = stage.facts, stage.router.daemon.lines
        stage.check("the bridge and the ARP cache knew every host", facts["known"] == list(self.hosts), facts["known"])
        stage.check("the bridge lists the host behind eth3 after the first 64 records", facts["place"] >= CHUNK,
                    f"place {facts['place']} of {facts['records']}")
        stage.check("the ARP cache still holds the host that is gone",
                    facts["cache"].get(self.hosts["eth4"].address) == facts["macs"]["eth4"], facts["cache"])
        flagged = {line.body.rpartition("dev:")[2].rstrip("!") for line in lines
                   if line.matches("update_brlan_dev", "has same subnet as LAN in dev:")}
        stage.check("exactly eth1 and eth3 are found to be LAN ports", flagged == {"eth1", "eth3"}, flagged)
        asked = {probe.port for probe in stage.router.probes()}
        stage.check("and are not asked, while eth2 and eth4 are", asked == {"eth0", "eth2", "eth4"}, asked)
        super().judge(stage)


class LanHostsByRequest(LanHosts):
    name = "lan-ioctl"
    rank = 19
    summary = "the same without the bridge's forwarding file: the kernel's private request tells the same"
    story = """
        As on a kernel without the file: it is hidden from everything in this lab. The daemon falls back to the bridge's
        private request, chunk by chunk.
    """

    def prepare(self, stage):
        super().prepare(stage)
        hide_forwarding_file()
        told = forwarding_records_by_request()
        stage.note("told_by_request", None if told is None else len(told))

    def judge(self, stage):
        told = stage.facts["told_by_request"]
        stage.check("the kernel of this machine offers the private request", told == CHUNK, f"{told} records")
        super().judge(stage)
