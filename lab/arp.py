# SPDX-License-Identifier: MIT
"""One ARP question through one port, for upstreams with a static address."""
import socket
import struct
import time

ETH_P_ARP = 0x0806
REQUEST = 1
REPLY = 2
BROADCAST = b"\xff" * 6
ARP_HEADER = struct.Struct("!HHBBH6s4s6s4s")
ETHERNET_HEADER_SIZE = 14
LARGEST_FRAME = 2048


def request(own_mac, own_address, target):
    header = BROADCAST + own_mac + struct.pack("!H", ETH_P_ARP)
    return header + ARP_HEADER.pack(1, 0x0800, 6, 4, REQUEST, own_mac, own_address, bytes(6), target)


def is_answer(frame, target):
    if len(frame) < ETHERNET_HEADER_SIZE + ARP_HEADER.size:
        return False
    fields = ARP_HEADER.unpack_from(frame, ETHERNET_HEADER_SIZE)
    return fields[4] == REPLY and fields[6] == target


def ask_for_address(port, target_text, own_text, seconds):
    """True when the target answers an ARP request sent through the port within so many real seconds."""
    if not target_text:
        return False
    target, own = socket.inet_aton(target_text), socket.inet_aton(own_text or "0.0.0.0")
    with socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ARP)) as tap:
        tap.bind((port, ETH_P_ARP))
        own_mac = tap.getsockname()[4]
        tap.send(request(own_mac, own, target))
        end = time.monotonic() + seconds
        while (left := end - time.monotonic()) > 0:
            tap.settimeout(left)
            try:
                if is_answer(tap.recv(LARGEST_FRAME), target):
                    return True
            except TimeoutError:
                break
    return False
