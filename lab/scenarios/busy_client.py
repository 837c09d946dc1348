# SPDX-License-Identifier: MIT
"""Somebody asks for a protocol all the time, as a status page does: detection has to go on beside it."""
import threading

from lab.late import Booting
from lab.roles import swapped_to
from lab.scenarios.base import FIRST_CYCLE_S, SECOND_CYCLE_S, late_s
from lab.scenarios.cables import LINK_SEEN_S, WanLoss
from lab.scenarios.links import LINK_CHANGE
from lab.scenarios.static import GATEWAY, NETWORK
from lab.upstream import DhcpServer, Gateway, Silent

REQUEST = {"device": "eth4", "timeout": 4000}
REQUEST_S = 4.5
BUSY = -85
AT_ONCE_REAL_S = 0.005    # the next question of a program that only wants to be polite
LOSS_WAIT_S = 10
RETRY_S = 0.5
STAGE_S, POLL_S = 2.5, 1.0
PASS_S = 1.0              # what a pass itself takes
BOOT_S = 18
SERVED_REQUESTS = 2


class Client(threading.Thread):
    """Asks again as soon as it has an answer, or so many of the daemon's seconds later."""

    def __init__(self, router, pause_s):
        super().__init__(daemon=True, name="client")
        self.router, self.pause_s = router, pause_s
        self.replies = []    # when, and what
        self.asking = True

    def run(self):
        while self.asking:
            reply = self.router.bus.call("wan_detect", "proto_detect", **REQUEST)
            self.replies.append((self.router.clock.now(), reply.get("err_code", reply)))
            threading.Event().wait(max(AT_ONCE_REAL_S, self.router.clock.real(self.pause_s)))

    def served(self, after=0.0):
        return sum(code == 0 and at > after for at, code in self.replies)


class BusyClient(WanLoss):
    """Base: the line moves from eth0 to eth3 while requests for eth4, where nobody answers, come in one after the other."""
    cables = {"eth0": DhcpServer(), "eth4": Silent()}
    winner = "eth3"
    pause_s = 0.0
    kinds = ("discover",)

    def behind_new_port(self):
        """It misses a stage or two, so that a cycle has to get through more than once."""
        return Booting(DhcpServer(), BOOT_S)

    def play(self, stage):
        router = stage.router
        router.attach("eth3", self.behind_new_port(), plugged=False)
        self.start_connected(stage)
        client = Client(router, self.pause_s)
        client.start()
        router.clock.wait_until(lambda: client.served() >= SERVED_REQUESTS, FIRST_CYCLE_S)
        position = router.daemon.position()
        router.unplug("eth0")
        router.plug("eth3")
        stage.note("loss_seen", router.daemon.wait_for(LINK_CHANGE, "Wan down!!", LINK_SEEN_S, position))
        stage.note("served_before", client.served())
        swap = swapped_to(router, "eth3", FIRST_CYCLE_S, position)
        stage.note("found_at", swap and swap.at)
        first = router.cycle_over(SECOND_CYCLE_S, position)
        stage.note("second_end", None if first is None else router.cycle_over(SECOND_CYCLE_S, first + 1))
        ended_at = router.clock.now()
        router.clock.wait_until(lambda: client.served(ended_at), 4 * REQUEST_S)
        stage.note("served_after", client.served(ended_at))
        client.asking = False
        stage.note("codes", sorted({str(code) for _, code in client.replies}))
        router.show_panel()

    def asked_at(self, stage):
        """When the cycle asked the new port, as long as it had not won."""
        found = stage.facts["found_at"] or stage.router.clock.now()
        return [probe.at for probe in stage.router.probes("eth3", self.kinds)
                if probe.at < found and probe.target in ("", GATEWAY)]

    def judge(self, stage):
        facts, asked = stage.facts, self.asked_at(stage)
        stage.note("asked", asked)
        if stage.check("the new port is asked", facts["loss_seen"] is not None and asked):
            request = REQUEST_S + RETRY_S
            lost_at = stage.router.daemon.lines[facts["loss_seen"]].at
            self.in_time(stage, "the first question", asked[0] - lost_at, LOSS_WAIT_S + POLL_S + request + PASS_S)
            for number, (one, next_one) in enumerate(zip(asked, asked[1:]), 2):
                self.in_time(stage, f"question {number}", next_one - one, STAGE_S + POLL_S + request + PASS_S)
        stage.check("the confirming cycle comes to its end", facts["second_end"] is not None)
        stage.check("requests were served before and afterwards", facts["served_before"] >= SERVED_REQUESTS and
                    facts["served_after"] >= 1, f"{facts['served_before']} before, {facts['served_after']} after")
        stage.check("and refused meanwhile, with nothing else than that", facts["codes"] == [str(BUSY), "0"], facts["codes"])
        super(WanLoss, self).judge(stage)

    @staticmethod
    def in_time(stage, what, seconds, longest):
        longest += late_s(stage)
        stage.check(f"{what} comes within {longest:g} s, one request counted in", seconds <= longest, f"{seconds:.1f} s")


class EagerClient(BusyClient):
    name = "busy-client"
    rank = 25
    summary = "a client asks again at once: a cycle waits for one request at most before each of its stages"
    story = """
        A status page asks which protocol is served behind eth4, and asks again as soon as it has its answer, be it that the
        daemon is busy. Meanwhile the WAN cable is moved from eth0 to eth3. Each stage of the cycle has to wait for the
        request that is running, never for a second one.
    """


class PatientClient(BusyClient):
    name = "busy-client-pause"
    rank = 25
    summary = "a client asks again after 0.3 s: a cycle waits for one request at most before each of its stages"
    story = "As before, but the client rests 0.3 s between an answer and its next question."
    pause_s = 0.3


class StaticBusyClient(BusyClient):
    name = "busy-client-static"
    rank = 25
    summary = "a client asks all the time, and the gateway is looked for by ARP: not in the middle of a request"
    story = """
        The connection has a static address. A search by ARP stops everything else while it lasts, so it waits for the
        request that is running as the probes do, and for one only.
    """
    cables = {"eth0": Gateway(GATEWAY), "eth4": Silent()}
    kinds = ("arp",)

    def configure(self, config):
        config.set_wan_type("static")
        config.protocol["static"].update(NETWORK)

    def behind_new_port(self):
        return Gateway(GATEWAY)

    def asked_at(self, stage):
        return super().asked_at(stage)[:1]    # each port is asked several times in one search

    def judge(self, stage):
        super().judge(stage)
        searches, amid = searches_of(stage.router.daemon.lines)
        stage.check("no search by ARP begins while a request runs", searches and not amid, amid)


def searches_of(lines):
    """When each search by ARP began, and when those did that began while a request ran; no cycle has a probe stage of
    its own here."""
    searches, amid, running, before = [], [], False, False
    for line in lines:
        if line.matches("start_proto_detect", "Entering function"):
            before, running = running, True
        elif line.matches("start_proto_detect", "Not allowed"):
            running = before
        elif line.matches("uloop_proto_detect_end", "Detection over!"):
            running = False
        elif line.matches("uloop_wan_detect_using_arp", "Entering function"):
            searches.append(line.at)
            amid += [line.at] if running else []
    return searches, amid
