# SPDX-License-Identifier: MIT
"""Turns the daemon's log lines into a story: each rule names the function, the wording and what it means."""
import re
from dataclasses import dataclass

LIST_SEPARATOR = "、"


@dataclass
class Event:
    at: float
    kind: str
    text: str


def ports_of(joined):
    return ", ".join(name for name in joined.strip().split(LIST_SEPARATOR) if name) or "none"


# function, pattern over the body, kind, text (groups of the pattern fill it)
RULES = [
    ("main", r"No device has plugged in, ", "wait", "no link on the WAN port, looks again in 2 s"),
    ("main", r"No device plugged in in 60s", "wait", "still no link, goes on in 15 s"),
    ("uloop_wan_detect_using_proto_detect", r"Only one device:(\S+) using protocol (\S+)!", "verdict",
     "verdict: {0} is the only port where {1} was found"),
    ("uloop_wan_detect_using_proto_detect", r"Overall (\d+) device using protocol (\S+)! .* device:(\S+) as wan",
     "verdict", "verdict: {1} on {0} port(s), {2} has the highest priority"),
    ("uloop_wan_detect_using_proto_detect", r"Found (\d+) devices provide (\S+) protocol", "step",
     "{1} answered on {0} ports: a DNS question through each shall decide"),
    ("uloop_wan_detect_using_proto_detect", r"No device using protocol (\S+?)!", "step",
     "no port answered with {0}, looks again in 1 s"),
    ("uloop_wan_detect_using_dns", r"DNS lookup shows dev:(\S+) online", "verdict", "verdict: {0} answers DNS"),
    ("uloop_wan_detect_using_dns", r"Overall (\d+) device using protocol (\S+?)[!(].*device:(\S+) as wan", "verdict",
     "verdict: no DNS answer on {0} port(s), {2} has the highest priority"),
    ("uloop_wan_detect_using_arp", r"Only one device:(\S+) using protocol (\S+?)\(.*:(\S+)\)", "verdict",
     "verdict: the gateway {2} answers on {0} only"),
    ("uloop_wan_detect_using_arp", r"ARP shows server ip:(\S+) in dev:(\S+),", "verdict",
     "verdict: the server {0} answers on {1}"),
    ("uloop_wan_detect_using_arp", r"Found (\d+) devices provide", "step",
     "the gateway answers on {0} ports: a DNS question through each shall decide"),
    ("uloop_wan_detect_using_arp", r"Can't find gateway ip:(\S+) in arp", "step",
     "the gateway {0} answers nowhere, looks again in 1 s"),
    ("recv_dhcp_discovery_packet", r"Success parse dhcp discovery packet in dev=(\S+)", "answer", "{0}: DHCP offer"),
    ("recv_pppoe_discovery_packet", r"Success parse pppoe discovery offer\(PADO\) packet in dev=(\S+)", "answer",
     "{0}: PPPoE offer"),
    ("remove_specific_proto_dev_from_list", r"Remove (\S+) out .* no (\S+) was detected after (\d+)", "step",
     "{0} dropped: no {1} in {2} tries"),
    ("remove_impossble_wan_dev_from_list", r"Remove (\S+) out ", "step", "{0} dropped: no link, or not allowed as WAN"),
    ("remove_brlan_dev_from_list", r"Remove (\S+) out ", "step", "{0} dropped: no link, or LAN hosts behind it"),
    ("switch_wan_to_dev", r"Switching wan dev to (\S+) execute:(.*)!", "swap", "swap: {1}"),
    ("switch_wan_to_dev", r"success switching wan dev to (\S+), port:(\d+)", "swap",
     "the WAN role went to {0}; port scans pause 20 s, the next cycle starts in 21 s"),
    ("switch_wan_to_dev", r"Same wan device", "step", "the WAN role stays"),
    ("toggle_combo_state", r"Toggle combo (\S+) state, .* success switch it to (\S+)!", "swap",
     "combo port {0} changes to {1}"),
    ("wan_detect_remove_fake_wan", r"Set fake_wan_dev=null", "swap", "the fake WAN is dropped"),
    ("wan_detect_process_link_change", r"Device (\S+) link status change to (\S+)!", "link", "{0} link {1}"),
    ("wan_detect_process_link_change", r"(?:Wan down|Wan down during detecting)!! Begin detecting in (\d+)ms", "step",
     "the WAN port lost its link: detection in {0} ms"),
    ("wan_detect_process_link_change", r"turned up during .*Add it .* after (\d+)ms", "step",
     "joins the candidates in {0} ms if it stays up"),
    ("delay_trigger_thread", r"Add device (\S+) to backup", "step", "{0} joins the candidates"),
    ("uloop_start_wan_detect", r"exiting this cycle of detecting", "step", "cycle given up: a new one was asked for"),
    ("uloop_start_wan_detect", r"exiting detecting due to switch off", "step", "cycle given up: detection is off"),
    ("uloop_start_wan_detect", r"detecting protocol (\S+?)\(.*not supported", "verdict", "{0} cannot be detected"),
    ("uloop_start_wan_detect", r"Start to detect in (\d+) device\(s\) using (\S+)", "step", "asks {0} port(s), {1}"),
    ("uloop_wan_detect_end", r"Detect wan result is null", "verdict", "verdict: none, the WAN port stays"),
    ("uloop_wan_detect_end", r"it's banned after detection", "step", "the winner was banned meanwhile: looks again"),
    ("uloop_wan_detect_end", r"Wan Detection over!", "end", "cycle closes"),
    ("start_wan_detect_all", r"Will begin to detect all device after (\d+)ms", "step", "a full cycle in {0} ms"),
]
METHODS = {"protocol": "by DHCP or PPPoE discovery", "arp": "by ARP for the gateway"}
COMPILED = [(function, re.compile(pattern), kind, text) for function, pattern, kind, text in RULES]
CANDIDATES = re.compile(r"Start to detect in (\d+) device\(s\):(.*)")


class Timeline:
    """Keeps what one line alone cannot tell: whether a cycle is open."""

    def __init__(self):
        self.events = []
        self.open = False

    def take(self, line):
        """The event that the line stands for, or None."""
        event = self.candidates(line) or self.by_rule(line)
        if event is None or (self.events and self.events[-1].text == event.text):
            return None
        self.events.append(event)
        return event

    def candidates(self, line):
        match = CANDIDATES.match(line.body) if line.function == "uloop_start_wan_detect" else None
        if not match:
            return None
        words = "looks again at" if self.open else "cycle opens: looks at"
        kind = "step" if self.open else "begin"
        self.open = True
        return Event(line.at, kind, f"{words} {ports_of(match.group(2))}")

    def by_rule(self, line):
        for function, pattern, kind, text in COMPILED:
            if function != line.function:
                continue
            match = pattern.search(line.body)
            if match:
                self.open = self.open and kind != "end"
                words = [METHODS.get(word, word) for word in match.groups()]
                return Event(line.at, kind, text.format(*words))
        return None
