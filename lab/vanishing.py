# SPDX-License-Identifier: MIT
"""Ports and bridges that go away while somebody uses them, and come back as others of the same name."""
from pathlib import Path

from lab.network import BRIDGE, FAR_END, inside, ip_batch, make_bridge, run, without_ipv6
from lab.scenarios.trouble import RELOAD

ELSEWHERE = "elsewhere"
OTHER_NAME = "gone0"


def index_of(name):
    """Number of the interface, None when there is no such one."""
    path = Path(f"/sys/class/net/{name}/ifindex")
    return int(path.read_text()) if path.exists() else None


def delete(_router, name):
    """The port and its far end with it; what was behind loses its interface."""
    run("ip", "link", "del", name)


def create(router, name):
    """The port again, with another number; what was behind starts anew. The far end is plugged in."""
    port, line = router.line(name)
    for process in line.processes:
        process.kill()
        process.wait()
    line.processes.clear()
    ip_batch(f"link add {name} type veth peer name {FAR_END} netns {line.namespace}")
    with inside(line.namespace):
        without_ipv6()
    run("ip", "link", "set", name, "up")
    router.attach(name, port.behind[""])


def rename(_router, name):
    ip_batch(f"link set {name} down", f"link set {name} name {OTHER_NAME}")


def rename_back(_router, name):
    ip_batch(f"link set {OTHER_NAME} name {name}", f"link set {name} up")


def move(_router, name):
    run("ip", "netns", "add", ELSEWHERE)
    run("ip", "link", "set", name, "netns", ELSEWHERE)


def move_back(_router, name):
    run("ip", "-n", ELSEWHERE, "link", "set", name, "netns", "1")
    run("ip", "link", "set", name, "up")
    run("ip", "netns", "del", ELSEWHERE)


WAYS = {"deleted": (delete, create), "renamed": (rename, rename_back), "moved away": (move, move_back)}


def come_back(way, router, name):
    """The port is there again, in the place that the configuration gives it."""
    WAYS[way][1](router, name)
    run(RELOAD)


def delete_bridge():
    run("ip", "link", "del", BRIDGE)


def make_bridge_again():
    make_bridge()
    run(RELOAD)
