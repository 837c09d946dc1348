# SPDX-License-Identifier: MIT
"""The private file system of a lab: the router's absolute paths are the real ones, the host's files stay untouched."""
import os
import shutil
import stat
import subprocess
from contextlib import suppress
from pathlib import Path

from lab.namespaces import ALL_USERS, bind, mount_points, users_here

ROOT = Path(__file__).resolve().parent.parent
STATE = Path("/run/lab")
OVERLAID = ("/etc", "/usr", "/tmp")
# In a plain user's namespace the host's folders belong to nobody: only what is laid over each of these can be written.
LAID_OVER_FOR_USER = ("/etc", "/usr/sbin", "/tmp")
# Left over on the host, these would be taken for this router's own.
HOST_LEFTOVERS = ("/etc/config", "/etc/wan_detect", "/tmp/.uci", "/tmp/wan_detect.log", "/tmp/wan_detect_result",
                  "/tmp/protocol_detect_result")
PROGRAMS = ("wan_detect", "ubusd", "ubus", "uci", "lab_network_interface", "lab_flood", "lab_faults.so",
            "lab_exact_waits.so")
COMMANDS = {
    "get_all_port_state.sh": "/etc/wan_detect/get_all_port_state.sh",
    "get_combo_state.sh": "/etc/wan_detect/get_combo_state.sh",
    "network_lanwan_swap": "/usr/sbin/network_lanwan_swap",
    "wanlan_port_reload": "/sbin/wanlan_port_reload",
    "online-test": "/usr/sbin/online-test",
}


def mount(*arguments):
    subprocess.run(["mount", *arguments], check=True)


def upper_of(folder):
    """What is written to a folder of the host goes there."""
    upper = STATE / "upper" / folder.strip("/").replace("/", "-")
    upper.mkdir(parents=True)
    shutil.copystat(folder, upper)
    return upper


def overlay(folder, *options):
    """Lays a writable folder over one of the host's, whose leftovers are not seen there."""
    upper = upper_of(folder)
    work = STATE / "work" / upper.name
    work.mkdir(parents=True)
    for path in map(Path, HOST_LEFTOVERS):
        if path.parent == Path(folder) and os.path.lexists(path):
            os.mknod(upper / path.name, stat.S_IFCHR)    # by which an overlay knows what was removed
    mount("-t", "overlay", "overlay", "-o", ",".join([f"lowerdir={folder}", f"upperdir={upper}", f"workdir={work}", *options]),
          folder)


def lay_over_for_user(folder):
    """The same for a plain user, who may not lay an overlay over other mounts: there each thing is bound to its place in a
    folder of his own."""
    if not any(point.startswith(f"{folder}/") for point in mount_points()):
        overlay(folder, "userxattr")
        return
    upper = upper_of(folder)
    for entry in os.scandir(folder):
        with suppress(FileNotFoundError):    # others come and go meanwhile
            if entry.path not in HOST_LEFTOVERS:
                bind_entry(entry, upper / entry.name)
    bind(upper, folder)


def bind_entry(entry, place):
    if entry.is_symlink():
        place.symlink_to(os.readlink(entry.path))
        return
    (place.mkdir if entry.is_dir() else place.touch)()
    bind(entry.path, place)


def install(source, target):
    target = Path(target)
    target.parent.mkdir(parents=True, exist_ok=True)
    target.unlink(missing_ok=True)
    shutil.copyfile(source, target)
    target.chmod(0o755)


def make_devices():
    """What a chroot or a container may lack: pseudo-terminals, and a console to put one of them in the place of."""
    if os.path.exists("/dev/console"):
        if not os.path.exists("/dev/pts/ptmx"):
            mount("-t", "devpts", "devpts", "/dev/pts")
        return
    folder = STATE / "dev"
    folder.mkdir()
    for name in ("null", "zero", "full", "random", "urandom", "tty", "ptmx", "console"):
        (folder / name).touch()
        if name != "console":
            mount("--bind", f"/dev/{name}", str(folder / name))
    for name in ("pts", "shm"):
        (folder / name).mkdir()
    mount("--rbind", str(folder), "/dev")
    mount("-t", "devpts", "devpts", "/dev/pts")


def make_private():
    """Mounts this lab's own /run, /sys, /dev/shm, and overlays."""
    is_hosts_root = users_here() == ALL_USERS
    mount("-t", "tmpfs", "tmpfs", "/run")
    STATE.mkdir()
    make_devices()
    mount("-t", "tmpfs", "tmpfs", "/dev/shm")
    mount("-t", "sysfs", "sysfs", "/sys")
    Path("/run/netns").mkdir()
    for folder in OVERLAID if is_hosts_root else LAID_OVER_FOR_USER:
        (overlay if is_hosts_root else lay_over_for_user)(folder)
    os.environ["PATH"] = "/usr/sbin:/usr/bin:/sbin:/bin"


def install_router(programs):
    """The programs, and the router's own commands."""
    Path("/etc/config").mkdir()
    for name in PROGRAMS:
        if (Path(programs) / name).exists():
            install(Path(programs) / name, f"/usr/sbin/{name}")
    for name, target in COMMANDS.items():
        install(ROOT / "router" / name, target)


def console():
    """Puts a pseudo-terminal in the place of /dev/console; returns the descriptor to read what was written to it."""
    master, slave = os.openpty()
    mount("--bind", os.ttyname(slave), "/dev/console")
    return master
