# SPDX-License-Identifier: MIT
"""A line of poor quality between a port and what is behind it: frames are late, lost, doubled, out of order."""
import ctypes
import fcntl
import heapq
import random
import selectors
import socket
import struct
import threading
import time
from dataclasses import dataclass

from lab.network import FAR_END, inside, make_line
from lab.sniffer import ETH_P_ALL, ETH_P_ARP
from lab.upstream import Silent

INNER = "inner"    # the end of the good part of the line, in the far end's namespace
LARGEST_FRAME = 1 << 16
IDLE_REAL_S = 0.05
SIOCETHTOOL, SET_TX_CHECKSUM = 0x8946, 0x17


@dataclass
class Quality:
    """What becomes of a frame on its way from the server to the port; delays are in the daemon's own milliseconds."""
    delay_ms: float = 0
    jitter_ms: float = 0     # up to that much more: frames overtake each other
    lost: float = 0          # part of the frames
    copies: int = 1          # each frame comes that often
    both_ways: bool = False  # the questions suffer the same
    spare_arp: bool = False


class BadLink(Silent):
    """The quality may be changed at any moment."""

    def __init__(self, behind, seed=1, **quality):
        self.behind = behind
        self.title = behind.title
        self.quality = Quality(**quality)
        self.dice = random.Random(f"bad link {seed}")
        self.lost = self.passed = 0
        self.clock = self.taps = None
        self.due = []    # a heap: when, a number that keeps the order, where to, the frame
        self.number = 0

    def attach(self, line, port_number, clock):
        self.clock = clock
        good = make_line(f"good-{port_number}", INNER, line.namespace)
        good.plug()
        self.behind.attach(good, port_number, clock)
        with inside(good.namespace):
            finish_checksums(FAR_END)
        with inside(line.namespace):
            port, server = open_tap(FAR_END), open_tap(INNER)
        self.taps = {port: server, server: port}
        self.server = server
        threading.Thread(target=self.carry, daemon=True, name=f"bad-link-{port_number}").start()

    def carry(self):
        """Body of the line's thread."""
        selector = selectors.DefaultSelector()
        for tap in self.taps:
            selector.register(tap, selectors.EVENT_READ)
        while True:
            pause = min(IDLE_REAL_S, self.due[0][0] - time.monotonic()) if self.due else IDLE_REAL_S
            for key, _ in selector.select(max(0.0, pause)):
                self.take(key.fileobj)
            while self.due and self.due[0][0] <= time.monotonic():
                _, _, tap, frame = heapq.heappop(self.due)
                send(tap, frame)

    def take(self, tap):
        try:
            frame, address = tap.recvfrom(LARGEST_FRAME)
        except OSError:    # that end is down
            return
        if address[2] == socket.PACKET_OUTGOING:
            return
        asks = tap is not self.server
        if asks and not self.quality.both_ways or self.quality.spare_arp and is_arp(frame):
            send(self.taps[tap], frame)
            return
        for _ in range(self.quality.copies):
            self.put_on_the_way(self.taps[tap], frame)

    def put_on_the_way(self, tap, frame):
        quality = self.quality
        if self.dice.random() < quality.lost:
            self.lost += 1
            return
        self.passed += 1
        self.number += 1
        late_s = (quality.delay_ms + self.dice.uniform(0, quality.jitter_ms)) / 1000
        heapq.heappush(self.due, (time.monotonic() + self.clock.real(late_s), self.number, tap, frame))


def is_arp(frame):
    return frame[12:14] == struct.pack("!H", ETH_P_ARP)


def open_tap(interface):
    tap = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
    tap.bind((interface, ETH_P_ALL))
    tap.setblocking(False)
    return tap


def send(tap, frame):
    try:
        tap.send(frame)
    except OSError:    # that end is down: lost
        pass


def finish_checksums(interface):
    """Lets the kernel write the checksums that it otherwise leaves to the hardware, which this line does not have."""
    value = ctypes.create_string_buffer(struct.pack("=II", SET_TX_CHECKSUM, 0))
    request = struct.pack("16sP16x", interface.encode(), ctypes.addressof(value))
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as channel:
        fcntl.ioctl(channel, SIOCETHTOOL, request)
