# SPDX-License-Identifier: MIT
"""The network manager's eye: asks the server behind the current WAN port for real, about once a second of the daemon's."""
import os
import subprocess
import threading

from lab import config
from lab.arp import ask_for_address
from lab.mounts import STATE
from lab.network import carrier

STATE_FILE = STATE / "wan_state"
PERIOD_S = 1.0
SHORTEST_ANSWER_REAL_S = 0.3
ANSWER_S = 3.0
CLIENT = ["udhcpc", "-f", "-n", "-q", "-t", "1", "-T", "1", "-s", "/bin/true", "-V", "lab-client", "-i"]
PPPOE_CLIENT = ["pppoe-discovery", "-t", "1", "-a", "1", "-I"]


def client_answered(command, seconds):
    """True when the client ended well in time."""
    try:
        done = subprocess.run(command, timeout=seconds, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, check=False)
    except subprocess.TimeoutExpired:
        return False
    return done.returncode == 0


def line_answers(port, seconds):
    """Whether the upstream that the configuration asks for answers through the port."""
    network, protocol = config.read("network"), config.read("protocol")
    connection = network["wan"].get("wan_type") or network["wan"]["proto"]
    secondary = protocol.get(connection, {}).get("snd_conn", "dynamic")
    if connection == "pppoe":
        return client_answered([*PPPOE_CLIENT, port], seconds)
    if connection == "static":
        return ask_for_address(port, protocol["static"].get("gateway"), protocol["static"].get("ipaddr"), seconds)
    if connection in ("l2tp", "pptp") and secondary == "static":
        block = protocol[connection]
        return ask_for_address(port, block.get("static_gateway"), block.get("static_ip"), seconds)
    return client_answered([*CLIENT, port], seconds)


class Health(threading.Thread):
    """Keeps the state file that the bus object "network.interface" answers from."""

    def __init__(self, clock):
        super().__init__(daemon=True, name="health")
        self.clock = clock
        self.state = None
        self.publish("disconnected")

    def run(self):
        while True:
            self.publish(self.look())
            self.clock.sleep(PERIOD_S)

    def look(self):
        port = config.wan_port_name()
        if not port or not carrier(port):
            return "disconnected"
        seconds = max(SHORTEST_ANSWER_REAL_S, self.clock.real(ANSWER_S))
        answered = line_answers(port, seconds)
        if port != config.wan_port_name() or not carrier(port):
            return "disconnected"
        return "connected" if answered else "connecting"

    def publish(self, state):
        if state == self.state:
            return
        self.state = state
        draft = STATE_FILE.with_suffix(".new")
        draft.write_text(state)
        os.replace(draft, STATE_FILE)
