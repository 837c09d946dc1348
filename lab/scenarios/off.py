# SPDX-License-Identifier: MIT
"""Detection is switched off in the middle of a cycle: from the answer on no role is moved."""
import shutil
from pathlib import Path

from lab.router import WAN_RESULT, content
from lab.roles import swaps
from lab.scenarios.base import FIRST_CYCLE_S, START_PAUSE_S, Scenario, late_s
from lab.scenarios.cables import WanLoss
from lab.scenarios.life import SCRIPT, replaced
from lab.scenarios.polling import NOBODY, asks
from lab.scenarios.static import GATEWAY, NETWORK
from lab.upstream import DhcpServer, Gateway, Silent

QUIET_S = 30
MINUTE_S = 60
NEXT_STEP_S = 1    # the longest pause between the steps of a cycle
WAIT_S = 10
HALF_WAY_S = 5
REAL_SCRIPT = Path("/etc/wan_detect/real_port_state.sh")
SLOW_SCRIPT = f"#!/bin/sh\nsleep 2\nexec {REAL_SCRIPT}\n"


class Off(Scenario):
    """Base: behind one port is a line that the cycle would find."""
    cables = {"eth0": Silent(), "eth1": Silent(), "eth2": DhcpServer()}
    moment = None    # function and text of the line at which detection is switched off
    next_step_s = NEXT_STEP_S

    def play(self, stage):
        self.start(stage)
        stage.router.daemon.wait_for(*self.moment, START_PAUSE_S + FIRST_CYCLE_S)
        self.switch_off(stage)
        self.watch(stage)

    @staticmethod
    def switch_off(stage):
        router = stage.router
        position = router.daemon.position()
        stage.note("reply", router.bus.call("wan_detect", "set", enable=False))
        stage.note("off_at", router.clock.now())
        router.say("detection is switched off")
        stage.note("off", router.daemon.wait_for("wan_detect_settings", "success turn off", FIRST_CYCLE_S, position))

    def watch(self, stage):
        router, off = stage.router, stage.facts["off"] or 0
        ended = stage.note("ended", router.cycle_over(self.next_step_s + 2 * late_s(stage), off))
        stage.note("ended_after_s", None if ended is None else router.daemon.lines[ended].at - router.daemon.lines[off].at)
        router.clock.sleep(QUIET_S)
        stage.note("probes_after", [probe.at for probe in router.probes() if probe.at > stage.facts["off_at"] + late_s(stage)])
        router.show_panel()

    def judge(self, stage):
        facts, lines = stage.facts, stage.router.daemon.lines
        stage.check("switching off is answered", facts["reply"] == {"err_code": 0}, facts["reply"])
        latest = self.next_step_s + late_s(stage)
        after = facts["ended_after_s"]
        if stage.check("it comes before the end of the cycle, which comes", facts["off"] and after is not None):
            stage.check(f"the cycle ends within {latest:g} s", after <= latest, f"{after:.1f} s")
            without = any(line.matches("uloop_wan_detect_end", "Detect wan result is null")
                          for line in lines[facts["off"]:facts["ended"]])
            stage.check("it ends without a result", without and content(WAN_RESULT) is None, content(WAN_RESULT))
        commands = stage.note("swaps", swaps(stage.router))
        stage.check("no role is moved", not commands, commands)
        stage.check("the WAN role stays with eth0", stage.note("wan_port", stage.router.wan_port()) == "eth0")
        stage.check("nobody is asked any more", not facts["probes_after"], facts["probes_after"])
        super().judge(stage)

    def verdict(self, stage):
        return "off means off" if stage.passed() else "something went on"


class OffWhileWaiting(Off, WanLoss):
    name = "off-waiting"
    rank = 24
    summary = "switched off while the 10 s after a WAN loss run: the cycle ends where it begins"
    story = """
        The cable of the WAN port eth0 is moved to eth3. Five seconds after the loss detection is switched off: when the wait
        is over the cycle ends without having looked at anything.
    """
    cables = {"eth0": DhcpServer()}
    next_step_s = WAIT_S

    def play(self, stage):
        router = stage.router
        router.attach("eth3", DhcpServer(), plugged=False)
        self.start_connected(stage)
        self.pull(stage)
        router.plug("eth3")
        router.clock.sleep(HALF_WAY_S)
        self.switch_off(stage)
        self.watch(stage)

    def judge(self, stage):
        Off.judge(self, stage)


class OffDuringPass(Off):
    name = "off-pass"
    rank = 24
    summary = "switched off while a pass looks at the ports, which takes 2 s: the role is not moved"
    story = """
        The script that tells the links takes 2 s. While a pass waits for it somebody switches detection off; he gets his
        answer when the loop is free again.
    """
    moment = ("uloop_start_wan_detect", "Start to detect in")

    def play(self, stage):
        shutil.copy(SCRIPT, REAL_SCRIPT)
        with replaced(SCRIPT, SLOW_SCRIPT):
            super().play(stage)


class OffDuringProbes(Off):
    name = "off-probes"
    rank = 24
    summary = "switched off while the answers of a probe stage come in: the role is not moved"
    story = "The line is in eth2. Just after it was asked, and before the stage is over, detection is switched off."
    moment = ("dhcp_detect_for_all_link_device", "Send dhcp discovery success")


class OffDuringArp(Off):
    name = "off-arp"
    rank = 24
    summary = "switched off while the gateway is looked for by ARP: the role is not moved"
    story = """
        The connection has a static address, and the gateway is behind eth3. The search takes its time, for three other ports
        are silent. Whoever switches detection off meanwhile is answered when the verdict is there already.
    """
    cables = {"eth0": Silent(), "eth1": Silent(), "eth2": Silent(), "eth3": Gateway(GATEWAY), "eth4": Silent()}
    moment = ("uloop_start_wan_detect", "using arp")

    def configure(self, config):
        config.set_wan_type("static")
        config.protocol["static"].update(NETWORK)


class OffDuringDns(Off):
    name = "off-dns"
    rank = 24
    summary = "switched off while a DNS question decides between two ports: the role is not moved"
    story = """
        Behind eth1 and eth2 addresses are offered, and nobody resolves names, so the question takes its full 3 s. Whoever
        switches detection off meanwhile is answered when the verdict is there already.
    """
    cables = {"eth0": Silent(), "eth1": DhcpServer(dns=False), "eth2": DhcpServer(dns=False)}
    moment = ("uloop_wan_detect_using_dns", "Entering function")


class OffWhileOpen(Off):
    name = "off-open"
    rank = 24
    summary = "switched off while a cycle waits for something new: it ends, and nobody is asked again"
    story = """
        Nobody is left to ask, and the cycle is open. It ends when detection is switched off. For a minute nothing is asked,
        and a line that is plugged into eth3 does not change that.
    """
    cables = {"eth0": Silent(), "eth2": Silent()}
    moment = NOBODY

    def play(self, stage):
        router = stage.router
        router.attach("eth3", DhcpServer(), plugged=False)
        self.start(stage)
        router.daemon.wait_for(*self.moment, START_PAUSE_S + FIRST_CYCLE_S)
        self.switch_off(stage)
        asked = len(asks(router))
        router.plug("eth3")
        self.watch(stage)
        router.clock.sleep(MINUTE_S)
        stage.note("asked_later", len(asks(router)) - asked + len(router.probes("eth3")))

    def judge(self, stage):
        super().judge(stage)
        stage.check("not later either", stage.facts["asked_later"] == 0, stage.facts["asked_later"])
