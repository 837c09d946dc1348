# SPDX-License-Identifier: MIT
"""The router's own commands where somebody keeps the configuration locked or lets changes of his own wait."""
import os
import subprocess
import time
from pathlib import Path

import pytest

from lab.front import find_programs
from marks import real_root
from test_swap_commit import ROUTER, SHELLS, STAGED, SWITCH, program

pytestmark = real_root

COMMANDS = ["online-test", "wanlan_port_reload", "network_lanwan_swap set port2"]
SOME_SECONDS = 20                 # on a busy machine; the lock lasts a minute
SOME_SECONDS_AND_A_COMMIT = 30
LOCK = """#!/bin/sh
# Locks the switch's file for a minute and goes to the background once that is done.
flock "$1" /etc/config/switch sh -c 'echo $$ >"$STATE/holder"; exec sleep 60' >/dev/null 2>&1 &
while [ ! -s "$STATE/holder" ]; do sleep 0.01; done
"""
LATE_UCI = """#!/bin/sh
# The real program, whose file somebody locks just before a commit.
case "$*" in *commit*) lock "$(cat "$STATE/operation")" ;; esac
exec "$UCI" "$@"
"""
LOCKED_AFTER_COMMIT = """#!/bin/sh
# The real program, whose file is locked for a while behind a commit: for longer than the ports' set-up waits.
"$UCI" "$@" || exit
case "$*" in *commit*) flock -x /etc/config/switch sleep 5.5 >/dev/null 2>&1 & ;; esac
"""


class Play:
    """One of the commands with the real `uci`, in namespaces with the ports eth0 and eth1, behind these commands."""

    def __init__(self, state, shell, request, command, *preparation, after="true"):
        program(state / "lock", LOCK)
        uci = (find_programs(Path(request.config.getoption("--build"))) / "uci").resolve()
        if not (state / "uci").exists():
            program(state / "uci", '#!/bin/sh\nexec "$UCI" "$@"\n')
        (state / "switch").write_text(SWITCH, encoding="ascii")
        lines = ["mount --make-rprivate /", "mount -t sysfs sysfs /sys", "mount -t tmpfs tmpfs /mnt",
                 "mkdir /mnt/upper /mnt/work /mnt/state", f"mount --bind {state} /mnt/state",
                 "mount -t overlay -o lowerdir=/etc,upperdir=/mnt/upper,workdir=/mnt/work overlay /etc",
                 "rm -rf /etc/config", "mkdir /etc/config", "cp /mnt/state/switch /etc/config/switch",
                 f"cp {ROUTER}/* /mnt", f"cp {uci} /mnt/real_uci", "mount -t tmpfs -o mode=1777 tmpfs /tmp",
                 "mount --bind /mnt /usr/sbin", "ip link add br-lan type bridge",
                 *(f"ip link add eth{number} type veth peer name far{number}" for number in (0, 1)), *preparation,
                 f"status=0; {' '.join(shell)} /mnt/{command} || status=$?", after,
                 "cp /etc/config/switch /mnt/state/switch", "cat /tmp/.uci/* >/mnt/state/waiting 2>/dev/null || true",
                 'ls /sys/class/net/br-lan/brif >/mnt/state/members',
                 'if [ -e /mnt/state/holder ]; then kill "$(cat /mnt/state/holder)"; fi', "exit $status"]
        begin = time.monotonic()
        self.status = subprocess.run(["unshare", "--mount", "--net", "sh", "-ec", "\n".join(lines)], check=False,
                                     env={**os.environ, "PATH": "/mnt/state:/usr/bin:/bin", "STATE": "/mnt/state",
                                          "UCI": "/mnt/real_uci"}).returncode
        self.seconds = time.monotonic() - begin
        self.switch = (state / "switch").read_text(encoding="ascii")
        self.waiting = (state / "waiting").read_text(encoding="ascii")
        self.members = (state / "members").read_text(encoding="ascii").split()


# holds: router-commands-locked
@pytest.mark.parametrize("shell", SHELLS)
@pytest.mark.parametrize("command", COMMANDS)
def test_a_locked_configuration_fails_a_command_within_seconds(tmp_path, shell, request, command):
    play = Play(tmp_path, shell, request, command, "lock -x")
    assert play.status == 1
    assert play.seconds < SOME_SECONDS
    assert (play.switch, play.waiting, play.members) == (SWITCH, "", [])


# holds: router-commands-locked
@pytest.mark.parametrize("shell", SHELLS)
@pytest.mark.parametrize("operation", ["-x", "-s"])
def test_a_lock_that_stops_the_commit_of_a_swap_leaves_nothing_of_it(tmp_path, shell, request, operation):
    program(tmp_path / "uci", LATE_UCI)
    (tmp_path / "operation").write_text(operation, encoding="ascii")
    play = Play(tmp_path, shell, request, "network_lanwan_swap set port2")
    assert play.status == 1
    assert play.seconds < SOME_SECONDS_AND_A_COMMIT
    assert (play.switch, play.waiting, play.members) == (SWITCH, "", [])


# holds: router-commands-save-folder
# holds: router-commands-again
@pytest.mark.parametrize("shell", SHELLS)
def test_a_rebuild_that_a_lock_stops_behind_the_commit_is_made_again(tmp_path, shell, request):
    program(tmp_path / "uci", LOCKED_AFTER_COMMIT)
    play = Play(tmp_path, shell, request, "network_lanwan_swap set port2")
    assert (play.status, play.members) == (0, ["eth0"])
    assert play.seconds < SOME_SECONDS_AND_A_COMMIT


# holds: router-commands-save-folder
@pytest.mark.parametrize("shell", SHELLS)
def test_a_rebuild_counts_what_an_administrator_lets_wait(tmp_path, shell, request):
    play = Play(tmp_path, shell, request, "wanlan_port_reload", STAGED.replace("evil='1'", "switch_port='port2'"))
    assert (play.status, play.members) == (0, ["eth0"])


# holds: router-commands-save-folder
@pytest.mark.parametrize("shell", SHELLS)
@pytest.mark.parametrize("strange", ["chown 65534 /tmp/.uci", "chmod 777 /tmp/.uci", "chown 65534 /tmp/.uci/switch",
                                     "mv /tmp/.uci /tmp/theirs; ln -s theirs /tmp/.uci"])
def test_a_rebuild_ignores_what_a_stranger_lets_wait(tmp_path, shell, request, strange):
    play = Play(tmp_path, shell, request, "wanlan_port_reload",
                STAGED.replace("evil='1'", "switch_port='port2'"), strange)
    assert (play.status, play.members) == (0, ["eth1"])


# holds: router-commands-save-folder
@pytest.mark.parametrize("shell", SHELLS)
def test_a_rebuild_takes_the_save_folder_before_a_stranger_can(tmp_path, shell, request):
    play = Play(tmp_path, shell, request, "wanlan_port_reload", after="stat -c '%a %u' /tmp/.uci >/mnt/state/folder")
    assert (play.status, play.members) == (0, ["eth1"])
    assert (tmp_path / "folder").read_text() == "700 0\n"


# holds: router-commands-save-folder
@pytest.mark.parametrize("shell", [shell for shell in SHELLS if shell == ["sh"]])  # busybox has an arping of its own
@pytest.mark.parametrize("owner,asked", [("0", ["10.0.0.9"]), ("65534", [])])
def test_an_online_test_ignores_what_a_stranger_lets_wait(tmp_path, shell, request, owner, asked):
    program(tmp_path / "arping", '#!/bin/sh\nfor last; do true; done; echo "$last" >>"$STATE/asked"; exit 1\n')
    Play(tmp_path, shell, request, "online-test", "ip link set eth0 up", "ip link set far0 up",
         "printf 'config connection static\\n' >/etc/config/protocol",
         STAGED.replace("switch.wan.evil='1'", "protocol.static.gateway='10.0.0.9'").replace("/switch", "/protocol"),
         f"chown {owner} /tmp/.uci")
    told = tmp_path / "asked"
    assert (told.read_text().split() if told.exists() else []) == asked


# holds: router-commands-save-folder
def test_the_guard_is_the_same_in_all_commands():
    """Each stands for itself, as a firmware may replace any of them."""
    guards = set()
    for command in COMMANDS:
        text = (ROUTER / command.split()[0]).read_text(encoding="ascii")
        guards.add(text[text.index("is_ours() {"):].split("\n}\n", 1)[0])
    assert len(guards) == 1
