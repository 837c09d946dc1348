# SPDX-License-Identifier: MIT
"""What the idle daemon costs: a working line is in the WAN port of the virtual router, time is real, nothing happens.

python3 -m bench.idle BUILD-FOLDER SECONDS prints the figures as JSON; `bench/run.sh` makes a table of them."""
import json
import os
import subprocess
import sys
import time
from pathlib import Path

from lab import front, inside, namespaces
from lab.scenarios.base import Scenario
from lab.upstream import DhcpServer, Silent

INSIDE = "--inside"
REAL_SPEED = 1
DEFAULT_LOG_LEVEL = 2
WORKERS = 2
START_LIMIT_S = 120      # links, the pause before the first cycle, and a cycle should the line be judged silent
SETTLE_S = 5             # the first passes of the threads read the configuration and print tables
TICKS_PER_S = os.sysconf("SC_CLK_TCK")
NS_PER_S = 1e9


class Idle(Scenario):
    name = "idle"
    summary = "a working line in the WAN port, and nothing happens"
    story = "The line with the DHCP server is where it belongs. The daemon rests, and its costs are noted."
    cables = {"eth0": DhcpServer(), "eth1": Silent()}
    seconds = 60

    def play(self, stage):
        router = stage.router
        router.clock.wait_until(lambda: router.health.state == "connected", START_LIMIT_S)
        stage.note("start_status", router.daemon.start(DEFAULT_LOG_LEVEL))
        pid = router.daemon.pid
        router.clock.wait_until(lambda: len(threads(pid)) == 1 + WORKERS, START_LIMIT_S)
        time.sleep(SETTLE_S)
        before, start = costs(pid), time.monotonic()
        time.sleep(self.seconds)
        after = costs(pid)
        stage.note("seconds", time.monotonic() - start)
        stage.note("cpu_s", {name: after[name] - before[name] for name in after})
        stage.note("held", held(pid))

    def judge(self, stage):
        super().judge(stage)
        threads_seen = stage.facts["held"]["threads"]
        stage.check("the loop and both workers run", threads_seen == 1 + WORKERS, f"{threads_seen} threads")
        probes = stage.router.probes()
        stage.check("the daemon was idle: it probed nothing", not probes, f"{len(probes)} probes")

    def verdict(self, stage):
        return "the idle daemon's costs are noted" if stage.passed() else "a check failed"


def threads(pid):
    return list(Path(f"/proc/{pid}/task").iterdir())


def costs(pid):
    """Processor seconds up to now: the daemon's own, by thread as well, and those of the children it has collected."""
    fields = Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    user, system, children_user, children_system = (int(field) / TICKS_PER_S for field in fields[11:15])
    found = {"own_user": user, "own_system": system, "children_user": children_user,
             "children_system": children_system}
    for number, task in enumerate(sorted(threads(pid), key=lambda task: int(task.name))):
        found[f"thread_{number}"] = int((task / "schedstat").read_text().split()[0]) / NS_PER_S
    return found


def held(pid):
    """Memory in KiB, threads and descriptors."""
    process = Path(f"/proc/{pid}")
    sizes = dict(line.split()[:2] for line in (process / "smaps_rollup").read_text().splitlines()[1:])
    kib = {key.rstrip(":"): int(size) for key, size in sizes.items()}
    return {"rss": kib["Rss"], "pss": kib["Pss"], "private": kib["Private_Clean"] + kib["Private_Dirty"],
            "threads": len(threads(pid)), "descriptors": len(list((process / "fd").iterdir()))}


def settings(build, seconds):
    options = front.parse_options([Idle.name, "--speed", str(REAL_SPEED), "--build", str(build)])
    return front.settings_for(options) | {"color": False, "want_report": True, "seconds": seconds}


def measure(build, seconds):
    """The scenario's facts, or None when the lab or one of its checks failed; what it showed goes to standard error."""
    reader, writer = os.pipe()
    inner = [sys.executable, "-m", "bench.idle", INSIDE, str(writer), json.dumps(settings(build, seconds))]
    process = subprocess.Popen(namespaces.command() + inner, pass_fds=[writer], stdin=subprocess.PIPE, stdout=sys.stderr,
                               cwd="/", env=namespaces.environment())
    os.close(writer)
    process.stdin.write(b"\n")    # the inside asks how it is entered, which only a kept router would show
    process.stdin.flush()
    report = front.read_report(reader)
    return json.loads(report)["facts"] if process.wait() == 0 else None


def main(arguments):
    if arguments[0] == INSIDE:
        Idle.seconds = json.loads(arguments[2])["seconds"]
        sys.argv = arguments
        return inside.main()
    facts = measure(Path(arguments[0]), float(arguments[1]))
    print(json.dumps(facts))
    return 0 if facts else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
