# SPDX-License-Identifier: MIT
"""What `wan_detect --status` shows of the main job: the pictures of docs/operating.md come from here."""
import os
import subprocess

from lab.daemon import PROGRAM
from lab.lan import LanHost
from lab.scenarios.base import FIRST_CYCLE_S, START_PAUSE_S, Scenario
from lab.upstream import DhcpServer, Silent

BAN_S = 36000
STATUS_REAL_S = 30
OBJECT_REAL_S = 5.0
WIDTH = 80


def show_status(*options):
    """What the program prints, with its exit status."""
    environment = dict(os.environ, LC_ALL="C.UTF-8", TERM="xterm")
    done = subprocess.run([PROGRAM, "--status", *options], env=environment, capture_output=True, text=True, check=False,
                          timeout=STATUS_REAL_S)
    return {"text": done.stdout, "complaint": done.stderr, "status": done.returncode}


class FrontPanel(Scenario):
    name = "front-panel"
    rank = 3
    summary = "wan_detect --status before, during and after the main job: who answered where, and why the others did not win"
    story = """
        The WAN role is with eth0, whose cable leads to a silent modem. A host of the LAN is behind eth1, the line with
        the DHCP server behind eth2, and eth3 is banned. The program is asked for a picture before the daemon is there,
        after its verdict, and after the cycle that confirms it.
    """
    cables = {"eth0": Silent(), "eth1": LanHost(), "eth2": DhcpServer(), "eth3": Silent()}
    winner = "eth2"

    def start(self, stage):
        shown = stage.note("shown", {"no daemon": show_status()})
        super().start(stage)
        router = stage.router
        router.bus.wait_for_object("wan_detect.state", OBJECT_REAL_S)
        router.bus.send("wan_detect_add_banned_dev", name="eth3", time=BAN_S)
        router.say("the bus bans eth3")
        shown["start-up"] = show_status()

    def wait_for_swap_and_confirmation(self, stage):
        router, shown = stage.router, stage.facts["shown"]
        first = router.cycle_over(START_PAUSE_S + FIRST_CYCLE_S)
        stage.note("first_end", first)
        shown["verdict"] = show_status()
        stage.note("second_end", None if first is None else router.cycle_over(FIRST_CYCLE_S, first + 1))
        shown["rest"] = show_status()
        shown["json"] = show_status("--json")
        for name in ("verdict", "rest"):
            router.screen.write(f"\n  wan_detect --status\n\n{shown[name]['text']}")

    def judge(self, stage):
        super().judge(stage)
        shown = stage.facts["shown"]
        stage.check("without a daemon it says so, and gives status 1",
                    (shown["no daemon"]["status"], shown["no daemon"]["complaint"]) == (
                        1, "wan_detect: the daemon is not on the bus\n"), shown["no daemon"])
        for name in ("start-up", "verdict", "rest", "json"):
            stage.check(f"{name}: it gives status 0 and complains of nothing",
                        (shown[name]["status"], shown[name]["complaint"]) == (0, ""), shown[name])
        for name in ("start-up", "verdict", "rest"):
            wide = [line for line in shown[name]["text"].splitlines() if len(line) > WIDTH]
            stage.check(f"{name}: no line is wider than {WIDTH} columns", not wide, wide)
