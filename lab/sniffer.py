# SPDX-License-Identifier: MIT
"""Listens at the far end of every line and notes the discovery frames that the daemon sent there."""
import selectors
import socket
import struct
import threading
from dataclasses import dataclass

from lab.network import FAR_END, inside

ETH_P_ALL = 0x0003
ETH_P_IP = 0x0800
ETH_P_ARP = 0x0806
ETH_P_PPPOE_DISCOVERY = 0x8863
PPPOE_PADI = 0x09
DHCP_SERVER_PORT = 67
DNS_PORT = 53
UDP = 17
# The daemon's DISCOVER is told from a client's by its fixed IP identification, its PADI by its length.
DAEMON_IP_ID = 0xD431
DAEMON_PADI_SIZE = 32
DAEMON_DNS_SOURCE_PORT = 21000
IP_TARGET, ARP_TARGET = 30, 38    # offsets of these addresses in a frame
LARGEST_FRAME = 2048
POLL_S = 0.1


@dataclass
class Probe:
    at: float    # the daemon's own seconds
    port: str
    kind: str    # "discover", "padi", "dns" or "arp"
    target: str = ""    # address asked: the DNS server, or what an ARP request looks for
    next_hop: str = ""    # MAC that the frame went to


def kind_of(frame):
    """What the daemon sent, or None for any other frame."""
    if len(frame) < 20:
        return None
    ether_type = struct.unpack_from("!H", frame, 12)[0]
    if ether_type == ETH_P_PPPOE_DISCOVERY:
        return "padi" if frame[15] == PPPOE_PADI and len(frame) == DAEMON_PADI_SIZE else None
    if ether_type == ETH_P_ARP:
        return "arp" if len(frame) >= ARP_TARGET + 4 else None
    if ether_type != ETH_P_IP or len(frame) < 42 or frame[23] != UDP:
        return None
    source, target = struct.unpack_from("!HH", frame, 34)
    if target == DHCP_SERVER_PORT and struct.unpack_from("!H", frame, 18)[0] == DAEMON_IP_ID:
        return "discover"
    return "dns" if target == DNS_PORT and source == DAEMON_DNS_SOURCE_PORT else None


def target_of(frame, kind):
    """The address that a DNS question goes to or an ARP request asks for."""
    offset = {"dns": IP_TARGET, "arp": ARP_TARGET}.get(kind)
    return socket.inet_ntoa(frame[offset:offset + 4]) if offset else ""


class Sniffer(threading.Thread):
    def __init__(self, clock):
        super().__init__(daemon=True, name="sniffer")
        self.clock = clock
        self.probes = []
        self.selector = selectors.DefaultSelector()

    def listen(self, line, port):
        with inside(line.namespace):
            tap = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
            tap.bind((FAR_END, ETH_P_ALL))
        tap.setblocking(False)
        self.selector.register(tap, selectors.EVENT_READ, port)

    def run(self):
        while True:
            for key, _ in self.selector.select(POLL_S):
                self.take(key.fileobj, key.data)

    def take(self, tap, port):
        try:
            frame, address = tap.recvfrom(LARGEST_FRAME)
        except OSError:    # the line went down
            return
        kind = kind_of(frame)
        if kind and address[2] != socket.PACKET_OUTGOING:
            self.probes.append(Probe(round(self.clock.now(), 1), port, kind, target_of(frame, kind), frame[:6].hex(":")))
