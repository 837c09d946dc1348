# SPDX-License-Identifier: MIT
"""Behind a port, answers to the daemon's DNS question that must not count: forged ones, foreign ones, late ones."""
import socket
import struct

from lab.raw_frames import ETHERNET_SIZE, IP_SIZE, UDP_SIZE, serve_frames, udp_frame
from lab.sniffer import DNS_PORT, UDP, kind_of
from lab.upstream import Silent

DNS_OFFSET = ETHERNET_SIZE + IP_SIZE + UDP_SIZE
DNS_HEADER = struct.Struct("!HHHHHH")
TCP = 6
OTHER_PORT = 5353
ANSWERED, NAME_ERROR = 0x8180, 0x8183
SOMEBODY_ELSE = socket.inet_aton("192.0.2.66")
ANSWER = bytes.fromhex("c00c 0001 0001 0000003c 0004 c000020a")    # the name of the question: 192.0.2.10, for a minute


class Answer:
    """An answer to the question in that frame, right in everything until a field is changed."""

    def __init__(self, question):
        self.next_hop, self.own_mac = question[6:12], question[:6]
        self.target, self.source = question[26:30], question[30:34]
        self.target_port, = struct.unpack_from("!H", question, 34)
        self.source_port, self.protocol = DNS_PORT, UDP
        self.id, = struct.unpack_from("!H", question, DNS_OFFSET)
        self.flags, self.count = ANSWERED, 1
        self.question = question[DNS_OFFSET + DNS_HEADER.size:]

    def frame(self):
        dns = DNS_HEADER.pack(self.id, self.flags, 1, self.count, 0, 0) + self.question + ANSWER * self.count
        return udp_frame((self.next_hop, self.own_mac), (self.source, self.target), (self.source_port, self.target_port), dns,
                         self.protocol)


# What is wrong with an answer, and the change that makes it so.
FLAWS = {
    "id": lambda answer: {"id": answer.id ^ 0x5555},
    "source address": lambda answer: {"source": SOMEBODY_ELSE},
    "source port": lambda answer: {"source_port": OTHER_PORT},
    "no answer in it": lambda answer: {"flags": NAME_ERROR, "count": 0},
    "for somebody else": lambda answer: {"target": SOMEBODY_ELSE},
    "protocol": lambda answer: {"protocol": TCP},
}


class OddDns(Silent):
    """Answers each question at once with one answer per flaw, and after `honest_after_s` of the daemon's own seconds with a
    right one; without that time never."""

    def __init__(self, flaws=(), honest_after_s=None):
        self.flaws = flaws
        self.honest_after_s = honest_after_s
        self.sent = []    # what, and so many of the daemon's seconds after the question

    def attach(self, line, port_number, clock):
        serve_frames(line, clock, lambda tap, frame: kind_of(frame) == "dns" and self.answer(tap, frame, clock))

    def answer(self, tap, question, clock):
        asked = clock.now()
        for flaw in self.flaws:
            answer = Answer(question)
            vars(answer).update(FLAWS[flaw](answer))
            tap.send(answer.frame())
            self.sent.append((flaw, clock.now() - asked))
        if self.honest_after_s is not None:
            clock.sleep(self.honest_after_s)
            tap.send(Answer(question).frame())
            self.sent.append(("honest", clock.now() - asked))
