# SPDX-License-Identifier: MIT
"""Why the WAN role went where it is, over more than one cycle: after a loss, and by swaps that do not help."""
import json
import subprocess
import threading

from lab.bus import SOCKET, uci
from lab.scenarios.bad_scripts import with_script
from lab.scenarios.base import CONNECTED_S, FIRST_CYCLE_S, SECOND_CYCLE_S, START_PAUSE_S
from lab.scenarios.life import SWAP
from lab.scenarios.why import OBJECT, STATE_OBJECT, SWAP_PAUSE_S, TOLD_S, Why
from lab.upstream import DhcpServer, Silent

SUBSCRIBED_REAL_S = 0.3
LOSS_S = 10
SOON_S = 5
BAN_S = 60
FAILS = "#!/bin/sh\nexit 3\n"


class Subscriber(threading.Thread):
    """Hears what the state object notifies, by the command line client."""

    def __init__(self):
        super().__init__(daemon=True, name="subscriber")
        self.heard = []
        self.client = subprocess.Popen(["ubus", "-s", SOCKET, "-S", "subscribe", STATE_OBJECT], stdout=subprocess.PIPE,
                                       stdin=subprocess.DEVNULL, text=True)

    def run(self):
        for line in self.client.stdout:
            self.heard += json.loads(line).items()

    def of(self, kind):
        return [fields for told, fields in self.heard if told == kind]

    def end(self):
        self.client.terminate()
        self.client.wait()


class WhyLoss(Why):
    name = "why-loss"
    rank = 90
    summary = "the WAN cable is pulled, and the state object tells why the role moves; who subscribed hears it"
    story = """
        The WAN port eth0 works. Its cable is pulled, and a line comes into eth3, whose link has not lasted 9 s when the
        cycle opens; the one of eth2 was there before the loss. Everybody asks why, and somebody has subscribed.
    """
    cables = {"eth0": DhcpServer(), "eth2": Silent()}

    def play(self, stage):
        router = stage.router
        router.attach("eth3", DhcpServer(), plugged=False)
        router.clock.wait_until(lambda: router.health.state == "connected", CONNECTED_S)
        self.start(stage)
        self.until(stage, "start-up is over", lambda: not self.status(stage, "starting"), START_PAUSE_S + FIRST_CYCLE_S)
        self.explained(stage, "eth0", "eth0 is the WAN port.", "No cycle has begun so far.")
        self.while_it_works(stage)
        subscriber = Subscriber()
        subscriber.start()
        threading.Event().wait(SUBSCRIBED_REAL_S)
        self.ban_and_lift(stage)
        router.unplug("eth0")
        self.until(stage, "the loss is seen", lambda: not self.port(stage, "eth0")["link"], TOLD_S)
        self.after_the_loss(stage)
        self.until_over(stage, 2)
        self.after_the_swap(stage)
        self.until_over(stage, 3, SECOND_CYCLE_S)
        self.same(stage, "both cycles agree", self.cycle(stage, 2).get("confirmed"), True)
        router.clock.sleep(SOON_S)
        subscriber.end()
        self.what_was_heard(stage, subscriber)
        router.show_panel()
        self.while_nobody_may_be_asked(stage)

    def while_nobody_may_be_asked(self, stage):
        """The role is given to a port that the daemon does not have; then detection is switched off."""
        for value in ("switch.port9=switch_port", "switch.port9.ifname=eth9", "switch.wan.switch_port=port9"):
            uci("set", value)
        uci("commit", "switch")
        self.look_again(stage)
        self.until_over(stage, 4)
        self.outcome(stage, 4, decision="role_is_foreign", winner=None, swap="not_needed")
        self.same(stage, "no port is told as the WAN port", self.status(stage, "wan"), None)
        self.explained(stage, "eth3", "The WAN role is at eth9, which is none of the daemon's ports: nobody is asked.",
                       "Cycle 4, begun # s ago: eth3 was not looked at, for the WAN role is at a port that is none of the daemon's.",
                       "Cycle 3, begun # s ago: eth3 worked as the WAN port.")
        stage.router.bus.call(OBJECT, "set", enable=False)
        self.same(stage, "detection is told as off", self.status(stage, "enabled"), False)
        self.explained(stage, "eth2", "Detection is off: nobody is asked, and nobody looks at the links.")

    def while_it_works(self, stage):
        self.look_again(stage)
        self.until_over(stage, 1)
        self.outcome(stage, 1, opener="bus_call", decision="wan_works", winner="eth0", swap="not_needed", asked=[])
        self.reasons(stage, 1, eth0="works", eth1="no_link")
        self.explained(stage, "eth0", "eth0 is the WAN port.", "Cycle 1, begun # s ago: eth0 worked as the WAN port.")
        self.explained(stage, "eth2", "Cycle 1, begun # s ago: eth2 was not looked at, for the WAN port works.")

    def ban_and_lift(self, stage):
        for seconds in (BAN_S, 0):
            stage.router.bus.send("wan_detect_add_banned_dev", name="eth2", time=seconds)
            self.until(stage, f"a ban of {seconds} s is told",
                       lambda seconds=seconds: ("banned" in self.port(stage, "eth2")) == bool(seconds), TOLD_S)

    def after_the_loss(self, stage):
        """The line comes in when most of the pause is over."""
        cycle = self.status(stage, "cycle")
        stage.check("the first pass is due in 10 s at most", (cycle["state"], cycle.get("next")) == ("waiting", "pass") and
                    cycle["next_ms"] <= LOSS_S * 1000, cycle)
        self.explained(stage, "eth0", "eth0 is the WAN port.", "eth0 is not asked: it has no link.")
        stage.router.clock.sleep(0.8 * LOSS_S)
        stage.router.plug("eth3")
        self.until(stage, "a cycle opens", lambda: self.cycle(stage, 2), FIRST_CYCLE_S)
        self.until_why(stage, "eth3", "not_listed_yet")
        self.reasons(stage, 2, eth0="no_link", eth1="no_link", eth2="not_listed_yet", eth3="not_listed_yet")
        self.explained(stage, "eth3", "Cycle 2, begun # s ago: eth3 was no candidate, for its link came too late, or was there "
                       "before the loss that opened it.", "The next look at all ports takes it along.")

    def after_the_swap(self, stage):
        self.outcome(stage, 2, opener="wan_loss", asked=["eth3"], decision="only_answer", winner="eth3", swap="done",
                     swap_status=0)
        self.reasons(stage, 2, eth0="no_link", eth2="not_listed_yet", eth3="won")

    def what_was_heard(self, stage, subscriber):
        links = [(told["name"], told["link"], told["link_changes"]) for told in subscriber.of("link")]
        before = [changes for name, _, changes in links if name == "eth0"]
        self.same(stage, "heard: links", links, [("eth0", False, before[0] if before else 0), ("eth3", True, 1)])
        bans = [(told["name"], told["banned"]) for told in subscriber.of("ban")]
        stage.check("heard: a ban, and that it was lifted", [name for name, _ in bans] == ["eth2", "eth2"] and
                    BAN_S - SOON_S <= bans[0][1] <= BAN_S and bans[1][1] == 0, bans)
        self.same(stage, "heard: cycles", subscriber.of("cycle"),
                  [{"number": 2, "state": "begins", "opener": "wan_loss"}, {"number": 2, "state": "ends", "decision": "only_answer"},
                   {"number": 3, "state": "begins", "opener": "after_swap"}, {"number": 3, "state": "ends", "decision": "wan_works"}])
        self.same(stage, "heard: the swap", subscriber.of("swap"), [{"name": "eth3", "status": 0, "pause": SWAP_PAUSE_S}])
        told = [{name: verdict.get(name) for name in ("number", "decision", "winner")} for verdict in subscriber.of("verdict")]
        self.same(stage, "heard: verdicts", told, [{"number": 2, "decision": "only_answer", "winner": "eth3"},
                                                  {"number": 3, "decision": "wan_works", "winner": "eth3"}])


class WhySwaps(Why):
    name = "why-swaps"
    rank = 90
    summary = "swaps that do not help: the order decides, the next cycle does not agree, and the pause doubles"
    story = """
        DHCP servers answer behind eth1 and eth3, nobody resolves names, and the network manager is never connected. So each
        swap leads nowhere: the role goes to and fro, and each pause is twice as long. Then the swap command fails as well.
        A cable that comes into eth4 begins with the first pause again.
    """
    managed = False
    cables = {"eth0": Silent(), "eth1": DhcpServer(dns=False), "eth3": DhcpServer(dns=False)}

    def configure(self, config):
        config.network["auto_wan_detect"]["wan_port_priority"] = "5 4 3 2 1"

    def play(self, stage):
        router = stage.router
        router.attach("eth4", Silent(), plugged=False)
        self.start(stage)
        self.until_over(stage, 1)
        self.the_order_decides(stage)
        self.the_next_does_not_agree(stage)
        with with_script(SWAP, FAILS):
            self.until_over(stage, 3, 2 * SWAP_PAUSE_S + SECOND_CYCLE_S)
        self.the_command_fails(stage)
        router.plug("eth4")
        self.until(stage, "the link of eth4 is seen", lambda: self.port(stage, "eth4")["link"], TOLD_S)
        self.a_change_begins_anew(stage)
        router.show_panel()

    def pauses(self, stage, number, seconds):
        """The state tells the pause that runs, and when the next cycle comes."""
        told = self.status(stage)
        stage.check(f"{seconds} s pass behind cycle {number}", told["swap_pause"] == seconds and told["cycle"]["next"] == "cycle" and
                    (seconds - SOON_S) * 1000 < told["cycle"]["next_ms"] <= seconds * 1000, (told["swap_pause"], told["cycle"]))

    def the_order_decides(self, stage):
        self.pauses(stage, 1, SWAP_PAUSE_S)
        self.outcome(stage, 1, asked=["eth1", "eth3"], decision="priority", winner="eth3", swap="done")
        self.reasons(stage, 1, eth1="lower_priority", eth3="won")
        self.explained(stage, "eth1", "Cycle 1, begun # s ago: eth1 was not chosen, for another port was as good, and comes first "
                       "in network.auto_wan_detect.wan_port_priority.")
        self.explained(stage, "eth3", "eth3 is the WAN port.",
                       "Cycle 1, begun # s ago: eth3 won, for of several that were as good it comes first in the order of the ports.")
        self.same(stage, "the hint that several lines answer", self.status(stage, "hints"), ["several"])

    def the_next_does_not_agree(self, stage):
        self.until_over(stage, 2, SWAP_PAUSE_S + SECOND_CYCLE_S)
        self.pauses(stage, 2, 2 * SWAP_PAUSE_S)
        self.outcome(stage, 1, confirmed=False)
        self.outcome(stage, 2, opener="after_swap", asked=["eth0", "eth1"], decision="only_answer", winner="eth1", swap="done")
        self.reasons(stage, 2, eth1="won", eth3="not_connected")
        self.explained(stage, "eth3", "Cycle 2, begun # s ago: eth3 did not work as the WAN port.",
                       "Cycle 1, begun # s ago: eth3 won, for of several that were as good it comes first in the order of the ports.",
                       "The WAN role was moved to it, and the next cycle did not agree.")

    def the_command_fails(self, stage):
        self.pauses(stage, 3, 4 * SWAP_PAUSE_S)
        self.outcome(stage, 2, confirmed=False)
        self.outcome(stage, 3, winner="eth3", swap="failed", swap_status=3)
        self.explained(stage, "eth3", "Cycle 3, begun # s ago: eth3 won, for it was the only port that answered.",
                       "The swap command ended with status 3.", "It did not get the WAN role.")
        told = self.status(stage)
        self.same(stage, "who has the role, and how many swaps failed in a row",
                  (told["wan"], told["counters"]["swaps"], told["counters"]["swaps_failed_in_a_row"]), ("eth1", 3, 2))

    def a_change_begins_anew(self, stage):
        told = self.status(stage)
        stage.check("a changed link begins with the first pause again", told["swap_pause"] == SWAP_PAUSE_S and
                    told["cycle"]["next_ms"] <= SWAP_PAUSE_S * 1000, (told["swap_pause"], told["cycle"]))
        self.until_over(stage, 4, SWAP_PAUSE_S + SECOND_CYCLE_S)
        self.pauses(stage, 4, 2 * SWAP_PAUSE_S)
        self.outcome(stage, 3, confirmed=False)
        self.reasons(stage, 4, eth1="not_connected", eth3="won", eth4="other_answered")
