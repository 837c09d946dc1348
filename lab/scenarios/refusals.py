# SPDX-License-Identifier: MIT
"""Situations in which the daemon must not look for a port, or must not swap."""
from lab.network import bridge_members
from lab.router import WAN_RESULT, content
from lab.scenarios.base import FIRST_CYCLE_S, SECOND_CYCLE_S, START_PAUSE_S, Scenario
from lab.upstream import DhcpServer, Silent

# Long enough for the start-up pause and a whole cycle.
QUIET_S = 40
# In access point mode no link is ever seen, and the daemon waits for one as long as it ever does.
LONGEST_START_S = 120
SHORT_S = 3
IGNORED = "wan_detect in ap/repeater mode, ignore the deivce status change!"


class NoCycle(Scenario):
    """Base of those where nothing may happen."""
    cables = {"eth0": Silent(), "eth2": DhcpServer()}

    def play(self, stage):
        self.start(stage)
        router = stage.router
        stage.note("loop_line", router.daemon.wait_for("main", "Wan detect start uloop", LONGEST_START_S))
        self.disturb(stage)
        router.clock.sleep(QUIET_S)
        router.say(f"{QUIET_S} s later")

    def disturb(self, stage):
        """Tries to make something happen."""

    def judge(self, stage):
        super().judge(stage)
        router = stage.router
        stage.check("the daemon reached its loop", stage.facts["loop_line"] is not None)
        stage.check("no cycle was opened",
                    not any(line.function == "uloop_start_wan_detect" for line in router.daemon.lines))
        stage.check("no probe left any port", not router.probes(), router.probes())
        stage.check("there is no result file", stage.note("result", content(WAN_RESULT)) is None)
        stage.check("the WAN role stays with eth0", stage.note("wan_port", router.wan_port()) == "eth0")

    def verdict(self, stage):
        return "nothing was touched" if stage.passed() else "something happened that should not have"


class Disabled(NoCycle):
    name = "disabled"
    rank = 20
    summary = "detection is switched off: no cycle"
    story = "The configuration switches detection off. The DHCP line in eth2 must stay unused."

    def configure(self, config):
        config.network["auto_wan_detect"]["enable"] = "off"


class ApMode(NoCycle):
    name = "ap-mode"
    rank = 21
    summary = "the device is an access point, not a router: no cycle, and link changes do not count"
    story = """
        As an access point the device has no WAN port to find. The DHCP line in eth2 must stay unused. Its link is reported
        over the bus and the cable of eth0 is pulled: neither is even noted.
    """

    def configure(self, config):
        config.sysmode["sysmode"]["mode"] = "ap"

    def disturb(self, stage):
        router = stage.router
        position = router.daemon.position()
        stage.note("replies", [router.bus.call("wan_detect", "hotplug", name="eth2", status=True) for _ in range(2)])
        router.unplug("eth0")
        router.clock.sleep(SHORT_S)
        stage.note("changes", [line.body for line in router.daemon.lines[position:] if "link status change" in line.body])
        stage.note("ignored", sum(line.matches("wan_detect_process_link_change", IGNORED)
                                  for line in router.daemon.lines[position:]))

    def judge(self, stage):
        super().judge(stage)
        facts = stage.facts
        stage.check("the reports are accepted", facts["replies"] == [{"err_code": 0}] * 2, facts["replies"])
        # The second report is news again: the first one was not stored.
        stage.check("each is seen as a change and ignored", facts["ignored"] == 2 and
                    facts["changes"] == ["Device eth2 link status change to up by ubus!"] * 2, facts["changes"])


class GoodWan(NoCycle):
    name = "good-wan"
    rank = 22
    summary = "the WAN port works at the start: nothing is probed"
    story = """
        The DHCP line is where the WAN role is, and the network manager has an address from it. A second DHCP server in
        eth2 must not even be asked.
    """
    cables = {"eth0": DhcpServer(), "eth2": DhcpServer()}

    def start(self, stage):
        router = stage.router
        stage.note("connected", bool(router.clock.wait_until(lambda: router.health.state == "connected", 60)))
        super().start(stage)

    def judge(self, stage):
        stage.check("the network manager had a connection", stage.facts["connected"])
        super().judge(stage)


class SwapFails(Scenario):
    name = "swap-fails"
    rank = 23
    summary = "the swap command fails: the cycle 21 s later finds the port again and swaps"
    story = """
        The router's swap command fails at its first call. The daemon does not look at its exit status; the cycle that
        follows 21 s after every swap sees that nothing changed, finds eth2 once more and swaps.
    """
    cables = {"eth0": Silent(), "eth2": DhcpServer()}
    winner = "eth2"

    def play(self, stage):
        router = stage.router
        fail_once("/usr/sbin/network_lanwan_swap")
        self.start(stage)
        first = stage.note("first_end", router.cycle_over(START_PAUSE_S + FIRST_CYCLE_S))
        stage.note("result_after_first", content(WAN_RESULT))
        stage.note("bridge_after_first", bridge_members())
        second = None if first is None else router.cycle_over(SECOND_CYCLE_S, first + 1)
        stage.note("second_end", second)
        stage.note("third_end", None if second is None else router.cycle_over(SECOND_CYCLE_S, second + 1))
        router.show_panel()

    def judge(self, stage):
        stage.check("after the failed swap the result file names the old port",
                    stage.facts["result_after_first"] == "eth0", stage.facts["result_after_first"])
        stage.check("and the old port is the one outside the bridge", "eth0" not in stage.facts["bridge_after_first"])
        super().judge(stage)


def fail_once(command):
    """Puts a script in the command's place that fails, and puts the command back for the next call."""
    with open(command, encoding="ascii") as stream:
        real = stream.read()
    with open(f"{command}.real", "w", encoding="ascii") as stream:
        stream.write(real)
    with open(command, "w", encoding="ascii") as stream:
        stream.write(f"#!/bin/sh\nmv {command}.real {command}\nchmod 755 {command}\nexit 1\n")
