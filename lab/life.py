# SPDX-License-Identifier: MIT
"""One life of the daemon, from its command line to the exit status that its parent collects."""
import ctypes
import os
import resource
import signal
import subprocess
import time
from pathlib import Path

from lab import sanitizers
from lab.daemon import LINE, LOG, PROGRAM
from lab.mounts import STATE

FAULTS = "/usr/sbin/lab_faults.so"
MARK = "LAB_LIFE"    # environment variable by which the daemon's own processes are told from the lab's
PR_SET_CHILD_SUBREAPER = 36
ADDR_NO_RANDOMIZE = 0x0040000    # the same stack has the same addresses in every life
POLL_REAL_S = 0.01
READY_REAL_S = 30.0
FORK_REAL_S = 20.0
LINGER_REAL_S = 1.0    # a script that was at work may finish

libc = ctypes.CDLL(None, use_errno=True)


def adopt_orphans():
    """From now on the daemon, an orphan by its fork, is this process's child: its exit status comes here."""
    if libc.prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0:
        raise OSError(ctypes.get_errno(), "prctl")


def wait_until(condition, real_seconds=READY_REAL_S):
    end = time.monotonic() + real_seconds
    while True:
        value = condition()
        if value or time.monotonic() >= end:
            return value
        time.sleep(POLL_REAL_S)


def children_named(name):
    """Numbers of this process's children of that name, dead and not collected ones included, oldest first."""
    found = []
    for path in Path("/proc").glob("[0-9]*/stat"):
        try:
            head, _, rest = path.read_text().rpartition(")")
        except OSError:
            continue
        if head.partition("(")[2] == name and int(rest.split()[1]) == os.getpid():
            found.append(int(path.parent.name))
    return sorted(found)


def child_named(name):
    """The oldest one: a script that the daemon had just started when it ended bears its name too. None without one."""
    return next(iter(children_named(name)), None)


def collect_dead(name):
    for pid in children_named(name):
        os.waitpid(pid, os.WNOHANG)


def holds_signals_back(program):
    """Whether the program was built with the thread sanitizer, which lets no signal through to a thread that sits in a
    system call."""
    return "libtsan" in subprocess.run(["ldd", program], capture_output=True, text=True, check=False).stdout


class Life:
    """Starts the daemon in real time, or in the time of a clock; `fault` is one of those of faults.cpp, `page` one of
    lab.faults. `blocked` signals, `closed` descriptors and the number of `descriptors` are what a careless parent leaves
    it with."""
    count = 0

    def __init__(self, *arguments, clock=None, fault=None, page=None, blocked=(), closed=(), descriptors=None):
        Life.count += 1
        self.mark = f"{MARK}={Life.count}"
        self.output = STATE / f"life-{Life.count}.out"
        LOG.write_bytes(b"")
        environment = self.environment(clock, fault, page)

        def neglect():
            signal.signal(signal.SIGINT, signal.SIG_DFL)    # a shell's background job has it ignored
            signal.pthread_sigmask(signal.SIG_BLOCK, blocked)
            if page:
                libc.personality(ADDR_NO_RANDOMIZE)
            if descriptors:
                resource.setrlimit(resource.RLIMIT_NOFILE, (descriptors, resource.getrlimit(resource.RLIMIT_NOFILE)[1]))
            for descriptor in closed:
                os.close(descriptor)

        with open(self.output, "wb") as output:
            self.first_status = self.start([PROGRAM, *arguments], stdin=subprocess.DEVNULL, stdout=output,
                                           stderr=output, env=environment, preexec_fn=neglect)
        self.pid = child_named("wan_detect")

    def start(self, command, **options):
        """Exit status of the first process."""
        return subprocess.run(command, check=False, timeout=FORK_REAL_S, **options).returncode

    @staticmethod
    def environment(clock, fault, page):
        changed = dict(clock.environment() if clock else os.environ, **{MARK: str(Life.count)})
        if fault or page:
            preloaded = changed.get("LD_PRELOAD")
            changed.update(LD_PRELOAD=f"{FAULTS}:{preloaded}" if preloaded else FAULTS)
        if fault:
            changed.update(LAB_FAULT=fault)
        if page:
            changed.update(LAB_FAULT_PAGE=str(page.path))
        return sanitizers.environment(PROGRAM, changed)

    def lines(self):
        """[level, function, body] of what was logged, to the log file or to standard output."""
        text = LOG.read_text(errors="replace") + self.output.read_text(errors="replace")
        return [[found.group(1), found.group(3), found.group(5)] for found in LINE.finditer(text)]

    def said(self, text, real_seconds=READY_REAL_S):
        return wait_until(lambda: any(text in body for _, _, body in self.lines()), real_seconds)

    def processes(self):
        """The living processes of this life: the daemon and the scripts that it started."""
        found = []
        for path in Path("/proc").glob("[0-9]*/environ"):
            try:
                if self.mark in path.read_text(errors="replace").split("\0"):
                    found.append(int(path.parent.name))
            except OSError:
                continue    # gone meanwhile
        return found

    def names(self):
        found = []
        for pid in self.processes():
            try:
                found.append(Path(f"/proc/{pid}/comm").read_text().strip())
            except OSError:
                continue
        return found

    def threads(self):
        return len(list(Path(f"/proc/{self.pid}/task").glob("*")))

    def signal(self, number=signal.SIGTERM):
        os.kill(self.pid, number)

    def end(self, real_seconds, every=None):
        """Waits for the daemon's end, sending SIGTERM in between; what became of this life."""
        start = last = time.monotonic()
        status = None
        while self.pid and status is None and time.monotonic() < start + real_seconds:
            pid, raw = os.waitpid(self.pid, os.WNOHANG)
            if pid:
                status = os.waitstatus_to_exitcode(raw)
            elif every and time.monotonic() >= last + every:
                last = time.monotonic()
                self.signal()
            else:
                time.sleep(POLL_REAL_S)
        seconds = round(time.monotonic() - start, 2)
        if self.pid and status is None:    # it never came to its end
            os.kill(self.pid, signal.SIGKILL)
            os.waitpid(self.pid, 0)
        return {"first_status": self.first_status, "status": status, "seconds": seconds,
                "left": self.left_behind(), "forked": self.pid is not None, "lines": self.lines(),
                "output": self.output.read_text(errors="replace")}

    def left_behind(self):
        """What still runs a moment after the end, by name; it is ended here."""
        wait_until(lambda: not self.processes(), LINGER_REAL_S)
        names = self.names()
        for pid in self.processes():
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                continue
        wait_until(lambda: not self.processes(), LINGER_REAL_S)
        collect_dead("wan_detect")
        return names
