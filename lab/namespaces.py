# SPDX-License-Identifier: MIT
"""The namespaces that a lab is made of, for root and for a plain user, and what may stand in their way."""
import ctypes
import os
import re
import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
PYTHON = "/usr/bin/python3"
# Everything started inside ends with the first process of the new pid namespace, and that one with the front end.
LAB = ["setpriv", "--pdeathsig", "KILL", "unshare", "--mount", "--net", "--pid", "--fork", "--kill-child"]
OWN_USERS = ["unshare", "--user", "--map-root-user"]    # in it a plain user has root's rights over what is made there
MORE_USERS = ["--map-auto"]    # with the numbers that /etc/subuid lends to this user
RIGHTS = {"CAP_NET_ADMIN": 12, "CAP_NET_RAW": 13, "CAP_SYS_ADMIN": 21}
ALL_USERS = 0xFFFFFFFF
CLONE_NEWNS = 0x00020000
MS_BIND, MS_REC, MS_PRIVATE = 0x1000, 0x4000, 0x40000
# What forbids user namespaces: each with the value that does, and one that does not.
SWITCHES = {"kernel.unprivileged_userns_clone": ("0", "1"), "kernel.apparmor_restrict_unprivileged_userns": ("1", "0"),
            "user.max_user_namespaces": ("0", "10000")}
NO_USERS = ("this scenario needs users besides root: the package uidmap with a line for you in /etc/subuid and /etc/subgid, or "
            "real root")

libc = ctypes.CDLL(None, use_errno=True)


def has_rights():
    """Whether this is root as the lab needs it; a container's root often is not."""
    try:
        effective = re.search(r"^CapEff:\s*(\w+)", Path("/proc/self/status").read_text(), re.MULTILINE)[1]
    except OSError:
        effective = "f" * 16
    return os.geteuid() == 0 and all(int(effective, 16) >> number & 1 for number in RIGHTS.values())


def users_here():
    """How many users this user namespace knows; all where nobody tells."""
    try:
        return sum(int(line.split()[2]) for line in Path("/proc/self/uid_map").read_text().splitlines())
    except OSError:
        return ALL_USERS


def mount_points():
    """Where something is mounted; nothing where nobody tells."""
    try:
        return {line.split()[4] for line in Path("/proc/self/mountinfo").read_text().splitlines()}
    except OSError:
        return set()


def in_chroot():
    """Whether / is no mount point, so that nothing below it can be made private from here."""
    return "/" not in mount_points()


def command(needs_users=False):
    """What starts a program in namespaces of its own; `needs_users`: other users than root have to exist there."""
    users = [] if has_rights() else OWN_USERS + (MORE_USERS if needs_users else [])
    return users + LAB + (["--propagation", "unchanged"] if in_chroot() else ["--mount-proc"])


def how_to_enter(pid):
    """What leads into the lab whose first process has that number."""
    more = ("" if has_rights() else " --user --preserve-credentials") + (" --root" if in_chroot() else "")
    return f"nsenter --target {pid}{more} --mount --net --pid"


def environment():
    return dict(os.environ, PYTHONPATH=str(ROOT), PYTHONDONTWRITEBYTECODE="1")


def settle_in_chroot():
    """Makes / a mount point and all mounts private, which only the namespace's own root can do; entering the namespace once
    more leads to that."""
    here = os.open("/", os.O_PATH | os.O_DIRECTORY)
    check(libc.setns(os.pidfd_open(os.getpid()), CLONE_NEWNS), "the namespace's own root")
    check(libc.mount(None, b"/", None, MS_REC | MS_PRIVATE, None), "private mounts")
    os.fchdir(here)
    path = os.getcwd()
    bind(path, path)
    os.chroot(path)
    os.chdir("/")
    os.close(here)


def bind(source, target):
    """As `mount --rbind`, without a process for it."""
    check(libc.mount(os.fsencode(source), os.fsencode(target), None, MS_BIND | MS_REC, None), f"to bind {source}")


def check(result, what):
    if result != 0:
        raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()), what)


# --- what stands in the way -------------------------------------------------------------------------------------------

def obstacle(needs_users=False):
    """Why there can be no lab here, in one line; None when there can. Only a trial tells, so the ground of one is laid;
    root does without."""
    if has_rights() and not in_chroot():
        return NO_USERS if needs_users and users_here() < 2 else None
    trial = subprocess.run([*command(needs_users), PYTHON, "-m", "lab.inside", "--try"], env=environment(), cwd="/",
                           stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=False)
    return None if trial.returncode == 0 else reason_for(trial.stderr, needs_users)


def reason_for(complaints, needs_users):
    """What a trial complained of, with what helps."""
    complaint = complaints.partition("\n")[0] or "the trial ended without a word"
    if not has_rights() and not works(OWN_USERS):
        return why_no_users()
    if not has_rights() and needs_users and not works(OWN_USERS + MORE_USERS):
        return NO_USERS
    if "/proc failed" in complaint:
        return f"{complaint} (parts of /proc are hidden here, as a container does unless it is told to unmask them)"
    return complaint


def works(namespaces):
    return subprocess.run([*namespaces, "true"], stderr=subprocess.DEVNULL, check=False).returncode == 0


def why_no_users():
    if in_chroot():
        return "needs root, for no user namespace can begin in a chroot"
    for name, (forbids, allows) in SWITCHES.items():
        try:
            value = Path("/proc/sys", *name.split(".")).read_text().strip()
        except OSError:
            continue
        if value == forbids:
            return f"needs root, or user namespaces, which root allows here by: sysctl {name}={allows}"
    return "needs root with " + " and ".join(RIGHTS) + ", or user namespaces, which are forbidden here (by a container, perhaps)"
