# SPDX-License-Identifier: MIT
"""Prints what was measured as tables: python3 -m bench.tables BUILD-FOLDER, which bench/run.sh has filled."""
import json
import os
import platform
import subprocess
import sys
import tempfile
from datetime import date
from pathlib import Path

SECONDS_PER_MINUTE = 60
MS_PER_S = 1000
US_PER_MS = 1000
ROUTER_LIBRARIES = ("libubox", "libubus", "libuci")
ARP_TITLES = {
    "recheck_of_hosts_that_answer": "re-check, hosts answer at once",
    "recheck_of_silent_hosts": "re-check, hosts never answer",
    "refresh_of_lan_hosts": "whole refresh, hosts answer",
    "refresh_among_invented_macs": "one host answers, so many others were made up",
}


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def table(title, rows):
    """Rows of texts, the first of them the heading; the first column stands left, the others right."""
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    print(f"\n{title}")
    for row in rows:
        first, *others = (text.rjust(width) for text, width in zip(row, widths))
        print(("  " + "  ".join([row[0].ljust(len(first)), *others])).rstrip())


def ms(microseconds):
    return f"{microseconds / US_PER_MS:.1f} ms"


def timed(runs, family):
    """(argument, figures) of every run of a benchmark that came to its end."""
    for run in runs:
        name, argument = run["name"].split("/")[:2]
        if name != family:
            continue
        if run.get("error_occurred"):
            print(f"\n{run['name']}: {run['error_message']}")
        else:
            yield argument, run


def show_dhcp(runs):
    rows = [["ports", "to the last OFFER", "send all", "first send to last OFFER", "release", "in bind()",
             "in close()", "all the rest", "CPU"]]
    for ports, run in timed(runs, "discover_to_last_offer"):
        whole = run["real_time"] * US_PER_MS + run["release_us"]
        rest = whole - run["bind_us"] - run["close_us"]
        rows.append([ports, ms(run["real_time"] * US_PER_MS), ms(run["send_all_us"]),
                     ms(run["first_send_to_last_offer_us"]), ms(run["release_us"]), ms(run["bind_us"]),
                     ms(run["close_us"]), ms(rest), ms(run["cpu_us"])])
    table("DISCOVER on all ports, peers answer at once (mean of 20 batches)", rows)
    print("  bind() and close() of a packet socket wait in the kernel until no processor can use its hook any more\n"
          "  (an RCU grace period each); the handler closes a port's socket before the next OFFER is read. \"All the\n"
          "  rest\" is the whole batch, release included, without these two calls.")


def show_arp(runs):
    rows = [["LAN ARP table", "hosts", "loop blocked", "in close()", "CPU", "hosts kept"]]
    for family, title in ARP_TITLES.items():
        for hosts, run in timed(runs, family):
            kept = f"{run['kept']:.0f}" if "kept" in run else "-"
            rows.append([title, hosts, ms(run["real_time"] * US_PER_MS), ms(run["close_us"]), ms(run["cpu_us"]), kept])
    table("Hosts of the LAN (mean of 3)", rows)
    print("  Every request is preceded by a wait of up to 300 ms that any ARP reply ends; 310 ms more for replies.")


def show_idle(facts):
    cpu, held = facts["cpu_s"], facts["held"]

    def per_minute(*names):
        return f"{sum(cpu[name] for name in names) * MS_PER_S * SECONDS_PER_MINUTE / facts['seconds']:.1f} ms"

    table(f"Idle daemon, both workers running, watched for {facts['seconds']:.0f} s", [
        ["CPU per minute", ""],
        ["  loop (heartbeat)", per_minute("thread_0")],
        ["  combo worker", per_minute("thread_1")],
        ["  link worker, without its script", per_minute("thread_2")],
        ["  the daemon itself, all three", per_minute("thread_0", "thread_1", "thread_2")],
        ["  the script, started once a second", per_minute("children_user", "children_system")],
        ["resident (RSS)", f"{held['rss']} KiB"],
        ["its share of it (PSS)", f"{held['pss']} KiB"],
        ["private", f"{held['private']} KiB"],
        ["threads", str(held["threads"])],
        ["descriptors", str(held["descriptors"])],
    ])
    print(f"  The script's figure is counted in steps of {MS_PER_S // os.sysconf('SC_CLK_TCK')} ms, in two parts.")


def show_program(program):
    with tempfile.TemporaryDirectory() as folder:
        stripped = Path(folder) / program.name
        output_of("strip", "-o", str(stripped), str(program))
        size = stripped.stat().st_size
        text, data, bss = output_of("size", str(stripped)).splitlines()[1].split()[:3]
    needed = [line.partition("[")[2].rstrip("]") for line in output_of("readelf", "-d", str(program)).splitlines()
              if "(NEEDED)" in line]
    table("Release program", [["stripped", f"{size} bytes"], ["text", text], ["data", data], ["bss", bss]])
    print(f"  needs: {', '.join(needed)}")
    if not any(name.startswith(ROUTER_LIBRARIES) for name in needed):
        print(f"  {', '.join(ROUTER_LIBRARIES)}: the stand-ins, linked in and part of the size")


def main(build):
    runs = json.loads((build / "probes.json").read_text())["benchmarks"]
    system = platform.uname()
    print(f"{date.today()}, {os.cpu_count()} processors, {system.system} {system.release}, {system.machine}")
    show_dhcp(runs)
    show_arp(runs)
    show_idle(json.loads((build / "idle.json").read_text()))
    show_program(build / "bin" / "wan_detect")


if __name__ == "__main__":
    main(Path(sys.argv[1]))
