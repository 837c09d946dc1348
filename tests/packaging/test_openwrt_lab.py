# SPDX-License-Identifier: MIT
"""The router package in the virtual router: what the first boot makes of a board, the manager's commands, the rights."""
import json
import shlex
from concurrent.futures import ThreadPoolExecutor

import pytest

from rights import ROOT, bounded, play

LABS = 3
PACKAGE = ROOT / "packaging" / "openwrt" / "files"
HERE = ROOT / "tests" / "packaging"
SHIPPED = {name: json.loads((PACKAGE / name / "capabilities.json").read_text(encoding="ascii"))
           for name in ("bridge", "manager")}
BOARD = {"network": {"lan": {"ports": ["eth1", "eth2", "eth3", "eth4"]}, "wan": {"device": "eth0"}}}
FIRST_BOOT = f"""
cd /etc/config && rm -f switch protocol sysmode
printf "config interface 'wan'\\n\\toption proto 'dhcp'\\n" >network
echo {shlex.quote(json.dumps(BOARD))} >/etc/board.json
install -m 755 {HERE}/standins/jsonfilter /usr/sbin
( . {PACKAGE}/wan_detect.defaults )
uci set network.auto_wan_detect.enable=on
uci commit network
"""
# The manager is a service of its own, with all rights.
MANAGED = f"""
printf "\\nconfig device\\n\\toption name 'br-lan'\\n\\tlist ports '%s'\\n" eth1 >>/etc/config/network
printf "\\tlist ports '%s'\\n" eth2 eth3 >>/etc/config/network
uci set network.wan.device=eth0
uci commit network
install -m 755 {PACKAGE}/manager/wanlan_port_reload /sbin
mkdir /run/manager && mkfifo /run/manager/ask /run/manager/answer
sh {HERE}/manager.sh /run/manager </dev/null >/run/manager/log 2>&1 &
mv /usr/sbin/ubus /usr/sbin/ubus.real
cat >/usr/sbin/ubus <<'END'
#!/bin/sh
case "$*" in
*"call network reload"*) echo reload >/run/manager/ask && read -r answer </run/manager/answer && [ "$answer" = reloaded ] ;;
*) exec ubus.real "$@" ;;
esac
END
chmod 755 /usr/sbin/ubus
"""


# All that a jail leaves of the environment, but for the lab's clock, and a swap that asks for what the daemon adds to it.
BARE = ["sh", "-c", r"""
for name in $(env | sed -n 's/^\([A-Za-z_][A-Za-z_0-9]*\)=.*/\1/p'); do
    case $name in LD_PRELOAD | FAKETIME*) ;; *) unset "$name" ;; esac
done
container=ujail exec "$@" """, "ujail"]
WITH_FOLDERS = """
mv /usr/sbin/network_lanwan_swap /usr/sbin/swap
cat >/usr/sbin/network_lanwan_swap <<'END'
#!/bin/sh
case $(/usr/bin/env | sed '/^LD_PRELOAD=/d; /^FAKETIME/d; /^PWD=/d' | sort | tr '\\n' ' ') in
"PATH=/usr/sbin:/usr/bin:/sbin:/bin WAN_DETECT_PORT_PREFIX= container=ujail ") exec swap "$@" ;;
esac
END
chmod 755 /usr/sbin/network_lanwan_swap
"""

PREPARE = {"bridge": "", "manager": MANAGED}
# What a right is for. Probes find nothing without theirs; a role is given, but its port stays where it is.
FAILS_WITHOUT = {"CAP_NET_RAW": "the configuration gives the WAN role to eth2",
                 "CAP_NET_ADMIN": "the LAN bridge holds every port but eth2"}
NEEDED = [(commands, right) for commands, sets in SHIPPED.items() for right in sets["bounding"]]


@pytest.fixture(name="played", scope="module")
def play_all(request):
    """What became of each play, by its name; they are played some at the same time."""
    build = request.config.getoption("--build")
    with ThreadPoolExecutor(LABS) as pool:
        plays = {"first boot": pool.submit(play, build, [], "dhcp", FIRST_BOOT),
                 "bare": pool.submit(play, build, [*bounded(SHIPPED["bridge"]["bounding"]), *BARE], prepare=WITH_FOLDERS)}
        for commands, sets in SHIPPED.items():
            plays[commands] = pool.submit(play, build, bounded(sets["bounding"]), prepare=PREPARE[commands])
        for commands, missing in NEEDED:
            rest = [right for right in SHIPPED[commands]["bounding"] if right != missing]
            plays[commands, missing] = pool.submit(play, build, bounded(rest), prepare=PREPARE[commands])
        yield lambda name: plays[name].result()
        pool.shutdown(cancel_futures=True)


def assert_held(played):
    assert played, "\n".join(played.failed) + played.output


def test_what_the_first_boot_makes_of_a_board_suffices_for_a_swap(played):
    assert_held(played("first boot"))


@pytest.mark.parametrize("commands", SHIPPED)
def test_the_sets_of_a_capabilities_file_are_one(commands):
    sets = SHIPPED[commands]
    assert sets == {"bounding": sets["bounding"], "effective": sets["bounding"], "permitted": sets["bounding"],
                    "inheritable": sets["bounding"], "ambient": []}


@pytest.mark.parametrize("commands", SHIPPED)
def test_a_start_a_swap_a_commit_and_an_end_work_with_the_shipped_rights(played, commands):
    assert_held(played(commands))


def test_they_work_in_the_environment_of_a_jail_and_the_commands_find_theirs(played):
    assert_held(played("bare"))


@pytest.mark.parametrize("commands,missing", NEEDED)
def test_each_of_the_shipped_rights_is_needed(played, commands, missing):
    without = played((commands, missing))
    assert any(what.startswith(FAILS_WITHOUT[missing]) for what in without.failed), without.output
