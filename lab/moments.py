# SPDX-License-Identifier: MIT
"""Moments of the daemon's life at which it may be asked to end: how the lab leads it there, and how its log tells that
it was there."""
import os
import signal
import subprocess
import threading
import time
from collections import namedtuple
from contextlib import suppress

from lab.daemon import LINE, LOG
from lab.life import Life, wait_until

BURST_CALLS = 12
SHORT_REAL_S = 0.0005
ARRIVES_S, ARRIVES_REAL_S = 120, 30.0    # the longer of both, for start-up may wait 75 s

IN_LOOP = "Wan detect start uloop"

# `world` is one of the scenario's, `line` the log line that the moment follows (its `times`-th), `within` the spread
# after it in the daemon's own seconds, `act` what the lab does once `begun` was said, `hangs` a command that never ends.
Moment = namedtuple("Moment", "title world line within times act hangs begun", defaults=(1, None, None, IN_LOOP))

SCANNED = "Success Cyclic scanning"
MOMENTS = [
    Moment("as it starts", "two lines", None, 0),    # spread over the time that a start takes
    Moment("waiting for a link", "no link", "No device has plugged in", 4.2),
    Moment("in the pause of 15 s", "two lines", "Device eth0 link status change to up!", 15.2),
    Moment("as the loop starts", "two lines", IN_LOOP, 0.5),
    Moment("probing for DHCP", "two lines", "using protocol detect", 3),
    Moment("probing for PPPoE", "pppoe", "using protocol detect", 3),
    Moment("asking by ARP", "static", "using arp", 1.5),
    Moment("asking for names", "two lines", "Ready to dns detect", 3.5),
    Moment("asking for names in vain", "no names", "Ready to dns detect", 3.2),
    Moment("swapping", "two lines", "Switching wan dev to", 0.8),
    Moment("swapping, static", "static", "Switching wan dev to", 0.8),
    Moment("in the pause after the swap", "two lines", "success switching wan dev", 21.2),
    Moment("in the confirming cycle", "two lines", "Start to detect in", 0.6, times=2),
    Moment("nobody answers", "silent", "No device using protocol", 5),
    Moment("at rest", "connected", SCANNED, 5),
    Moment("in a request", "connected", "Entering function: uloop_proto_detect_start", 4.2, act="request"),
    Moment("in the 10 s after a loss", "connected", "Wan down!! Begin", 10.2, act="loss"),
    Moment("while a port settles", "silent", "turned up during", 9.2, act="plug", begun="using protocol detect"),
    Moment("among many calls", "connected", SCANNED, 1, act="calls"),
    Moment("at a combo switch", "combo", "set port5 sfp", 1.5),
    Moment("a hanging scan", "connected", SCANNED, 4, times=2, hangs="/etc/wan_detect/get_all_port_state.sh"),
    Moment("a hanging script at the start", "two lines", "init_fake_wan_device", 4,
           hangs="/etc/wan_detect/get_all_port_state.sh"),
    Moment("a hanging swap", "two lines", "Switching wan dev to", 4, hangs="/usr/sbin/network_lanwan_swap"),
    Moment("a hanging rebuild of the ports", "fake WAN", "fake_wan_port", 4, hangs="/sbin/wanlan_port_reload"),
    Moment("a hanging online test", "online", "ubus success get network.interface", 4, hangs="/usr/sbin/online-test"),
    Moment("a hanging combo script", "combo", IN_LOOP, 6, hangs="/etc/wan_detect/get_combo_state.sh"),
    Moment("a hanging bus", "two lines", IN_LOOP, 4, act="stop bus"),
]
AFTER_A_CYCLE, AFTER_A_SWAP, BEFORE_ALL = "at rest after a cycle", "in the 21 s after a swap", "before the first line"
# A hurried life may be over already.
END_FUNCTIONS = ("wan_detect_ubus_done", "release_all_device", "release_arp_table", "release_dhcp_detect_handle",
                 "release_pppoe_detect_handle", "release_arp_detect_handle")
# Where the log was when the signal came: the first that fits, looked for from the latest line back.
PHASES = [
    ("in the swap", "switch_wan_to_dev", "Switching wan dev to"),
    ("combo switch", "toggle_combo_state", "Switching wan dev to"),
    ("ARP stage", "uloop_wan_detect_using_arp", ""),
    ("DNS stage", "uloop_wan_detect_using_dns", ""),
    ("judging answers", "uloop_wan_detect_using_proto_detect", " using protocol "),
    ("judging answers", "uloop_wan_detect_using_proto_detect", " provide "),
    ("in a probe stage", "uloop_proto_detect_start", ""),
    ("after a probe stage", "uloop_proto_detect_end", "Detection over!"),
    (AFTER_A_CYCLE, "uloop_wan_detect_end", "Wan Detection over!"),
    ("ending a cycle", "uloop_wan_detect_end", ""),
    ("filtering candidates", "uloop_start_wan_detect", ""),
    ("opening a cycle", "uloop_init_wan_detect_all", ""),
    ("10 s after a loss", "wan_detect_process_link_change", "Begin detecting in 10000ms"),
    ("at rest, no cycle yet", "main", IN_LOOP),
    ("waiting for a link", "main", "No device has plugged in"),
    ("pause of 15 s", "wan_detect_process_link_change", "link status change to up"),
    ("building the model", "main", "init over"),
]


class Tail:
    """Reads the log of one life as it grows."""

    def __init__(self, clock):
        self.clock = clock
        self.text = ""
        self.stream = open(LOG, encoding="utf-8", errors="replace")

    def read(self):
        self.text += self.stream.read()
        return self.text

    def said(self, text, times, seconds=ARRIVES_S):
        return wait_until(lambda: self.read().count(text) >= times, max(ARRIVES_REAL_S, self.clock.real(seconds)))

    def lines(self):
        """(function, body) of what was said so far."""
        return [(found.group(3), found.group(5)) for found in LINE.finditer(self.read())]

    def close(self):
        self.stream.close()


def phase_of(lines):
    for number, (function, body) in reversed(list(enumerate(lines))):
        for title, where, text in PHASES:
            if function == where and text in body:
                return AFTER_A_SWAP if title == AFTER_A_CYCLE and swapped(lines[:number]) else title
    return "loading" if lines else BEFORE_ALL


def swapped(lines):
    """Whether the cycle that these lines end with has swapped."""
    for function, body in reversed(lines):
        if function == "uloop_start_wan_detect":
            return False
        if function == "switch_wan_to_dev" and "success switching" in body:
            return True
    return False


class HurriedLife(Life):
    """Is asked to end so many real seconds after its first process was started, whatever it is doing then."""

    def __init__(self, *arguments, after, number, **options):
        self.after, self.number = after, number
        super().__init__(*arguments, **options)

    def start(self, command, **options):
        with subprocess.Popen(command, start_new_session=True, **options) as first:
            time.sleep(self.after)
            with suppress(ProcessLookupError):
                os.killpg(first.pid, self.number)
            return first.wait()


class TimedLife(Life):
    """Tells how many real seconds pass from the start of its first process to the first look at the links."""
    seconds = None

    def start(self, command, **options):
        with subprocess.Popen(command, **options) as first:
            started, end = time.monotonic(), time.monotonic() + ARRIVES_REAL_S
            while b"update_eth_link_status" not in LOG.read_bytes() and time.monotonic() < end:
                time.sleep(SHORT_REAL_S)
            self.seconds = time.monotonic() - started
            return first.wait()


def time_of_a_start(clock):
    life = TimedLife("-d", "7", clock=clock)
    life.signal()
    life.end(ARRIVES_REAL_S)
    return life.seconds


class Acts:
    """What the lab does to lead the daemon to a moment; undone by `undo`."""

    def __init__(self, router):
        self.router = router
        self.stopped = self.reply = None

    def request(self):
        self.reply = self.router.bus.call("wan_detect", "proto_detect", device="eth0", timeout=4000)

    def loss(self):
        self.router.unplug("eth2")

    def plug(self):
        self.router.plug("eth3")

    def calls(self):
        """A burst that goes on while the daemon ends."""
        def burst():
            for number in range(BURST_CALLS):
                self.router.bus.call("wan_detect", "wan_detect", delay=number % 2)
                self.router.bus.call("wan_detect", "hotplug", name="eth3", status=number % 2 == 0)
        threading.Thread(target=burst, daemon=True).start()

    def stop_bus(self):
        self.stopped = self.router.bus.broker
        self.stopped.send_signal(signal.SIGSTOP)

    def undo(self):
        if self.stopped:
            self.stopped.send_signal(signal.SIGCONT)
            self.stopped = None


def last_function(lines):
    return lines[-1][0] if lines else ""
