# SPDX-License-Identifier: MIT
"""The network manager's part: gives the WAN port a static address, and asks the server behind it for real, about once a
second of the daemon's."""
import os
import subprocess
import threading

from lab import config
from lab.arp import ask_for_address
from lab.mounts import STATE
from lab.network import carrier, run

STATE_FILE = STATE / "wan_state"
PERIOD_S = 1.0
ANSWER_S = 3
# A busy machine needs this long for one exchange, however fast the time runs.
SHORTEST_ANSWER_REAL_S = 0.3
PREFIX_LENGTH = 24
DHCP_CLIENT = ["udhcpc", "-f", "-n", "-q", "-t", "1", "-T", str(ANSWER_S), "-s", "/bin/true", "-V", "lab-client", "-i"]
PPPOE_CLIENT = ["pppoe-discovery", "-t", str(ANSWER_S), "-a", "1", "-I"]


def client_answered(command, seconds, environment=None):
    """True when the client ended well within so many real seconds."""
    try:
        done = subprocess.run(command, timeout=seconds, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, env=environment, check=False)
    except subprocess.TimeoutExpired:
        return False
    return done.returncode == 0


def dhcp_answers(port, clock):
    return client_answered([*DHCP_CLIENT, port], max(SHORTEST_ANSWER_REAL_S, clock.real(ANSWER_S)))


def pppoe_answers(port, clock):
    """The client collects offers for its whole time, so it must live in the lab's time."""
    limit = SHORTEST_ANSWER_REAL_S + 2 * clock.real(ANSWER_S)
    return client_answered([*PPPOE_CLIENT, port], limit, clock.environment())


class Connection:
    """The configured connection: its kind, and its address and gateway when they are static."""

    def __init__(self):
        wan, protocol = config.read("network").get("wan", {}), config.read("protocol")
        self.kind = wan.get("wan_type") or wan.get("proto")
        block = protocol.get(self.kind, {})
        self.address = self.gateway = None
        if self.kind == "static":
            self.address, self.gateway = block.get("ipaddr"), block.get("gateway")
        elif self.kind in ("l2tp", "pptp") and block.get("snd_conn") == "static":
            self.address, self.gateway = block.get("static_ip"), block.get("static_gateway")

    def answers(self, port, clock):
        if self.gateway:
            return ask_for_address(port, self.gateway, self.address, max(SHORTEST_ANSWER_REAL_S, clock.real(ANSWER_S)))
        return pppoe_answers(port, clock) if self.kind == "pppoe" else dhcp_answers(port, clock)


class Health(threading.Thread):
    """Keeps the state file that the bus object "network.interface" answers from."""

    def __init__(self, clock, places_address):
        super().__init__(daemon=True, name="health")
        self.clock = clock
        self.places_address = places_address
        self.state = None
        self.placed = None
        self.publish("disconnected")

    def run(self):
        while True:
            try:
                self.publish(self.look())
            except (OSError, subprocess.CalledProcessError):    # the port is gone
                self.publish("disconnected")
            self.clock.sleep(PERIOD_S)

    def look(self):
        port, connection = config.wan_port_name(), Connection()
        if self.places_address:
            self.place_address(port, connection.address)
        if not port or not connection.kind or not carrier(port):
            return "disconnected"
        answered = connection.answers(port, self.clock)
        if port != config.wan_port_name() or not carrier(port):
            return "disconnected"
        return "connected" if answered else "connecting"

    def place_address(self, port, address):
        """Moves the static address to the WAN port."""
        wanted = (port, f"{address}/{PREFIX_LENGTH}") if port and address else None
        if wanted == self.placed:
            return
        placed, self.placed = self.placed, None
        if placed:
            run("ip", "address", "del", placed[1], "dev", placed[0])
        if wanted:
            run("ip", "address", "add", wanted[1], "dev", wanted[0])
        self.placed = wanted

    def publish(self, state):
        if state == self.state:
            return
        self.state = state
        draft = STATE_FILE.with_suffix(".new")
        draft.write_text(state)
        os.replace(draft, STATE_FILE)
