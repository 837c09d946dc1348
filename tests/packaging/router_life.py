# SPDX-License-Identifier: MIT
"""What the installed package does on a machine whose ports have something behind them: from the start to the end."""
import time

PORTS = ("eth0", "eth1", "eth2", "eth3")
FOUND_S = 300    # a minute will do where nobody else computes
TELL_S = 10
POLL_S = 0.5

# eth0 has the WAN role and a silent device, eth2 a DHCP server. eth2 is a combo port; eth3 plays the fake WAN port, which a cycle
# gives up, in the configuration and in the bridge.
PORTS_AND_UPSTREAM = """
ip link add br-lan address 02:00:5e:10:00:01 type bridge
ip address add 192.168.1.1/24 dev br-lan
ip link set br-lan up
for port in eth0 eth1 eth2 eth3; do
    ip netns add "far-$port"
    ip link add "$port" type veth peer name line netns "far-$port"
    ip link set "$port" up
    ip -n "far-$port" link set lo up
    ip -n "far-$port" link set line up
done
ip -n far-eth2 address add 10.10.3.1/24 dev line
systemd-run --quiet --unit=upstream ip netns exec far-eth2 dnsmasq --keep-in-foreground --user=root --conf-file=/dev/null \
    --pid-file= --leasefile-ro --no-resolv --no-hosts --no-ping --dhcp-authoritative --interface=line --bind-dynamic \
    --dhcp-range=10.10.3.100,10.10.3.200,1h --address=/#/192.0.2.10
mkdir -p /run/combo/port3
echo 1 >/run/combo/port3/phy
echo 0 >/run/combo/port3/sfp
echo sfp >/run/combo/port3/serdes
"""

# As README.Debian tells it.
SWITCH_ON = """
uci set switch.port3.type=combo
uci set switch.port3.addr=3
uci set network.auto_wan_detect.fake_wan_port=4
uci set network.auto_wan_detect.enable=on
uci commit
systemctl enable --now --quiet wan_detect
"""

# The facts of a whole life, each with the question that tells it inside the machine. A path instead of a package's name shows
# what is committed.
FACTS = {
    "started": '[ "$(systemctl show --value -p ExecMainStartTimestampMonotonic wan_detect)" != 0 ]',
    "serves": "ubus -t 1 list wan_detect",
    "asked": "journalctl --quiet -u upstream | grep -q DHCPDISCOVER",
    "found": '[ "$(cat /tmp/wan_detect_result)" = eth2 ]',
    "role": '[ "$(uci -q get /etc/config/switch.wan.switch_port)" = port3 ]',
    "commit": '[ "$(uci -q get /etc/config/network.auto_wan_detect.fake_wan_port)" = -1 ]',
    "ports": '[ "$(cd /sys/class/net/br-lan/brif && echo *)" = "eth0 eth1 eth3" ]',
    "combo": '[ "$(cat /run/combo/port3/serdes)" = phy ]',
}


# The daemon asks whether a static connection is online; the command is tried under the settings of its unit, in both its ways.
ONLINE_TEST = """
sed 's,^ExecStart=.*,ExecStart=/usr/sbin/online-test,; s,^Type=.*,Type=oneshot,; /^Restart/d; /^ExecStartPre/d' \
    /lib/systemd/system/wan_detect.service >/run/systemd/system/online-test.service
ln -s /etc/systemd/system/wan_detect.service.d /run/systemd/system/online-test.service.d
systemctl daemon-reload
ip address add 10.10.3.2/24 dev eth2
"""
ONLINE_FACTS = {
    "gateway answers": "ip route add default via 10.10.3.1; systemctl start online-test",
    "address is taken": "ip route del default; uci set protocol.static.gateway=10.10.3.1; uci commit; systemctl start online-test",
}
WHOLE = FACTS.keys() | ONLINE_FACTS.keys() | {"ports again", "tells", "end"}

# As a boot finds them.
START_ANEW = """
for port in eth0 eth1 eth2 eth3; do ip link set "$port" nomaster; done
systemctl restart wan_detect
"""


def holds(machine, question):
    return machine.run("sh", "-c", question, check=False).returncode == 0


def build(machine):
    machine.script(PORTS_AND_UPSTREAM)


def play(machine, is_enough=lambda facts: False):
    """Switches the daemon on, waits until all was as it should be or what was is enough; returns the facts that held at some
    time."""
    machine.run("sh", "-ec", SWITCH_ON, check=False)
    facts, end = set(), time.monotonic() + FOUND_S
    while facts != FACTS.keys() and time.monotonic() < end and not is_enough(facts):
        facts |= {name for name, question in FACTS.items() if holds(machine, question)}
        time.sleep(POLL_S)
    machine.script(ONLINE_TEST)
    facts |= {name for name, question in ONLINE_FACTS.items() if holds(machine, question)}
    return facts | tells(machine) | joins_again(machine) | ends(machine)


def joins_again(machine):
    """A start that follows no swap brings the ports back."""
    machine.run("sh", "-ec", START_ANEW, check=False)
    return {"ports again"} if holds(machine, FACTS["ports"]) else set()


def tells(machine):
    """Told a level, the daemon tells the journal."""
    machine.run("ubus", "-t", "1", "call", "wan_detect", "log", '{"level": 7}', check=False)
    end = time.monotonic() + TELL_S
    while time.monotonic() < end:
        if holds(machine, "journalctl --quiet -u wan_detect | grep -q 'wan_detect..Debug'"):
            return {"tells"}
        time.sleep(POLL_S)
    return set()


def ends(machine):
    """Told to end, it does so by itself."""
    machine.run("systemctl", "stop", "wan_detect", check=False)
    told = machine.run("systemctl", "show", "-p", "Result,ExecMainStatus", "wan_detect", check=False).stdout.split()
    return {"end"} if sorted(told) == ["ExecMainStatus=0", "Result=success"] else set()
