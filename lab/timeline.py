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
     "the WAN role went to {0}; link scans pause for 20 s"),
    ("switch_wan_to_dev", r"Same wan device", "step", "the WAN role stays where it is"),
    ("toggle_combo_state", r"Toggle combo (\S+) state, .* success switch it to (\S+)!", "swap",
     "combo port {0} changes to {1}"),
    ("wan_detect_remove_fake_wan", r"Set fake_wan_dev=null", "swap", "the fake WAN is dropped"),
    ("wan_detect_process_link_change", r"^Device (\S+) link status change to (\S+)!", "link", "{0} link {1}"),
    ("wan_detect_process_link_change", r"Wan down!! Begin detecting in (\d+ms)", "step",
     "the WAN port lost its link: a cycle is due {0}"),
    ("wan_detect_process_link_change", r"Wan down during detecting!! Begin detecting in (\d+ms)", "step",
     "the WAN port lost its link: the cycle looks again {0}"),
    ("wan_detect_process_link_change", r"Reset start detecting time to (\d+ms)", "step",
     "the WAN port's link changed again: the cycle is put off, it is due {0}"),
    ("delay_trigger_thread", r"device (\S+) turned down during", "step", "{0} did not stay up, it is left out"),
    ("wan_detect_process_link_change", r"turned up during .*Add it .* after (\d+ms)", "step",
     "it joins the candidates {0} if it stays up"),
    ("delay_trigger_thread", r"Add device (\S+) to backup", "step", "{0} joins the candidates"),
    ("uloop_start_wan_detect", r"exiting this cycle of detecting", "step", "cycle given up: a new one was asked for"),
    ("uloop_start_wan_detect", r"exiting detecting due to switch off", "step", "cycle given up: detection is off"),
    ("uloop_start_wan_detect", r"detecting protocol (\S+?)\(.*not supported", "verdict", "{0} cannot be detected"),
    ("uloop_start_wan_detect", r"Start to detect in (\d+) device\(s\) using arp", "step",
     "{0} candidate(s): asks each for the gateway by ARP"),
    ("dhcp_detect_for_all_link_device", r"Overall (\d+) devices ready", "step", "DHCP discovery leaves {0} port(s)"),
    ("pppoe_detect_for_all_link_device", r"Overall (\d+) devices ready", "step", "PPPoE discovery leaves {0} port(s)"),
    ("dhcp_detect_for_specify_device", r"device:(\S+) ready", "step", "DHCP discovery leaves {0}"),
    ("pppoe_detect_for_specify_device", r"device:(\S+) ready", "step", "PPPoE discovery leaves {0}"),
    ("get_network_status", r"Get network status return: (.*)", "step", "the network manager says: WAN port {0}"),
    ("uloop_wan_detect_end", r"Detect wan result is null", "verdict", "verdict: none, the WAN port stays"),
    ("uloop_wan_detect_end", r"it's banned after detection", "step", "the winner was banned meanwhile: looks again"),
    ("uloop_wan_detect_end", r"Wan Detection over!", "end", "cycle closes"),
    ("start_wan_detect_all", r"Will begin to detect all device after (\d+ms)!", "step", "a full cycle is due {0}"),
]
NEWS = ("link", "answer", "verdict", "swap", "end")
MILLISECONDS = re.compile(r"(\d+)ms")
COMPILED = [(function, re.compile(pattern), kind, text) for function, pattern, kind, text in RULES]
CANDIDATES = re.compile(r"Start to detect in (\d+) device\(s\):(.*)")


def worded(group):
    """Delays as a reader says them, anything else as it is."""
    match = MILLISECONDS.fullmatch(group)
    if not match:
        return group
    return f"in {int(match.group(1)) / 1000:g} s" if int(match.group(1)) else "at once"


class Timeline:
    """Keeps what one line alone cannot tell: whether a cycle is open, and what was said before in it."""

    def __init__(self):
        self.events = []
        self.open = False
        self.said = set()

    def take(self, line):
        """The event that the line stands for, or None."""
        event = self.candidates(line) or self.by_rule(line)
        if event is None or self.repeated(event):
            return None
        self.events.append(event)
        return event

    def candidates(self, line):
        match = CANDIDATES.match(line.body) if line.function == "uloop_start_wan_detect" else None
        if not match:
            return None
        words, kind = ("looks again at", "step") if self.open else ("cycle opens: looks at", "begin")
        self.open = True
        return Event(line.at, kind, f"{words} {ports_of(match.group(2))}")

    def by_rule(self, line):
        for function, pattern, kind, text in COMPILED:
            match = pattern.search(line.body) if function == line.function else None
            if match:
                self.open = self.open and kind != "end"
                return Event(line.at, kind, text.format(*map(worded, match.groups())))
        return None

    def repeated(self, event):
        """While a cycle waits for something new it looks again every second: telling that once will do."""
        if event.kind in NEWS:
            self.said.clear()
        known = event.text in self.said
        self.said.add(event.text)
        return known
