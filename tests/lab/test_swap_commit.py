# SPDX-License-Identifier: MIT
"""What the swap command commits: nothing that has no room, nothing for nothing, nothing of a stranger's."""
import os
import shutil
import subprocess
from pathlib import Path

import pytest

from lab.front import find_programs

ROUTER = Path(__file__).resolve().parent.parent.parent / "router"
SHELLS = [["sh"]] + ([["busybox", "ash"]] if shutil.which("busybox") else [])
DISK_UCI = """#!/bin/sh
# The real program, which tells of commits and, with $STATE/cut, leaves nothing of the file, as on a disk that is full.
"$UCI" "$@" || exit
case "$*" in *commit*) echo committed >>"$STATE/commits"; [ ! -e "$STATE/cut" ] || : >/etc/config/switch ;; esac
"""
SWITCH = "".join(f"\nconfig switch_port 'port{number}'\n\toption ifname 'eth{number - 1}'\n" for number in (1, 2)) + \
    "\nconfig wan 'wan'\n\toption switch_port 'port1'\n\n"
FILL = "cat /dev/zero >/etc/config/filler 2>/dev/null || true"
STAGED = "mkdir -m 755 /tmp/.uci; echo \"switch.wan.evil='1'\" >/tmp/.uci/switch"


def program(path, text):
    path.write_text(text, encoding="ascii")
    path.chmod(0o755)


class Swap:
    """A swap with the real `uci`, /etc/config on a disk of 64 KB and a /tmp of its own, behind these commands."""

    def __init__(self, state, shell, request, *preparation, port="port2"):
        program(state / "uci", DISK_UCI)
        program(state / "wanlan_port_reload", '#!/bin/sh\necho rebuilt >>"$STATE/rebuilt"\n')
        (state / "switch").write_text(SWITCH, encoding="ascii")
        lines = ["mount --make-rprivate /", "mount -t tmpfs tmpfs /mnt", "mkdir /mnt/upper /mnt/work /mnt/state",
                 "mount -t overlay -o lowerdir=/etc,upperdir=/mnt/upper,workdir=/mnt/work overlay /etc",
                 "mkdir -p /etc/config", "mount -t tmpfs -o size=64k tmpfs /etc/config",
                 f"cp {state}/switch /etc/config/switch", f"mount --bind {state} /mnt/state",
                 "mount --bind /mnt/state /usr/sbin", "mount -t tmpfs -o mode=1777 tmpfs /tmp", *preparation,
                 f"status=0; {' '.join(shell)} {ROUTER / 'network_lanwan_swap'} set {port} || status=$?",
                 "cp /etc/config/switch /mnt/state/switch", "ls -A /tmp >/mnt/state/left", "exit $status"]
        uci = (find_programs(Path(request.config.getoption("--build"))) / "uci").resolve()
        self.done = subprocess.run(["unshare", "--mount", "sh", "-ec", "\n".join(lines)], capture_output=True,
                                   text=True, check=False,
                                   env={**os.environ, "PATH": "/mnt/state:/usr/bin:/bin", "STATE": "/mnt/state",
                                        "UCI": str(uci)})
        self.switch = (state / "switch").read_text(encoding="ascii")
        self.committed = (state / "commits").exists()
        self.rebuilt = (state / "rebuilt").exists()
        self.left = (state / "left").read_text(encoding="ascii").split()


@pytest.mark.parametrize("shell", SHELLS)
def test_a_swap_is_committed_where_there_is_room(tmp_path, shell, request):
    swap = Swap(tmp_path, shell, request)
    assert (swap.done.returncode, swap.done.stderr) == (0, "")
    assert swap.switch == SWITCH.replace("switch_port 'port1'\n\n", "switch_port 'port2'\n\n")
    assert swap.committed and swap.rebuilt


@pytest.mark.parametrize("shell", SHELLS)
def test_a_swap_without_room_commits_nothing(tmp_path, shell, request):
    swap = Swap(tmp_path, shell, request, FILL)
    assert swap.done.returncode == 1
    assert swap.done.stderr == "network_lanwan_swap: no room in /etc/config for a new configuration\n"
    assert swap.switch == SWITCH
    assert not swap.committed and not swap.rebuilt


@pytest.mark.parametrize("shell", SHELLS)
def test_a_swap_to_the_port_that_has_the_role_writes_nothing(tmp_path, shell, request):
    swap = Swap(tmp_path, shell, request, FILL, port="port1")
    assert (swap.done.returncode, swap.done.stderr) == (0, "")
    assert swap.switch == SWITCH
    assert not swap.committed and swap.rebuilt


@pytest.mark.parametrize("shell", SHELLS)
def test_a_configuration_lost_in_its_commit_is_put_back(tmp_path, shell, request):
    swap = Swap(tmp_path, shell, request, "touch /mnt/state/cut")
    assert swap.done.returncode == 1
    assert "the disk was full" in swap.done.stderr
    assert swap.switch == SWITCH
    assert swap.committed and not swap.rebuilt


@pytest.mark.parametrize("shell", SHELLS)
@pytest.mark.parametrize("strange", ["chown 65534 /tmp/.uci", "chmod 777 /tmp/.uci", "chown 65534 /tmp/.uci/switch",
                                     "mv /tmp/.uci /tmp/theirs; ln -s theirs /tmp/.uci"])
def test_what_a_stranger_lets_wait_is_not_committed(tmp_path, shell, request, strange):
    swap = Swap(tmp_path, shell, request, STAGED, strange)
    assert (swap.done.returncode, swap.done.stderr) == (0, "")
    assert "port2'\n\n" in swap.switch and "evil" not in swap.switch
    assert any(name.startswith(".uci.refused.") for name in swap.left)


@pytest.mark.parametrize("shell", SHELLS)
def test_what_an_administrator_lets_wait_is_committed(tmp_path, shell, request):
    assert "option evil '1'" in Swap(tmp_path, shell, request, STAGED).switch
