# SPDX-License-Identifier: MIT
"""Time as the daemon feels it: the lab's clock runs `speed` times faster than the real one."""
import os
import time
from glob import glob

# The clock's library would read its settings again every ten seconds, in several threads at once.
NEVER_S = 1_000_000
EXACT_WAITS = "/usr/sbin/lab_exact_waits.so"


class Clock:
    def __init__(self, speed):
        self.speed = speed
        self.preloaded = []    # libraries that the daemon gets besides
        self.variables = {}
        self.start = time.monotonic()

    def restart(self):
        self.start = time.monotonic()

    def now(self):
        """Seconds of the daemon since the last restart."""
        return (time.monotonic() - self.start) * self.speed

    def sleep(self, seconds):
        time.sleep(seconds / self.speed)

    def real(self, seconds):
        return seconds / self.speed

    def wait_until(self, condition, seconds, poll_real_s=0.01):
        """Polls the condition for so many of the daemon's seconds; returns its first true value, or its last one."""
        end = time.monotonic() + self.real(seconds)
        while True:
            value = condition()
            if value or time.monotonic() >= end:
                return value
            time.sleep(poll_real_s)

    def environment(self):
        """Environment for a program that shall live in this time; its children inherit it."""
        changed = dict(os.environ, **self.variables)
        preloaded = list(self.preloaded)
        if self.speed != 1:
            preloaded += [*filter(os.path.exists, [EXACT_WAITS]), clock_library()]
            changed.update(FAKETIME=f"+0 x{self.speed:g}", FAKETIME_CACHE_DURATION=str(NEVER_S))
        if preloaded:
            changed.update(LD_PRELOAD=":".join(preloaded))
        return changed


def clock_library():
    libraries = glob("/usr/lib/*/faketime/libfaketime.so.1")
    if not libraries:
        raise FileNotFoundError("libfaketime.so.1: install the package faketime, or use --speed 1")
    return libraries[0]
