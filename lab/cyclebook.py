# SPDX-License-Identifier: MIT
"""Keeps the books of a long run from the daemon's log: every cycle and request that began must end, and nothing may be
said that nobody can explain."""
import re
from collections import Counter

# In the daemon's own seconds. A command that acts may take a minute before it is killed, one that is asked ten seconds;
# a pass calls for both.
LONGEST_STANDSTILL_S = 120
# A busy machine may let everything stand still for a while.
LONGEST_STANDSTILL_REAL_S = 60
PASS, END, CANDIDATES = "uloop_start_wan_detect", "uloop_wan_detect_end", "generate_possible_wan_dev_list"
ENTERED = "Entering function"
WAN_NAMED = re.compile(r"Successful get wan device:(\S+)")
# What a cycle says about its end.
OUTCOMES = {"exiting this cycle of detecting": "given up for a new one",
            "exiting detecting due to switch off": "switched off", "is not supported!, exit!": "not supported",
            "Failed to get now protocol": "without a protocol"}
# Warnings and worse that the mishaps of the run explain. A port that was parked and is listed as well counts twice
# until the next look at the list puts that right.
EXPLAINED = re.compile("|".join([
    # scripts and commands
    r"Execute command:\S+( port\d+)? error!$", r"Invalid device state for:eth\d", r"Invalid (phy|sfp|serdes) state!",
    r"online-test failed, try again!!", r" does not end, killed$",
    # the bus
    r"Failed to run ubus call network.interface status", r"Can't find network.interface$",
    # bad arguments of calls; a table without entries is one too
    r"Protocol:\S* doesn't existed!$", r"invalid parameters! Send failed!$", r"failed to send&recv ARP sniffer packet",
    r"Device:?\s?\S* doesn't existed!", r"Invalid dev_name!$", r"Bad device (name|status)$", r"Can't find device ",
    r"set debug level\(-?\d+\) error", r"timeout must in the range", r"Protocol:\S* not supported! dhcp/pppoe only!",
    r"delay_time\(-?\d+\) error", r"A instace is running protocol detection! Not allowed",
    # the configuration
    r"Unable to load uci (network|switch|protocol)!", r"fail to (get|load|lookup|set|commit)", r"Unable to get ",
    r"or not begin with \"eth\"$", r"get_wan_device_name failed!", r"get_ipv4_conntype failed!",
    r"Can't find the (device|protocol):", r"is not supported!, exit!", r"not a valid ip address$",
    r"only support phy/sfp, \S+ not supported! treat it as phy$", r"LAN decvice index:", r"null dev found for",
    r"switch.wan.switch_port=",
    # hints: there are several lines, and bans
    r"^More than one line answers!$", r"^Only a banned port answers!$",
    # ports without a cable, or that are gone
    r"Error (sending|receiving) ", r"Error while writing to (dhcp request|pppoe discovery) socket",
    r"Failed to send (DHCP|pppoe) socket via dev:", r"Cannot read from socket, try again!",
    r"Detect \d+ device own same ip:",
    r"gethostbyname_own_implement resolve failed!, ret = 96$", r"Error while sending arp socket to ",
    r"dns sendto \S+ failed, errno=\d+!$", r"dnslookup_init_fd bindtodevice in \S+ fail!$",
    r"Failed to send arp request for each device!$",
    r"find_target_ip_and_device_with_arp failed with ip:0\.0\.0\.0,",
    r"init_arp_sockfd bind to dev:\S+ fail!$", r"Failed to (init|send) ARP socket for:",
    r"Skip sending arp packet due to socket error!",
    r"Not a arp reply packet$", r"Arp entry:\S+ already existed!$", r"Detect wan result is null!", r"Fix recorded!$",
]))
GRAVE = ("Critical", "Error", "Warning")
NEVER = re.compile(r"[Ii]mpos|Imps|[Ss]hould(n't| not) happen", re.I)


class CycleBook:
    def __init__(self, clock):
        self.clock = clock
        self.opened = self.ended = self.stages = self.swaps = self.requests = self.requests_over = 0
        self.outcomes = Counter()
        self.explained = Counter()
        self.faults = []    # what must not be
        self.running = False
        self.looks_again = False    # the step that the loop makes lists all ports anew
        self.due = None     # since when a pass is to come
        self.request_since = None
        self.last_step = 0.0
        self.outcome = None
        self.named = None   # the WAN port as the daemon read it last
        self.ends = []      # of the latest ends: (when, outcome, the WAN port)

    def take(self, line):
        if NEVER.search(line.body) and not line.body.endswith("Fix recorded!"):
            self.fault(line, "was never to be said")
        elif line.level in GRAVE:
            self.weigh(line)
        if line.function.startswith("uloop_"):
            self.last_step = line.at
            self.looks_again = line.function == "uloop_look_again"
        step = getattr(self, f"in_{line.function}", None)
        if step:
            step(line)

    def weigh(self, line):
        if EXPLAINED.search(line.body):
            self.explained[line.function] += 1
        else:
            self.fault(line, "was not expected")

    def fault(self, line, what):
        self.faults.append(f"{line.at:.1f} s: {line.level} {line.function}: {line.body[:200]!r} {what}")

    def look(self):
        """Whether something stands still; called now and then, at the latest at the end."""
        now = self.clock.now()
        longest = max(LONGEST_STANDSTILL_S, LONGEST_STANDSTILL_REAL_S * self.clock.speed)
        for what, since in (("a cycle", self.last_step if self.running else None), ("a cycle to come", self.due),
                            ("a request", self.request_since)):
            if since is not None and now - max(since, self.last_step) > longest:
                self.faults.append(f"{now:.1f} s: {what} stands still since {since:.1f} s")
                self.last_step = now

    def at_rest(self):
        return not self.running and self.due is None and self.request_since is None

    # --- one method for each function that tells something ------------------------------------------------------------

    def in_generate_possible_wan_dev_list(self, line):
        if ENTERED in line.body:
            if self.running and not self.looks_again:
                self.fault(line, "opened a cycle within a cycle")
            self.due = line.at

    def in_wan_detect_process_link_change(self, line):
        if not self.running and ("Wan down!! Begin" in line.body or "Reset start detecting" in line.body):
            self.due = line.at

    def in_uloop_start_wan_detect(self, line):
        if ENTERED in line.body:
            self.due = None
            if not self.running:
                self.opened += 1
                self.running, self.outcome = True, None
        for text, outcome in OUTCOMES.items():
            if text in line.body:
                self.outcome = outcome

    def in_uloop_wan_detect_end(self, line):
        if "Detect wan result is null" in line.body:
            self.outcome = self.outcome or "nothing found"
        elif "Wan Detection over!" in line.body:
            if not self.running:
                self.fault(line, "ended a cycle that never began")
            self.ended += 1
            self.running, self.due = False, None
            outcome = self.outcome or "found"
            self.outcomes[outcome] += 1
            self.ends = [*self.ends[-9:], (line.at, outcome, self.named)]

    def in_get_wan_device_name(self, line):
        named = WAN_NAMED.search(line.body)
        if named:
            self.named = named.group(1)

    def in_start_proto_detect(self, line):
        if ENTERED in line.body:
            self.before = self.request_since
            self.request_since = line.at
            self.requests += 1
        elif "Not allowed" in line.body:
            self.request_since = self.before
            self.requests -= 1

    def in_uloop_proto_detect_end(self, line):
        if "Detection over!" in line.body:
            self.stages += 1
            if self.request_since is not None:
                self.requests_over += 1
                self.request_since = None

    def in_switch_wan_to_dev(self, line):
        self.swaps += "success switching" in line.body
