# SPDX-License-Identifier: MIT
"""The daemon's fixed waits: which line of its log begins one, which line ends it, and how long it ought to last."""
import re
from dataclasses import dataclass

LINK_CHANGE, SCAN, COMBO = "wan_detect_process_link_change", "update_eth_link_status_trigger", "wan_combo_auto_switch"
PASS_S = 1.0
STAGE_S = 2.5


@dataclass
class Wait:
    kind: str
    port: str        # "" when the wait is not about one port
    begun: float     # the daemon's own seconds
    fixed: float     # how long it ought to last
    slack: float     # how much later its end may show
    ended: float = None

    def lasted(self):
        return self.ended - self.begun


@dataclass
class Rule:
    kind: str
    begin: tuple           # function and pattern, whose groups are the time and the port, where the line names them
    end: tuple
    text: str = ""         # what was waited for; waits without one are not told
    unit: float = 0.001    # of the time
    fixed: float = None    # where the line names no time
    least: float = 0.0     # an end that comes sooner is another thread's line
    slack: float = 0.0
    overtaken: tuple = ("", "")    # what makes an end of it without it having lasted
    piles_up: bool = False    # each beginning has an end of its own; else the last one counts, as with a timer


RULES = [
    Rule("cycle", (LINK_CHANGE, r"(?:Begin detecting in|Reset start detecting time to) (?P<time>\d+)ms"),
         ("uloop_start_wan_detect", r"Entering function"), "since the link of the WAN port changed",
         overtaken=("generate_possible_wan_dev_list", r"Entering function")),
    Rule("settle", (LINK_CHANGE, r"Noticed (?:lan )?dev:(?P<port>\S+) turned up .* after (?P<time>\d+)ms"),
         ("delay_trigger_thread", r"[Dd]evice (?P<port>\S+) (?:to|turned down) "), "since the link of {port} came up",
         piles_up=True),
    Rule("full", ("start_wan_detect_all", r"detect all device after (?P<time>\d+)ms"),
         ("uloop_init_wan_detect_all", r"Entering function"), "for the full cycle"),
    Rule("scan pause", (SCAN, r"Block update eth link for (?P<time>\d+)s"), (SCAN, r"Entering function|Skip update"),
         "by the link scan", unit=1),
    Rule("combo pause", (COMBO, r"Block wan_combo_auto_switch for (?P<time>\d+)s"),
         ("get_wan_device_name", r"Successful get wan device"), "by the combo switch", unit=1, least=15,
         slack=PASS_S),    # every second pass tells nothing
    Rule("pass", ("uloop_start_wan_detect", r"Zero device need to detect"),
         ("uloop_start_wan_detect", r"Entering function"), fixed=PASS_S),
    Rule("stage", ("uloop_start_wan_detect", r"using protocol detect"),
         ("uloop_proto_detect_end", r"Detection over!"), fixed=STAGE_S),
]


def match_of(where, line):
    function, pattern = where
    return re.search(pattern, line.body) if line.function == function else None


class Waits:
    """Follows the log."""

    def __init__(self):
        self.over = []
        self.open = {}

    def take(self, line):
        """What to tell about the waits that this line ends."""
        told = [self.told(rule, wait) for rule in RULES if (wait := self.end(rule, line)) and rule.text and wait.fixed]
        for rule in RULES:
            if rule.overtaken[0] and match_of(rule.overtaken, line):
                self.open.pop((rule.kind, ""), None)
            self.begin(rule, line)
        return told

    @staticmethod
    def told(rule, wait):
        slack = f", seen up to {wait.slack:g} s later" if wait.slack else ""
        return f"{wait.lasted():.1f} s waited (fixed {wait.fixed:g} s{slack}) " + rule.text.format(port=wait.port)

    def begin(self, rule, line):
        match = match_of(rule.begin, line)
        if not match:
            return
        groups = match.groupdict()
        fixed = rule.fixed or int(groups["time"]) * rule.unit
        wait = Wait(rule.kind, groups.get("port", ""), line.at, fixed, rule.slack)
        waiting = self.open.setdefault((wait.kind, wait.port), [])
        if not rule.piles_up:
            waiting.clear()
        waiting.append(wait)

    def end(self, rule, line):
        match = match_of(rule.end, line)
        waiting = self.open.get((rule.kind, match.groupdict().get("port", ""))) if match else None
        if not waiting or line.at - waiting[0].begun < rule.least:
            return None
        wait = waiting.pop(0)
        wait.ended = line.at
        self.over.append(wait)
        return wait

    def of(self, kind, port="", after=0.0):
        """The first wait of that kind that began after that time and is over; None when there is none."""
        return next((wait for wait in self.over
                     if wait.kind == kind and wait.port == port and wait.begun >= after), None)
