# SPDX-License-Identifier: MIT
"""Several labs side by side: starts them, tells how far they are, and collects what they report."""
import json
import re
import subprocess
import sys
import threading
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
PROGRESS = re.compile(r"^progress: (\d+) of \d+")
TELL_S = 15
SHOWN_LINES = 40


class Lab(threading.Thread):
    """One lab: plays a scenario, keeps what it prints in a file, and knows how far it is."""

    def __init__(self, number, options, scenario, count, limit_s, own):
        super().__init__(daemon=True)
        self.number, self.done = number, 0
        self.log = options.logs / f"{scenario}-{number}.txt"
        self.report_file = options.logs / f"{scenario}-{number}.json"
        self.report_file.unlink(missing_ok=True)
        self.command = [sys.executable, "-m", "lab", scenario, "--build", str(options.build),
                        "--speed", str(options.speed), "--count", str(count), "--seed", f"{options.seed}-{number}",
                        "--report", str(self.report_file), "--time-limit", str(limit_s),
                        *(part for option in own for part in ("--option", option))]
        self.status = None

    def run(self):
        with subprocess.Popen(self.command, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              errors="replace") as lab, open(self.log, "w", buffering=1, encoding="utf-8") as log:
            for line in lab.stdout:
                log.write(line)
                found = PROGRESS.match(line)
                if found:
                    self.done = int(found.group(1))
        self.status = lab.returncode

    def report(self):
        text = self.report_file.read_text(encoding="utf-8") if self.report_file.exists() else ""
        return json.loads(text) if text else None


def play_side_by_side(options, scenario, total, what, limit_s, *own):
    """Plays the scenario in all labs, with options of its `own`; their reports, or an exit when one has none."""
    options.logs.mkdir(parents=True, exist_ok=True)
    share = -(-total // options.labs)
    labs = [Lab(number, options, scenario, share, limit_s, own) for number in range(1, options.labs + 1)]
    started = time.monotonic()
    for lab in labs:
        lab.start()
    while any(lab.is_alive() for lab in labs):
        end = time.monotonic() + TELL_S
        for lab in labs:
            lab.join(max(0.0, end - time.monotonic()))
        print(f"{time.monotonic() - started:6.0f} s  {sum(lab.done for lab in labs)} of {total} {what}", flush=True)
    lost = [lab for lab in labs if lab.report() is None]
    for lab in lost:
        print(f"lab {lab.number} ended with status {lab.status} and no report, see {lab.log}")
        print("".join(lab.log.read_text(encoding="utf-8").splitlines(keepends=True)[-SHOWN_LINES:]))
    if lost:
        sys.exit(1)
    return [lab.report() | {"status": lab.status, "log": lab.log} for lab in labs]


def tell_failures(reports):
    """Prints every check that failed; whether there was one."""
    failed = False
    for number, report in enumerate(reports, 1):
        for check in (check for check in report["checks"] if not check["passed"]):
            failed = True
            print(f"  FAILED in lab {number}: {check['what']} ({check['detail']})")
        if report["status"] != 0:
            failed = True
            print(f"  FAILED lab {number}: status {report['status']}, see {report['log']}")
    return failed


def add_common_options(parser):
    parser.add_argument("--build", type=Path, required=True, help="build folder with the programs")
    parser.add_argument("--labs", type=int, default=4, help="how many labs play side by side (default: 4)")
    parser.add_argument("--speed", type=float, default=10.0, help="how many times faster than real (default: 10)")
    parser.add_argument("--seed", default="1", help="of the dice (default: 1)")
    parser.add_argument("--logs", type=Path, default=ROOT / "build" / "soak-logs", help="folder for what labs print")


def joined(counts):
    return ", ".join(f"{count} {what}" for what, count in sorted(counts.items(), key=lambda item: -item[1]))
