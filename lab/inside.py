# SPDX-License-Identifier: MIT
"""First process of the new pid namespace: sets the private mounts up, starts the scenario and collects orphans."""
import json
import os
import signal
import sys

from lab import mounts
from lab.play import play


def collect_until_end(main_pid):
    """Waits for every child, the daemon's orphans included; returns the exit status of the scenario's process."""
    while True:
        pid, status = os.wait()
        if pid == main_pid:
            return os.waitstatus_to_exitcode(status)


def main():
    report_descriptor, settings = int(sys.argv[1]), json.loads(sys.argv[2])
    settings["host_pid"] = int(sys.stdin.readline())
    mounts.make_private(settings["programs"])
    pid = os.fork()
    if pid == 0:
        sys.exit(play(settings, report_descriptor))
    os.close(report_descriptor)
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    status = collect_until_end(pid)
    sys.exit(status if status >= 0 else 128 - status)


if __name__ == "__main__":
    main()
