# SPDX-License-Identifier: MIT
"""Servers behind a port that speak for themselves: they hear every frame there and send whole ones."""
import socket
import struct
import threading
import time

from lab.network import FAR_END, inside
from lab.sniffer import ETH_P_ALL, ETH_P_IP, LARGEST_FRAME, UDP

ETHERNET_SIZE, IP_SIZE, UDP_SIZE = 14, 20, 8
IP_HEADER = struct.Struct("!BBHHHBBH4s4s")
UDP_HEADER = struct.Struct("!HHHH")
TTL = 64


def checksum(data):
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def udp_frame(macs, addresses, ports, payload, protocol=UDP):
    """A frame with its payload; of MACs the target's stands first, of addresses and ports the source's."""
    # A checksum of 0 says that there is none.
    udp = UDP_HEADER.pack(*ports, UDP_SIZE + len(payload), 0) + payload
    header = [0x45, 0, IP_SIZE + len(udp), 0, 0, TTL, protocol, 0, *addresses]
    header[7] = checksum(IP_HEADER.pack(*header))
    return b"".join(macs) + struct.pack("!H", ETH_P_IP) + IP_HEADER.pack(*header) + udp


def serve_frames(line, clock, serve):
    """Calls serve(tap, frame) for every frame that reaches the far end of the line, on a thread of its own."""
    with inside(line.namespace):
        tap = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
        tap.bind((FAR_END, ETH_P_ALL))

    def hear():
        while True:
            try:
                frame, address = tap.recvfrom(LARGEST_FRAME)
            except OSError:    # the line is down
                time.sleep(clock.real(1))
                continue
            if address[2] != socket.PACKET_OUTGOING:
                serve(tap, frame)

    threading.Thread(target=hear, daemon=True).start()
