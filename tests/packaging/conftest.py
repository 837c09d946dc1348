# SPDX-License-Identifier: MIT
"""A router's files for the tests of the packages: /etc/config, /etc/board.json, /tmp and /run of their own."""
import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parent.parent.parent
STANDINS = Path(__file__).resolve().parent / "standins"
sys.path[:0] = [str(ROOT), str(ROOT / "tests")]

from lab.front import find_programs    # noqa: E402  pylint: disable=wrong-import-position
from lab.namespaces import ALL_USERS, users_here    # noqa: E402  pylint: disable=wrong-import-position
from skipped import pytest_terminal_summary    # noqa: E402,F401  pylint: disable=wrong-import-position,unused-import

FOR_USER = users_here() != ALL_USERS    # in a plain user's namespace, where he is root and there is nobody else
OVERLAY_OPTIONS = "userxattr," if FOR_USER else ""


def pytest_addoption(parser):
    parser.addoption("--build", default=str(ROOT / "build" / "release"), help="build folder with the programs")


def locked(path):
    """Lines of the shell that have the file locked from then on, by somebody who ends with the router."""
    return f"exec 9<{path}; flock -x 9; setsid sleep 60 >/dev/null 2>&1 & exec 9<&-"


class Files:
    """The folder `config` is /etc/config there, `state` is /mnt/state and the first place of the path. What the host has in the
    router's places is not seen: an overlay takes a character device 0/0 for what was removed."""

    def __init__(self, folder, build):
        self.config, self.state = folder / "config", folder / "state"
        self.config.mkdir()
        self.state.mkdir()
        shutil.copyfile(find_programs(Path(build)).resolve() / "uci", self.state / "uci")
        for standin in STANDINS.iterdir():
            shutil.copyfile(standin, self.state / standin.name)
        for program in self.state.iterdir():
            program.chmod(0o755)

    def write(self, package, text):
        (self.config / package).write_text(text, encoding="utf-8")

    def program(self, name, text):
        (self.state / name).write_text(text, encoding="ascii")
        (self.state / name).chmod(0o755)

    def texts(self):
        return {path.name: path.read_text(encoding="utf-8") for path in self.config.iterdir()}

    def run(self, *commands, network=False):
        """Runs these lines of the shell; the files that they leave in /run/left are in `state` afterwards."""
        if FOR_USER and any("chown" in line for line in commands):
            pytest.skip("needs users besides root")
        lines = ["mount --make-rprivate /", "mount -t tmpfs tmpfs /mnt", "mkdir /mnt/upper /mnt/work /mnt/state",
                 *(f"mknod /mnt/upper/{name} c 0 0" for name in ("config", "wan_detect") if os.path.lexists(f"/etc/{name}")),
                 f"mount -t overlay -o {OVERLAY_OPTIONS}lowerdir=/etc,upperdir=/mnt/upper,workdir=/mnt/work overlay /etc",
                 "mkdir /etc/config", f"mount --bind {self.config} /etc/config",
                 f"mount --bind {self.state} /mnt/state", "mount -t tmpfs tmpfs /run", "mkdir -p /run/lock",
                 f"mkdir /mnt/root && mount --bind {ROOT} /mnt/root && cd /mnt/root",
                 "mount -t tmpfs -o mode=1777 tmpfs /tmp", *(["mount -t sysfs sysfs /sys"] if network else []), *commands]
        # What it leaves running in the background ends with it.
        own = ["--mount", "--pid", "--fork", "--kill-child", "--mount-proc", *(["--net"] if network else [])]
        return subprocess.run(["unshare", *own, "sh", "-ec", "\n".join(lines)],
                              capture_output=True, text=True, check=False,
                              env={**os.environ, "PATH": "/mnt/state:/usr/sbin:/usr/bin:/sbin:/bin"})

    def shown(self, package):
        """The package as `uci show` prints it, in lines."""
        done = self.run(f"uci -q show {package} >/mnt/state/shown || true")
        assert done.returncode == 0, done.stderr
        return (self.state / "shown").read_text(encoding="utf-8").splitlines()


@pytest.fixture(name="router")
def make_router(tmp_path, request):
    return Files(tmp_path, request.config.getoption("--build"))


# Who waits for a lock for 5 s waits for 1 s.
IMPATIENT = """#!/bin/sh
case $* in *"-s KILL 5 "*) shift 3; set -- -s KILL 1 "$@" ;; esac
exec "$(PATH=${PATH#/mnt/state:}; command -v timeout)" "$@"
"""


@pytest.fixture(name="impatient")
def make_impatient(router):
    router.program("timeout", IMPATIENT)


@pytest.fixture(name="shell", params=["dash", "router-ash"])
def each_shell(request):
    if not shutil.which(request.param.replace("router-ash", "busybox")):
        pytest.skip(f"no {request.param}")
    return request.param
