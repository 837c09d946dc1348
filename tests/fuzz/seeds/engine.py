# SPDX-License-Identifier: MIT
"""Days in the life of the engine: the steps of engine_events_fuzz.cpp."""
import struct

from seeds.store import block, save

(
    PASS_TIME,
    FIRE_TIMER,
    PLUG,
    SCAN,
    LOOK_AT_COMBO_PORT,
    CALL,
    PEERS,
    PROBE_RESULTS,
    NETWORK,
    CONFIGURE,
    PORT_STATES,
    COMBO_STATE,
    COMMANDS,
) = range(13)
CONNECTION, GATEWAY, SECONDARY, WAN_PORT, AGGREGATION, AGGREGATED, GAMING, PREFERRED_SIDE = range(8)
DHCP, PPPOE, GATEWAY_HOST, LAN_HOST, NAME_SERVER = 1, 2, 4, 8, 16
METHODS = ("log", "proto_detect", "set", "hotplug", "wan_detect", "ban_event")
FLAG = 0x80
UNKNOWN, DISCONNECTED, CONNECTED, CONNECTING, POOR = range(5)


def wait(milliseconds):
    return bytes([PASS_TIME]) + struct.pack(">H", milliseconds)


def plug(port):
    return bytes([PLUG | FLAG, port])


def unplug(port):
    return bytes([PLUG, port])


def call(method, arguments):
    return bytes([CALL, METHODS.index(method)]) + block(arguments)


def peers(port, kinds):
    return bytes([PEERS, port, kinds])


def network(state, online_test=0):
    return bytes([NETWORK, state]) + struct.pack(">h", online_test)


def configure(setting, value):
    return bytes([CONFIGURE, setting]) + block(value)


SCANNED = bytes([SCAN])
DETECT = call("wan_detect", "{}")


def ports(*steps):
    """The ports with these numbers come up, then the daemon is asked to look."""
    return b"".join(plug(port) for port in steps) + SCANNED + DETECT


def day(name, *steps, order="0 1 2 3 4", fake_wan="-1"):
    save("engine_events", name, block(order) + block(fake_wan) + b"".join(steps))


FIRE = bytes([FIRE_TIMER])
CYCLE = wait(9000)
JUDGED = wait(450) + FIRE * 2  # the next step is the end
AGAIN = wait(25000)  # a switch is tested anew


def probes():
    day("cable_moves", peers(1, DHCP), ports(1), wait(5000), SCANNED, AGAIN, network(CONNECTED), AGAIN)
    day("two_dhcp_ports", peers(1, DHCP), peers(3, DHCP | NAME_SERVER), ports(1, 3), CYCLE)
    day("two_dhcp_ports_and_no_names", peers(1, DHCP), peers(3, DHCP), ports(1, 3), CYCLE)
    day("pppoe", configure(CONNECTION, "pppoe"), peers(2, PPPOE), ports(1, 2), CYCLE, AGAIN)
    day("nobody_answers", ports(1, 2), CYCLE, CYCLE)
    day("some_answer", peers(2, DHCP), ports(1, 2, 3), CYCLE, AGAIN)
    day("lan_hosts", peers(1, LAN_HOST), peers(2, DHCP), ports(1, 2), CYCLE)
    day("tunnel", configure(CONNECTION, "l2tp"), peers(1, DHCP), ports(1), CYCLE)
    day("unsupported", configure(CONNECTION, "ocn"), ports(1), CYCLE, configure(CONNECTION, "x"), DETECT, CYCLE)
    day("failing_probes", ports(1), bytes([PROBE_RESULTS, 84, 0, FLAG]), CYCLE, bytes([PROBE_RESULTS, 0, 91, 0]), CYCLE)
    day("type_changes_in_a_cycle", ports(1, 2), wait(450), FIRE, configure(CONNECTION, "static"), FIRE, FIRE, CYCLE)


def addresses():
    static = configure(CONNECTION, "static")
    day("static", static, peers(1, GATEWAY_HOST), ports(1), CYCLE, network(CONNECTED, 256), DETECT, CYCLE)
    day("two_gateways", static, peers(1, GATEWAY_HOST), peers(4, GATEWAY_HOST | NAME_SERVER), ports(1, 4), CYCLE)
    day("two_gateways_and_no_names", static, peers(1, GATEWAY_HOST), peers(4, GATEWAY_HOST), ports(1, 4), CYCLE)
    day("no_gateway", static, ports(1, 4), CYCLE)
    day("no_bridge", static, bytes([PROBE_RESULTS, 0, 0, FLAG]), ports(1), CYCLE)
    day(
        "tunnel_over_an_address",
        configure(CONNECTION, "pptp"),
        configure(SECONDARY, "static"),
        peers(1, GATEWAY_HOST),
        ports(1),
        CYCLE,
    )


def interruptions():
    day("wan_lost", ports(0, 1), network(CONNECTED), CYCLE, unplug(0), SCANNED, wait(5000), plug(2), SCANNED, CYCLE)
    day("wan_lost_in_a_cycle", ports(0, 1), wait(300), unplug(0), SCANNED, wait(300), plug(0), SCANNED, CYCLE)
    judged_late = peers(1, DHCP) + ports(0, 1) + wait(2450) + FIRE * 2  # the silent port uses its time up
    down = call("hotplug", '{"name":"eth0","status":false}')
    day("wan_lost_at_the_end", judged_late, down, FIRE, CYCLE)
    day("wan_lost_at_the_end_seen_by_the_scan", judged_late, unplug(0), SCANNED, wait(0), CYCLE)
    day("wan_lost_when_nobody_won", configure(CONNECTION, "ocn"), ports(0), FIRE * 2, down, FIRE, CYCLE)
    day("wan_lost_twice", ports(0), network(CONNECTED), CYCLE, unplug(0), SCANNED, wait(2000), plug(0), SCANNED, CYCLE)
    day("parked_port", ports(0), wait(1000), plug(1), SCANNED, peers(1, DHCP), wait(12000))
    day("parked_port_goes_again", ports(0), wait(1000), plug(1), SCANNED, wait(5000), unplug(1), SCANNED, wait(5000))
    ban = call("ban_event", '{"name":"eth1","time":60}')
    day("banned_winner", peers(1, DHCP), ports(1), JUDGED, ban, FIRE, wait(3000), AGAIN, AGAIN, AGAIN)
    day(
        "banned_until_it_is_back",
        call("ban_event", '{"name":"eth1","time":-1}'),
        ports(1),
        unplug(1),
        SCANNED,
        ports(1),
    )
    day("ban_lifted", ban, ports(1), CYCLE, call("ban_event", '{"name":"eth1"}'), CYCLE)
    request = call("proto_detect", '{"device":"eth1"}')
    day("request_in_a_cycle", ports(1), wait(200), request, wait(3000), call("proto_detect", "{}"), wait(100), DETECT)
    day("request_at_rest", plug(1), SCANNED, peers(1, PPPOE), request, wait(100), request, wait(3000))
    day("request_of_one_protocol", ports(1), call("proto_detect", '{"protocol":"pppoe","timeout":1000}'), wait(3000))
    off, on = (call("set", '{"enable":%s}' % word) for word in ("false", "true"))
    day("switched_off_and_on", ports(1), wait(500), off, wait(3000), on, wait(2000), off, plug(2), SCANNED, on)
    day(
        "hotplug",
        ports(1),
        call("hotplug", '{"name":"eth1","status":false}'),
        call("hotplug", '{"name":"eth2","status":true}'),
    )
    day("asked_twice", ports(1), wait(100), DETECT, wait(100), DETECT, CYCLE)


def routers():
    reserved = configure(AGGREGATION, "on") + configure(AGGREGATED, "1 2") + configure(GAMING, "port3")
    day("reserved_ports", reserved, peers(4, DHCP), ports(1, 3, 4), CYCLE)
    day("fake_wan_wins", peers(3, DHCP), ports(3), CYCLE, order="4 3 2", fake_wan="3")
    day("fake_wan_leaves", peers(2, DHCP), ports(2, 3), CYCLE, order="4 3 2", fake_wan="3")
    day("fake_wan_has_lan_hosts", peers(3, LAN_HOST), ports(3), CYCLE, fake_wan="3")
    both = bytes([COMBO_STATE]) + block('{"phy":true,"sfp":true,"serdes":"phy"}')
    look = bytes([LOOK_AT_COMBO_PORT])
    combo = configure(WAN_PORT, "port2") + DETECT
    day("combo_port", combo, configure(PREFERRED_SIDE, "sfp"), both, look * 3)
    day("copper_first", combo, both, look * 3, bytes([COMBO_STATE]) + block('{"phy":false,"sfp":true}'), look * 2)
    day("no_side_has_a_link", combo, look * 3, configure(PREFERRED_SIDE, "both"), look * 11)
    day("not_a_combo_port", look * 3, configure(WAN_PORT, "port9"), look * 3, configure(PREFERRED_SIDE, ""), look * 10)
    day("combo_port_wins", peers(2, DHCP), both, ports(2), CYCLE)
    day("no_wan_port", configure(WAN_PORT, "port9"), ports(1), CYCLE, SCANNED)
    day("swaps_that_fail", bytes([COMMANDS, 1]), peers(1, DHCP), ports(1), AGAIN, AGAIN)
    day("no_shell", bytes([COMMANDS, 0]), ports(1), CYCLE)
    day("garbage", bytes([PORT_STATES]) + block("{"), bytes([SCAN, COMBO_STATE]) + block("[]"), DETECT, CYCLE)
    day("ports_missing", bytes([PORT_STATES]) + block('{"eth1":true}'), SCANNED, DETECT, CYCLE)


def make():
    probes()
    addresses()
    interruptions()
    routers()
