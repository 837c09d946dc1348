# SPDX-License-Identifier: MIT
"""A DHCP server that hands addresses out on a raw socket, as relays and servers beside the router do: the kernel behind the
port never learns by that where an offered address lives."""
import socket
import struct
import subprocess

from lab.network import FAR_END
from lab.raw_frames import ETHERNET_SIZE, IP_SIZE, UDP_SIZE, serve_frames, udp_frame
from lab.sniffer import DHCP_SERVER_PORT, ETH_P_IP, UDP
from lab.upstream import Gateway

DHCP_CLIENT_PORT = 68
DHCP_OFFSET = ETHERNET_SIZE + IP_SIZE + UDP_SIZE
XID, HARDWARE_ADDRESS, OPTIONS = DHCP_OFFSET + 4, DHCP_OFFSET + 28, DHCP_OFFSET + 240
COOKIE = bytes.fromhex("63825363")
PAD, MASK, ROUTER, NAME_SERVER, LEASE, MESSAGE, SERVER, END = 0, 1, 3, 6, 51, 53, 54, 255
DISCOVER, OFFER, REQUEST, ACKNOWLEDGED = 1, 2, 3, 5
ANSWERS = {DISCOVER: OFFER, REQUEST: ACKNOWLEDGED}
LEASE_S = 3600
SMALLEST_MESSAGE = 300


def is_from_client(frame):
    """True for a message of a DHCP client, which goes to a server's port and carries the cookie."""
    return (len(frame) > OPTIONS and struct.unpack_from("!H", frame, 12)[0] == ETH_P_IP and frame[23] == UDP
            and struct.unpack_from("!H", frame, 36)[0] == DHCP_SERVER_PORT and frame[OPTIONS - 4:OPTIONS] == COOKIE)


def message_type(frame):
    """What a client's message is, None when it does not say."""
    position = OPTIONS
    while position + 2 < len(frame) and frame[position] != END:
        if frame[position] == MESSAGE:
            return frame[position + 2]
        position += 1 if frame[position] == PAD else 2 + frame[position + 1]
    return None


def option(code, value):
    return bytes([code, len(value)]) + value


class RawDhcpServer(Gateway):
    """Offers one address by unicast, and is the gateway it names. Names are served as a gateway's are."""
    title = "DHCP server"

    def __init__(self, dns=True, remote_dns=None):
        super().__init__(None, dns, remote_dns)
        self.line = self.offered = None
        self.learned = []    # after each offer: what the kernel's ARP cache had to say of the offered address

    def attach(self, line, port_number, clock):
        self.line = line
        self.address, self.offered = f"10.10.{port_number}.1", f"10.10.{port_number}.100"
        super().attach(line, port_number, clock)
        serve_frames(line, clock, self.serve)

    def serve(self, tap, frame):
        answer = ANSWERS.get(message_type(frame)) if is_from_client(frame) else None
        if answer is None:
            return
        tap.send(self.message(answer, frame, tap.getsockname()[4]))
        if answer == OFFER:
            self.learned.append(self.in_arp_cache())

    def message(self, kind, question, own_mac):
        client, own, offered = question[HARDWARE_ADDRESS:HARDWARE_ADDRESS + 6], *map(socket.inet_aton, (self.address, self.offered))
        options = [option(MESSAGE, bytes([kind])), option(SERVER, own), option(LEASE, struct.pack("!I", LEASE_S)),
                   option(MASK, b"\xff\xff\xff\x00"), option(ROUTER, own),
                   option(NAME_SERVER, socket.inet_aton(self.remote_dns or self.address)), bytes([END])]
        dhcp = (bytes([2, 1, 6, 0]) + question[XID:XID + 4] + bytes(8) + offered + own + bytes(4) + client + bytes(10 + 64 + 128)
                + COOKIE + b"".join(options)).ljust(SMALLEST_MESSAGE, b"\x00")
        return udp_frame((client, own_mac), (own, offered), (DHCP_SERVER_PORT, DHCP_CLIENT_PORT), dhcp)

    def in_arp_cache(self):
        """The MAC that the kernel behind the port knows for the offered address; empty while it knows none."""
        return neighbour(self.line, self.offered)


def neighbour(line, address):
    """The MAC that the kernel at the far end of a line knows for an address; empty while it knows none."""
    words = subprocess.run(["ip", "-n", line.namespace, "neighbour", "show", address, "dev", FAR_END], capture_output=True,
                           text=True, check=True).stdout.split()
    return words[words.index("lladdr") + 1] if "lladdr" in words else ""
