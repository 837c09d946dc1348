# SPDX-License-Identifier: MIT
"""Hosts of the LAN behind the ports, and what the kernel knows of them: the bridge's forwarding records, the ARP cache."""
import ctypes
import socket
import struct
import subprocess
import threading
import time
from contextlib import suppress
from dataclasses import dataclass
from pathlib import Path

from lab.arp import ask_for_address
from lab.mounts import STATE, mount
from lab.network import BRIDGE, FAR_END, inside
from lab.upstream import Silent

ROUTER_ADDRESS = "192.168.1.1"
HOST_PERIOD_REAL_S = 0.2
RECORD = struct.Struct("6sBBIBBH")
LOCAL_EXPERIMENT = 0x88B5    # an EtherType that nobody listens to
SHORTEST_PAYLOAD = bytes(46)
PRIVATE_IOCTL, GET_FORWARDING_ENTRIES, CHUNK = 0x89F0, 18, 64


class LanHost(Silent):
    """A host that keeps asking for the router, so that its bridge and its ARP cache get to know it."""
    title = "LAN host"

    def __init__(self, network="192.168.1", title=title):
        self.network = network
        self.title = title
        self.address = self.line = None
        self.talks = True

    def attach(self, line, port_number, clock):
        self.line, self.address = line, f"{self.network}.{100 + port_number}"
        line.ip("address", "add", f"{self.address}/24", "dev", FAR_END)
        threading.Thread(target=self.talk, daemon=True).start()

    def talk(self):
        """Body of the host's thread: asks for the router as long as the cable is plugged."""
        with inside(self.line.namespace):
            while self.talks:
                with suppress(OSError):    # the cable may be pulled at any moment
                    if self.line.plugged:
                        ask_for_address(FAR_END, ROUTER_ADDRESS, self.address, HOST_PERIOD_REAL_S)
                time.sleep(HOST_PERIOD_REAL_S)

    def leave(self):
        """The host is switched off; its cable stays, for a switch is between."""
        self.talks = False
        self.line.ip("address", "del", f"{self.address}/24", "dev", FAR_END)

    def known(self):
        """Whether both the bridge and the ARP cache know it."""
        mac = mac_of(self.line)
        return arp_cache().get(self.address) == mac and any(record.mac == mac for record in forwarding_records())


class Together(Silent):
    """Several things behind one port."""

    def __init__(self, *members, title):
        self.members = members
        self.title = title

    def attach(self, line, port_number, clock):
        for member in self.members:
            member.attach(line, port_number, clock)


def mac_of(line):
    with inside(line.namespace), socket.socket(socket.AF_PACKET, socket.SOCK_RAW) as tap:
        tap.bind((FAR_END, 0))
        return tap.getsockname()[4].hex(":")


def send_from_many(line, count):
    """One frame from each of so many hosts that have no address."""
    with inside(line.namespace), socket.socket(socket.AF_PACKET, socket.SOCK_RAW) as tap:
        tap.bind((FAR_END, 0))
        for number in range(count):
            source = b"\x02\x00\x5e\x20" + struct.pack("!H", number)
            tap.send(b"\xff" * 6 + source + struct.pack("!H", LOCAL_EXPERIMENT) + SHORTEST_PAYLOAD)


@dataclass
class Record:
    mac: str
    port: int
    local: bool


def records_of(data):
    return [Record(mac.hex(":"), port, bool(local)) for mac, port, local, *_ in RECORD.iter_unpack(data)]


def forwarding_records():
    return records_of(Path(f"/sys/class/net/{BRIDGE}/brforward").read_bytes())


def forwarding_records_by_request():
    """The first chunk by the kernel's private request, None where the kernel does not offer it."""
    chunk = ctypes.create_string_buffer(CHUNK * RECORD.size)
    words = (ctypes.c_ulong * 4)(GET_FORWARDING_ENTRIES, ctypes.addressof(chunk), CHUNK, 0)
    request = ctypes.create_string_buffer(struct.pack("16sP16x", BRIDGE.encode(), ctypes.addressof(words)))
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as channel:
        count = ctypes.CDLL(None).ioctl(channel.fileno(), ctypes.c_ulong(PRIVATE_IOCTL), request)
    return records_of(chunk.raw[:count * RECORD.size]) if count >= 0 else None


def arp_cache():
    """MAC by address, of the complete entries."""
    rows = [line.split() for line in Path("/proc/thread-self/net/arp").read_text().splitlines()[1:]]
    return {row[0]: row[3] for row in rows if int(row[2], 16) & 2}


def hide_forwarding_file():
    """Takes the bridge's forwarding file out of sight, for this lab only; its list of members stays."""
    real, kept = Path(f"/sys/devices/virtual/net/{BRIDGE}"), STATE / "bridge"
    kept.mkdir()
    mount("--bind", str(real), str(kept))
    mount("-t", "tmpfs", "tmpfs", str(real))
    (real / "brif").mkdir()
    mount("--bind", str(kept / "brif"), str(real / "brif"))
    subprocess.run(["test", "!", "-e", f"/sys/class/net/{BRIDGE}/brforward"], check=True)
