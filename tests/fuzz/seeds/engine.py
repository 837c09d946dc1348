# SPDX-License-Identifier: MIT
"""Days in the life of the engine: the steps of engine_events_fuzz.cpp."""
import struct

from seeds.store import block, save

(
    PASS_TIME,
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
) = range(12)
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


def day(name, *steps, order="0 1 2 3 4", fake_wan="-1"):
    save("engine_events", name, block(order) + block(fake_wan) + b"".join(steps))


def make():
    day("cable_moves", plug(1), peers(1, DHCP), SCANNED, DETECT, wait(5000), SCANNED, wait(25000), network(CONNECTED))
    day("two_dhcp_ports", plug(1), plug(3), peers(1, DHCP), peers(3, DHCP | NAME_SERVER), SCANNED, DETECT, wait(9000))
    day("pppoe", configure(CONNECTION, "pppoe"), plug(2), peers(2, PPPOE), SCANNED, DETECT, wait(9000), wait(25000))
    day(
        "static",
        configure(CONNECTION, "static"),
        plug(1),
        plug(4),
        peers(1, GATEWAY_HOST),
        peers(4, GATEWAY_HOST | NAME_SERVER),
        SCANNED,
        DETECT,
        wait(9000),
    )
    day(
        "tunnel",
        configure(CONNECTION, "l2tp"),
        plug(1),
        peers(1, DHCP),
        SCANNED,
        DETECT,
        wait(9000),
        configure(SECONDARY, "static"),
        peers(1, GATEWAY_HOST),
        wait(20000),
    )
    day(
        "wan_lost",
        plug(0),
        plug(1),
        SCANNED,
        unplug(0),
        SCANNED,
        wait(5000),
        plug(0),
        SCANNED,
        wait(9000),
        peers(1, DHCP),
        wait(20000),
    )
    day("parked_port", plug(0), SCANNED, DETECT, wait(1000), plug(1), SCANNED, peers(1, DHCP), wait(12000))
    day(
        "banned_winner",
        plug(1),
        peers(1, DHCP),
        SCANNED,
        DETECT,
        wait(2500),
        call("ban_event", '{"name":"eth1","time":60}'),
        wait(9000),
        call("ban_event", '{"name":"eth1"}'),
        wait(9000),
    )
    day(
        "request_during_cycle",
        plug(1),
        SCANNED,
        DETECT,
        wait(200),
        call("proto_detect", '{"device":"eth1"}'),
        wait(3000),
        call("proto_detect", "{}"),
        wait(100),
        DETECT,
        wait(9000),
    )
    day(
        "switched_off_and_on",
        plug(1),
        SCANNED,
        DETECT,
        wait(500),
        call("set", '{"enable":false}'),
        wait(3000),
        call("set", '{"enable":true}'),
        wait(2000),
        call("hotplug", '{"name":"eth1","status":false}'),
    )
    day(
        "reserved_ports",
        configure(AGGREGATION, "on"),
        configure(AGGREGATED, "1 2"),
        configure(GAMING, "port3"),
        plug(1),
        plug(3),
        plug(4),
        peers(4, DHCP),
        SCANNED,
        DETECT,
        wait(9000),
    )
    day("fake_wan", plug(2), peers(2, DHCP), SCANNED, DETECT, wait(9000), order="4 3 2", fake_wan="3")
    day(
        "combo_port",
        configure(WAN_PORT, "port2"),
        configure(PREFERRED_SIDE, "sfp"),
        DETECT,
        wait(900),
        bytes([COMBO_STATE]) + block('{"phy":true,"sfp":true,"serdes":"phy"}'),
        bytes([LOOK_AT_COMBO_PORT] * 3),
    )
    day(
        "failing_probes",
        plug(1),
        SCANNED,
        DETECT,
        bytes([PROBE_RESULTS, 84, 0, FLAG]),
        wait(9000),
        bytes([PROBE_RESULTS, 0, 91, 0]),
        wait(9000),
    )
    day("swaps_that_fail", bytes([COMMANDS, 1]), plug(1), peers(1, DHCP), SCANNED, DETECT, wait(29000), wait(29000))
    day("no_shell", bytes([COMMANDS, 0]), plug(1), SCANNED, DETECT, wait(9000))
    day(
        "garbage",
        bytes([PORT_STATES]) + block("{"),
        bytes([SCAN, COMBO_STATE]) + block("[]"),
        DETECT,
        wait(9000),
        configure(CONNECTION, ""),
        configure(WAN_PORT, "port9"),
        wait(9000),
    )
