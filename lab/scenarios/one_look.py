# SPDX-License-Identifier: MIT
"""Links and the moments at which they are seen: two changes in one look, a port that flaps, a swap that takes its time."""
import shutil
from pathlib import Path

from lab.combo import DRIVER
from lab.life import wait_until
from lab.mounts import STATE
from lab.roles import stop_serving, swapped_to
from lab.router import WAN_RESULT, content
from lab.scenarios.bad_scripts import COMBO
from lab.scenarios.base import FIRST_CYCLE_S, SECOND_CYCLE_S, START_PAUSE_S, Scenario, late_s
from lab.scenarios.cables import LINK_SEEN_S, WanLoss
from lab.scenarios.combo import serdes
from lab.scenarios.life import SCRIPT, SWAP, replaced
from lab.scenarios.links import LINK_CHANGE
from lab.scenarios.modems import LISTING_S
from lab.upstream import DhcpServer, Silent

LOOKING = STATE / "looking"
# The reader of a link state that once takes long, and then knows nothing.
SLOW_LOOK = f"#!/bin/sh\n: >{LOOKING}\nsleep 8\n"
LOSS_WAIT_S = 10
POLL_S = 1
LONGEST_PUT_OFF_S = 60
FLAP_S = 3
FLAPPING_S = 100
REAL_SWAP = Path("/usr/sbin/real_swap")
SLOW_SWAP = f"#!/bin/sh\nsleep 5\nexec {REAL_SWAP} \"$@\"\n"
TOGGLE_SEEN_S = 15
REAL_COMBO = Path("/etc/wan_detect/real_combo_state.sh")
MOVED, LOOKED = STATE / "moved", STATE / "looked"
# A chip that answers late: its state is that of the moment in which it answers.
LATE_COMBO = f"""#!/bin/sh
for i in 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16; do
    [ -e {MOVED} ] && break
    sleep 0.5
done
[ -e {MOVED} ] && : >{LOOKED}
exec {REAL_COMBO} "$@"
"""
DRIVER_REAL_S = 5


class MovedBetweenLooks(WanLoss):
    name = "one-look"
    rank = 55
    summary = "the cable is moved between two looks at the links: loss and new port in one look, and the port joins"
    story = """
        The WAN port is eth3, and its line works. The link scan is held up, so nobody looks for a while, and in this time the
        cable is moved to eth1. The next who looks is a one-shot request: it sees the new port, which stands first in its
        list, and the loss of the WAN port. Nine seconds later eth1 joins the cycle.
    """
    wan = "eth3"
    cables = {"eth3": DhcpServer(), "eth4": Silent()}
    winner = "eth1"

    def play(self, stage):
        router = stage.router
        router.attach("eth1", DhcpServer(), plugged=False)
        self.start_connected(stage)
        router.daemon.wait_for("update_eth_link_status_trigger", "Success Cyclic scanning", LINK_SEEN_S)
        with replaced(SCRIPT, SLOW_LOOK):
            router.clock.wait_until(LOOKING.exists, LINK_SEEN_S)
        position = router.daemon.position()
        router.unplug("eth3")
        router.plug("eth1")
        router.bus.call("wan_detect", "proto_detect", device="eth4", timeout=1000)
        stage.note("one_look", [router.daemon.wait_for("update_eth_link_status_using_script",
                                                       f"Single shot scanning found {change}", LINK_SEEN_S, position)
                                is not None for change in ("eth1 link change to up", "eth3 link change to down")])
        lost = stage.note("loss_seen", router.daemon.wait_for(LINK_CHANGE, "Wan down!!", LINK_SEEN_S, position))
        swap = None if lost is None else swapped_to(router, "eth1", FIRST_CYCLE_S, lost)
        stage.note("found_after_s", swap and swap.at - router.daemon.lines[lost].at)
        first = router.cycle_over(SECOND_CYCLE_S, position)
        stage.note("second_end", None if first is None else router.cycle_over(SECOND_CYCLE_S, first + 1))
        router.show_panel()

    def judge(self, stage):
        stage.check("one look saw both changes", stage.facts["one_look"] == [True, True], stage.facts["one_look"])
        found, latest = stage.facts["found_after_s"], LOSS_WAIT_S + POLL_S + LISTING_S + late_s(stage)
        stage.check(f"the line is found within {latest:g} s of the loss", found is not None and found <= latest,
                    f"{found} s")
        super().judge(stage)


class Flapping(Scenario):
    name = "flapping"
    rank = 56
    summary = "the WAN port's link changes every 3 s for minutes: the cycle begins after 70 s all the same"
    story = """
        The line of eth0 is moved to eth3, and what is left in eth0 flaps: down for three seconds, up for three seconds, on
        and on. Each change puts the cycle off for 10 s, but all of them together for one minute only. Then eth3 is found.
    """
    cables = {"eth0": DhcpServer()}
    winner = "eth3"

    def play(self, stage):
        router = stage.router
        router.attach("eth3", DhcpServer(), plugged=False)
        self.start_connected(stage)
        router.daemon.wait_for("update_eth_link_status_trigger", "Success Cyclic scanning", LINK_SEEN_S)
        position = router.daemon.position()
        stop_serving(router.line("eth0")[1])
        router.unplug("eth0")
        router.plug("eth3")
        lost = stage.note("loss_seen", router.daemon.wait_for(LINK_CHANGE, "Wan down!!", LINK_SEEN_S, position))
        stage.note("flaps", self.flap(router, position))
        stage.note("flapped_until", router.clock.now())
        opened = router.daemon.wait_for("uloop_start_wan_detect", "Entering function", 2 * LOSS_WAIT_S, position)
        if None not in (lost, opened):
            stage.note("opened_at", router.daemon.lines[opened].at)
            stage.note("opened_after_s", router.daemon.lines[opened].at - router.daemon.lines[lost].at)
        first = router.cycle_over(FIRST_CYCLE_S, position)
        stage.note("second_end", None if first is None else router.cycle_over(SECOND_CYCLE_S, first + 1))
        router.show_panel()

    @staticmethod
    def flap(router, position):
        """Shakes the port until the role is taken from it, or for much longer than that may take."""
        begun, flaps = router.clock.now(), 0
        while router.clock.now() < begun + FLAPPING_S and swapped_to(router, "eth3", 0, position) is None:
            for change in (router.plug, router.unplug):
                router.clock.sleep(FLAP_S)
                change("eth0")
            flaps += 1
        return flaps

    def judge(self, stage):
        facts = stage.facts
        opened, latest = facts.get("opened_after_s"), LOSS_WAIT_S + LONGEST_PUT_OFF_S + late_s(stage)
        stage.check("the loss was seen, and the port flapped on", facts["loss_seen"] is not None and facts["flaps"] > 1)
        if stage.check("the cycle begins while the port flaps", opened and facts["opened_at"] < facts["flapped_until"],
                       f"{opened} s after the first loss"):
            stage.check(f"it was put off, and begins within {latest:g} s", LOSS_WAIT_S + FLAP_S < opened <= latest,
                        f"{opened:.1f} s after the first loss")
        super().judge(stage)


class ToggleBehindSwap(Scenario):
    name = "combo-late-toggle"
    rank = 57
    summary = "the former WAN port changes its medium while a swap runs: the combo switch comes too late and does nothing"
    story = """
        The WAN role is with the combo port eth4, where nobody answers, and the line is found in eth2. The swap takes five
        seconds. Meanwhile the copper cable of eth4 is pulled and one is plugged into its SFP cage; the combo switch decides to
        change the medium and waits until the swap is through. Then eth4 is the WAN port no more, and must not become it
        again.
    """
    wan = "eth4"
    combo = {"eth4": "phy"}
    cables = {"eth4/phy": Silent(), "eth2": DhcpServer()}
    winner = "eth2"

    def play(self, stage):
        router = stage.router
        router.attach("eth4/sfp", Silent(), plugged=False)
        shutil.copy(SWAP, REAL_SWAP)
        shutil.copy(COMBO, REAL_COMBO)
        with replaced(SWAP, SLOW_SWAP), replaced(COMBO, LATE_COMBO):
            self.start(stage)
            router.daemon.wait_for("switch_wan_to_dev", "wan dev to eth2 execute:", START_PAUSE_S + FIRST_CYCLE_S)
            self.change_medium(router)
            swap = swapped_to(router, "eth2", FIRST_CYCLE_S)
            stage.note("looked_in_time", swap is not None and LOOKED.exists())
            first = router.cycle_over(FIRST_CYCLE_S)
            stage.note("result_after_first", content(WAN_RESULT))
            router.clock.sleep(TOGGLE_SEEN_S)
            stage.note("wan_after_first", router.wan_port())
            stage.note("second_end", None if first is None else router.cycle_over(SECOND_CYCLE_S, first + 1))
        router.show_panel()

    @staticmethod
    def change_medium(router):
        """While the combo switch waits for the chip's answer, which then tells of the change."""
        router.unplug("eth4/phy")
        router.plug("eth4/sfp")
        wait_until(lambda: (DRIVER / "port5/sfp").read_text() == "1" and (DRIVER / "port5/phy").read_text() == "0",
                   DRIVER_REAL_S)
        MOVED.touch()

    def judge(self, stage):
        facts, lines = stage.facts, stage.router.daemon.lines
        stage.check("the combo switch looked at the port while the swap ran", facts["looked_in_time"])
        toggles = stage.note("toggles", [line.at for line in lines if line.matches("toggle_combo_state", "execute:")])
        stage.check("it changes nothing", not toggles and serdes("port5") == "phy", toggles)
        stage.check("the role stays where the swap put it, and the result file says so",
                    facts["wan_after_first"] == facts["result_after_first"] == "eth2",
                    f"{facts['wan_after_first']}, the file holds {facts['result_after_first']!r}")
        super().judge(stage)
