# SPDX-License-Identifier: MIT
"""The router's own commands, each in a network namespace of its own where it looks at ports."""
import json
import os
import shutil
import signal
import subprocess
import time
from pathlib import Path

import pytest

ROUTER = Path(__file__).resolve().parent.parent.parent / "router"
READER_LIMIT = 512
SHELLS = [["sh"]] + ([["busybox", "ash"]] if shutil.which("busybox") else [])


def with_ports(shell, script, *preparation):
    """Output of a router command in a fresh namespace after the preparing `ip` commands."""
    lines = ["mount -t sysfs sysfs /sys", *(f"ip {command}" for command in preparation),
             " ".join([*shell, str(ROUTER / script)])]
    done = subprocess.run(["unshare", "--mount", "--net", "sh", "-ec", "\n".join(lines)], capture_output=True,
                          text=True, check=True)
    return done.stdout


def veth(name):
    return [f"link add {name} type veth peer name far-{name}"]


@pytest.mark.parametrize("shell", SHELLS)
def test_the_port_state_tells_links_and_nothing_but_ports(shell):
    told = with_ports(shell, "get_all_port_state.sh", *veth("eth0"), *veth("eth1"), *veth("eth2"), *veth("ethx"),
                      *veth("eth0.5"), "link set eth0 up", "link set far-eth0 up", "link set eth1 up")
    assert json.loads(told) == {"eth0": True, "eth1": False, "eth2": False}


@pytest.mark.parametrize("shell", SHELLS)
def test_the_port_state_fits_the_reader_with_many_ports(shell):
    preparation = [command for number in range(40) for command in veth(f"eth{number}")]
    told = with_ports(shell, "get_all_port_state.sh", *preparation).rstrip("\n")
    assert READER_LIMIT - 20 < len(told) <= READER_LIMIT
    assert len(json.loads(told)) > 30


@pytest.mark.parametrize("shell", SHELLS)
@pytest.mark.parametrize("phy,sfp,serdes", [("1", "0", "phy"), ("0", "1", "sfp"), ("0\n", "1\n", "odd\n")])
def test_the_combo_state_tells_both_media_and_the_choice(tmp_path, shell, phy, sfp, serdes):
    files = tmp_path / "port5"
    files.mkdir()
    for name, value in (("phy", phy), ("sfp", sfp), ("serdes", serdes)):
        (files / name).write_text(value, encoding="ascii")
    done = subprocess.run([*shell, ROUTER / "get_combo_state.sh", "port5"], capture_output=True, text=True, check=True,
                          env={"PATH": "/usr/bin:/bin", "COMBO_DRIVER": str(tmp_path)})
    assert json.loads(done.stdout) == {"phy": phy.strip() == "1", "sfp": sfp.strip() == "1",
                                       "serdes": "sfp" if serdes == "sfp" else "phy"}


@pytest.mark.parametrize("shell", SHELLS)
@pytest.mark.parametrize("arguments", [[], ["eth5"], ["port9"]])
def test_the_combo_state_refuses_what_is_no_combo_port(tmp_path, shell, arguments):
    done = subprocess.run([*shell, ROUTER / "get_combo_state.sh", *arguments], capture_output=True, text=True,
                          check=False, env={"PATH": "/usr/bin:/bin", "COMBO_DRIVER": str(tmp_path)})
    assert done.returncode == 1
    assert done.stdout == ""


@pytest.mark.parametrize("shell", SHELLS)
@pytest.mark.parametrize("arguments", [[], ["get", "port1"], ["set"], ["set", "port1", "phy", "more"]])
def test_the_swap_refuses_a_wrong_call(shell, arguments):
    done = subprocess.run([*shell, ROUTER / "network_lanwan_swap", *arguments], capture_output=True, text=True,
                          check=False)
    assert done.returncode == 1
    assert "usage" in done.stderr


@pytest.mark.parametrize("shell", SHELLS)
def test_without_a_configuration_the_online_test_says_offline(tmp_path, shell):
    (tmp_path / "uci").write_text("#!/bin/sh\nexit 1\n", encoding="ascii")
    (tmp_path / "uci").chmod(0o755)
    done = subprocess.run([*shell, ROUTER / "online-test"], check=False, env={"PATH": f"{tmp_path}:/usr/bin:/bin"})
    assert done.returncode == 1


CONFIGURATION = """#!/bin/sh
# A configuration of three ports that takes its time to commit. $STATE/port has the WAN role.
[ "$1" = -q ] && shift
case $1:$2 in
get:switch.wan.switch_port) cat "$STATE/pending" 2>/dev/null || cat "$STATE/port" ;;
get:switch.port[1-3].ifname) name=${2#switch.port} && echo "eth$((${name%.ifname} - 1))" ;;
set:switch.wan.switch_port=*) echo "${2#*=}" >"$STATE/pending" ;;
revert:switch.wan.switch_port) rm -f "$STATE/pending" ;;
commit:switch) [ -e "$STATE/slow" ] && touch "$STATE/committing" && sleep 5
    mv "$STATE/pending" "$STATE/port" && touch "$STATE/committed"
    [ -e "$STATE/slower" ] && sleep 5
    true ;;
show:switch) printf 'switch.port%d=switch_port\\n' 1 2 3 ;;
*) exit 1 ;;
esac
"""
REBUILD = """#!/bin/sh
kill -TERM $$
echo "rebuilt for $(uci -q get switch.wan.switch_port)" >>"$STATE/rebuilt"
"""


def program(path, text):
    path.write_text(text, encoding="ascii")
    path.chmod(0o755)


def swap_told_to_end(tmp_path, shell, *slowness, when):
    """Exit status of a swap to port3 that gets SIGTERM, with all that it started, as soon as a file is there."""
    programs = tmp_path / "programs"
    programs.mkdir()
    program(programs / "uci", CONFIGURATION)
    program(programs / "wanlan_port_reload", REBUILD)
    (tmp_path / "port").write_text("port1\n", encoding="ascii")
    for name in slowness:
        (tmp_path / name).touch()
    lines = ["mount --make-rprivate /", f"mount --bind {programs} /usr/sbin",
             f"exec setsid {' '.join(shell)} {ROUTER / 'network_lanwan_swap'} set port3"]
    swap = subprocess.Popen(["unshare", "--mount", "sh", "-ec", "\n".join(lines)], stderr=subprocess.DEVNULL,
                            env={"PATH": f"{programs}:/usr/bin:/bin", "STATE": str(tmp_path)})
    end = time.monotonic() + 30
    while not (tmp_path / when).exists() and time.monotonic() < end:
        time.sleep(0.005)
    os.killpg(swap.pid, signal.SIGTERM)
    return swap.wait(timeout=30)


@pytest.mark.parametrize("shell", SHELLS)
def test_a_swap_told_to_end_before_its_commit_changes_nothing(tmp_path, shell):
    assert swap_told_to_end(tmp_path, shell, "slow", when="committing") == 1
    assert (tmp_path / "port").read_text() == "port1\n"
    assert not (tmp_path / "pending").exists()
    assert not (tmp_path / "rebuilt").exists()


@pytest.mark.parametrize("shell", SHELLS)
def test_a_swap_told_to_end_behind_its_commit_moves_the_ports_all_the_same(tmp_path, shell):
    assert swap_told_to_end(tmp_path, shell, "slower", when="committed") == 1
    assert (tmp_path / "port").read_text() == "port3\n"
    assert (tmp_path / "rebuilt").read_text() == "rebuilt for port3\n"


@pytest.mark.parametrize("shell", SHELLS)
def test_a_rebuild_of_the_ports_begun_by_a_swap_is_not_told_to_end(tmp_path, shell):
    assert swap_told_to_end(tmp_path, shell, when="rebuilt") == 0
    assert (tmp_path / "rebuilt").read_text() == "rebuilt for port3\n"


@pytest.mark.parametrize("shell", SHELLS)
def test_a_port_leaves_the_bridge_before_another_joins(tmp_path, shell):
    program(tmp_path / "uci", CONFIGURATION)
    program(tmp_path / "ip", '#!/bin/sh\necho "$*"\nexec /usr/bin/ip "$@"\n')
    (tmp_path / "port").write_text("port3\n", encoding="ascii")
    lines = ["mount -t sysfs sysfs /sys", "/usr/bin/ip link add br-lan type bridge",
             *(f"/usr/bin/ip link add eth{number} type veth peer name far{number}" for number in range(3)),
             "/usr/bin/ip link set eth1 master br-lan", "/usr/bin/ip link set eth2 master br-lan",
             f"{' '.join(shell)} {ROUTER / 'wanlan_port_reload'}", "ls /sys/class/net/br-lan/brif"]
    done = subprocess.run(["unshare", "--mount", "--net", "sh", "-ec", "\n".join(lines)], capture_output=True,
                          text=True, check=True, env={"PATH": f"{tmp_path}:/usr/bin:/bin", "STATE": str(tmp_path)})
    *changes, first, second = done.stdout.splitlines()
    assert (first, second) == ("eth0", "eth1")
    if shell == ["sh"]:    # the other one has an `ip` of its own
        assert changes == ["link set eth2 nomaster", "link set eth0 master br-lan"]
