# SPDX-License-Identifier: MIT
"""The router package's script for the first boot: what it makes of a board, and what it leaves alone."""
import json

import pytest

from conftest import locked

SCRIPT = "packaging/openwrt/files/wan_detect.defaults"
BOARD = {"network": {"lan": {"ports": ["lan1", "lan2", "lan3"], "protocol": "static"},
                     "wan": {"device": "wan", "protocol": "dhcp"}}}
NETWORK = """
config interface 'loopback'
	option device 'lo'

config device
	option name 'br-lan'
	option type 'bridge'
	list ports 'lan1'
	list ports 'lan2'
	list ports 'lan3'

config device
	option name 'wan'
	option macaddr '02:00:5e:10:00:09'

config interface 'wan'
	option device 'wan'
	option proto 'dhcp'
"""
OWN = {
    "network": NETWORK + "\nconfig detection 'auto_wan_detect'\n\toption enable 'true'\n",
    "switch": "\nconfig switch_port 'port3'\n\toption port '3'\n\toption ifname 'sfp0'\n\n"
              "config switch_port 'port4'\n\toption port '4'\n\toption ifname 'lan1'\n\n"
              "config wan 'wan'\n\toption switch_port 'port3'\n\nconfig lan_agg 'lan_agg'\n\toption enable_agg '1'\n",
    "protocol": "\nconfig family 'ipv4'\n\tlist protos 'dhcp'\n\nconfig family 'ipv6'\n\tlist protos 'dhcpv6'\n\n"
                "config protocol 'pppoe'\n\toption snd_conn 'static'\n\nconfig protocol 'static'\n",
    "sysmode": "\nconfig sysmode 'sysmode'\n\toption mode 'bridge'\n",
}


def play(router, shell, board=None, times=1):
    """The script as it is run at the first boot, by the shell that reads it, and as a program of its own."""
    (router.state / "board.json").write_text(json.dumps(BOARD if board is None else board), encoding="ascii")
    done = router.run("cp /mnt/state/board.json /etc", *[f"{shell} -c '( . ./{SCRIPT} )'"] * times,
                      *[f"{shell} {SCRIPT}"] * (times - 1), "ls -A /etc/config /tmp >/mnt/state/left")
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")
    return router.texts()


def test_a_board_gets_what_the_daemon_reads(router, shell):
    router.write("network", NETWORK)
    assert play(router, shell)["network"].startswith(NETWORK)
    shown = router.shown("network")
    assert [line for line in shown if "auto_wan_detect" in line] == [
        "network.auto_wan_detect=wan_detect", "network.auto_wan_detect.enable='off'",
        "network.auto_wan_detect.port_prefix='lan wan'", "network.auto_wan_detect.wan_port_priority='4 1 2 3'",
        "network.auto_wan_detect.wan_port_pool='4 1 2 3'",
        "network.auto_wan_detect.proto_priority='pppoe dhcp static'", "network.auto_wan_detect.fake_wan_port='-1'"]
    names = [line.partition("=")[2].strip("'") for line in shown if ".name=" in line]
    assert names == ["br-lan", "wan", "lan1", "lan2", "lan3"]
    switch = router.shown("switch")
    assert [line for line in switch if ".ifname=" in line] == [
        "switch.port1.ifname='lan1'", "switch.port2.ifname='lan2'", "switch.port3.ifname='lan3'",
        "switch.port4.ifname='wan'"]
    assert "switch.port4=switch_port" in switch and "switch.port4.port='4'" in switch
    assert "switch.wan.switch_port='port4'" in switch and "switch.lan_agg.enable_agg='0'" in switch
    protocol = router.shown("protocol")
    assert "protocol.ipv4.protos='dhcp' 'pppoe' 'static' 'l2tp' 'pptp'" in protocol
    assert "protocol.ipv6.protos='dhcpv6'" in protocol and "protocol.static=protocol" in protocol
    assert router.shown("sysmode") == ["sysmode.sysmode=sysmode", "sysmode.sysmode.mode='router'"]


def test_ports_called_eth_need_no_prefix(router, shell):
    router.write("network", "")
    play(router, shell, {"network": {"lan": {"device": "eth0"}, "wan": {"ports": ["eth1"]}}})
    assert not [line for line in router.shown("network") if "port_prefix" in line]
    assert "network.auto_wan_detect.wan_port_pool='2 1'" in router.shown("network")


@pytest.mark.parametrize("lan,wan,prefixes", [(["10g-1", "2g5"], "10g-2", "10g-1 10g-2 2g5"), (["lan1", "lan2"], "2g5", "2g5 lan"),
                                              (["sfp-a1"], "sfp", "sfp sfp-a")])
def test_a_name_that_begins_with_a_digit_is_its_own_prefix(router, shell, lan, wan, prefixes):
    router.write("network", "")
    play(router, shell, {"network": {"lan": {"ports": lan}, "wan": {"device": wan}}})
    assert f"network.auto_wan_detect.port_prefix='{prefixes}'" in router.shown("network")


@pytest.mark.parametrize("role", ["wanp", "port", "port2a", "2"])
def test_a_role_section_without_a_number_leaves_the_order_to_the_board(router, shell, role):
    router.write("network", "")
    router.write("switch", f"config wan 'wan'\n\toption switch_port '{role}'\n")
    play(router, shell)
    assert "network.auto_wan_detect.wan_port_pool='4 1 2 3'" in router.shown("network")
    assert f"switch.wan.switch_port='{role}'" in router.shown("switch")


def test_a_port_without_a_number_is_not_listed(router, shell):
    router.write("network", "")
    router.write("switch", "config switch_port 'port'\n\toption ifname 'lan9'\n")
    assert "lan9" not in play(router, shell)["network"]


def test_of_two_sections_with_one_name_the_first_counts(router, shell):
    router.write("network", "")
    router.write("switch", "".join(f"config switch_port 'port{number}'\n\toption ifname '{name}'\n\n"
                                   for number, name in ((3, "wan"), (1, "lan1"), (2, "wan"))))
    network = play(router, shell)["network"]
    assert network.count("option name 'wan'") == 1
    assert "option wan_port_pool '3 1 2'" in network
    assert "switch.wan.switch_port='port3'" in router.shown("switch")


def test_a_second_run_changes_nothing(router, shell):
    router.write("network", NETWORK)
    once = play(router, shell)
    assert play(router, shell, times=2) == once
    assert (router.state / "left").read_text().split() == [
        "/etc/config:", "network", "protocol", "switch", "sysmode", "/tmp:"]


def test_sections_that_are_there_stay_as_they_are(router, shell):
    for package, text in OWN.items():
        router.write(package, text)
    made = play(router, shell)
    assert {name: made[name] for name in ("switch", "protocol", "sysmode")} == {
        name: OWN[name] for name in ("switch", "protocol", "sysmode")}
    assert made["network"].startswith(OWN["network"])
    added = made["network"].removeprefix(OWN["network"])
    assert added.split() == ["config", "device", "option", "name", "'sfp0'", "config", "device", "option", "name", "'lan1'"]


@pytest.mark.parametrize("missing,package", [("config wan 'wan'\n\toption switch_port 'port3'\n\n", "switch"),
                                             ("config family 'ipv6'\n\tlist protos 'dhcpv6'\n\n", "protocol"),
                                             ("config protocol 'static'\n", "protocol")])
def test_only_the_section_that_is_missing_is_made(router, shell, missing, package):
    for name, text in OWN.items():
        router.write(name, text.replace(missing, ""))
    board = {"network": {"lan": {"ports": ["lan1"]}, "wan": {"device": "sfp0"}}}
    made = play(router, shell, board)[package]
    assert made.startswith(OWN[package].replace(missing, ""))
    assert sorted(made.split()) == sorted(OWN[package].split())


def test_a_file_made_anew_is_for_root_only_and_an_old_one_keeps_its_mode(router, shell):
    router.write("network", NETWORK)
    (router.config / "network").chmod(0o644)
    play(router, shell)
    assert {path.name: oct(path.stat().st_mode & 0o777) for path in router.config.iterdir()} == {
        "network": "0o644", "switch": "0o600", "protocol": "0o600", "sysmode": "0o600"}


@pytest.mark.parametrize("board", [{}, {"network": {"lan": {"ports": ["lan1"]}}},
                                   {"network": {"lan": {"device": "eth0.1"}, "wan": {"device": "eth0.2"}}},
                                   {"network": {"lan": {"ports": ["lan1"]}, "wan": {"device": "/dev/cdc-wdm0"}}}])
def test_a_board_without_ports_that_could_be_wan_gets_nothing(router, shell, board):
    router.write("network", NETWORK)
    assert play(router, shell, board) == {"network": NETWORK}


@pytest.mark.parametrize("package", ["network", "switch", "protocol", "sysmode"])
def test_a_file_that_cannot_be_read_stops_it(router, shell, package):
    files = {"network": NETWORK, package: "config what 'ever\n"}
    for name, text in files.items():
        router.write(name, text)
    assert play(router, shell) == files


@pytest.mark.parametrize("package", ["network", "switch"])
def test_a_lock_stops_nothing(router, shell, package):
    for name, text in OWN.items():
        router.write(name, text)
    (router.state / "board.json").write_text(json.dumps(BOARD), encoding="ascii")
    done = router.run("cp /mnt/state/board.json /etc", locked(f"/etc/config/{package}"), f"timeout 30 {shell} {SCRIPT}")
    assert done.returncode == 0
    made = router.texts()
    assert made["switch"] == OWN["switch"]
    assert made["network"].endswith("option name 'lan1'\n")


def test_what_waits_for_a_commit_is_neither_counted_nor_committed(router, shell):
    router.write("network", NETWORK)
    stranger = "mkdir /tmp/.uci; echo network.wan.proto=evil >/tmp/.uci/network; chown -R 65534 /tmp/.uci; "
    (router.state / "board.json").write_text(json.dumps(BOARD), encoding="ascii")
    done = router.run("cp /mnt/state/board.json /etc", stranger + f"{shell} {SCRIPT}")
    assert done.returncode == 0
    assert "evil" not in "".join(router.texts().values())
    assert "auto_wan_detect" in router.texts()["network"]
