# SPDX-License-Identifier: MIT
"""A flash without room for the configuration, under whichever library and command line commit it."""
import subprocess

from lab.config import FOLDER
from lab.disk import FILLER, full
from lab.scenarios.base import FIRST_CYCLE_S, SECOND_CYCLE_S, START_PAUSE_S, Scenario
from lab.upstream import DhcpServer, Silent

SWAP_REAL_S = 30


def packages():
    """What the configuration holds, by the names of its files."""
    return {path.name: path.read_bytes() for path in FOLDER.iterdir() if path.name != FILLER}


class FullFlash(Scenario):
    name = "full-flash"
    rank = 74
    summary = "the flash has no room for another byte: nothing that commits loses a file, and with room all is made up for"
    story = """
        The DHCP line is in eth2, eth0 has the WAN role, and eth3 is the fake WAN. The verdict wants to drop the fake WAN
        and to move the role, and so does a person with the swap command, but no file can be written. Each of them has to
        notice, and every file must stay as it is, byte by byte. With room again the next cycle does both.
    """
    cables = {"eth0": Silent(), "eth2": DhcpServer()}
    winner = "eth2"

    def configure(self, config):
        config.network["auto_wan_detect"]["fake_wan_port"] = "4"

    def play(self, stage):
        router = stage.router
        with full(FOLDER):
            before = packages()
            self.start(stage)
            told = router.daemon.wait_for("_uci_set_value_commit", "fail to commit network",
                                          START_PAUSE_S + FIRST_CYCLE_S)
            stage.note("told", told is not None)
            first = router.cycle_over(FIRST_CYCLE_S)
            stage.note("swap_status", self.swap(router))
            after = packages()
        stage.note("harmed", sorted(name for name, held in before.items() if after.get(name) != held))
        stage.note("strange", sorted(set(after) - set(before)))
        second = None if first is None else router.cycle_over(SECOND_CYCLE_S, first + 1)
        stage.note("third", None if second is None else router.cycle_over(SECOND_CYCLE_S, second + 1))

    @staticmethod
    def swap(router):
        """Exit status of the router's own swap command."""
        command = ["network_lanwan_swap", "set", f"port{router.port('eth2').number}"]
        return subprocess.run(command, timeout=SWAP_REAL_S, stderr=subprocess.DEVNULL, check=False).returncode

    def judge(self, stage):
        facts = stage.facts
        stage.check("the daemon tells that it cannot commit", facts["told"])
        stage.check("the swap command fails", facts["swap_status"] != 0, f"exit status {facts['swap_status']}")
        stage.check("every file is as it was", not facts["harmed"], facts["harmed"])
        stage.check("no draft is left behind", not facts["strange"], facts["strange"])
        super().judge(stage)
        fake = stage.router.fake_wan()
        stage.check("with room again the fake WAN is dropped", fake == "-1", fake)
