# SPDX-License-Identifier: MIT
"""Actors that give the daemon no rest, each with dice of its own: one at the cables, one at the bus."""
import os
import random
import subprocess
import threading

from lab.bus import uci
from lab.config import wan_port_name
from lab.daemon import LOG

LONGEST_FLAP = 4
CLOSED = -1    # a level
OK, BAD_ARGUMENT, BUSY, UNKNOWN_PORT, BAD_NAME = 0, -1, -85, -96, -99
PORTS = ("eth0", "eth1", "eth2", "eth3", "eth4", "eth5")
STRANGER = "eth77"
LONG_NAME = "eth" + "0" * 300


class Actor(threading.Thread):
    """Does one thing after the other for so many of the daemon's seconds, with rests when it is told to."""

    def __init__(self, router, seconds, seed, pause):
        super().__init__(daemon=True, name=type(self).__name__)
        self.router, self.seconds, self.pause = router, seconds, pause
        self.dice = random.Random(f"{type(self).__name__} {seed}")
        self.count = 0
        self.broken = None
        self.may_act = threading.Event()
        self.may_act.set()
        self.at_work = threading.Lock()    # held while it acts

    def run(self):
        clock = self.router.clock
        end = clock.now() + self.seconds
        try:
            while clock.now() < end:
                self.may_act.wait()
                with self.at_work:
                    if self.may_act.is_set():
                        self.act()
                        self.count += 1
                clock.sleep(self.dice.uniform(*self.pause))
        except (OSError, subprocess.SubprocessError, ValueError) as error:
            self.broken = error

    def rest(self):
        """Waits for what it is doing to end; nothing follows until it is told to go on."""
        self.may_act.clear()
        with self.at_work:
            pass

    def go_on(self):
        self.may_act.set()

    def act(self):
        raise NotImplementedError


class Cables(Actor):
    """Plugs, pulls, moves and shakes cables."""

    def __init__(self, router, seconds, seed, lines):
        super().__init__(router, seconds, seed, (0.05, 6))
        self.lines = lines

    def act(self):
        self.dice.choices([self.move, self.flap, self.toggle, self.lose_wan], [4, 3, 3, 2])[0]()

    def state(self, plugged):
        return [name for name in self.lines if self.router.line(name)[1].plugged == plugged]

    def move(self):
        plugged, free = self.state(True), self.state(False)
        if plugged and free:
            self.router.unplug(self.dice.choice(plugged))
            self.router.plug(self.dice.choice(free))

    def flap(self):
        name = self.dice.choice(self.lines)
        for _ in range(self.dice.randint(1, LONGEST_FLAP)):
            self.change(name)
            self.router.clock.sleep(self.dice.uniform(0.02, 2))
            self.change(name)

    def toggle(self):
        self.change(self.dice.choice(self.lines))

    def lose_wan(self):
        """Pulls the WAN port's cables, and waits long enough for a verdict and its swap."""
        for name in self.lines:
            if name.partition("/")[0] == wan_port_name() and self.router.line(name)[1].plugged:
                self.router.unplug(name)
        self.router.clock.sleep(self.dice.uniform(10, 25))

    def change(self, name):
        (self.router.unplug if self.router.line(name)[1].plugged else self.router.plug)(name)


class BusCalls(Actor):
    """Calls every method with good and bad arguments, bans ports, changes the configuration."""

    def __init__(self, router, seconds, seed, types):
        super().__init__(router, seconds, seed, (0.02, 3))
        self.types = types
        self.wrong = []    # calls with a reply that they must not get
        self.called = {}
        self.weights = {self.log: 2, self.proto_detect: 4, self.set: 1, self.hotplug: 4, self.wan_detect: 3, self.ban: 4,
                        self.configure: 1}
        self.untried = self.dice.sample(list(self.weights), len(self.weights))

    def act(self):
        """Each action once, and then as they come."""
        action = self.untried.pop() if self.untried else self.dice.choices(*zip(*self.weights.items()))[0]
        action()

    def any_port(self):
        return self.dice.choice(PORTS + (STRANGER, LONG_NAME, ""))

    def call(self, method, allowed, arguments):
        reply = self.router.bus.call("wan_detect", method, **arguments)
        self.called[method] = self.called.get(method, 0) + 1
        if reply.get("err_code") not in allowed:
            self.wrong.append([method, arguments, reply])

    def log(self):
        level = self.dice.choice([7, 6, 3, 0, CLOSED, 8, -2, 1 << 30, "loud", None])
        fine = isinstance(level, int) and -1 <= level <= 7
        self.call("log", [OK if fine else BAD_ARGUMENT], {} if level is None else {"level": level})
        if level == CLOSED:    # it will be written anew from its beginning
            os.truncate(LOG, 0)
        self.call("log", [OK], {"level": 7})

    def proto_detect(self):
        arguments = {"device": self.any_port(), "protocol": self.dice.choice(["dhcp", "pppoe", "static", "dhcpx", ""]),
                     "timeout": self.dice.choice([1000, 2000, 4000, 999, -5, "soon"])}
        kept = {name: value for name, value in arguments.items() if self.dice.random() < 0.6}
        self.call("proto_detect", [OK, BUSY], kept)

    def set(self):
        self.call("set", [BAD_ARGUMENT], self.dice.choice([{}, {"enable": "maybe"}]))
        self.call("set", [OK], {"enable": False})
        self.router.clock.sleep(self.dice.uniform(0, 5))
        self.call("set", [OK], {"enable": True})

    def hotplug(self):
        name = self.any_port()
        self.call("hotplug", [OK if name in PORTS else UNKNOWN_PORT],
                  {"name": name, "status": self.dice.random() < 0.5})
        self.call("hotplug", [BAD_NAME], self.dice.choice([{"name": "eth1"}, {"status": True}, {"name": 7, "status": True}]))

    def wan_detect(self):
        delay = self.dice.choice([0, 0, 1, 3, 61, -1, "soon", None])
        self.call("wan_detect", [BAD_ARGUMENT if delay in (61, -1) else OK], {} if delay is None else {"delay": delay})

    def ban(self):
        event = {"name": self.any_port(), "time": self.dice.choice([0, 1, 5, 20, -1, -7, "long"])}
        kept = {name: value for name, value in event.items() if self.dice.random() < 0.9}
        self.router.bus.send("wan_detect_add_banned_dev", **kept)

    def configure(self):
        kind = self.dice.choice(self.types)
        for option in ("proto", "wan_type"):
            uci("set", f"network.wan.{option}={kind}")
        uci("set", f"network.auto_wan_detect.wan_combo_first_priority={self.dice.choice(['phy', 'sfp', 'odd'])}")
        uci("commit", "network")
        self.router.say(f"the connection becomes {kind}")
