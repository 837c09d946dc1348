# SPDX-License-Identifier: MIT
"""Floods of frames behind ports, at real rates, and what the daemon pays for them."""
import ctypes
import json
import os
import re
import signal
import socket
import statistics
import struct
import subprocess
import threading
import time
from pathlib import Path

from lab.mounts import STATE
from lab.network import FAR_END

SETTLE_REAL_S = 0.05    # a flood is at its rate
POLL_REAL_S = 0.02
CALL_PAUSE_REAL_S = 0.05
LOOKS = 10
NS_PER_S = 1e9
SOL_PACKET, PACKET_STATISTICS = 263, 6
STATISTICS = struct.Struct("II")    # frames that passed the socket's filter, and how many of them found its queue full
SYS_PIDFD_GETFD = 438
libc = ctypes.CDLL(None, use_errno=True)


class Flood:
    """One sender per port while a body runs; rates are frames per real second."""

    def __init__(self, router, ports, kind, rate, seed):
        self.router, self.ports, self.kind, self.rate, self.seed = router, ports, kind, rate, seed
        self.senders = {}
        self.rates = {}    # what each port got

    def __enter__(self):
        for port in self.ports:
            line, _ = self.router.port(port).used_line()
            command = ["nsenter", f"--net=/run/netns/{line.namespace}", "lab_flood", FAR_END, self.kind, str(self.rate),
                       f"{self.seed}{self.router.port(port).number}"]
            with open(STATE / "flood.log", "ab") as log:
                self.senders[port] = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=log)
        time.sleep(SETTLE_REAL_S)
        return self

    def __exit__(self, *_):
        for sender in self.senders.values():
            sender.send_signal(signal.SIGTERM)
        for port, sender in self.senders.items():
            told = json.loads(sender.communicate()[0])
            self.rates[port] = round(told["frames"] / told["seconds"])


class Watch(threading.Thread):
    """Follows the daemon's processor time, memory, and the statistics of its packet sockets while a body runs."""

    def __init__(self, pid):
        super().__init__(daemon=True, name="watch")
        self.pid = pid
        self.ended = threading.Event()
        self.seconds = self.cpu_s = 0.0
        self.taken = self.lost = 0    # frames that passed the filters of its sockets; those of them that found a full queue
        self.rss_after = self.rss_peak = 0    # kB
        self.rates = {}
        self.calls, self.refused = [], []

    def __enter__(self):
        self.seconds, self.cpu_s = -time.monotonic(), -cpu_seconds(self.pid)
        self.start()
        return self

    def __exit__(self, *_):
        self.ended.set()
        self.join()
        self.seconds += time.monotonic()
        self.cpu_s += cpu_seconds(self.pid)
        self.rss_after = resident_kb(self.pid)

    def run(self):
        process = os.pidfd_open(self.pid)
        try:
            while not self.ended.wait(POLL_REAL_S):
                self.rss_peak = max(self.rss_peak, resident_kb(self.pid))
                for number in packet_sockets(self.pid):
                    self.count_frames(process, number)
        finally:
            os.close(process)

    def count_frames(self, process, number):
        """Adds what a socket of the daemon's has seen since the last look, which begins anew with every look. What comes
        between the last look and the closing stays uncounted."""
        copy = libc.syscall(SYS_PIDFD_GETFD, process, number, 0)
        if copy < 0:    # closed meanwhile
            return
        with socket.socket(fileno=copy) as borrowed:
            try:
                taken, lost = STATISTICS.unpack(borrowed.getsockopt(SOL_PACKET, PACKET_STATISTICS, STATISTICS.size))
            except OSError:    # it is another socket by now
                return
        self.taken += taken
        self.lost += lost

    def add_round(self, flood, caller):
        """Takes over what came of a flood, and of the calls meanwhile."""
        for port, rate in flood.rates.items():
            self.rates[port] = min(rate, self.rates.get(port, rate))
        self.calls += caller.took
        self.refused += caller.refused

    def told(self):
        return {"seconds": round(self.seconds, 2), "cpu_percent": round(100 * self.cpu_s / self.seconds, 1),
                "taken": self.taken, "lost": self.lost, "rates": self.rates,
                "rss_peak": self.rss_peak, "rss_after": self.rss_after, "descriptors": descriptors(self.pid),
                "calls": len(self.calls), "refused": self.refused, "call_median_ms": milliseconds(statistics.median(self.calls)),
                "call_max_ms": milliseconds(max(self.calls))}


class Caller(threading.Thread):
    """Calls a method of the daemon's over and over while a body runs, and keeps how long each call took."""

    def __init__(self, bus, level):
        super().__init__(daemon=True, name="caller")
        self.bus, self.level = bus, level
        self.took, self.refused = [], []
        self.ended = threading.Event()

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.ended.set()
        self.join()

    def run(self):
        while not self.took or not self.ended.wait(CALL_PAUSE_REAL_S):
            start = time.monotonic()
            reply = self.bus.call("wan_detect", "log", level=self.level)
            self.took.append(time.monotonic() - start)
            if reply != {"err_code": 0}:
                self.refused.append(reply)


def milliseconds(seconds):
    return round(1000 * seconds, 1)


def threads(pid):
    return len(os.listdir(f"/proc/{pid}/task"))


def cpu_seconds(pid):
    """Processor time of all the threads that live, from the scheduler's own counters."""
    total = 0
    for task in Path(f"/proc/{pid}/task").iterdir():
        total += int((task / "schedstat").read_text().split()[0])
    return total / NS_PER_S


def resident_kb(pid):
    return int(re.search(r"VmRSS:\s+(\d+)", Path(f"/proc/{pid}/status").read_text()).group(1))


def descriptors(pid):
    """How many it holds between its commands: the least of several looks."""
    least = len(os.listdir(f"/proc/{pid}/fd"))
    for _ in range(LOOKS):
        time.sleep(POLL_REAL_S)
        least = min(least, len(os.listdir(f"/proc/{pid}/fd")))
    return least


def packet_sockets(pid):
    """Numbers of the descriptors that are packet sockets."""
    rows = Path("/proc/thread-self/net/packet").read_text().splitlines()[1:]
    inodes = {f"socket:[{row.split()[8]}]" for row in rows}
    found = []
    for path in Path(f"/proc/{pid}/fd").iterdir():
        try:
            if os.readlink(path) in inodes:
                found.append(int(path.name))
        except OSError:    # closed meanwhile
            continue
    return found
