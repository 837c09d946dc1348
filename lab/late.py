# SPDX-License-Identifier: MIT
"""Lines that have a link at once and carry something only later: a modem that boots, a switch port that listens first."""
import subprocess
import threading
import time

from lab.network import FAR_END, make_line
from lab.upstream import Silent

SWITCH, UPLINK = "switch", "uplink"
LISTENING, FORWARDING = "1", "3"    # states of a bridge port, as the kernel numbers them
POLL_REAL_S = 0.01
STATE_TRIES = 100


class Booting(Silent):
    """A modem: its port has a link as soon as the cable is plugged in, what it serves comes so many seconds later."""

    def __init__(self, behind, seconds):
        self.behind = behind
        self.seconds = seconds
        self.title = f"{behind.title} that boots"
        self.serves_at = None    # the daemon's own seconds

    def attach(self, line, port_number, clock):
        threading.Thread(target=self.boot, args=(line, port_number, clock), daemon=True, name="modem").start()

    def boot(self, line, port_number, clock):
        while not line.plugged:
            time.sleep(POLL_REAL_S)
        clock.sleep(self.seconds)
        self.behind.attach(line, port_number, clock)
        self.serves_at = clock.now()


class Switch(Silent):
    """A switch that guards against loops: for so many seconds after each link-up nothing passes from its port to the
    server behind it. The port itself hears everything all the time."""

    def __init__(self, behind, seconds=30):
        self.behind = behind
        self.seconds = seconds
        self.title = f"{behind.title} behind a switch"
        self.line = None
        self.forwards_at = None    # the daemon's own seconds, None while it does not forward

    def attach(self, line, port_number, clock):
        self.line = line
        line.ip("link", "add", SWITCH, "type", "bridge")
        line.ip("link", "set", SWITCH, "up")
        server = make_line(f"behind-{port_number}", UPLINK, line.namespace)
        server.plug()
        for end in (FAR_END, UPLINK):
            line.ip("link", "set", end, "master", SWITCH)
        self.set_state(LISTENING)
        self.behind.attach(server, port_number, clock)
        threading.Thread(target=self.follow, args=(clock,), daemon=True, name="switch").start()

    def follow(self, clock):
        up_since = None
        while True:
            if not self.line.plugged:
                if self.forwards_at is not None:
                    self.set_state(LISTENING)
                up_since = self.forwards_at = None
            else:
                up_since = up_since or time.monotonic()
                if self.forwards_at is None and time.monotonic() >= up_since + clock.real(self.seconds):
                    self.set_state(FORWARDING)
                    self.forwards_at = clock.now()
            time.sleep(POLL_REAL_S)

    def set_state(self, state):
        """The kernel takes it only once it has noticed the link."""
        for _ in range(STATE_TRIES):
            done = subprocess.run(["bridge", "-n", self.line.namespace, "link", "set", "dev", UPLINK, "state", state],
                                  capture_output=True, check=False)
            if done.returncode == 0:
                return
            time.sleep(POLL_REAL_S)
        raise RuntimeError(f"the switch behind {self.line.namespace} does not obey: {done.stderr}")
