#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes the seeds of the fuzz targets, tests/fuzz/corpus/<decoder>/<name>: frames and texts as honest peers send them,
and the recordings of tests/golden. Run it after a change of an input format."""
import pathlib
import shutil
import socket
import struct

HERE = pathlib.Path(__file__).resolve().parent
GOLDEN = HERE.parent / "golden"
CORPUS = HERE / "corpus"
LARGEST_SEED = 3000

PORT_MAC = bytes.fromhex("020000000101")
SERVER_MAC = bytes.fromhex("025e00000099")
IDENTIFIER = struct.pack("<I", 2)  # what the probes draw first


def save(decoder, name, content):
    if isinstance(content, str):
        content = content.encode()
    folder = CORPUS / decoder
    folder.mkdir(parents=True, exist_ok=True)
    (folder / name).write_bytes(content)


def ipv4(text):
    return socket.inet_aton(text)


def block(content):
    if isinstance(content, str):
        content = content.encode()
    return struct.pack(">H", len(content)) + content


# Frames


def udp_frame(source, destination, ports, payload, identification=0):
    header = struct.pack(">BBHHHBBH", 0x45, 0, 28 + len(payload), identification, 0, 64, 17, 0)
    udp = struct.pack(">HHHH", *ports, 8 + len(payload), 0)
    return PORT_MAC + SERVER_MAC + b"\x08\x00" + header + ipv4(source) + ipv4(destination) + udp + payload


def offer(options, xid=IDENTIFIER, op=2):
    message = struct.pack(">BBBB", op, 1, 6, 0) + xid + bytes(8) + ipv4("10.20.30.40") + ipv4("10.20.30.1") + bytes(4)
    message += PORT_MAC + bytes(10 + 64 + 128) + bytes.fromhex("63825363") + options
    return udp_frame("10.20.30.1", "10.20.30.40", (67, 68), message)


def option(code, value):
    return bytes([code, len(value)]) + value


def dhcp_answer():
    usual = option(53, b"\x02") + option(1, ipv4("255.255.255.0")) + option(3, ipv4("10.20.30.1"))
    dns = option(6, ipv4("10.20.30.53") + ipv4("10.20.30.54"))
    save("dhcp_answer", "offer", offer(usual + dns + b"\xff"))
    save("dhcp_answer", "offer_padded", offer(usual + b"\xff" + bytes(60)))
    save("dhcp_answer", "two_routers", offer(option(3, ipv4("10.0.0.1") * 2) + b"\xff"))
    save("dhcp_answer", "empty_options", offer(option(3, b"") + option(6, b"") + b"\xff"))
    save("dhcp_answer", "option_beyond_the_end", offer(usual + b"\x06\x08\x0a\x14"))
    save("dhcp_answer", "no_options", offer(b""))
    save("dhcp_answer", "other_identifier", offer(usual + dns, xid=b"\1\2\3\4"))
    save("dhcp_answer", "request", offer(usual, op=1))


def tag(kind, value=b""):
    return struct.pack(">HH", kind, len(value)) + value


def pado(tags, code=7, version=0x11, length=None):
    length = len(tags) if length is None else length
    return PORT_MAC + SERVER_MAC + b"\x88\x63" + struct.pack(">BBHH", version, code, 0, length) + tags


def pado_answers():
    usual = tag(0x0102, b"ac") + tag(0x0101) + tag(0x0103, IDENTIFIER)
    save("pado", "answer", pado(usual))
    save("pado", "answer_with_cookie", pado(tag(0x0104, bytes(range(16))) + usual + bytes(20)))
    save("pado", "identifier_behind_another", pado(tag(0x0103, b"abcd") + tag(0x0103, IDENTIFIER)))
    save("pado", "end_of_list_first", pado(tag(0) + usual))
    save("pado", "tag_beyond_the_end", pado(tag(0x0102, b"ac") + b"\x01\x03\x00\x40"))
    save("pado", "identifier_behind_the_payload", pado(usual, length=len(usual) - 8))
    save("pado", "payload_longer_than_the_frame", pado(usual, length=900))
    save("pado", "padi", pado(usual, code=9))
    save("pado", "version_2", pado(usual, version=0x21))


def arp(opcode, sender_mac, sender, padding=18, source=None):
    frame = PORT_MAC + (source or sender_mac) + b"\x08\x06" + struct.pack(">HHBBH", 1, 0x0800, 6, 4, opcode)
    return frame + sender_mac + ipv4(sender) + PORT_MAC + ipv4("192.168.1.1") + bytes(padding)


def arp_frames():
    save("arp_frame", "reply", arp(2, SERVER_MAC, "192.168.1.50"))
    save("arp_frame", "reply_without_padding", arp(2, SERVER_MAC, "192.168.1.50", padding=0))
    save("arp_frame", "request", arp(1, SERVER_MAC, "192.168.1.50"))
    save("arp_frame", "reply_of_another_host", arp(2, PORT_MAC, "192.168.1.51"))
    save("arp_frame", "reply_from_another_subnet", arp(2, SERVER_MAC, "10.0.0.1"))
    save("arp_frame", "forwarded_reply", arp(2, SERVER_MAC, "192.168.1.50", source=PORT_MAC))
    save("arp_frame", "cut_short", arp(2, SERVER_MAC, "192.168.1.50")[:30])
    save("arp_frame", "not_arp", udp_frame("10.0.0.1", "10.0.0.2", (1, 2), b""))


def dns(query_id=1, flags=0x8180, answers=1, identification=0, source="10.20.30.53", ports=(53, 21000)):
    question = b"\7example\3com\0" + struct.pack(">HH", 1, 1)
    answer = b"\xc0\x0c" + struct.pack(">HHIH", 1, 1, 60, 4) + ipv4("192.0.2.80")
    message = struct.pack(">HHHHHH", query_id, flags, 1, answers, 0, 0) + question + answer * min(answers, 3)
    return udp_frame(source, "10.20.30.40", ports, message, identification)


def dns_answers():
    save("dns_answer", "answer", dns())
    save("dns_answer", "no_answers", dns(answers=0, flags=0x8183))
    save("dns_answer", "other_identification", dns(identification=77))
    save("dns_answer", "other_id", dns(query_id=2))
    save("dns_answer", "other_server", dns(source="10.20.30.54"))
    save("dns_answer", "other_port", dns(ports=(5353, 21000)))
    save("dns_answer", "cut_behind_the_id", dns()[:45])


# Tables of the kernel

ARP_HEADER = "IP address       HW type     Flags       HW address            Mask     Device\n"


def arp_line(address, mac, flags="0x2", hardware="0x1", device="br-lan"):
    return f"{address:<16} {hardware:<11} {flags:<11} {mac}     *        {device}\n"


def arp_caches():
    first = arp_line("192.168.1.50", "02:5e:00:00:00:99")
    save("arp_cache", "three_hosts", ARP_HEADER + first + arp_line("192.168.1.51", "02:5e:00:00:00:9a") +
         arp_line("10.0.0.1", "02:5e:00:00:00:9b", device="eth1"))
    save("arp_cache", "incomplete_entry", ARP_HEADER + arp_line("192.168.1.52", "00:00:00:00:00:00", flags="0x0"))
    save("arp_cache", "same_mac_twice", ARP_HEADER + first + first)
    save("arp_cache", "empty_lines", ARP_HEADER + "\n\n" + first + "\n")
    save("arp_cache", "line_longer_than_the_buffer", ARP_HEADER + "x" * 300 + "\n" + first)
    save("arp_cache", "header_only", ARP_HEADER)
    save("arp_cache", "no_line_end", ARP_HEADER + first.rstrip())


def forwarding(mac, port, local=0):
    return bytes.fromhex(mac) + struct.pack("<BBIBBH", port, local, 100, 0, 0, 0)


def forwarding_records():
    cache = ARP_HEADER + arp_line("192.168.1.50", "02:5e:00:00:00:99")
    records = forwarding("025e00000099", 1) + forwarding("020000000101", 1, 1) + forwarding("025e0000009a", 2)
    save("forwarding_records", "host_behind_the_first_port", block(records) + block(cache) + b"0x1\n0x2")
    save("forwarding_records", "no_arp_entry", block(records) + block(ARP_HEADER) + b"0x1\n0x2")
    save("forwarding_records", "half_a_record", block(records[:-5]) + block(cache) + b"1\n2")
    save("forwarding_records", "seventy_records", block(records * 23 + records[:16]) + block(cache) + b"0x1\n0x2")
    save("forwarding_records", "strange_numbers", block(records) + block(cache) + b"99999999999999999999\n-1")


# Output of the router's commands


def command_outputs():
    save("port_state", "usual", '{"eth0":true,"eth1":false,"eth2":true}\n')
    save("port_state", "port_missing", '{"eth0":true}')
    save("port_state", "numbers_and_texts", '{"eth0":1,"eth1":"up","eth2":null}')
    save("port_state", "nested", '{"eth0":{"a":[1,2]},"eth1":[],"eth2":1.5e300}')
    save("port_state", "list", '[true,false]')
    save("port_state", "cut", '{"eth0":true,"eth1":fal')
    save("port_state", "longer_than_the_buffer", '{"eth0":true,"x":"' + "y" * 600 + '"}')
    save("combo_state", "copper", '{"phy":true,"sfp":false,"serdes":"phy"}\n')
    save("combo_state", "fibre", '{"phy":false,"sfp":true,"serdes":"sfp"}\n')
    save("combo_state", "null_side", '{"phy":null,"sfp":"","serdes":null}')
    save("combo_state", "number_as_side", '{"phy":0,"sfp":1,"serdes":7}')
    save("combo_state", "nothing", "{}")
    save("combo_state", "longer_than_the_buffer", '{"phy":true,"sfp":true,"serdes":"' + "s" * 200 + '"}')


# Configuration

NETWORK = """config device
\toption name 'eth0'

config device
\toption name 'eth1'

config auto_wan_detect 'auto_wan_detect'
\toption enable 'on'
\toption wan_port_priority '1 2'
\toption wan_port_pool '1 2'
\toption proto_priority 'dhcp pppoe'
\toption fake_wan_port '1'
\toption wan_combo_first_priority 'sfp'

config interface 'wan'
\toption wan_type 'dhcp'
"""
SWITCH = """config switch_port 'port1'
\toption port '1'
\toption ifname 'eth0'
\toption label 'LAN1'

config switch_port 'port2'
\toption port '2'
\toption ifname 'eth1'
\toption label 'LAN2'
\toption type 'combo'
\toption wan_port 'sfp'
\toption addr '7'

config wan 'wan'
\toption switch_port 'port2'

config gaming 'gaming'
\toption switch_port 'port1'

config lan_agg 'lan_agg'
\toption enable_agg 'on'
\toption lanport 'LAN1 LAN2'
\toption lacpports '1 2'
"""
PROTOCOL = """config family 'ipv4'
\tlist protos 'dhcp'
\tlist protos 'pppoe'
\tlist protos 'static'

config family 'ipv6'
\tlist protos 'dhcpv6'

config proto 'static'
\toption ipaddr '192.0.2.2'
\toption gateway '192.0.2.1'
\toption pri_dns '192.0.2.53'

config proto 'pppoe'
\toption snd_conn 'static'
\toption static_ip '192.0.2.3'
\toption static_pridns '192.0.2.54'
"""
SYSMODE = "config sysmode 'sysmode'\n\toption mode 'router'\n"


def files(network=NETWORK, switch=SWITCH, protocol=PROTOCOL, sysmode=SYSMODE):
    return "\n%%\n".join([network, switch, protocol, sysmode])


# The order of the values in config_values_fuzz.cpp.
VALUES = ("device0 device1 device2 priority pool proto_priority fake_wan enable combo wan_type proto carrier "
          "port0 ifname0 label0 port1 ifname1 label1 type1 side1 addr1 port2 ifname2 label2 wan gaming "
          "agg lan_ports members ipv4_0 ipv4_1 ipv4_2 ipv4_3 ipv6 static_ip static_gateway static_dns "
          "pppoe_secondary pppoe_ip pppoe_dns pppoe_dns_mode l2tp_secondary l2tp_ip l2tp_gateway l2tp_dns mode").split()


def values(**changed):
    assert set(changed) <= set(VALUES)
    return "\n".join(changed.get(name, "=") for name in VALUES)


def configurations():
    save("config_files", "usual", files())
    save("config_files", "static_wan", files(network=NETWORK.replace("'dhcp'\n", "'static'\n")))
    save("config_files", "pppoe_over_static", files(network=NETWORK.replace("wan_type 'dhcp'", "wan_type 'pppoeshare'")))
    save("config_files", "lists_as_options", files(switch=SWITCH.replace("option", "list")))
    save("config_files", "options_as_lists", files(protocol=PROTOCOL.replace("list", "option")))
    save("config_files", "nothing_but_network", files(switch="", protocol="", sysmode=""))
    save("config_files", "broken_switch", files(switch=SWITCH.replace("'port2'", "'port2")))
    save("config_files", "seventeen_devices", files(network="".join(
        f"config device\n\toption name 'eth{i}'\n" for i in range(17))))
    save("config_values", "usual", values())
    save("config_values", "long_names", values(device0="eth" + "0" * 80, ifname0="eth" + "0" * 80, label0="L" * 300))
    save("config_values", "many_priorities", values(priority=" ".join("123" * 8), pool=" ".join("321" * 8)))
    save("config_values", "strange_numbers", values(port0="-129", port1="99999999999999999999", addr1="0x7", port2=" 3"))
    save("config_values", "members_beyond_the_list", values(members="0 1 17 -3 a  2"))
    save("config_values", "aggregation_off", values(agg="off"))
    save("config_values", "static_wan", values(wan_type="static", static_ip="1.2.3", static_dns="255.255.255.255"))
    save("config_values", "carrier_4", values(wan_type="v6plus", ipv4_3="ocn"))
    save("config_values", "proto_only", values(wan_type="", proto="static"))
    save("config_values", "tunnel", values(wan_type="l2tp", l2tp_ip="x"))
    save("config_values", "dynamic_dns", values(pppoe_dns_mode="auto"))
    save("config_values", "no_fake_port", values(fake_wan="-1", enable="off", mode="ap", combo="both"))
    save("config_values", "format_letters", values(device0="%s%n%d", label1="%n", proto_priority="%s %s %n"))


def golden_texts():
    for case in sorted((GOLDEN / "uci").iterdir()):
        for path in sorted(case.glob("in/*")):
            text = path.read_bytes()
            if path.is_file() and len(text) <= LARGEST_SEED:
                save("config_parser", f"{case.name}_{path.name}", b"\0" + text)
        if (case / "in" / "net").is_file() and (case / "delta.txt").is_file():
            delta = (case / "delta.txt").read_bytes()
            if len(delta) <= LARGEST_SEED:
                save("config_delta", case.name, (case / "in" / "net").read_bytes() + b"\n%%\n" + delta)


def config_texts():
    golden_texts()
    save("config_parser", "many_packages", "\2package a\nconfig t 'x'\n\toption o '1'\npackage b\nconfig t\n\tlist l '1'\n")
    save("config_parser", "lenient", "\1config t\n\tnonsense\n\toption a 'b' c\n\toption d e\n")
    save("config_parser", "as_edits", "\4config t 'x'\n\toption a '1'\n\tlist l '1'\n\tlist l '2'\n")
    config = "config interface 'lan'\n\toption proto 'static'\n\tlist dns '1'\n\nconfig rule\n\toption name 'first'\n"
    for name, delta in {
            "every_change": "net.lan.proto='dhcp'\n-net.lan.proto\n|net.lan.dns='2'\n~net.lan.dns='1'\n+net.x='rule'\n"
                            "@net.lan='lan2'\n^net.lan2='3'\nnet.new='type'\n-net.new\n",
            "cut_in_the_middle": "net.lan.proto='dhcp'\n-net.lan.pro",
            "unterminated_quote": "net.lan.proto='dhcp\n-net.lan\n",
            "value_over_lines": "net.lan.proto='a\nb\nc'\nnet.lan.x=\"y\\\nz\"\n",
            "other_package": "other.lan.proto='dhcp'\nnet.lan\nnet\n\n# comment\n",
            "item_by_number": "-net.lan.dns='0'\n-net.lan.dns='7'\n",
    }.items():
        save("config_delta", name, config + "\n%%\n" + delta)
    for name, lines in {
            "set_and_delete": "snet.lan.ipaddr=192.0.2.2\nsnet.lan.new=1\ndnet.lan.dns\nsnet.wan=interface\ndnet.lan",
            "by_index": "snet.@rule[0].name=x\nsnet.@rule[-1].name=y\nsnet.@[1].z=1\ndnet.@rule[5]\nsnet.@interface[].a=b",
            "lists": "anet.lan.dns=3\nlnet.lan.dns=1\nanet.lan.ipaddr=x\ndnet.lan.dns=0\ndnet.lan.dns=-1",
            "rename_and_reorder": "rnet.lan=lan2\nrnet.lan2.ipaddr=ip\nonet.lan2=2\nonet.@rule[0]=0\nnnet=rule",
            "other_places": "snet\nsother.a.b=c\ns/nowhere/net.a.b=c\ns\nsnet.=x\nsnet..x=1",
    }.items():
        save("config_path", name, lines)


# The bus

ARRAY, TABLE, STRING, INT64, INT32, INT16, INT8, DOUBLE = range(1, 9)


def padded(content):
    return content + bytes(-len(content) % 4)


def attribute(kind, content, extended=False):
    return padded(struct.pack(">I", kind << 24 | len(content) + 4 | (0x80000000 if extended else 0)) + content)


def field(kind, name, value):
    return attribute(kind, padded(struct.pack(">H", len(name)) + name.encode() + b"\0") + value, extended=True)


def text_field(name, value):
    return field(STRING, name, value.encode() + b"\0")


def number_field(name, value):
    return field(INT32, name, struct.pack(">i", value))


def bool_field(name, value):
    return field(INT8, name, bytes([value]))


METHODS = ("log", "proto_detect", "set", "hotplug", "wan_detect", "ban_event")


def calls(*steps):
    return b"".join(bytes([METHODS.index(method) | (0x80 if isinstance(content, str) else 0)]) + block(content)
                    for method, content in steps)


def bus_messages():
    save("bus_methods", "log", calls(("log", number_field("level", 7)), ("log", '{"level":-1}'), ("log", '{"level":8}')))
    save("bus_methods", "proto_detect", calls(("proto_detect", text_field("device", "eth1") + text_field("protocol", "dhcp") +
                                                number_field("timeout", 3000))))
    save("bus_methods", "proto_detect_garbage", calls(
        ("proto_detect", '{"device":"eth9","protocol":"dhcpx","timeout":5}'), ("proto_detect", '{"protocol":"static"}'),
        ("proto_detect", '{"device":"' + "x" * 300 + '"}'), ("proto_detect", "{}")))
    save("bus_methods", "set", calls(("set", bool_field("enable", 1)), ("set", '{"enable":false}'), ("set", "{}")))
    save("bus_methods", "hotplug", calls(("hotplug", text_field("name", "eth1") + bool_field("status", 1)),
                                         ("hotplug", '{"name":"eth1","status":true}'), ("hotplug", '{"name":"eth9"}'),
                                         ("hotplug", '{"status":true}'), ("hotplug", '{"name":"x","status":false}')))
    save("bus_methods", "wan_detect", calls(("wan_detect", "{}"), ("wan_detect", '{"delay":60}'), ("wan_detect", '{"delay":-1}')))
    save("bus_methods", "bans", calls(("ban_event", text_field("name", "eth1") + number_field("time", 100)),
                                      ("ban_event", '{"name":"eth1","time":-1}'), ("ban_event", '{"name":"eth2","time":-1}'),
                                      ("ban_event", '{"name":"eth1"}'), ("ban_event", '{"name":"eth9","time":1}')))
    save("bus_methods", "wrong_types", calls(("log", text_field("level", "7")), ("set", number_field("enable", 1)),
                                             ("hotplug", field(TABLE, "name", text_field("a", "b")))))
    save("bus_methods", "damaged", calls(("log", number_field("level", 7)[:-2]), ("set", b"\x87\0\0\3"), ("log", b"\0")))
    save("bus_replies", "interface", b"\0" + bool_field("up", 1) + text_field("state", "connected") + number_field("uptime", 9))
    save("bus_replies", "interface_json",
         b"\x80" + b'{"up":true,"state":"connecting","ipv4-address":[{"address":"192.0.2.2","mask":24}],"data":{}}')
    save("bus_replies", "device", b"\0" + bool_field("up", 1) + bool_field("link", 0))
    save("bus_replies", "device_json", b"\x80" + b'{"up":true,"link":true}')
    save("bus_replies", "state_is_a_number", b"\x80" + b'{"state":5,"up":"yes"}')


def blobs():
    everything = (bool_field("up", 1) + number_field("level", -7) + text_field("name", "a\"b\n") +
                  field(TABLE, "data", text_field("x", "y")) + field(INT64, "big", bytes([0x7f] + [0xff] * 7)) +
                  field(INT16, "small", b"\x80\0") + field(DOUBLE, "part", struct.pack(">d", 1.5)) +
                  field(ARRAY, "list", field(STRING, "", b"a\0") + field(STRING, "", b"b\0")) + field(0, "nothing", b""))
    save("blob", "every_type", attribute(0, everything))
    save("blob", "table", attribute(TABLE, everything, extended=False))
    save("blob", "bus_attributes", attribute(0, b"".join(attribute(i, struct.pack(">I", i)) for i in range(15))))
    save("blob", "named_table", field(TABLE, "data", everything))
    save("blob", "deep", attribute(TABLE, deep(60)))
    save("blob", "name_without_end", attribute(TABLE, attribute(STRING, b"\0\x03abcd", extended=True)))
    save("blob", "length_beyond_the_end", b"\0\0\x01\0" + everything)
    for number, line in enumerate((GOLDEN / "blobmsg" / "blob_to_json.txt").read_text().splitlines()):
        content = bytes.fromhex(line.split("\t")[0])
        if number % 8 == 0 and len(content) <= 300:
            save("blob", f"golden_{number:03}", content)
    for name in ("json_to_blob", "json_lenient", "json_rejected"):
        for number, line in enumerate((GOLDEN / "blobmsg" / f"{name}.txt").read_text(errors="replace").splitlines()):
            json = line.split("\t")[0]
            if number % 3 == 0 and len(json) <= 300:
                save("json_to_blob", f"{name}_{number:03}", json)


def deep(levels):
    content = b""
    for _ in range(levels):
        content = field(TABLE, "", content)
    return content


def frame(kind, seq, peer, content=b""):
    return struct.pack(">BBHI", 0, kind, seq, peer) + attribute(0, content)


STATUS, DATA, PING, LOOKUP, INVOKE, ADD, REMOVE = 1, 2, 3, 4, 5, 6, 7
AT_STATUS, AT_PATH, AT_ID, AT_METHOD, AT_TYPE, AT_SIGNATURE, AT_DATA = range(1, 8)
DEMO = 0xa0000002
EVENT_OBJECT = 1


def word(kind, value):
    return attribute(kind, struct.pack(">I", value))


def name(kind, text):
    return attribute(kind, text.encode() + b"\0")


SIGNATURE = attribute(AT_SIGNATURE, field(TABLE, "echo", number_field("id", 5)) + field(TABLE, "later", b""))


def answers(*frames):
    return b"".join(frames)


def done(seq, peer=0):
    return frame(STATUS, seq, peer, word(AT_STATUS, 0))


def to_client(actions, piece, stream, endings=0):
    return bytes([actions, endings, piece]) + stream


def client_streams():
    added = frame(DATA, 1, 0, word(AT_ID, DEMO) + word(AT_TYPE, 0xa0000003)) + done(1)
    call = frame(INVOKE, 7, 0xa0000009, word(AT_ID, DEMO) + name(AT_METHOD, "echo") + attribute(AT_DATA, number_field("id", 5)))
    later = frame(INVOKE, 8, 0xa0000009, word(AT_ID, DEMO) + name(AT_METHOD, "later") + attribute(AT_DATA, b""))
    save("bus_client", "serves_calls", to_client(0x02, 0, added + call + later))
    save("bus_client", "serves_calls_in_pieces", to_client(0x02, 13, added + call + later))
    save("bus_client", "call_while_waiting", to_client(0x02, 0, call + added + call))
    save("bus_client", "frees_itself", to_client(0x42, 0, added + call + later))
    save("bus_client", "hears_events", to_client(0x04, 0, frame(DATA, 1, 0, word(AT_ID, DEMO)) + done(1) + done(2, EVENT_OBJECT) +
                                                 frame(INVOKE, 1, 0, word(AT_ID, DEMO) + name(AT_METHOD, "demo.x") +
                                                       attribute(AT_DATA, text_field("a", "b")))))
    found = frame(DATA, 1, 0, name(AT_PATH, "demo") + word(AT_ID, 0xa0000005) + word(AT_TYPE, 0xa0000006) + SIGNATURE)
    save("bus_client", "looks_up_and_calls", to_client(0x18, 0, found + done(1) + found.replace(b"\0\1\0\0", b"\0\2\0\0", 1) + done(2) +
                                                       frame(DATA, 3, 0xa0000005, attribute(AT_DATA, bool_field("ok", 1))) + done(3, 0xa0000005)))
    save("bus_client", "answer_later", to_client(0x20, 0, frame(DATA, 1, 1, attribute(AT_DATA, b"")) + done(1, 1)))
    save("bus_client", "ends_what_it_began", to_client(0x26, 0, added + frame(DATA, 2, 0, word(AT_ID, 0xa0000004)) + done(2) + done(3, 1) +
                                                       done(5, 1) + done(6) + done(7), endings=0x0f))
    save("bus_client", "reconnects", to_client(0x82, 0, added + call))
    save("bus_client", "greeting_only", to_client(0x01, 0, bytes.fromhex("00000000a000000100000004")))
    save("bus_client", "wrong_version", to_client(0x01, 0, bytes.fromhex("01000000a000000100000004")))
    save("bus_client", "huge_length", to_client(0, 0, bytes.fromhex("0002000100000000") + b"\0\xff\xff\xff" + bytes(8)))


SEND, STOP_READING, READ_AGAIN, READ_IN_PIECES, SHUT_DOWN, HANG_UP = range(6)


def step(who, what, content=b""):
    return bytes([who | what << 2]) + (block(content) if what == SEND else b"")


def daemon_streams():
    add = frame(ADD, 1, 0, name(AT_PATH, "demo") + SIGNATURE)
    call = frame(INVOKE, 2, DEMO, word(AT_ID, DEMO) + name(AT_METHOD, "echo") + attribute(AT_DATA, number_field("id", 5)))
    reply = frame(DATA, 2, 0xa0000004, word(AT_ID, DEMO) + attribute(AT_DATA, b"")) + frame(
        STATUS, 2, 0xa0000004, word(AT_STATUS, 0) + word(AT_ID, DEMO))
    save("bus_daemon", "call_and_answer", step(0, SEND, add) + step(1, SEND, call) + step(0, SEND, reply) + step(0, SHUT_DOWN))
    listen = frame(ADD, 1, 0) + frame(INVOKE, 2, 1, word(AT_ID, EVENT_OBJECT) + name(AT_METHOD, "register") + attribute(
        AT_DATA, number_field("object", DEMO - (1 << 32)) + text_field("pattern", "*")))
    event = frame(INVOKE, 1, 1, word(AT_ID, EVENT_OBJECT) + name(AT_METHOD, "send") + attribute(
        AT_DATA, text_field("id", "demo.x") + field(TABLE, "data", number_field("a", 1))))
    save("bus_daemon", "events", step(0, SEND, listen) + step(1, SEND, event) + step(1, SEND, add) + step(0, SEND, frame(
        REMOVE, 3, 0, word(AT_ID, DEMO))))
    save("bus_daemon", "slow_reader", step(0, SEND, listen) + step(0, READ_IN_PIECES) + step(1, SEND, event * 3) + step(0, STOP_READING) +
         step(1, SEND, event * 3) + step(0, READ_AGAIN))
    save("bus_daemon", "look_up", step(0, SEND, add) + step(1, SEND, frame(LOOKUP, 1, 0) + frame(LOOKUP, 2, 0, name(AT_PATH, "de*")) +
                                                            frame(LOOKUP, 3, 0, name(AT_PATH, "demo"))))
    save("bus_daemon", "common_user", step(3, SEND, add) + step(3, SEND, frame(ADD, 2, 0)) + step(3, SEND, call) + step(3, SEND, event))
    save("bus_daemon", "hang_up", step(0, SEND, add + call) + step(0, HANG_UP) + step(1, SEND, call))
    save("bus_daemon", "half_a_frame", step(0, SEND, add[:9]) + step(0, SEND, add[9:20]) + step(0, SEND, add[20:]))
    save("bus_daemon", "forty_pings", step(0, SEND, frame(PING, 1, 0) * 40))
    for path in sorted((GOLDEN / "ubus").glob("*.hex")):
        stream = b"".join(bytes.fromhex(line[2:]) for line in path.read_text().splitlines() if line.startswith("> "))
        if path.name.startswith(("02", "19", "23", "24", "27")) and 0 < len(stream) <= LARGEST_SEED:
            save("bus_daemon", "golden_" + path.stem.replace(".", "_"), step(0, SEND, stream))


def main():
    shutil.rmtree(CORPUS, ignore_errors=True)
    for make in (dhcp_answer, pado_answers, arp_frames, dns_answers, arp_caches, forwarding_records, command_outputs,
                 configurations, config_texts, bus_messages, blobs, client_streams, daemon_streams):
        make()


if __name__ == "__main__":
    main()
