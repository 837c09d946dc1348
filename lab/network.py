# SPDX-License-Identifier: MIT
"""Ports, cables and the LAN bridge: one pair of virtual Ethernet ends per port, the far one in its own namespace."""
import ctypes
import os
import subprocess
from contextlib import contextmanager
from pathlib import Path

BRIDGE = "br-lan"
BRIDGE_ADDRESS = "192.168.1.1/24"
BRIDGE_MAC = "02:00:5e:10:00:01"
FAR_END = "line"
CLONE_NEWNET = 0x40000000

libc = ctypes.CDLL(None, use_errno=True)


def run(*command):
    subprocess.run(command, check=True)


def ip_batch(*lines):
    subprocess.run(["ip", "-batch", "-"], input="\n".join(lines) + "\n", text=True, check=True)


def set_namespace(descriptor):
    if libc.setns(descriptor, CLONE_NEWNET) != 0:
        raise OSError(ctypes.get_errno(), "setns")


@contextmanager
def inside(namespace):
    """Moves the calling thread into the namespace for the body; sockets made there stay there."""
    own = os.open("/proc/thread-self/ns/net", os.O_RDONLY)
    there = os.open(f"/run/netns/{namespace}", os.O_RDONLY)
    try:
        set_namespace(there)
        yield
    finally:
        set_namespace(own)
        os.close(there)
        os.close(own)


def without_ipv6():
    for scope in ("all", "default"):
        path = Path(f"/proc/sys/net/ipv6/conf/{scope}/disable_ipv6")
        if path.exists():
            path.write_text("1")


class Line:
    """The far end of one cable: a namespace of its own with the interface `line`, up while the cable is plugged."""

    def __init__(self, namespace):
        self.namespace = namespace
        self.plugged = False
        self.processes = []

    def ip(self, *arguments):
        run("ip", "-n", self.namespace, *arguments)

    def plug(self):
        self.ip("link", "set", FAR_END, "up")
        self.plugged = True

    def unplug(self):
        self.ip("link", "set", FAR_END, "down")
        self.plugged = False

    def start(self, command, log, environment=None):
        with open(log, "ab") as output:
            process = subprocess.Popen(["nsenter", f"--net=/run/netns/{self.namespace}", *command], env=environment,
                                       stdin=subprocess.DEVNULL, stdout=output, stderr=output)
        self.processes.append(process)
        return process


def make_line(namespace, router_end, router_namespace=None):
    """Makes a cable from `router_end` (here, or in another namespace) to a new namespace; not plugged yet."""
    place = f" netns {router_namespace}" if router_namespace else ""
    ip_batch(f"netns add {namespace}",
             f"link add {router_end}{place} type veth peer name {FAR_END} netns {namespace}")
    with inside(namespace):
        without_ipv6()
    run("ip", "-n", namespace, "link", "set", "lo", "up")
    if router_namespace:
        run("ip", "-n", router_namespace, "link", "set", router_end, "up")
    else:
        run("ip", "link", "set", router_end, "up")
    return Line(namespace)


def make_bridge():
    """The LAN bridge with a MAC that does not change as ports come and go; its members join at the first reload."""
    without_ipv6()
    ip_batch("link set lo up",
             f"link add {BRIDGE} address {BRIDGE_MAC} type bridge",
             f"address add {BRIDGE_ADDRESS} dev {BRIDGE}",
             f"link set {BRIDGE} up")


def carrier(port):
    try:
        return Path(f"/sys/class/net/{port}/carrier").read_text().strip() == "1"
    except OSError:
        return False


def bridge_members():
    return sorted(path.name for path in Path(f"/sys/class/net/{BRIDGE}/brif").iterdir())
