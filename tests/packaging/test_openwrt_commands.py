# SPDX-License-Identifier: MIT
"""The router package's own commands: the set-up of the ports through the network manager, and swconfig's port states."""
import json

import pytest

from conftest import ROOT, locked
from rights import bounded

RELOAD = "packaging/openwrt/files/manager/wanlan_port_reload"
STATES = "packaging/openwrt/files/swconfig/get_all_port_state.sh"
ASKED = ["-t 10 call network reload"]
NETWORK = """
config device
	option name 'br-lan'
	option type 'bridge'
	list ports 'lan1'
	list ports 'ap0'
	list ports 'lan2'

config device
	option name 'br-guest'
	option type 'bridge'
	list ports 'lan3'

config interface 'lan'
	option device 'br-lan'

config interface 'wan'
	option device 'wan'

config interface 'wan6'
	option device 'wan'

config interface 'camera'
	option device 'lan4'
	option password 'a\\nb'

config wan_detect 'auto_wan_detect'
	option fake_wan_port '-1'
"""
PORTS = ("lan1", "lan2", "lan3", "lan4", "wan", "ap0")
SWITCH = "".join(f"\nconfig switch_port 'port{number}'\n\toption ifname '{name}'\n"
                 for number, name in enumerate(PORTS[:5], 1)) + "\nconfig wan 'wan'\n\toption switch_port '%s'\n"
LINES = ["ip link add br-lan type bridge", *(f"ip link add {port} type veth peer name far-{port}" for port in PORTS)]
TIDY = ["ls /sys/class/net/br-lan/brif >/mnt/state/members", "cat /tmp/.uci/* >/mnt/state/waiting 2>/dev/null || true"]


class Rebuild:
    """The command where the configuration gives the role to a port and the manager knows the former configuration."""

    def __init__(self, router, shell, role, *before, network=NETWORK, switch=SWITCH, after="true"):
        router.write("network", network)
        router.write("switch", switch % role)
        done = router.run(*LINES, "sh tests/packaging/manager.sh", *before,
                          f"status=0; timeout 60 {shell} {RELOAD} || status=$?", *TIDY, after, "exit $status", network=True)
        self.status, self.said = done.returncode, done.stderr
        asked = router.state / "asked"
        self.asked = asked.read_text().splitlines() if asked.exists() else []
        self.members = (router.state / "members").read_text().split()
        self.waiting = (router.state / "waiting").read_text()
        self.text = router.texts()["network"]
        self.left = sorted(router.texts())
        self.shown = router.shown("network")

    def ports(self):
        return next(line.partition("=")[2] for line in self.shown if line.startswith("network.@device[0].ports="))

    def device(self, interface):
        return next(line.partition("=")[2].strip("'") for line in self.shown
                    if line.startswith(f"network.{interface}.device="))


def test_the_role_moves_the_ports_and_the_interfaces(router, shell):
    rebuild = Rebuild(router, shell, "port2")
    assert (rebuild.status, rebuild.said, rebuild.asked) == (0, "", ASKED)
    assert rebuild.ports() == "'lan1' 'ap0' 'wan'"
    assert (rebuild.device("wan"), rebuild.device("wan6"), rebuild.device("lan")) == ("lan2", "lan2", "br-lan")
    assert rebuild.members == ["ap0", "lan1", "wan"]
    assert rebuild.waiting == ""
    assert "option password 'a\\nb'" in rebuild.text


def test_ports_of_others_stay_where_they_are(router, shell):
    """lan3 belongs to another bridge, lan4 to an interface."""
    rebuild = Rebuild(router, shell, "port1")
    assert rebuild.ports() == "'ap0' 'lan2' 'wan'"
    assert "network.@device[1].ports='lan3'" in rebuild.shown
    assert rebuild.device("camera") == "lan4"


def test_what_is_right_is_neither_written_nor_reloaded(router, shell):
    rebuild = Rebuild(router, shell, "port5")
    assert (rebuild.status, rebuild.said, rebuild.asked, rebuild.text) == (0, "", [], NETWORK)


def test_what_somebody_set_behind_the_managers_back_is_reloaded(router, shell):
    rebuild = Rebuild(router, shell, "port5", "ip link set wan master br-lan", "ip link set lan1 nomaster")
    assert (rebuild.status, rebuild.asked, rebuild.text) == (0, ASKED, NETWORK)
    assert rebuild.members == ["ap0", "lan1", "lan2"]


def test_the_fake_wan_port_stays_outside_and_keeps_no_interface(router, shell):
    rebuild = Rebuild(router, shell, "port5", network=NETWORK.replace("'-1'", "'1'"))
    assert (rebuild.status, rebuild.ports(), rebuild.device("wan")) == (0, "'ap0' 'lan2'", "wan")


def test_a_vlan_of_the_wan_port_moves_along(router, shell):
    network = NETWORK.replace("interface 'wan6'\n\toption device 'wan'", "interface 'wan6'\n\toption device '@wan'")
    rebuild = Rebuild(router, shell, "port2", network=network.replace("option device 'wan'", "option device 'wan.7'"))
    assert (rebuild.status, rebuild.device("wan"), rebuild.device("wan6")) == (0, "lan2.7", "@wan")


def test_ports_that_are_vlans_of_the_processors_own_port_are_told_apart(router, shell):
    """A switch that swconfig drives."""
    network = NETWORK.replace("'wan'\n\n", "'eth0.2'\n\n").replace("'lan1'", "'eth0.1'")
    rebuild = Rebuild(router, shell, "port1", network=network, switch=SWITCH.replace("'lan1'", "'eth0.1'").replace(
        "ifname 'wan'", "ifname 'eth0.2'"))
    assert (rebuild.status, rebuild.asked) == (0, ASKED)
    assert rebuild.ports() == "'ap0' 'lan2' 'eth0.2'"
    assert (rebuild.device("wan"), rebuild.device("wan6")) == ("eth0.1", "eth0.1")


def test_a_list_written_as_one_option_is_understood(router, shell):
    network = NETWORK.replace("list ports 'lan1'\n\tlist ports 'ap0'\n\tlist ports 'lan2'", "option ports 'lan1 ap0 lan2'")
    rebuild = Rebuild(router, shell, "port2", network=network)
    assert (rebuild.status, rebuild.ports()) == (0, "'lan1' 'ap0' 'wan'")


FILTER = "\nconfig bridge-vlan\n\toption device '%s'\n\toption vlan '1'\n\tlist ports 'lan1:u*'\n\tlist ports 'lan2:u*'\n"


@pytest.mark.parametrize("network,said", [
    (NETWORK.replace("'br-lan'\n\toption type", "'br-other'\n\toption type"), "there is no device section of br-lan"),
    (NETWORK + FILTER % "br-lan", "br-lan has a VLAN filter"),
    (NETWORK.replace("option device 'wan'", "option device 'br-wan'"), "no WAN interface of the configuration stands on a")])
def test_another_construction_is_left_alone(router, shell, network, said):
    rebuild = Rebuild(router, shell, "port2", network=network)
    assert rebuild.status == 1
    assert said in rebuild.said
    assert (rebuild.text, rebuild.asked, rebuild.waiting) == (network, [], "")


def test_the_vlan_filter_of_another_bridge_is_no_hindrance(router, shell):
    rebuild = Rebuild(router, shell, "port2", network=NETWORK + FILTER % "br-guest")
    assert (rebuild.status, rebuild.device("wan")) == (0, "lan2")


def test_a_manager_that_is_away_is_told_again(router, shell):
    rebuild = Rebuild(router, shell, "port2", "touch /mnt/state/away", f"! {shell} {RELOAD}", "rm /mnt/state/away")
    assert (rebuild.status, rebuild.asked) == (0, ASKED * 2)
    assert rebuild.members == ["ap0", "lan1", "wan"]


@pytest.mark.usefixtures("impatient")
@pytest.mark.parametrize("package", ["network", "switch"])
def test_a_locked_configuration_fails_it_and_leaves_nothing(router, shell, package):
    rebuild = Rebuild(router, shell, "port2", locked(f"/etc/config/{package}"))
    assert rebuild.status == 1
    assert (rebuild.text, rebuild.asked, rebuild.waiting) == (NETWORK, [], "")


# The real program, whose file is locked just before a command.
LOCKING = f"""#!/bin/sh
case $* in %s) {locked('/etc/config/network')} ;; esac
exec /mnt/state/real_uci "$@"
"""


@pytest.mark.usefixtures("impatient")
@pytest.mark.parametrize("command", ["*commit*", "*get*wan.device*"], ids=["commit", "between the edits"])
@pytest.mark.parametrize("waiting", ["", "network.lan.evil='1'\n"])
def test_a_lock_that_stops_it_leaves_what_waited_before(router, shell, command, waiting):
    stage = f"[ -z \"{waiting}\" ] || {{ mkdir -m 700 /tmp/.uci; printf %s \"{waiting}\" >/tmp/.uci/network; }}"
    router.program("locking_uci", LOCKING % command)
    rebuild = Rebuild(router, shell, "port2", stage, "mv /mnt/state/uci /mnt/state/real_uci",
                      "cp /mnt/state/locking_uci /mnt/state/uci", after="mv /mnt/state/real_uci /mnt/state/uci")
    assert rebuild.status == 1
    assert (rebuild.text, rebuild.asked, rebuild.waiting) == (NETWORK, [], waiting)


def test_without_room_nothing_is_written(router, shell):
    router.program("df", "#!/bin/sh\necho Filesystem; echo disk 64 60 4 50% /etc/config\n")
    rebuild = Rebuild(router, shell, "port2")
    assert rebuild.status == 1
    assert "no room in /etc/config for a new configuration" in rebuild.said
    assert (rebuild.text, rebuild.asked, rebuild.waiting) == (NETWORK, [], "")


CUTTING_COMMIT = """#!/bin/sh
# The real program on a disk that is full after 70 bytes.
/mnt/state/real_uci "$@" || exit
case "$*" in *commit*) truncate -s 70 /etc/config/network ;; esac
"""


def test_a_configuration_cut_by_its_commit_is_put_back(router, shell):
    router.program("cutting_uci", CUTTING_COMMIT)
    rebuild = Rebuild(router, shell, "port2", "mv /mnt/state/uci /mnt/state/real_uci",
                      "cp /mnt/state/cutting_uci /mnt/state/uci",
                      after="mv /mnt/state/real_uci /mnt/state/uci")
    assert rebuild.status == 1
    assert "the disk was full, the configuration is the former one" in rebuild.said
    assert (rebuild.text.strip(), rebuild.left, rebuild.asked) == (NETWORK.strip(), ["network", "switch"], [])


STAGED = "mkdir -m 755 /tmp/.uci; echo \"network.lan.evil='1'\" >/tmp/.uci/network"


@pytest.mark.parametrize("rights", [[], bounded(["net_raw", "net_admin"])], ids=["all rights", "few rights"])
@pytest.mark.parametrize("strange", ["chown 65534 /tmp/.uci", "chmod 777 /tmp/.uci", "chown 65534 /tmp/.uci/network",
                                     "mv /tmp/.uci /tmp/theirs; ln -s theirs /tmp/.uci",
                                     "chown -R 65534 /tmp/.uci; chmod 700 /tmp/.uci"])
def test_what_a_stranger_lets_wait_is_not_committed(router, shell, strange, rights):
    rebuild = Rebuild(router, " ".join([*rights, shell]), "port2", STAGED, strange)
    assert (rebuild.status, rebuild.said, rebuild.ports()) == (0, "", "'lan1' 'ap0' 'wan'")
    assert "evil" not in rebuild.text


@pytest.mark.parametrize("strange", ["chown -R 65534 /tmp/.uci", "mv /tmp/.uci /tmp/theirs; ln -s theirs /tmp/.uci"])
def test_a_strangers_folder_stops_no_swap_with_few_rights(router, shell, strange):
    router.write("switch", SWITCH % "port5")
    swap = " ".join([*bounded(["net_raw", "net_admin"]), shell, "router/network_lanwan_swap set port2"])
    done = router.run(STAGED, strange, "printf '#!/bin/sh\n' >/mnt/state/wanlan_port_reload",
                      "chmod 755 /mnt/state/wanlan_port_reload; mount --bind /mnt/state /sbin", swap)
    assert (done.returncode, done.stderr) == (0, "")
    assert "switch.wan.switch_port='port2'" in router.shown("switch")


def test_what_an_administrator_lets_wait_is_committed(router, shell):
    assert "option evil '1'" in Rebuild(router, shell, "port2", STAGED).text


def test_the_guard_is_that_of_the_other_commands():
    texts = [(ROOT / path).read_text(encoding="ascii") for path in (RELOAD, "router/network_lanwan_swap")]
    for name in ("is_ours", "take_save_folder", "restore"):
        assert len({text[text.index(f"\n{name}() {{"):].split("\n}\n", 1)[0] for text in texts}) == 1, name


SWCONFIG = """#!/bin/sh
[ "$*" = "dev switch0 show" ] || exit 1
cat <<'END'
Global attributes:
	enable_vlan: 1
Port 0:
	mask: 0x00000000: (0)
	pvid: 1
	link: port:0 link:up speed:1000baseT full-duplex txflow rxflow
Port 1:
	link: port:1 link:down
Port 11:
	link: port:11 link:up speed:100baseT full-duplex auto
VLAN 1:
	ports: 0 6t
END
"""


def test_swconfig_tells_the_links_of_the_switch(router, shell):
    router.write("switch", """
config switch_port 'port1'
	option port '1'
	option ifname 'eth1'
	option switch_port '0'

config switch_port 'port2'
	option port 1
	option ifname "eth2"

config 'switch_port' 'port3'
	option 'ifname' 'eth3'
	option 'port' '11'

config wan 'wan'
	option switch_port 'port1'
""")
    router.program("swconfig", SWCONFIG)
    done = router.run(f"{shell} {STATES}")
    assert json.loads(done.stdout) == {"eth1": True, "eth2": False, "eth3": True}
    assert done.stderr == ""


def test_swconfig_reads_a_last_line_without_an_end(router, shell):
    router.write("switch", "config switch_port 'port1'\n\toption ifname 'eth1'\n\toption port '0'")
    router.program("swconfig", SWCONFIG)
    assert json.loads(router.run(f"{shell} {STATES}").stdout) == {"eth1": True}


def test_swconfigs_port_states_fit_the_reader(router, shell):
    router.write("switch", "".join(f"config switch_port 'port{number}'\n\toption port '{number}'\n"
                                   f"\toption ifname 'eth{number}'\n" for number in range(1, 60)))
    router.program("swconfig", SWCONFIG)
    told = router.run(f"{shell} {STATES}").stdout.rstrip("\n")
    assert 490 < len(told) <= 512 and json.loads(told)
