# SPDX-License-Identifier: MIT
"""The router's own commands, each in a network namespace of its own where it looks at ports."""
import json
import shutil
import subprocess
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
