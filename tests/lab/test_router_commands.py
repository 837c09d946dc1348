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

from marks import real_root

pytestmark = real_root

ROUTER = Path(__file__).resolve().parent.parent.parent / "router"
READER_LIMIT = 512
TOLD = "WAN_DETECT_PORT_PREFIX"
SHELLS = [["sh"]] + ([["busybox", "ash"]] if shutil.which("busybox") else [])


OWN_ETC = ["mount -t tmpfs tmpfs /mnt", "mkdir /mnt/upper /mnt/work",
           "mount -t overlay -o lowerdir=/etc,upperdir=/mnt/upper,workdir=/mnt/work overlay /etc",
           "rm -rf /etc/config", "mkdir /etc/config"]


def with_ports(shell, script, *preparation, network="", told=None):
    """Output of a router command in a fresh namespace after the preparing `ip` commands, with this configuration; with what
    the daemon tells of the ports' names, and then without any program in the path."""
    start = [shutil.which(shell[0]), *shell[1:], str(ROUTER / script)]
    if told is not None:
        start = ["PATH=/nowhere", f"{TOLD}='{told}'", *start]
    lines = ["mount -t sysfs sysfs /sys", *OWN_ETC, 'printf %s "$NETWORK" >/etc/config/network',
             *(f"ip {command}" for command in preparation), " ".join(start)]
    done = subprocess.run(["unshare", "--mount", "--net", "sh", "-ec", "\n".join(lines)], capture_output=True,
                          text=True, check=True, env={**os.environ, "NETWORK": network})
    return done.stdout


def program(path, text):
    path.write_text(text, encoding="ascii")
    path.chmod(0o755)


def veth(name):
    return [f"link add {name} type veth peer name far-{name}"]


@pytest.mark.parametrize("shell", SHELLS)
def test_the_port_state_tells_links_and_nothing_but_ports(shell):
    told = with_ports(shell, "get_all_port_state.sh", *veth("eth0"), *veth("eth1"), *veth("eth2"), *veth("ethx"),
                      *veth("eth0.5"), "link set eth0 up", "link set far-eth0 up", "link set eth1 up")
    assert json.loads(told) == {"eth0": True, "eth1": False, "eth2": False}


PREFIX = "config device\n\toption port_prefix 'no'\n\nconfig wan_detect 'auto_wan_detect'\n\t%s\n\nconfig interface 'x'\n"


# holds: router-commands-prefix
@pytest.mark.parametrize("shell", SHELLS)
@pytest.mark.parametrize("option", ["option port_prefix 'lan wan sfp'", "option 'port_prefix' 'lan wan sfp'",
                                    'option enable on\n  option  port_prefix  "lan wan sfp"'])
def test_ports_are_what_begins_with_the_configured_words(shell, option):
    names = ("lan1", "lan2", "wan", "sfp0", "eth0", "lan1.5", "no1")
    preparation = [command for name in names for command in veth(name)] + ["link set wan up", "link set far-wan up"]
    told = with_ports(shell, "get_all_port_state.sh", *preparation, network=PREFIX % option)
    assert json.loads(told) == {"lan1": False, "lan2": False, "wan": True, "sfp0": False}


# holds: router-commands-prefix-told
@pytest.mark.parametrize("shell", SHELLS)
@pytest.mark.parametrize("told, ports", [("lan  wan ", ["lan1", "wan"]), ("eth", ["eth0", "ethx"]), ("", ["eth0"]), (" ", ["eth0"])])
def test_the_words_that_the_daemon_tells_are_taken_and_nothing_is_started(shell, told, ports):
    preparation = [command for name in ("eth0", "ethx", "lan1", "no1", "wan") for command in veth(name)]
    network = PREFIX % "option port_prefix 'no'"
    found = with_ports(shell, "get_all_port_state.sh", *preparation, network=network, told=told)
    assert json.loads(found) == dict.fromkeys(ports, False)


# holds: router-commands-prefix
@pytest.mark.parametrize("shell", SHELLS)
@pytest.mark.parametrize("value", ["", " ", "  "])
def test_a_blank_prefix_is_none(shell, value):
    told = with_ports(shell, "get_all_port_state.sh", *veth("eth0"), *veth("lan1"),
                      network=PREFIX % f"option port_prefix '{value}'")
    assert json.loads(told) == {"eth0": False}


OTHER = "\toption port_prefix 'no'\n"
RIGHT = "config wan_detect 'auto_wan_detect'\n\toption port_prefix 'lan'\n"


# holds: router-commands-prefix
@pytest.mark.parametrize("shell", SHELLS)
@pytest.mark.parametrize("network", [
    f"config device\n\t# auto_wan_detect follows\n{OTHER}\n{RIGHT}", f"config wan_detect 'auto_wan_detect2'\n{OTHER}\n{RIGHT}",
    f"config wan_detect 'my_auto_wan_detect'\n{OTHER}\n{RIGHT}", f"config auto_wan_detect 'x'\n{OTHER}\n{RIGHT}",
    f"config interface x # auto_wan_detect\n{OTHER}\n{RIGHT}", f"config device\n\toption about 'auto_wan_detect'\n{OTHER}\n{RIGHT}",
    RIGHT.replace("\toption", f"{OTHER}\toption"),
    f"{RIGHT}\n  config device\n{OTHER}", f"{RIGHT}\toption port_prefix2 'no'\n",
    RIGHT.replace("'lan'", "'no\tlan lan no\t'"), RIGHT.replace("'auto_wan_detect'", "auto_wan_detect  # ours"), RIGHT.replace("config wan_detect", "  config  'wan_detect'")])
def test_only_the_section_of_that_name_has_the_words(shell, network):
    told = with_ports(shell, "get_all_port_state.sh", *veth("lan1"), *veth("no1"), *veth("eth0"), network=network)
    assert json.loads(told) == {"lan1": False}


# holds: router-commands-prefix
@pytest.mark.parametrize("shell", SHELLS)
@pytest.mark.parametrize("network", ["", PREFIX % "option enable 'on'", PREFIX % "option port_prefix 'no'\n\toption port_prefix ''"])
def test_without_configured_words_ports_begin_with_eth(shell, network):
    told = with_ports(shell, "get_all_port_state.sh", *veth("eth3"), *veth("lan1"), *veth("no1"), network=network)
    assert json.loads(told) == {"eth3": False}


@pytest.mark.parametrize("shell", SHELLS)
def test_the_port_state_fits_the_reader_with_many_ports(shell):
    preparation = [command for number in range(40) for command in veth(f"eth{number}")]
    told = with_ports(shell, "get_all_port_state.sh", *preparation).rstrip("\n")
    assert READER_LIMIT - 20 < len(told) <= READER_LIMIT
    assert len(json.loads(told)) > 30


def with_driver(driver, shell, script, *arguments, environment=None):
    """Runs a router command where that folder is the combo driver's."""
    lines = ["mount --make-rprivate /", "mount -t tmpfs tmpfs /run", "mkdir -p /var/run/combo",
             f"mount --bind {driver} /var/run/combo", " ".join(["exec", *shell, str(ROUTER / script), *arguments])]
    return subprocess.run(["unshare", "--mount", "sh", "-ec", "\n".join(lines)], capture_output=True, text=True,
                          check=False, env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", **(environment or {})})


def combo_port(driver, phy, sfp, serdes):
    files = driver / "port5"
    files.mkdir(parents=True)
    for name, value in (("phy", phy), ("sfp", sfp), ("serdes", serdes)):
        (files / name).write_text(value, encoding="ascii")


@pytest.mark.parametrize("shell", SHELLS)
@pytest.mark.parametrize("phy,sfp,serdes", [("1", "0", "phy"), ("0", "1", "sfp"), ("0\n", "1\n", "odd\n")])
def test_the_combo_state_tells_both_media_and_the_choice(tmp_path, shell, phy, sfp, serdes):
    combo_port(tmp_path, phy, sfp, serdes)
    done = with_driver(tmp_path, shell, "get_combo_state.sh", "port5")
    assert json.loads(done.stdout) == {"phy": phy.strip() == "1", "sfp": sfp.strip() == "1",
                                       "serdes": "sfp" if serdes == "sfp" else "phy"}


@pytest.mark.parametrize("shell", SHELLS)
@pytest.mark.parametrize("arguments", [[], ["eth5"], ["port9"], ["port5/."], ["port"]])
def test_the_combo_state_refuses_what_is_no_combo_port(tmp_path, shell, arguments):
    combo_port(tmp_path, "1", "0", "phy")
    done = with_driver(tmp_path, shell, "get_combo_state.sh", *arguments)
    assert done.returncode == 1
    assert done.stdout == ""


# holds: router-commands-words
@pytest.mark.parametrize("shell", SHELLS)
def test_the_environment_does_not_choose_the_driver(tmp_path, shell):
    combo_port(tmp_path / "real", "1", "0", "phy")
    combo_port(tmp_path / "other", "0", "1", "sfp")
    environment = {"COMBO_DRIVER": str(tmp_path / "other")}
    told = with_driver(tmp_path / "real", shell, "get_combo_state.sh", "port5", environment=environment).stdout
    assert json.loads(told) == {"phy": True, "sfp": False, "serdes": "phy"}
    program(tmp_path / "uci", "#!/bin/sh\ncase $3 in *.switch_port) echo port5 ;; *.wan_port) echo sfp ;; esac\n")
    environment["PATH"] = f"{tmp_path}:/usr/sbin:/usr/bin:/sbin:/bin"
    with_driver(tmp_path / "real", shell, "network_lanwan_swap", "set", "port5", "sfp", environment=environment)
    assert (tmp_path / "real" / "port5" / "serdes").read_text() == "sfp\n"


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


# holds: router-commands-words
@pytest.mark.parametrize("shell", [["sh"]])    # the other one has an `arping` of its own
def test_a_gateway_that_looks_like_an_option_is_none(tmp_path, shell):
    program(tmp_path / "uci", """#!/bin/sh
case $3 in
switch.wan.switch_port) echo port1 ;;
switch.port1.ifname) echo eth0 ;;
protocol.static.gateway) echo -V ;;
esac
""")
    program(tmp_path / "arping", '#!/bin/sh\necho "$*" >"$0.asked"\n')
    lines = ["mount -t sysfs sysfs /sys", *(f"ip {command}" for command in veth("eth0")), "ip link set eth0 up",
             "ip link set far-eth0 up", f"exec {' '.join(shell)} {ROUTER / 'online-test'}"]
    done = subprocess.run(["unshare", "--mount", "--net", "sh", "-ec", "\n".join(lines)], check=False,
                          env={"PATH": f"{tmp_path}:/usr/sbin:/usr/bin:/sbin:/bin"})
    assert done.returncode == 1
    assert (tmp_path / "arping.asked").read_text() == "-q -D -c 2 -w 2 -I eth0 -- -V\n"


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
        assert changes == ["link set dev eth2 nomaster", "link set dev eth0 master br-lan"]


# holds: router-commands-words
@pytest.mark.parametrize("shell", SHELLS)
def test_a_section_without_a_name_is_no_pattern_for_files(tmp_path, shell):
    program(tmp_path / "uci", """#!/bin/sh
[ "$1" = -q ] && shift
case $1:$2 in
get:switch.wan.switch_port) echo port1 ;;
get:switch.@switch_port\\[2\\].ifname) echo eth2 ;;
get:switch.port1.ifname) echo eth0 ;;
show:switch) printf 'switch.%s=switch_port\\n' port1 '@switch_port[2]' ;;
*) exit 1 ;;
esac
""")
    folder = tmp_path / "folder"
    folder.mkdir()
    (folder / "@switch_port2").touch()
    lines = ["mount -t sysfs sysfs /sys", "ip link add br-lan type bridge",
             *(f"ip link add eth{number} type veth peer name far{number}" for number in (0, 2)), f"cd {folder}",
             f"{' '.join(shell)} {ROUTER / 'wanlan_port_reload'}", "ls /sys/class/net/br-lan/brif"]
    done = subprocess.run(["unshare", "--mount", "--net", "sh", "-ec", "\n".join(lines)], capture_output=True,
                          text=True, check=True, env={"PATH": f"{tmp_path}:/usr/sbin:/usr/bin:/sbin:/bin"})
    assert done.stdout.split() == ["eth2"]
