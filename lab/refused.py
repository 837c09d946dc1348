# SPDX-License-Identifier: MIT
"""A life of the daemon in which something is refused to it, and what becomes of it."""
import os
import re
import subprocess
import time
from collections import Counter
from pathlib import Path

from lab.bus import SOCKET
from lab.daemon import LOG
from lab.life import Life

DEBUG = ("-d", "7")
ASK_FOR_CYCLE = ["ubus", "-s", SOCKET, "-S", "-t", "1", "call", "wan_detect", "wan_detect", '{"delay":0}']
# These only end a wait for something that does not come.
LONGEST_START_REAL_S = 6.0
LONGEST_CYCLE_REAL_S = 4.0
SMALLER_CYCLE_REAL_S = 0.7    # a daemon that told what it lacks will hardly find the port
LONGEST_CALL_REAL_S = 4.0
LONGEST_END_REAL_S = 5.0
REST_REAL_S = 2.0
LOOK_REAL_S = 0.25
POLL_REAL_S = 0.004
MOST_CYCLES = 4
# What spins takes more; so may a life in very fast time, and then its threads are looked at.
SUSPICIOUS_CPU_SHARE = 0.6
SPIN_LOOKS, SPIN_PAUSE_REAL_S, FEWEST_WAITS = 50, 0.01, 3
TICKS_PER_S = os.sysconf("SC_CLK_TCK")

# What start-up says before it gives up, by the function that says it.
LAST_WORDS = {
    "main": ("ubus", "init_all_protocols failed!", "init_all_eth_device failed!",
             "pthread_create wan_combo_auto_switch failed...", "pthread_create update_eth_link_status_trigger failed..."),
    "prepare_process": ("no descriptors for the event loop",),
    "wan_detect_ubus_init": ("ubus connect fail!", "ubus_add_object: ", "Failed to add event to ubusd"),
}
# What start-up says when it goes on with a port, a protocol or a setting less.
MISSING = {
    "generate_eth_device": ("Malloc new device failed!", "Create new device failed!", "Unable to get switch.port"),
    "get_eth_atrribute": ("Failed to get device by config", "Unable to get"),
    "init_all_protocols": ("Unable to get",),
    "create_new_protocol": ("Create new protocol failed!",),
    "get_wan_detect_enable": ("Unable to get network.auto_wan_detect.enable, treat it as off!",),
}


def said(lines, texts):
    """The lines that begin with one of these texts of their function."""
    return [f"{function}: {body}" for _, function, body in lines if body.startswith(texts.get(function, ()))]


def ask_for_cycle():
    """Whether the daemon's object says yes; a daemon that lost the bus in between will never say anything."""
    return subprocess.run(ASK_FOR_CYCLE, capture_output=True, text=True, check=False).stdout.strip() == '{"err_code":0}'


class Trial:
    """Start-up, cycles until one that began after the refusal has its verdict, and the end."""
    winner = "eth2"

    def __init__(self, router, healthy=None, **life):
        self.router, self.healthy = router, healthy
        self.trouble = []
        self.life = Life(*DEBUG, clock=router.clock, **life)
        self.started = time.monotonic()
        self.held = None
        self.cpu_share = 0.0

    def log(self):
        """What was logged, also where the log could not be opened."""
        return LOG.read_text(errors="replace") + self.life.output.read_text(errors="replace")

    def is_gone(self):
        """Whether the daemon has ended, or never began."""
        if not self.life.pid:
            return True
        return Path(f"/proc/{self.life.pid}/stat").read_text().rpartition(")")[2].split()[0] == "Z"

    def wait(self, condition, real_seconds):
        """The condition's value, waiting until it is true, the daemon is gone, or the time is over."""
        end = time.monotonic() + real_seconds
        while True:
            value = condition()
            if value or self.is_gone() or time.monotonic() >= end:
                return value
            time.sleep(POLL_REAL_S)

    # --- its course ----------------------------------------------------------------------------------------------------

    def is_up(self):
        """Whether start-up came to its loop."""
        return bool(self.wait(lambda: "Wan detect start uloop" in self.log(), LONGEST_START_REAL_S))

    def lacks_something(self):
        return said(self.life.lines(), MISSING)

    def overs(self):
        return self.log().count("Wan Detection over!")

    def verdicts(self):
        return self.log().count(f"success switching wan dev to {self.winner}")

    def next_verdict(self, overs=0, verdicts=0):
        """Whether the next end of a cycle comes with the right port."""
        limit = SMALLER_CYCLE_REAL_S if self.lacks_something() else LONGEST_CYCLE_REAL_S
        self.wait(lambda: self.overs() > overs, limit)
        return self.verdicts() > verdicts

    def another_cycle(self):
        """Asks for one over the bus; whether it finds the port."""
        overs, verdicts = self.overs(), self.verdicts()
        if not self.wait(ask_for_cycle, LONGEST_CALL_REAL_S):
            if not self.is_gone():
                self.trouble.append("the bus object does not answer")
            return False
        return self.next_verdict(overs, verdicts)

    def recovers(self, refused):
        """Whether a cycle that began after the refusal finds the port. Two cycles without a refusal are enough."""
        for cycle in range(MOST_CYCLES):
            refused_before = refused()
            found = self.another_cycle()
            if self.is_gone() or self.trouble or (found and refused_before) or (cycle == 1 and not refused()) or \
                    (not found and self.lacks_something()):
                return found
        return False

    # --- its end -------------------------------------------------------------------------------------------------------

    def look(self):
        """Descriptors by what they lead to, and threads."""
        held = Counter()
        for path in Path(f"/proc/{self.life.pid}/fd").iterdir():
            try:
                held[re.sub(r"\d+", "", os.readlink(path).partition(":")[0])] += 1
            except OSError:    # closed meanwhile
                continue
        held["threads"] = len(list(Path(f"/proc/{self.life.pid}/task").iterdir()))
        return held

    def too_much(self, held):
        """What of it a healthy life does not hold; where its log leads to is not the same for all."""
        return {what: count for what, count in held.items() if count > self.healthy.get(what, 0)}

    def at_rest(self):
        """What it holds between its commands: of many looks the least, or the first without too much."""
        least, end = self.look(), time.monotonic() + (REST_REAL_S if self.healthy else LOOK_REAL_S)
        while (not self.healthy or self.too_much(least)) and time.monotonic() < end:
            time.sleep(POLL_REAL_S / 2)
            least = min(least, self.look(), key=lambda held: sum(held.values()))
        return least

    def cpu(self):
        """Part of one processor that it took so far."""
        fields = Path(f"/proc/{self.life.pid}/stat").read_text().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / TICKS_PER_S / (time.monotonic() - self.started)

    def spins(self):
        """Whether a thread is next to never seen waiting."""
        waits = Counter()
        for _ in range(SPIN_LOOKS):
            for task in Path(f"/proc/{self.life.pid}/task").iterdir():
                waits[task.name] += (task / "stat").read_text().rpartition(")")[2].split()[0] != "R"
            time.sleep(SPIN_PAUSE_REAL_S)
        return any(seen < FEWEST_WAITS for seen in waits.values())

    def look_for_spin(self):
        self.cpu_share = self.cpu()
        if self.cpu_share > SUSPICIOUS_CPU_SHARE and self.spins():
            self.trouble.append(f"a thread never waits, {self.cpu_share:.0%} of a processor so far")

    def look_at_rest(self):
        self.held = self.at_rest()
        if self.healthy and self.too_much(self.held):
            self.trouble.append(f"it holds {self.too_much(self.held)} of {dict(self.held)}")
        self.look_for_spin()

    def end(self):
        """Ends it where it still runs; whether it had gone by itself, and what its life left."""
        gone = self.is_gone()
        if not gone:
            self.look_at_rest()
            self.life.signal()
        done = self.life.end(LONGEST_END_REAL_S)
        if done["forked"] and done["status"] is None:
            self.trouble.append("it did not end when it was asked to")
        elif done["forked"] and done["status"] != 0:
            self.trouble.append(f"it ended with status {done['status']}")
        if done["left"]:
            self.trouble.append(f"it left {done['left']} behind")
        return gone, done
