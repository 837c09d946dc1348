# SPDX-License-Identifier: MIT
"""A Debian machine of its own: a root folder, namespaces, and systemd as the first process. Needs root."""
import ctypes
import os
import platform
import shutil
import subprocess
import threading
import time
from contextlib import contextmanager
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
PLACE = ROOT / "build" / "packaging"
PACKAGE = "wan-detect"
EQUIPMENT = "systemd,dnsmasq-base"    # beside what the package depends on
DEPENDENCIES = "iproute2,iputils-arping,iputils-ping,libjson-c5"
ENVIRONMENT = {"PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin", "LC_ALL": "C", "DEBIAN_FRONTEND": "noninteractive"}
BOOT_S = 120
CLONE_NEWNS = 0x00020000

# The state of a machine is in memory only: an overlay over the root folder.
BOOT = r"""
set -e
lower=$1 console=$2
mount -t tmpfs tmpfs /mnt
mkdir /mnt/upper /mnt/work /mnt/root
mount -t overlay overlay -o "lowerdir=$lower,upperdir=/mnt/upper,workdir=/mnt/work" /mnt/root
cd /mnt/root
mount -t proc proc proc
mount --bind proc/sys proc/sys
mount -o remount,bind,ro proc/sys # the kernel's settings are the host's
mount -t sysfs -o ro sysfs sys
mount -t cgroup2 cgroup2 sys/fs/cgroup
mount -t tmpfs -o mode=755 tmpfs dev
mkdir dev/pts dev/shm
mount -t devpts -o newinstance,ptmxmode=0666 devpts dev/pts
ln -s pts/ptmx dev/ptmx
for name in null zero full random urandom tty console; do : >"dev/$name"; done
for name in null zero full random urandom tty; do mount --bind "/dev/$name" "dev/$name"; done
mount --bind "$console" dev/console
mount -t tmpfs -o mode=755 tmpfs run
mount -t tmpfs -o mode=1777 tmpfs tmp
mkdir run/host
pivot_root . run/host
umount -l /run/host
exec env -i container=test /lib/systemd/systemd --log-target=console
"""


def have_own_mounts():
    """What is mounted from now on ends with this process, however that ends."""
    if ctypes.CDLL(None, use_errno=True).unshare(CLONE_NEWNS) != 0:
        raise OSError(ctypes.get_errno(), "unshare")
    subprocess.run(["mount", "--make-rprivate", "/"], check=True)


def make_base():
    """The root folder that all machines begin with, made once."""
    have_own_mounts()
    base = PLACE / "base"
    if not base.is_dir():
        draft = PLACE / "base.new"
        shutil.rmtree(draft, ignore_errors=True)
        draft.mkdir(parents=True)
        subprocess.run(["debootstrap", "--variant=minbase", f"--include={EQUIPMENT},{DEPENDENCIES}",
                        platform.freedesktop_os_release()["VERSION_CODENAME"], str(draft)], check=True)
        draft.rename(base)
    return base


@contextmanager
def layer(folder, name):
    """A root folder that has all of another one, and keeps its own changes in memory while the block lasts."""
    place = PLACE / name
    root = place / "root"
    place.mkdir(parents=True, exist_ok=True)
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", str(place)], check=True)
    try:
        for part in ("upper", "work", "root"):
            (place / part).mkdir()
        subprocess.run(["mount", "-t", "overlay", "overlay", "-o",
                        f"lowerdir={folder},upperdir={place}/upper,workdir={place}/work", str(root)], check=True)
        yield root
    finally:
        subprocess.run(["umount", "-R", str(place)], check=True)
        place.rmdir()


def run_in(folder, *command, check=True):
    """Runs a command in the folder as root folder, without a service manager."""
    return subprocess.run(["unshare", "--mount", "--pid", "--net", "--fork", "--kill-child", "--mount-proc",
                           "--root", str(folder), "--wd", "/", *command], env=ENVIRONMENT, check=check, text=True,
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)


def install(folder, package, check=True):
    """Installs a file with a package in the folder."""
    (folder / "package.deb").write_bytes(package.read_bytes())
    done = run_in(folder, "dpkg", "-i", "/package.deb", check=check)
    (folder / "package.deb").unlink()
    return done


class Machine:
    """`with Machine(folder) as machine: machine.run("systemctl", "status")`; nothing of it outlives the block."""

    def __init__(self, folder):
        self.folder = folder
        self.console = b""
        self.group = None
        self.process = None
        self.pid = None

    def __enter__(self):
        master, slave = os.openpty()
        threading.Thread(target=self.read_console, args=(master,), daemon=True).start()
        self.group = make_group()
        self.process = subprocess.Popen(
            ["setpriv", "--pdeathsig", "KILL", "sh", "-c", 'echo $$ >"$0/cgroup.procs" && exec "$@"', str(self.group),
             "unshare", "--mount", "--net", "--pid", "--ipc", "--uts", "--cgroup", "--fork", "--kill-child",
             "--propagation", "private", "sh", "-c", BOOT, "boot", str(self.folder), os.ttyname(slave)],
            stdin=subprocess.DEVNULL, stdout=slave, stderr=slave)
        os.close(slave)
        try:
            self.wait_for_boot()
        except BaseException:
            self.__exit__()
            raise
        return self

    def wait_for_boot(self):
        end = time.monotonic() + BOOT_S
        while time.monotonic() < end and self.process.poll() is None:
            self.pid = self.pid or only_child(self.process.pid)
            if self.pid and self.run("systemctl", "is-system-running", check=False).stdout.strip() in ("running", "degraded"):
                return
            time.sleep(0.2)
        raise RuntimeError(f"systemd does not boot here:\n{self.console.decode(errors='replace')}")

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        remove_group(self.group)

    def read_console(self, descriptor):
        try:
            while chunk := os.read(descriptor, 4096):
                self.console += chunk
        except OSError:    # the machine is gone
            os.close(descriptor)

    def run(self, *command, check=True, seconds=60):
        return subprocess.run(["nsenter", "-t", str(self.pid), "-m", "-u", "-i", "-n", "-p", "-C", "-r", "-w", *command],
                              env=ENVIRONMENT, check=check, text=True, timeout=seconds, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)

    def script(self, text, **options):
        return self.run("sh", "-ec", text, **options)

    def content(self, path):
        """Text of a file, None where there is none."""
        done = self.run("cat", path, check=False)
        return done.stdout if done.returncode == 0 else None


def only_child(pid):
    children = Path(f"/proc/{pid}/task/{pid}/children").read_text().split()
    return int(children[0]) if children else None


def make_group():
    """A group of processes for the machine's systemd to divide, in the one hierarchy that it knows."""
    listing = subprocess.run(["findmnt", "-n", "-t", "cgroup2", "-o", "TARGET"], check=False, capture_output=True, text=True).stdout
    if not listing:
        raise RuntimeError("no control groups of version 2 here")
    group = Path(listing.splitlines()[0]) / f"machine-{os.getpid()}-{threading.get_ident()}"
    group.mkdir()
    return group


def remove_group(group):
    """From the leaves up, as soon as the last process has left."""
    for _ in range(100):
        try:
            for folder in sorted((path for path in group.rglob("*") if path.is_dir()), reverse=True):
                folder.rmdir()
            group.rmdir()
            return
        except OSError:
            time.sleep(0.1)
