#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The daemon in the virtual router, started with few rights: they and everything that it starts keep no others.

    tests/packaging/rights.py [--build DIR] [--scenario NAME] [CAPABILITY...]    e.g. net_raw net_admin

plays a scenario with these capabilities and no new privileges; the status is 0 only when every check of it held."""
import argparse
import json
import shlex
import subprocess
import sys
import tempfile
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT))

from lab.front import find_programs    # noqa: E402  pylint: disable=wrong-import-position
from lab.mounts import PROGRAMS    # noqa: E402  pylint: disable=wrong-import-position

# A start, a cycle with a swap, a commit of the daemon's own and an end.
SCENARIO = "fake-wan"
TIME_LIMIT_S = 180


@dataclass
class Played:
    status: int
    failed: list    # what did not hold
    output: str

    def __bool__(self):
        return self.status == 0


def bounded(capabilities):
    """The command that starts another one with these capabilities (net_raw, CAP_NET_RAW) and no way to more."""
    names = [name.lower().removeprefix("cap_") for name in capabilities]
    wanted = ",".join(["-all", *(f"+{name}" for name in names)])
    return ["setpriv", "--no-new-privs", "--bounding-set", wanted, "--inh-caps", wanted]


def make_programs(build, folder, command, prepare):
    """The lab's programs, among them a `wan_detect` that runs the shell's lines `prepare`, and itself behind `command`."""
    own = find_programs(Path(build)).resolve()
    for name in PROGRAMS:
        if (own / name).exists() and name != "wan_detect":
            (folder / name).symlink_to(own / name)
    program = folder / "wan_detect"
    words = shlex.join([*command, str(own / "wan_detect")])
    program.write_text(f'#!/bin/sh\n{prepare}\nexec {words} "$@"\n', encoding="utf-8")
    program.chmod(0o755)


def play(build, command, scenario=SCENARIO, prepare=""):
    """Plays the scenario with the daemon behind `command`, in a lab where the lines `prepare` ran before."""
    with tempfile.TemporaryDirectory(prefix="rights-") as scratch:
        folder, report = Path(scratch) / "bin", Path(scratch) / "report"
        folder.mkdir()
        make_programs(build, folder, command, prepare)
        done = subprocess.run([sys.executable, "-m", "lab", "--build", folder, "--report", report, "--time-limit",
                               str(TIME_LIMIT_S), scenario], cwd=ROOT, capture_output=True, text=True, check=False)
        text = report.read_text(encoding="utf-8") if report.exists() else ""
    failed = [f"{check['what']}: {check['detail']}" for check in json.loads(text)["checks"]
              if not check["passed"]] if text else ["there is no report"]
    return Played(done.returncode, failed, done.stdout + done.stderr)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default=ROOT / "build" / "release")
    parser.add_argument("--scenario", default=SCENARIO)
    parser.add_argument("capabilities", nargs="*")
    options = parser.parse_args()
    played = play(options.build, bounded(options.capabilities), options.scenario)
    print(played.output)
    return played.status


if __name__ == "__main__":
    sys.exit(main())
