# SPDX-License-Identifier: MIT
"""The WAN role as others than the daemon see and move it."""
import subprocess


def move_role(router, name):
    """Somebody gives the WAN role to a port, as the daemon does: with the router's own command."""
    subprocess.run(["network_lanwan_swap", "set", f"port{router.port(name).number}"], check=True)
    router.say(f"somebody gives the WAN role to {name}")


def swaps(router, start=0):
    """The daemon's own swap commands from that log line on."""
    return [line.body for line in router.daemon.lines[start:] if line.matches("switch_wan_to_dev", "execute:")]


def swapped_to(router, name, seconds, start=0):
    """The log line that tells of the daemon's swap to that port, waiting for it; None when none comes."""
    found = router.daemon.wait_for("switch_wan_to_dev", f"success switching wan dev to {name}", seconds, start)
    return None if found is None else router.daemon.lines[found]


def stop_serving(line):
    """What is behind the line ends; its link stays."""
    for process in line.processes:
        process.terminate()
        process.wait()
