# SPDX-License-Identifier: MIT
"""The private file system of a lab: the router's absolute paths are the real ones, the host's files stay untouched."""
import os
import shutil
import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
STATE = Path("/run/lab")
OVERLAID = ("etc", "usr", "tmp")
# Left over on the host, these would be taken for this router's own.
HOST_LEFTOVERS = ("/etc/config", "/etc/wan_detect", "/tmp/.uci", "/tmp/wan_detect.log", "/tmp/wan_detect_result",
                  "/tmp/protocol_detect_result")
PROGRAMS = ("wan_detect", "ubusd", "ubus", "uci", "lab_network_interface", "lab_flood", "lab_faults.so")
COMMANDS = {
    "get_all_port_state.sh": "/etc/wan_detect/get_all_port_state.sh",
    "get_combo_state.sh": "/etc/wan_detect/get_combo_state.sh",
    "network_lanwan_swap": "/usr/sbin/network_lanwan_swap",
    "wanlan_port_reload": "/sbin/wanlan_port_reload",
    "online-test": "/usr/sbin/online-test",
}


def mount(*arguments):
    subprocess.run(["mount", *arguments], check=True)


def overlay(folder):
    upper, work = STATE / "upper" / folder, STATE / "work" / folder
    upper.mkdir(parents=True)
    work.mkdir(parents=True)
    shutil.copystat(f"/{folder}", upper)
    mount("-t", "overlay", "overlay", "-o", f"lowerdir=/{folder},upperdir={upper},workdir={work}", f"/{folder}")


def remove(path):
    path = Path(path)
    if path.is_dir():
        shutil.rmtree(path)
    else:
        path.unlink(missing_ok=True)


def install(source, target):
    target = Path(target)
    target.parent.mkdir(parents=True, exist_ok=True)
    shutil.copyfile(source, target)
    target.chmod(0o755)


def make_private(programs):
    """Mounts this lab's own /run, /sys, /dev/shm, and overlays; installs the programs and the router's commands."""
    mount("-t", "tmpfs", "tmpfs", "/run")
    mount("-t", "tmpfs", "tmpfs", "/dev/shm")
    mount("-t", "sysfs", "sysfs", "/sys")
    STATE.mkdir()
    Path("/run/netns").mkdir()
    for folder in OVERLAID:
        overlay(folder)
    for path in HOST_LEFTOVERS:
        remove(path)
    Path("/etc/config").mkdir()
    for name in PROGRAMS:
        if (Path(programs) / name).exists():
            install(Path(programs) / name, f"/usr/sbin/{name}")
    for name, target in COMMANDS.items():
        install(ROOT / "router" / name, target)
    os.environ["PATH"] = "/usr/sbin:/usr/bin:/sbin:/bin"


def console():
    """Puts a pseudo-terminal in the place of /dev/console; returns the descriptor to read what was written to it."""
    master, slave = os.openpty()
    mount("--bind", os.ttyname(slave), "/dev/console")
    return master
