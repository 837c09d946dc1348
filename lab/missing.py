# SPDX-License-Identifier: MIT
"""Takes away what the daemon needs, one thing at a time: each context manager gives it back at the end of its body."""
import copy
import os
import socket
import subprocess
from contextlib import contextmanager
from pathlib import Path

from lab import config
from lab.bus import SOCKET
from lab.life import wait_until
from lab.mounts import STATE, mount
from lab.network import BRIDGE, BRIDGE_ADDRESS, BRIDGE_MAC, ip_batch

RELOAD = "/sbin/wanlan_port_reload"
CONNECTED_REAL_S = 5.0


@contextmanager
def changed(router, change):
    """The configuration with a change, and whatever the daemon makes of it, for the body."""
    texts = {path: path.read_text() for path in config.FOLDER.iterdir()}
    mine = copy.deepcopy(router.config)
    change(mine)
    mine.write()
    yield
    for path, text in texts.items():
        path.write_text(text)


@contextmanager
def moved(path):
    """The file or folder is elsewhere for the body."""
    path = Path(path)
    place = path.with_name(f"{path.name}.away")
    path.rename(place)
    yield
    place.rename(path)


@contextmanager
def covered(path, what):
    """Something else is in its place for the body."""
    mount("--bind", str(what), str(path))
    yield
    unmount(path)


def unmount(path):
    os.spawnlp(os.P_WAIT, "umount", "umount", "--lazy", str(path))


@contextmanager
def deaf_socket():
    with moved(SOCKET), socket.socket(socket.AF_UNIX) as deaf:
        deaf.bind(SOCKET)
        yield
        os.unlink(SOCKET)


@contextmanager
def devices_without_console():
    """A folder of devices of its own, with the few that programs cannot do without."""
    folder = STATE / "dev"
    folder.mkdir()
    for name in ("null", "zero", "urandom"):
        (folder / name).touch()
        mount("--bind", f"/dev/{name}", str(folder / name))
    mount("--rbind", str(folder), "/dev")
    yield
    unmount("/dev")


@contextmanager
def without_bridge():
    ip_batch(f"link del {BRIDGE}")
    yield
    ip_batch(f"link add {BRIDGE} address {BRIDGE_MAC} type bridge", f"address add {BRIDGE_ADDRESS} dev {BRIDGE}",
             f"link set {BRIDGE} up")


@contextmanager
def without_interface(name):
    ip_batch(f"link set {name} down", f"link set {name} name away")
    yield
    ip_batch(f"link set away name {name}", f"link set {name} up")


@contextmanager
def without_manager(router):
    router.bus.kill_manager()
    yield
    router.bus.start_manager()


@contextmanager
def connected(router, change, plugged):
    """A WAN port that works, with a change of the configuration, for the body."""
    with changed(router, change):
        subprocess.run([RELOAD], check=True)
        router.plug(plugged)
        wait_until(lambda: router.health.state == "connected", CONNECTED_REAL_S)
        yield
        router.unplug(plugged)
    subprocess.run([RELOAD], check=True)


def broken(package):
    def taken(_):
        text = STATE / "broken"
        text.write_text("config 'x\n")
        return covered(config.FOLDER / package, text)
    return taken


def no_package(package):
    return lambda _: moved(config.FOLDER / package)


def no_section(package, section):
    return lambda router: changed(router, lambda mine: getattr(mine, package).pop(section))


def no_option(package, section, *options):
    return lambda router: changed(router, lambda mine: [getattr(mine, package)[section].pop(name) for name in options])


def no_sections_of(package, kind):
    def drop(mine):
        sections = getattr(mine, package)
        for name in [name for name, section in sections.items() if section.kind == kind]:
            del sections[name]
    return lambda router: changed(router, drop)


def no_program():
    path = STATE / "no-program"
    path.write_text("")
    return path


@contextmanager
def with_line(router, inner, change=lambda mine: None, plugged="eth2"):
    with connected(router, change, plugged), inner:
        yield
