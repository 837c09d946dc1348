# SPDX-License-Identifier: MIT
"""Frames as honest peers send them, and the kernel's tables."""
import socket
import struct

from seeds.store import block, save

PORT_MAC = bytes.fromhex("020000000101")
SERVER_MAC = bytes.fromhex("025e00000099")
IDENTIFIER = struct.pack("<I", 2)  # what the probes draw first


def ipv4(text):
    return socket.inet_aton(text)


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
    for missing in (1, 2):
        cut = option(6, ipv4("10.20.30.53"))[:-missing]
        save("dhcp_answer", f"option_cut_by_{missing}", offer(usual + cut))
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


def arp(opcode, sender_mac, sender, padding=18, source=None, target="192.168.1.1"):
    frame = PORT_MAC + (source or sender_mac) + b"\x08\x06" + struct.pack(">HHBBH", 1, 0x0800, 6, 4, opcode)
    return frame + sender_mac + ipv4(sender) + PORT_MAC + ipv4(target) + bytes(padding)


def arp_frames():
    save("arp_frame", "reply", arp(2, SERVER_MAC, "192.168.1.50"))
    save("arp_frame", "reply_without_padding", arp(2, SERVER_MAC, "192.168.1.50", padding=0))
    save("arp_frame", "request", arp(1, SERVER_MAC, "192.168.1.50"))
    save("arp_frame", "question", arp(1, SERVER_MAC, "10.0.0.1", target="192.168.1.50"))
    save("arp_frame", "announcement", arp(1, SERVER_MAC, "192.168.1.50", target="192.168.1.50"))
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


# The steps of frame_streams_fuzz.cpp.
(
    ASK_DHCP,
    ASK_PPPOE,
    FRAME,
    RUN_LOOP,
    COLLECT_DHCP,
    COLLECT_PPPOE,
    PEER_FRAME,
    SEARCH_WITH_ARP,
    ASK_DNS,
    FAILURE,
    SOCKET_ERROR,
    UNPLUG,
) = range(12)
SECOND_PORT, FINAL = 0x80, 0x40


def steps(*parts):
    """A number is a step, bytes are the block of the step before."""
    return b"".join(block(part) if isinstance(part, bytes) else bytes([part]) for part in parts)


def frame_streams():
    def answer(xid):
        return offer(option(53, b"\x02") + option(3, ipv4("10.20.30.1")) + b"\xff", xid=struct.pack("<I", xid))

    def answered_padi(unique):
        return pado(tag(0x0102, b"ac") + tag(0x0103, struct.pack("<I", unique)))

    def reply(address="192.168.1.50"):
        return arp(2, SERVER_MAC, address)

    ends = (RUN_LOOP, COLLECT_DHCP, COLLECT_PPPOE, COLLECT_DHCP | FINAL, COLLECT_PPPOE | FINAL)
    save(
        "frame_streams",
        "both_protocols_on_both_ports",
        steps(
            ASK_DHCP,
            ASK_PPPOE,
            FRAME,
            answer(2),
            FRAME | SECOND_PORT,
            answer(12),
            FRAME,
            answered_padi(30),
            FRAME | SECOND_PORT,
            answered_padi(56),
            *ends,
        ),
    )
    save("frame_streams", "one_port_asked", steps(ASK_DHCP | FINAL, FRAME, answer(2), *ends))
    save(
        "frame_streams",
        "answers_of_others_first",
        steps(ASK_DHCP, FRAME, answer(7), RUN_LOOP, FRAME, reply(), FRAME, answer(2), FRAME, answer(2), *ends),
    )
    save("frame_streams", "asked_twice", steps(ASK_DHCP, ASK_DHCP, FRAME, answer(30), ASK_PPPOE, ASK_PPPOE, *ends))
    save("frame_streams", "arp_search", steps(PEER_FRAME, reply("192.168.1.9"), PEER_FRAME, reply(), SEARCH_WITH_ARP))
    save(
        "frame_streams",
        "own_frame_comes_back",
        steps(ASK_DHCP, FRAME, answer(2).replace(SERVER_MAC, bytes.fromhex("020000000001"), 1), *ends),
    )
    save("frame_streams", "special_arp", steps(SEARCH_WITH_ARP | FINAL, PEER_FRAME, reply(), SEARCH_WITH_ARP | FINAL))
    save(
        "frame_streams",
        "odd_pado",
        steps(
            ASK_PPPOE,
            FRAME,
            pado(tag(0x0103, IDENTIFIER), code=9),
            FRAME,
            pado(tag(0x0103, IDENTIFIER), version=0x21),
            FRAME,
            pado(tag(0x0103, IDENTIFIER), length=900),
            FRAME,
            pado(tag(0x0103, b"abcd")),
            *ends,
        ),
    )
    save(
        "frame_streams",
        "names_after_an_address",
        steps(ASK_DHCP, FRAME, answer(2), *ends, PEER_FRAME, dns(query_id=5), PEER_FRAME, dns(query_id=6), ASK_DNS),
    )
    for number, call in enumerate((0x00, 0x21, 0x45, 0x66, 0x87, 0xA8, 0xC9)):
        save(
            "frame_streams",
            f"failing_call_{number}",
            steps(FAILURE, call, 0, 2, ASK_DHCP, ASK_PPPOE, FRAME, answer(2), *ends, SEARCH_WITH_ARP, ASK_DNS),
        )
    save("frame_streams", "socket_error", steps(ASK_DHCP, SOCKET_ERROR, SOCKET_ERROR, FRAME, answer(2), *ends))
    save("frame_streams", "unplugged", steps(UNPLUG, ASK_DHCP, UNPLUG | FINAL | SECOND_PORT, ASK_PPPOE | FINAL, *ends))


# Tables of the kernel

ARP_HEADER = "IP address       HW type     Flags       HW address            Mask     Device\n"


def arp_line(address, mac, flags="0x2", hardware="0x1", device="br-lan"):
    return f"{address:<16} {hardware:<11} {flags:<11} {mac}     *        {device}\n"


def arp_caches():
    first = arp_line("192.168.1.50", "02:5e:00:00:00:99")
    save(
        "arp_cache",
        "three_hosts",
        ARP_HEADER
        + first
        + arp_line("192.168.1.51", "02:5e:00:00:00:9a")
        + arp_line("10.0.0.1", "02:5e:00:00:00:9b", device="eth1"),
    )
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


def make():
    dhcp_answer()
    pado_answers()
    arp_frames()
    dns_answers()
    frame_streams()
    arp_caches()
    forwarding_records()
