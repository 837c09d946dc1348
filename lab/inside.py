# SPDX-License-Identifier: MIT
"""First process of the new pid namespace: sets the private mounts up, starts the scenario and collects orphans."""
import json
import os
import signal
import subprocess
import sys

from lab import mounts, namespaces, network
from lab.play import play


def collect_until_end(main_pid):
    """Waits for every child, the daemon's orphans included; returns the exit status of the scenario's process."""
    while True:
        pid, status = os.wait()
        if pid == main_pid:
            return os.waitstatus_to_exitcode(status)


def lay_ground():
    """The private file system, without anything of the router's in it yet."""
    if namespaces.in_chroot():
        namespaces.settle_in_chroot()
        mounts.mount("-t", "proc", "proc", "/proc")
    mounts.make_private()


def try_out():
    """Whether this machine lets a lab be; what does not work says so itself."""
    try:
        lay_ground()
        mounts.console()
        network.make_bridge()
        network.make_line("far", "eth0")
    except subprocess.CalledProcessError as error:
        sys.exit(error.returncode)
    except OSError as error:
        sys.exit(f"{error.filename or ''}: {error.strerror}".removeprefix(": "))


def main():
    if sys.argv[1:] == ["--try"]:
        return try_out()
    report_descriptor, settings = int(sys.argv[1]), json.loads(sys.argv[2])
    settings["how_to_enter"] = sys.stdin.readline().strip()
    lay_ground()
    mounts.install_router(settings["programs"])
    pid = os.fork()
    if pid == 0:
        sys.exit(play(settings, report_descriptor))
    os.close(report_descriptor)
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    status = collect_until_end(pid)
    sys.exit(status if status >= 0 else 128 - status)


if __name__ == "__main__":
    main()
