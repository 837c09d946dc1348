# SPDX-License-Identifier: MIT
"""The daemon under test: starts it, follows its log as it is written, knows its process."""
import os
import re
import signal
import subprocess
import threading
import time
from dataclasses import dataclass
from pathlib import Path

from lab import sanitizers, valgrind
from lab.mounts import STATE

PROGRAM = "/usr/sbin/wan_detect"
LOG = Path("/tmp/wan_detect.log")
LINE = re.compile(r"\[wan_detect\]\[(\w+)\]\[(-?\d+)\]\[(\w+):(\d+)\]: (.*)")
FOLLOW_PAUSE_REAL_S = 0.005
CHUNK = 1 << 16
LONGEST_FORK_REAL_S = 20


@dataclass
class LogLine:
    at: float        # the daemon's own seconds since its start, as the lab saw the line
    level: str
    function: str
    body: str

    def matches(self, function, text):
        return (function is None or self.function == function) and text in self.body


class LogFollower(threading.Thread):
    """Reads the log file behind the daemon and hands every complete line on."""

    def __init__(self, clock, on_line):
        super().__init__(daemon=True, name="log")
        self.clock = clock
        self.on_line = on_line
        self.lines = []
        self.arrived = threading.Condition()
        LOG.write_bytes(b"")

    def run(self):
        rest = b""
        with open(LOG, "rb", buffering=0) as stream:
            while True:
                chunk = stream.read(CHUNK)
                if not chunk:
                    if os.fstat(stream.fileno()).st_size < stream.tell():    # it was closed, emptied and opened again
                        stream.seek(0)
                    time.sleep(FOLLOW_PAUSE_REAL_S)
                    continue
                *complete, rest = (rest + chunk).split(b"\n")
                for raw in complete:
                    self.take(raw.decode("utf-8", "replace"))

    def take(self, text):
        match = LINE.search(text)
        if match:
            level, _, function, _, body = match.groups()
            line = LogLine(round(self.clock.now(), 2), level, function, body)
        else:
            line = LogLine(round(self.clock.now(), 2), "", "", text)
        with self.arrived:
            self.lines.append(line)
            self.arrived.notify_all()
        self.on_line(line)


class Daemon:
    def __init__(self, clock, on_line, under_valgrind=False):
        self.clock = clock
        self.follower = LogFollower(clock, on_line)
        self.under_valgrind = under_valgrind
        self.name = valgrind.PROCESS_NAME if under_valgrind else "wan_detect"
        self.pid = None

    @property
    def lines(self):
        return self.follower.lines

    def start(self, level=7):
        """Starts the daemon, which goes to the background by itself; returns the exit status of its first process."""
        self.follower.start()
        self.clock.restart()
        command = [*(valgrind.COMMAND if self.under_valgrind else []), PROGRAM, "-d", str(level)]
        with open(STATE / "daemon.out", "ab") as output:
            status = subprocess.run(command, check=False, stdin=subprocess.DEVNULL, stdout=output,
                                    stderr=output, timeout=LONGEST_FORK_REAL_S,
                                    env=sanitizers.environment(PROGRAM, self.clock.environment())).returncode
        self.pid = find_process(self.name)
        return status

    def running(self):
        return self.pid is not None and living(self.pid, self.name)

    def stop(self, seconds=30.0):
        """Asks the daemon to end; returns whether it did within so many of its seconds."""
        os.kill(self.pid, signal.SIGTERM)
        return self.clock.wait_until(lambda: not self.running(), seconds)

    def wait_for(self, function, text, seconds, after=0):
        """Index of the first line at or after index `after` that matches, waiting for it; None when none comes."""
        end, index = time.monotonic() + self.clock.real(seconds), after
        while True:
            with self.follower.arrived:
                while index < len(self.lines):
                    if self.lines[index].matches(function, text):
                        return index
                    index += 1
                left = end - time.monotonic()
                if left <= 0:
                    return None
                self.follower.arrived.wait(left)

    def position(self):
        """Index that the next log line will have."""
        return len(self.lines)


def living(pid, name):
    """Whether the process exists, still carries the name and is no zombie."""
    try:
        fields = Path(f"/proc/{pid}/stat").read_text()
    except OSError:
        return False
    return f"({name})" in fields and fields.rpartition(")")[2].split()[0] != "Z"


def find_process(name):
    """Number of the oldest living process of that name, or None: a child about to run a script bears it too."""
    numbers = (int(path.name) for path in Path("/proc").glob("[0-9]*"))
    return min((pid for pid in numbers if living(pid, name)), default=None)
