# SPDX-License-Identifier: MIT
"""What only some kernels can do: frames with a VLAN tag, and lines that lose and delay them."""
from lab.network import FAR_END, run
from lab.router import WAN_RESULT, content
from lab.scenarios.base import Scenario
from lab.upstream import DhcpServer, Silent

FOUND_S = 300    # a cycle that lost every answer looks again after 30 s, then after 60 and 120 s


class TaggedDhcpServer(DhcpServer):
    """Serves VLAN 7 only."""
    title = "DHCP server, tagged"
    interface = f"{FAR_END}.7"

    def attach(self, line, port_number, clock):
        line.ip("link", "add", "link", FAR_END, "name", self.interface, "type", "vlan", "id", "7")
        for interface in (FAR_END, self.interface):
            line.ip("link", "set", interface, "up")
        super().attach(line, port_number, clock)


class LossyDhcpServer(DhcpServer):
    title = "DHCP server, far away"

    def attach(self, line, port_number, clock):
        super().attach(line, port_number, clock)
        run("tc", "-n", line.namespace, "qdisc", "add", "dev", FAR_END, "root", "netem", "delay", "300ms", "loss", "20%")


class LossyLine(Scenario):
    name = "lossy-line"
    rank = 95
    summary = "a line that loses and delays, beside one of a VLAN: wants a kernel with 8021q and netem, and --speed 1"
    story = """
        Behind eth1 a DHCP server serves VLAN 7, which nobody on this router is in. The line of eth2 loses every fifth frame and
        delays the others by 300 ms. The daemon must find eth2 all the same.
    """
    cables = {"eth0": Silent(), "eth1": TaggedDhcpServer(), "eth2": LossyDhcpServer()}
    winner = "eth2"

    def play(self, stage):
        self.start(stage)
        stage.router.clock.wait_until(lambda: content(WAN_RESULT) == self.winner, FOUND_S, poll_real_s=1)
        stage.router.show_panel()

    def judge(self, stage):
        super().judge(stage)
        asked = {probe.port for probe in stage.router.probes(kinds=("discover",))}
        stage.check("both lines were asked", {"eth1", "eth2"} <= asked, f"asked were {sorted(asked)}")
