# SPDX-License-Identifier: MIT
"""The virtual router alone, to see that the lab itself tells the truth."""
import json
import subprocess
import time

from lab.health import dhcp_answers, pppoe_answers
from lab.network import carrier
from lab.scenarios.base import Scenario
from lab.upstream import DhcpServer, PppoeServer, Silent

SLEEP_S = 3


def output_of(*command, **options):
    return subprocess.run(command, capture_output=True, text=True, check=False, **options).stdout


class Empty(Scenario):
    name = "empty"
    rank = 90
    summary = "the virtual router without the daemon: ports, servers, swap command, time"
    story = "No daemon runs here. The lab looks at itself: cables, servers, the router's commands and the fast time."
    combo = {"eth4": "phy"}
    cables = {"eth0": DhcpServer(), "eth1": Silent(), "eth2": DhcpServer(), "eth3": PppoeServer(),
              "eth4/sfp": DhcpServer()}
    winner = "eth4"

    def play(self, stage):
        stage.router.show_panel()

    def judge(self, stage):
        self.judge_cables(stage)
        self.judge_time(stage)
        self.judge_dhcp(stage)
        self.judge_swap(stage)
        self.judge_combo(stage)

    def judge_cables(self, stage):
        router = stage.router
        stage.check("a plugged port has a link", carrier("eth2"))
        stage.check("an unplugged port has none", not carrier("eth4"))
        router.unplug("eth2")
        stage.check("a pulled cable takes the link", not carrier("eth2"))
        router.plug("eth2")
        stage.check("a plugged cable gives it back", carrier("eth2"))
        told = output_of("/etc/wan_detect/get_all_port_state.sh")
        stage.check("the port state command tells the same", json.loads(told) == {
            port.name: port.name != "eth4" for port in router.ports}, told)

    def judge_time(self, stage):
        clock = stage.router.clock
        start = time.monotonic()
        subprocess.run(["sh", "-c", f"sleep {SLEEP_S}"], env=clock.environment(), check=True)
        factor = SLEEP_S / (time.monotonic() - start)
        stage.check("a shell's sleep runs at the lab's speed", 0.5 * clock.speed < factor < 1.1 * clock.speed, factor)

    def judge_dhcp(self, stage):
        stage.check("a DHCP client on the WAN port gets an answer", dhcp_answers("eth0", stage.router.clock))
        stage.check("a DHCP client on a silent port gets none", not dhcp_answers("eth1", stage.router.clock))
        stage.check("the network manager sees the WAN port connected", self.state_becomes(stage, "connected"))
        stage.check("the bus tells it", stage.router.bus.call("network.interface", "status", interface="internet") ==
                    {"up": True, "state": "connected"})
        stage.check("the lab's own clients are not taken for the daemon", not stage.router.probes())

    def judge_swap(self, stage):
        status = subprocess.run(["network_lanwan_swap", "set", "port4"], check=False).returncode
        stage.check("the swap command succeeds", status == 0, f"exit status {status}")
        self.judge_bridge(stage, outside=["eth3"])
        stage.check("nobody offers DHCP at the new WAN port", self.state_becomes(stage, "connecting"))
        stage.check("a PPPoE client there gets an answer", pppoe_answers("eth3", stage.router.clock))
        missing = subprocess.run(["network_lanwan_swap", "set", "port9"], stderr=subprocess.DEVNULL, check=False)
        stage.check("the swap command refuses an unknown port", missing.returncode != 0)

    def judge_combo(self, stage):
        told = json.loads(output_of("/etc/wan_detect/get_combo_state.sh", "port5"))
        stage.check("the combo state command tells the media",
                    told == {"phy": False, "sfp": True, "serdes": "phy"}, told)
        subprocess.run(["network_lanwan_swap", "set", "port5", "sfp"], check=True)
        stage.check("the combo port changes its medium", stage.router.clock.wait_until(lambda: carrier("eth4"), 20))
        told = json.loads(output_of("/etc/wan_detect/get_combo_state.sh", "port5"))
        stage.check("and tells so", told == {"phy": False, "sfp": True, "serdes": "sfp"}, told)
        stage.check("a DHCP client gets an answer through the cage", dhcp_answers("eth4", stage.router.clock))
        self.judge_bridge(stage, outside=["eth4"])
        stage.note("wan_port", stage.router.wan_port())

    def state_becomes(self, stage, state):
        return stage.router.clock.wait_until(lambda: stage.router.health.state == state, 60)

    def verdict(self, stage):
        return "cables, servers, commands and time behave" if stage.passed() else "the lab itself is not to be trusted"
