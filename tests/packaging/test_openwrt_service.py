# SPDX-License-Identifier: MIT
"""The router package's service script, played in a stand-in for the frame of such scripts."""
import pytest

from conftest import locked

SCRIPT = "packaging/openwrt/files/wan_detect.init"
NETWORK = """
config device
	option name 'br-lan'
	option type 'bridge'
	list ports 'lan1'

config device
	option name 'lan1'

config device
	option name 'wan'

config interface 'wan'
	option device 'wan'
	option proto 'dhcp'

config wan_detect 'auto_wan_detect'
	option enable 'on'
	option port_prefix 'lan wan'
	option wan_port_priority '2 1'
	option wan_port_pool '1 2'
	option proto_priority 'pppoe dhcp static'
	option fake_wan_port '-1'
"""
SWITCH = """
config switch_port 'port1'
	option port '1'
	option ifname 'lan1'
	option label 'LAN1'

config switch_port
	option port '7'

config switch_port 'port2'
	option port '2'
	option ifname 'wan'
	option label 'WAN'

config wan 'wan'
	option switch_port 'port2'
"""
PROTOCOL = "\nconfig family 'ipv4'\n\tlist protos 'dhcp'\n\tlist protos 'pppoe'\n"
SYSMODE = "\nconfig sysmode 'sysmode'\n\toption mode 'router'\n"
RIGHT = {"network": NETWORK, "switch": SWITCH, "protocol": PROTOCOL, "sysmode": SYSMODE}


class Service:
    def __init__(self, router, shell, packages):
        self.router, self.shell = router, shell
        for package, text in packages.items():
            router.write(package, text)

    def play(self, *actions, before="true"):
        """What procd was told by these actions, in words, and what the script said."""
        for name in ("told", "said"):
            (self.router.state / name).unlink(missing_ok=True)
        calls = [f"{self.shell} /mnt/state/rc.common {SCRIPT} {action}" for action in actions]
        done = self.router.run(before, *calls, "[ ! -e /run/wan_detect.settings ] || cp /run/wan_detect.settings /mnt/state/settings",
                               "stat -c '%a %u' /tmp/.uci >/mnt/state/folder", "ls -A /tmp >/mnt/state/left")
        assert done.returncode == 0
        assert set(done.stderr.splitlines()) <= {"Killed"}    # what shells say of a `uci` that waited too long
        told, said = self.router.state / "told", self.router.state / "said"
        return ([line.split("|")[:-1] for line in told.read_text().splitlines()],
                said.read_text().splitlines() if said.exists() else [])

    def settings(self):
        return (self.router.state / "settings").read_text()


def test_the_daemon_is_started_in_the_foreground_and_kept_alive(router, shell):
    told, said = Service(router, shell, RIGHT).play("start")
    assert told == [["open"], ["command", "/usr/sbin/wan_detect", "--foreground"],
                    ["file", "/var/run/wan_detect.settings"], ["respawn", "3600", "5", "0"], ["stdout", "1"], ["stderr", "1"],
                    ["term_timeout", "10"], ["close"], ["trigger", "network", "switch", "protocol", "sysmode"]]
    assert said == []
    assert (router.state / "folder").read_text() == "700 0\n"
    assert (router.state / "left").read_text() == ".uci\n"


RIGHTS = "/etc/capabilities/wan_detect.json"
JAIL = "mount --bind /mnt/state /sbin; touch /mnt/state/ujail; chmod +x /mnt/state/ujail; "
BOUNDS = f"mkdir -p /etc/capabilities; touch {RIGHTS}; "


def rights_cut(told):
    """The file that bounds the service's rights and what it can gain; it counts for an instance with a jail only."""
    instance = {name: words for name, *words in told[told.index(["open"]):told.index(["close"])]}
    return (instance.get("capabilities"), instance.get("no_new_privs")) if "jail" in instance else (None, None)


def test_where_there_is_a_jail_the_rights_are_cut(router, shell):
    told, _ = Service(router, shell, RIGHT).play("start", before=JAIL + BOUNDS)
    assert rights_cut(told) == ([RIGHTS], ["1"])
    assert ["jail", "wan_detect"] in told    # any further word would take the router's own namespaces away


@pytest.mark.parametrize("before", [JAIL, BOUNDS], ids=["no file", "no jail"])
def test_where_one_is_missing_the_daemon_keeps_its_rights(router, shell, before):
    told, _ = Service(router, shell, RIGHT).play("start", before=before)
    assert not {"jail", "capabilities", "no_new_privs"} & {words[0] for words in told}


def test_a_second_start_says_the_same(router, shell):
    service = Service(router, shell, RIGHT)
    once, _ = service.play("start")
    settings = service.settings()
    twice, said = service.play("start", "reload")
    assert twice == once + once
    assert said == []
    assert service.settings() == settings


NO_PORT = "not started: no port has a device section in network, a switch_port section in switch with its number, and a name that " \
    "a word of network.auto_wan_detect.port_prefix begins"
BEGINNINGS = [    # what is configured, and what is said where the daemon could not begin
    ({}, "not started: there is no package network, or it does not parse"),
    ({**RIGHT, "switch": None}, "not started: there is no package switch, or it does not parse"),
    ({**RIGHT, "protocol": "config what 'ever\n"}, "not started: there is no package protocol, or it does not parse"),
    ({**RIGHT, "switch": ""}, NO_PORT),
    ({**RIGHT, "switch": SWITCH.replace("'lan1'", "'lan9'").replace("'wan'\n\toption label", "'wan9'\n\toption label")}, NO_PORT),
    ({**RIGHT, "switch": SWITCH.replace("option port '1'", "").replace("option port '2'", "option port 'two'")}, NO_PORT),
    ({**RIGHT, "switch": SWITCH.replace("switch_port 'port", "port 'port")}, NO_PORT),
    ({**RIGHT, "network": NETWORK.replace("config device", "config bridge")}, NO_PORT),
    ({**RIGHT, "network": "config device\n\tlist name 'lan0'\n" + NETWORK}, NO_PORT),
    ({**RIGHT, "network": NETWORK.replace("'lan wan'", "'lan\twan'")}, NO_PORT),
    ({**RIGHT, "network": NETWORK.replace("'lan wan'", "'lan\nwan'")}, NO_PORT),
    ({**RIGHT, "switch": SWITCH.replace("port '1'", "port '-1'").replace("port '2'", "port '300'")}, NO_PORT),
    ({**RIGHT, "switch": SWITCH.replace("option label 'LAN1'", "list label 'LAN1'")}, NO_PORT),
    ({**RIGHT, "network": NETWORK.replace("\toption port_prefix 'lan wan'\n", "")}, NO_PORT),
]


@pytest.mark.parametrize("packages,expected", BEGINNINGS)
def test_what_could_not_begin_is_not_started_until_it_can(router, shell, packages, expected):
    service = Service(router, shell, {package: text for package, text in packages.items() if text is not None})
    told, said = service.play("start", "reload")
    assert told == [["trigger", "network", "switch", "protocol", "sysmode"]], "a reload tells procd nothing: what runs goes on"
    assert said == [expected] * 2
    for package, text in RIGHT.items():
        router.write(package, text)
    told, said = service.play("reload")
    assert ["command", "/usr/sbin/wan_detect", "--foreground"] in told
    assert said == []


@pytest.mark.parametrize("change", [("network", ("'lan wan'", "' xy  wa'")), ("switch", ("'port2'\n\toption port '2'", "\n\toption port '2'")),
                                    ("switch", ("config wan 'wan'\n\toption switch_port 'port2'\n", "")),
                                    ("switch", ("ifname 'wan'\n", "ifname 'wan9'\n"), ("port '1'", "port ' +1'")),
                                    ("switch", ("option label 'WAN'", "list label 'WAN'")),
                                    ("switch", ("option label 'LAN1'", "option label 'it'\\''s\n\tlist label x'")),
                                    ("network", ("config wan_detect 'auto_wan_detect'", "config detection 'auto_wan_detect'"))])
def test_one_port_is_enough_to_begin(router, shell, change):
    package, *changes = change
    text = RIGHT[package]
    for there, instead in changes:
        assert there in text
        text = text.replace(there, instead)
    told, _ = Service(router, shell, {**RIGHT, package: text}).play("start")
    assert ["open"] in told


def test_what_cannot_be_looked_at_may_begin(router, shell):
    router.program("awk", "#!/bin/sh\nexit 127\n")
    assert ["open"] in Service(router, shell, RIGHT).play("start")[0]


def test_a_list_of_prefixes_counts_as_none_and_hinders_no_start(router, shell):
    network = NETWORK.replace("option port_prefix 'lan wan'", "list port_prefix 'lan'").replace("'lan1'", "'eth0'")
    told, said = Service(router, shell, {**RIGHT, "network": network, "switch": SWITCH.replace("'lan1'", "'eth0'")}).play("start")
    assert ["open"] in told
    assert "network: 'list port_prefix' is not read, write 'option port_prefix'" in said


@pytest.mark.parametrize("package,change,counts", [
    ("network", ("'1 2'", "'2'"), True), ("network", ("enable 'on'", "enable 'off'"), True),
    ("network", ("option name 'lan1'", "option name 'lan2'"), True), ("switch", ("ifname 'lan1'", "ifname 'lan2'"), True),
    ("protocol", ("list protos 'pppoe'\n", ""), True), ("sysmode", ("'router'", "'bridge'"), True),
    ("network", ("fake_wan_port '-1'", "fake_wan_port '1'"), False), ("network", ("device 'wan'", "device 'lan1'"), False),
    ("network", ("list ports 'lan1'", "list ports 'wan'"), False),
    ("switch", ("option switch_port 'port2'", "option switch_port 'port1'"), False)])
def test_only_what_the_daemon_reads_once_restarts_it(router, shell, package, change, counts):
    service = Service(router, shell, RIGHT)
    service.play("start")
    former = service.settings()
    assert change[0] in RIGHT[package]
    router.write(package, RIGHT[package].replace(*change))
    service.play("reload")
    assert (service.settings() != former) == counts


def test_what_waits_for_a_commit_restarts_nothing(router, shell):
    service = Service(router, shell, RIGHT)
    service.play("start")
    former = service.settings()
    assert former
    service.play("reload", before="mkdir -m 700 /tmp/.uci; echo \"network.auto_wan_detect.enable='off'\" >/tmp/.uci/network")
    assert service.settings() == former


@pytest.mark.usefixtures("impatient")
@pytest.mark.parametrize("package", ["network", "switch", "protocol"])
def test_a_lock_stops_no_start(router, shell, package):
    told, said = Service(router, shell, RIGHT).play("start", before=locked(f"/etc/config/{package}"))
    assert ["close"] in told
    assert said == [f"{package} is locked: its settings are not checked"]


@pytest.mark.usefixtures("impatient")
@pytest.mark.parametrize("package", ["network", "sysmode"])
def test_a_lock_during_a_reload_restarts_nothing(router, shell, package):
    """What was read at the start stays told."""
    service = Service(router, shell, RIGHT)
    service.play("reload", before=f"echo read >/var/run/wan_detect.settings; {locked(f'/etc/config/{package}')}")
    assert service.settings() == "read\n"


# A `timeout` before the router's own, which does as these lines say first.
TIMEOUT = """#!/bin/sh
%s
exec "$(PATH=${PATH#/mnt/state:}; command -v timeout)" "$@"
"""


def test_a_reload_asks_once_whether_the_daemon_can_begin(router, shell):
    """A package that is locked at first, and then is gone."""
    router.program("timeout", TIMEOUT % 'case $* in *"export protocol") mkdir /run/locked 2>/dev/null && exit 137 || exit 1 ;; esac')
    told, _ = Service(router, shell, RIGHT).play("reload")
    assert ["close"] in told


@pytest.mark.parametrize("package", ["network", "switch", "protocol"])
def test_a_lock_in_the_midst_of_the_checks_hinders_none(router, shell, package):
    """Each call that waits for it would be ended, and its settings would be missing."""
    router.program("timeout", TIMEOUT % f"""case $* in *"get "*wan_port_pool) :>/run/locked ;; esac
[ ! -e /run/locked ] || case $* in *" {package}"*) exit 137 ;; esac""")
    assert Service(router, shell, RIGHT).play("start")[1] == []


@pytest.mark.parametrize("action", ["start", "boot", "reload"])
def test_nothing_that_a_stranger_lets_wait_is_read(router, shell, action):
    waits = "mkdir /tmp/.uci; echo \"network.auto_wan_detect.port_prefix='no'\" >/tmp/.uci/network; " \
        "echo \"network.auto_wan_detect.enable='off'\" >>/tmp/.uci/network; chown -R 65534 /tmp/.uci"
    router.program("wanlan_port_reload", "#!/bin/sh\necho called >>/mnt/state/calls\n")
    told, said = Service(router, shell, RIGHT).play(action, before=f"mount --bind /mnt/state /sbin; {waits}")
    assert ["close"] in told
    assert said == ["/tmp/.uci is somebody else's, it is put aside"]
    assert (router.state / "calls").exists() == (action == "boot")


@pytest.mark.parametrize("strange", ["mkdir -m 755 /tmp/.uci; chown 65534 /tmp/.uci", "mkdir /tmp/x; ln -s x /tmp/.uci",
                                     "ln -s nothing /tmp/.uci", ":>/tmp/.uci"])
def test_a_strangers_save_folder_is_put_aside(router, shell, strange):
    told, said = Service(router, shell, RIGHT).play("start", before=strange)
    assert ["close"] in told
    assert said == ["/tmp/.uci is somebody else's, it is put aside"]
    assert (router.state / "folder").read_text() == "700 0\n"


def test_the_routers_own_save_folder_stays_as_it_is(router, shell):
    service = Service(router, shell, RIGHT)
    assert service.play("start", before="mkdir -m 750 /tmp/.uci; :>/tmp/.uci/wireless")[1] == []
    assert (router.state / "folder").read_text() == "750 0\n"


WRONG = [
    ("network", ("enable 'on'", "enable '1'"), ["network.auto_wan_detect.enable is '1', which counts as off: say 'on'"]),
    ("network", ("enable 'on'", "enable 'yes'"),
     ["network.auto_wan_detect.enable is 'yes', which counts as off: say 'on'"]),
    ("network", ("enable 'on'", "enable 'On'"), ["network.auto_wan_detect.enable is 'On', which counts as off: say 'on'"]),
    ("network", ("wan_port_pool '1 2'", "wan_port_pool '1,2'"),
     ["network.auto_wan_detect.wan_port_pool names '1,2', but there is no switch.port1,2.ifname"]),
    ("network", ("wan_port_priority '2 1'", "wan_port_priority '2 3'"),
     ["network.auto_wan_detect.wan_port_priority names '3', but there is no switch.port3.ifname",
      "network.auto_wan_detect.wan_port_priority does not name '1' of the pool, which comes before all others"]),
    ("network", ("wan_port_pool '1 2'", "wan_port_pool '1\t2'"),
     ["network.auto_wan_detect.wan_port_pool names '1\t2', but there is no switch.port1\t2.ifname"]),
    ("network", ("\toption wan_port_pool '1 2'\n", ""), ["network.auto_wan_detect.wan_port_pool is missing: no port may be WAN"]),
    ("network", ("wan_port_pool '1 2'", "wan_port_pool ' '"),
     ["network.auto_wan_detect.wan_port_pool is missing: no port may be WAN"]),
    ("network", ("\toption wan_port_priority '2 1'\n", ""), []),
    ("switch", ("option port '2'", "option port '3'"), ["switch.port2.port is '3' in a section called port2: write '2'"]),
    ("switch", ("\toption port '2'\n", ""), ["switch.port2.port is '' in a section called port2: write '2'"]),
    ("switch", ("option port '2'", "option port '02'"), []),
    ("switch", ("config wan 'wan'", "config lan_agg 'lan_agg'\n\toption enable_agg '1'\n\tlist lacpports '2'\n\nconfig wan 'wan'"),
     ["switch: 'list lacpports' is not read, write 'option lacpports'"]),
    ("switch", ("config wan 'wan'", "config lan_agg 'lan_agg'\n\toption lacpports '2 3'\n\nconfig wan 'wan'"),
     ["switch.lan_agg.enable_agg is '', which counts as on, so that lacpports '2 3' are never WAN: say '1' or '0'"]),
    ("switch", ("config wan 'wan'", "config lan_agg 'lan_agg'\n\toption enable_agg 'no'\n\toption lacpports '2'\n\nconfig wan 'wan'"),
     ["switch.lan_agg.enable_agg is 'no', which counts as on, so that lacpports '2' are never WAN: say '1' or '0'"]),
    ("switch", ("config wan 'wan'", "config lan_agg 'lan_agg'\n\toption lanport 'LAN1'\n\nconfig wan 'wan'"), []),
    ("protocol", ("\tlist protos 'dhcp'\n", ""), ["protocol.ipv4.protos is without 'dhcp': no probe goes out"]),
    ("protocol", ("config family 'ipv4'", "config family 'ipv6'"), ["protocol.ipv4.protos is without 'dhcp': no probe goes out"]),
    ("network", ("option port_prefix 'lan wan'", "option port_prefix 'wan\tlan lan'"),
     ["switch.port2.ifname is 'wan': no word of network.auto_wan_detect.port_prefix begins it"]),
    ("network", ("option wan_port_pool '1 2'", "list wan_port_pool '1'\n\tlist wan_port_pool '2'"),
     ["network: 'list wan_port_pool' is not read, write 'option wan_port_pool'"]),
    ("protocol", ("list protos 'dhcp'\n\tlist protos 'pppoe'", "option protos 'dhcp pppoe'"),
     ["protocol: 'option protos' is not read, write 'list protos'"]),
    ("network", ("option port_prefix 'lan wan'", "option port_prefix 'lan'"),
     ["switch.port2.ifname is 'wan': no word of network.auto_wan_detect.port_prefix begins it"]),
    ("network", ("option name 'wan'", "option name 'wan0'"),
     ["switch.port2.ifname is 'wan', but no device section of network has that name"]),
    ("switch", ("option switch_port 'port2'", "option switch_port 'wan'"),
     ["switch.wan.switch_port is 'wan', but there is no switch.wan.ifname"]),
]


@pytest.mark.parametrize("package,change,expected", WRONG, ids=lambda value: value[1] if isinstance(value, tuple) else "")
def test_settings_that_look_right_and_are_not_are_named(router, shell, package, change, expected):
    assert change[0] in RIGHT[package]
    _, said = Service(router, shell, {**RIGHT, package: RIGHT[package].replace(*change)}).play("start")
    assert said == expected


@pytest.mark.parametrize("prefix", ["", "\toption port_prefix ' '\n"], ids=["missing", "blank"])
def test_without_a_word_names_begin_with_eth(router, shell, prefix):
    network = NETWORK.replace("\toption port_prefix 'lan wan'\n", prefix).replace("'lan1'", "'eth0'")
    _, said = Service(router, shell, {**RIGHT, "network": network, "switch": SWITCH.replace("'lan1'", "'eth0'")}).play("start")
    assert said == ["switch.port2.ifname is 'wan': no word of network.auto_wan_detect.port_prefix begins it"]


def test_a_name_with_a_quote_is_found(router, shell):
    packages = {package: text.replace("'lan1'", "'lan'\\''1'") for package, text in RIGHT.items()}
    assert Service(router, shell, packages).play("start")[1] == []


@pytest.mark.parametrize("value", ["off", "false", "0"])
def test_who_switched_detection_off_hears_nothing(router, shell, value):
    network = NETWORK.replace("enable 'on'", f"enable '{value}'").replace("'1 2'", "'8'")
    assert Service(router, shell, {**RIGHT, "network": network}).play("start")[1] == []


@pytest.mark.parametrize("enable,calls", [("on", 1), ("off", 0)])
def test_at_boot_the_ports_follow_the_role_where_detection_is_on(router, shell, enable, calls):
    (router.state / "wanlan_port_reload").write_text("#!/bin/sh\necho called >>/mnt/state/calls\n")
    (router.state / "wanlan_port_reload").chmod(0o755)
    service = Service(router, shell, {**RIGHT, "network": NETWORK.replace("enable 'on'", f"enable '{enable}'")})
    told, _ = service.play("boot", "reload", before="mount --bind /mnt/state /sbin; :>/mnt/state/calls")
    assert ["open"] in told
    assert len((router.state / "calls").read_text().splitlines()) == calls
