# SPDX-License-Identifier: MIT
"""What the swap command commits: nothing that has no room, nothing for nothing, nothing of a stranger's."""
import os
import shutil
import subprocess
from pathlib import Path

import pytest

from lab.front import find_programs
from marks import real_root

pytestmark = real_root

ROUTER = Path(__file__).resolve().parent.parent.parent / "router"
SHELLS = [["sh"]] + ([["busybox", "ash"]] if shutil.which("busybox") else [])
DISK_UCI = """#!/bin/sh
# The real program, which tells of commits. With $STATE/cut it leaves that many bytes of the file, as on a full disk,
# with $STATE/full nothing is left of the room either, and with $STATE/lost nothing waits any more, as in a full /tmp.
[ ! -x "$STATE/stranger" ] || "$STATE/stranger"
case "$*" in *commit*)
    echo committed >>"$STATE/commits"
    [ ! -e "$STATE/lost" ] || : >/tmp/.uci/switch
esac
"$UCI" "$@" || exit
case "$*" in *commit*)
    [ ! -e "$STATE/cut" ] || truncate -s "$(cat "$STATE/cut")" /etc/config/switch
    [ ! -e "$STATE/full" ] || cat /dev/zero >/etc/config/filler 2>/dev/null
esac
true
"""
SWITCH = "".join(f"\nconfig switch_port 'port{number}'\n\toption ifname 'eth{number - 1}'\n" for number in (1, 2)) + \
    "\nconfig wan 'wan'\n\toption switch_port 'port1'\n\n"
FILL = "cat /dev/zero >/etc/config/filler 2>/dev/null || true"
STAGED = "mkdir -m 755 /tmp/.uci; echo \"switch.wan.evil='1'\" >/tmp/.uci/switch"


def program(path, text):
    path.write_text(text, encoding="ascii")
    path.chmod(0o755)


class Swap:
    """A swap with the real `uci`, /etc/config on a disk of 64 KB and a /tmp of its own, behind these commands.

    `first` is run by the process that becomes the swap."""

    def __init__(self, state, shell, request, *preparation, port="port2", first="true", after="true"):
        uci = (find_programs(Path(request.config.getoption("--build"))) / "uci").resolve()
        program(state / "uci", DISK_UCI)
        program(state / "wanlan_port_reload", '#!/bin/sh\necho rebuilt >>"$STATE/rebuilt"\n')
        (state / "switch").write_text(SWITCH, encoding="ascii")
        lines = ["mount --make-rprivate /", "mount -t tmpfs tmpfs /mnt", "mkdir /mnt/upper /mnt/work /mnt/state",
                 "mount -t overlay -o lowerdir=/etc,upperdir=/mnt/upper,workdir=/mnt/work overlay /etc",
                 "mkdir -p /etc/config", "mount -t tmpfs -o size=64k tmpfs /etc/config",
                 f"cp {state}/switch /etc/config/switch", f"mount --bind {state} /mnt/state",
                 "mount --bind /mnt/state /usr/sbin", f"cp {ROUTER / 'network_lanwan_swap'} /mnt",
                 f"cp {uci} /mnt/real_uci", "mount -t tmpfs -o mode=1777 tmpfs /tmp", *preparation,
                 f"status=0; sh -c '{first}; exec \"$@\"' sh {' '.join(shell)} /mnt/network_lanwan_swap set {port}"
                 " || status=$?",
                 "cp /etc/config/switch /mnt/state/switch", "ls -A /tmp >/mnt/state/left", after, "exit $status"]
        self.done = subprocess.run(["unshare", "--mount", "sh", "-ec", "\n".join(lines)], capture_output=True,
                                   text=True, check=False,
                                   env={**os.environ, "PATH": "/mnt/state:/usr/bin:/bin", "STATE": "/mnt/state",
                                        "UCI": "/mnt/real_uci"})
        self.switch = (state / "switch").read_text(encoding="ascii")
        self.committed = (state / "commits").exists()
        self.rebuilt = (state / "rebuilt").exists()
        self.left = (state / "left").read_text(encoding="ascii").split()


# holds: swap-commit
@pytest.mark.parametrize("shell", SHELLS)
def test_a_swap_is_committed_where_there_is_room(tmp_path, shell, request):
    swap = Swap(tmp_path, shell, request)
    assert (swap.done.returncode, swap.done.stderr) == (0, "")
    assert swap.switch == SWITCH.replace("switch_port 'port1'\n\n", "switch_port 'port2'\n\n")
    assert swap.committed and swap.rebuilt


# holds: swap-commit
@pytest.mark.parametrize("shell", SHELLS)
def test_a_swap_without_room_commits_nothing(tmp_path, shell, request):
    swap = Swap(tmp_path, shell, request, FILL)
    assert swap.done.returncode == 1
    assert swap.done.stderr == "network_lanwan_swap: no room in /etc/config for a new configuration\n"
    assert swap.switch == SWITCH
    assert not swap.committed and not swap.rebuilt


# holds: swap-commit
@pytest.mark.parametrize("shell", SHELLS)
def test_a_swap_to_the_port_that_has_the_role_writes_nothing(tmp_path, shell, request):
    swap = Swap(tmp_path, shell, request, FILL, port="port1")
    assert (swap.done.returncode, swap.done.stderr) == (0, "")
    assert swap.switch == SWITCH
    assert not swap.committed and swap.rebuilt


# holds: swap-commit
@pytest.mark.parametrize("shell", SHELLS)
@pytest.mark.parametrize("left", [0, 70, 100, len(SWITCH) - 3])
def test_a_configuration_cut_by_its_commit_is_put_back(tmp_path, shell, request, left):
    swap = Swap(tmp_path, shell, request, f"echo {left} >/mnt/state/cut", "chmod 640 /etc/config/switch",
                after="stat -c %a /etc/config/switch >/mnt/state/mode; ls -A /etc/config >/mnt/state/files")
    assert swap.done.returncode == 1
    assert swap.done.stderr == "network_lanwan_swap: the disk was full, the configuration is the former one\n"
    assert swap.switch == SWITCH
    assert (tmp_path / "mode").read_text() == "640\n"
    assert (tmp_path / "files").read_text() == "switch\n"
    assert swap.committed and not swap.rebuilt


# holds: swap-commit
@pytest.mark.parametrize("shell", SHELLS)
def test_a_configuration_that_cannot_be_put_back_is_told_lost_and_not_spoilt_further(tmp_path, shell, request):
    swap = Swap(tmp_path, shell, request, "echo 70 >/mnt/state/cut; touch /mnt/state/full")
    assert swap.done.returncode == 1
    assert swap.done.stderr.endswith("network_lanwan_swap: the disk was full, the configuration is lost\n")
    assert swap.switch == SWITCH[:70]


# holds: swap-commit
@pytest.mark.parametrize("shell", SHELLS)
def test_a_commit_of_nothing_is_no_swap(tmp_path, shell, request):
    swap = Swap(tmp_path, shell, request, "touch /mnt/state/lost")
    assert swap.done.returncode == 1
    assert swap.done.stderr == "network_lanwan_swap: the commit left no change in the configuration\n"
    assert swap.switch == SWITCH
    assert swap.committed and not swap.rebuilt


# holds: swap-commit
@pytest.mark.parametrize("shell", SHELLS)
@pytest.mark.parametrize("free_for_all,status", [("0", 0), ("60", 1)])
def test_what_a_disk_keeps_free_for_root_is_room(tmp_path, shell, request, free_for_all, status):
    used = "4" if status == 0 else "60"
    program(tmp_path / "df", "#!/bin/sh\necho Filesystem 1024-blocks Used Available Capacity Mounted on\n"
            f"echo disk 64 {used} {free_for_all} 50% /etc/config\n")
    assert Swap(tmp_path, shell, request).done.returncode == status


# holds: swap-commit
@pytest.mark.parametrize("shell", SHELLS)
@pytest.mark.parametrize("strange", ["chown 65534 /tmp/.uci", "chmod 777 /tmp/.uci", "chown 65534 /tmp/.uci/switch",
                                     "mv /tmp/.uci /tmp/theirs; ln -s theirs /tmp/.uci"])
def test_what_a_stranger_lets_wait_is_not_committed(tmp_path, shell, request, strange):
    swap = Swap(tmp_path, shell, request, STAGED, strange)
    assert (swap.done.returncode, swap.done.stderr) == (0, "")
    assert "port2'\n\n" in swap.switch and "evil" not in swap.switch
    assert any(name.startswith(".uci.refused.") for name in swap.left)


# holds: swap-commit
@pytest.mark.parametrize("shell", SHELLS)
def test_a_folder_put_aside_goes_nowhere_that_a_stranger_chose(tmp_path, shell, request):
    swap = Swap(tmp_path, shell, request, STAGED, "chown 65534 /tmp/.uci", "mkdir -m 777 /tmp/theirs",
                first="ln -s theirs /tmp/.uci.refused.$$", after="ls -A /tmp/theirs >/mnt/state/theirs")
    assert (swap.done.returncode, swap.done.stderr) == (0, "")
    assert (tmp_path / "theirs").read_text() == ""


# holds: swap-commit
@pytest.mark.parametrize("shell", SHELLS)
def test_a_folder_that_appears_during_the_swap_is_not_committed(tmp_path, shell, request):
    program(tmp_path / "stranger", """#!/bin/sh
[ -e "$STATE/came" ] || { touch "$STATE/came"; setpriv --reuid 65534 mv -T /tmp/prepared /tmp/.uci; } 2>/dev/null
""")
    prepared = STAGED.replace(".uci", "prepared") + "; chown -R 65534 /tmp/prepared"
    swap = Swap(tmp_path, shell, request, prepared)
    assert (swap.done.returncode, swap.done.stderr) == (0, "")
    assert (tmp_path / "came").exists()
    assert "port2'\n\n" in swap.switch and "evil" not in swap.switch


# holds: swap-commit
@pytest.mark.parametrize("shell", SHELLS)
def test_what_an_administrator_lets_wait_is_committed(tmp_path, shell, request):
    assert "option evil '1'" in Swap(tmp_path, shell, request, STAGED).switch


# holds: swap-commit
@pytest.mark.parametrize("shell", SHELLS)
def test_what_waits_in_a_folder_that_our_own_group_may_write_is_committed(tmp_path, shell, request):
    swap = Swap(tmp_path, shell, request, STAGED, "chmod 775 /tmp/.uci")
    assert "option evil '1'" in swap.switch
    assert ".uci.refused" not in " ".join(swap.left)


# holds: swap-commit
@pytest.mark.parametrize("shell", SHELLS)
def test_what_waits_in_a_folder_that_another_group_may_write_is_not(tmp_path, shell, request):
    assert "evil" not in Swap(tmp_path, shell, request, STAGED, "chmod 775 /tmp/.uci; chgrp 65534 /tmp/.uci").switch
