# SPDX-License-Identifier: MIT
"""Front end on the host: reads the options, makes the namespaces, returns the exit status of the scenario inside."""
import argparse
import json
import os
import signal
import subprocess
import sys
from pathlib import Path

from lab import namespaces
from lab.namespaces import ROOT
from lab.scenarios import load_scenarios

LONGEST_SET_UP_S = 60
LONGEST_SCENARIO_S = 600    # of the daemon's own
SECONDS_PER_MINUTE = 60
INTERRUPT_GRACE_S = 1
EXIT_WRONG_USE = 2
EXIT_CANNOT_PLAY = 77    # as test harnesses know it: skipped
EXIT_TIME_LIMIT = 124
EXIT_INTERRUPTED = 130


def parse_options(arguments):
    parser = argparse.ArgumentParser(prog="./run.sh", description="A virtual router that looks for its WAN port.")
    parser.add_argument("scenario", nargs="?", default="dhcp", help="what to play (default: dhcp), see --list")
    parser.add_argument("--list", action="store_true", help="name the scenarios, one line each")
    parser.add_argument("--check", action="store_true", help="only tell whether it can be played here, and if not, why")
    parser.add_argument("--speed", type=float, default=10.0, help="how many times faster than real (default: 10)")
    parser.add_argument("--keep", action="store_true", help="leave the router up afterwards, until Ctrl-C")
    parser.add_argument("--log", action="store_true", help="show the daemon's log lines too")
    parser.add_argument("--valgrind", action="store_true", help="run the daemon under valgrind; best with --speed 1")
    parser.add_argument("--minutes", type=float, default=5.0, help="length of the storm, of the daemon's own (default: 5)")
    parser.add_argument("--count", type=int, default=20, help="cycles of the soak, moments of the ends (default: 20)")
    parser.add_argument("--seed", default="1", help="of the dice (default: 1)")
    parser.add_argument("--option", action="append", default=[], metavar="NAME=VALUE", help="for a scenario that takes some")
    parser.add_argument("--build", type=Path, help="build folder, or the folder of the programs themselves")
    parser.add_argument("--report", type=Path, help="write all that was seen to this file, as JSON")
    parser.add_argument("--time-limit", type=float, help="end with status 124 after so many real seconds (default: "
                        "more than any scenario takes)")
    return parser.parse_args(arguments)


def list_scenarios(scenarios):
    width = max(len(name) for name in scenarios)
    for name, scenario in scenarios.items():
        print(f"  {name:<{width}}  {scenario.summary}")
    return 0


def find_programs(build):
    folder = (build or ROOT / "build" / "release").resolve()
    for candidate in (folder / "bin", folder):
        if (candidate / "ubusd").exists():
            return candidate
    sys.exit(f"run.sh: no programs in {folder}: build first, or name the folder with --build")


def settings_for(options):
    return {
        "scenario": options.scenario,
        "speed": options.speed,
        "log": options.log,
        "keep": options.keep,
        "valgrind": options.valgrind,
        "minutes": options.minutes,
        "count": options.count,
        "seed": options.seed,
        "options": dict(option.split("=", 1) for option in options.option),
        "programs": str(find_programs(options.build)),
        "color": sys.stdout.isatty() and "NO_COLOR" not in os.environ,
        "want_report": options.report is not None,
    }


def first_process_inside(outer_pid):
    """The host's own number of the first process in the new pid namespace, or None while there is none yet; 0 where nobody
    can tell."""
    if not Path("/proc/self").exists():
        return 0
    try:
        children = Path(f"/proc/{outer_pid}/task/{outer_pid}/children").read_text().split()
    except OSError:
        return None
    return int(children[0]) if children else None


def read_report(descriptor):
    with os.fdopen(descriptor, "rb") as stream:
        return stream.read()


def wait_for_end(process, reader, options):
    """Reads what the inside reports until it closes its end, then collects its exit status."""
    pid = None
    while pid is None and process.poll() is None:
        pid = first_process_inside(process.pid)
    if pid is not None:
        process.stdin.write(f"{namespaces.how_to_enter(pid or 'PID')}\n".encode())
        process.stdin.flush()
    report = read_report(reader)
    if options.report:
        options.report.write_bytes(report)
    return process.wait()


def longest_time(options):
    """Real seconds after which a scenario is stuck."""
    return LONGEST_SET_UP_S + (LONGEST_SCENARIO_S + options.minutes * SECONDS_PER_MINUTE) / options.speed


def after_interrupt(process):
    """Ctrl-C reaches the inside as well: a kept router then ends with its scenario's own status."""
    try:
        return process.wait(INTERRUPT_GRACE_S)
    except subprocess.TimeoutExpired:
        process.kill()
        return EXIT_INTERRUPTED


def play(options, needs_users):
    reader, writer = os.pipe()
    command = [*namespaces.command(needs_users), namespaces.PYTHON, "-m", "lab.inside", str(writer),
               json.dumps(settings_for(options))]
    process = subprocess.Popen(command, env=namespaces.environment(), pass_fds=[writer], stdin=subprocess.PIPE, cwd="/")
    os.close(writer)

    def end_now(number, _frame):
        process.kill()
        if number == signal.SIGALRM:
            print("\nrun.sh: the scenario did not end in time", file=sys.stderr)
        sys.exit(EXIT_TIME_LIMIT if number == signal.SIGALRM else 128 + number)

    signal.signal(signal.SIGTERM, end_now)
    signal.signal(signal.SIGALRM, end_now)
    if not options.keep:
        signal.setitimer(signal.ITIMER_REAL, options.time_limit or longest_time(options))
    try:
        return wait_for_end(process, reader, options)
    except KeyboardInterrupt:
        return after_interrupt(process)


def main(arguments):
    options = parse_options(arguments)
    scenarios = load_scenarios()
    if options.list:
        return list_scenarios(scenarios)
    if options.scenario not in scenarios:
        print(f"run.sh: no scenario '{options.scenario}'; there are: {', '.join(scenarios)}", file=sys.stderr)
        return EXIT_WRONG_USE
    needs_users = scenarios[options.scenario].needs_users
    obstacle = namespaces.obstacle(needs_users)
    if obstacle:
        print(f"run.sh: {obstacle}", file=sys.stderr)
        return EXIT_CANNOT_PLAY
    return 0 if options.check else play(options, needs_users)
