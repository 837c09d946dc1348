# SPDX-License-Identifier: MIT
"""The virtual router itself: its ports with what is behind them, bridge, bus, network manager and daemon."""
import os
import subprocess
import threading
from dataclasses import dataclass, field
from pathlib import Path

from lab import config, mounts, network
from lab.bus import Bus, uci
from lab.clock import Clock
from lab.combo import ComboPort
from lab.daemon import Daemon
from lab.health import Health
from lab.screen import Socket
from lab.sniffer import Sniffer
from lab.timeline import Timeline
from lab.waits import Waits

WAN_RESULT = Path("/tmp/wan_detect_result")
PROTOCOL_RESULT = Path("/tmp/protocol_detect_result")


@dataclass
class Port:
    number: int
    name: str
    label: str
    combo: str = None    # the medium that a combo port starts with, None for another port
    behind: dict = field(default_factory=dict)    # by medium, "" for a port that is no combo port
    line: network.Line = None
    chip: ComboPort = None

    def socket(self, wan, told):
        """How the front panel shows it: as the daemon tells, or as the lab knows while nobody tells."""
        side = told.get("side", self.chip.joined if self.chip else "")
        label = told.get("label", self.label)
        return Socket(self.name, f"{label} ({side})" if side else label, self.name == wan,
                      told.get("link", network.carrier(self.name)), self.plugged(), self.shown_behind())

    def used_line(self):
        """The cable that the port uses now, and what is behind it."""
        medium = self.chip.joined if self.chip else ""
        return self.chip.lines[medium] if self.chip else self.line, self.behind.get(medium)

    def plugged(self):
        line, _ = self.used_line()
        return bool(line and line.plugged)

    def shown_behind(self):
        _, behind = self.used_line()
        return behind.title if behind and self.plugged() else ""


class Router:
    def __init__(self, scenario, speed, screen, under_valgrind=False):
        self.scenario = scenario
        self.screen = screen
        self.clock = Clock(speed)
        self.timeline = Timeline()
        self.waits = Waits()
        self.bus = Bus(scenario.stock_manager)
        self.sniffer = Sniffer(self.clock)
        self.health = None
        self.daemon = Daemon(self.clock, self.take_log_line, under_valgrind)
        self.console = []
        names = scenario.port_names or [f"eth{number}" for number in range(scenario.port_count)]
        self.ports = [Port(number, name, f"P{number}", combo=scenario.combo.get(name))
                      for number, name in enumerate(names, 1)]
        self.config = config.Config(self.ports, self.port(scenario.wan))

    def port(self, name):
        return next(port for port in self.ports if port.name == name)

    # --- building -----------------------------------------------------------------------------------------------------

    def build(self):
        """Everything but the daemon: ports, servers, bridge members, bus, network manager."""
        threading.Thread(target=self.read_console, args=(mounts.console(),), daemon=True).start()
        network.make_bridge()
        for port in self.ports:
            self.make_port(port)
        self.scenario.configure(self.config)
        self.config.write()
        subprocess.run(["/sbin/wanlan_port_reload"], check=True)
        for name, behind in self.scenario.cables.items():
            self.attach(name, behind)
        self.sniffer.start()
        self.health = Health(self.clock, self.scenario.places_address)
        if self.scenario.managed:
            self.health.start()
        self.bus.start()

    def make_port(self, port):
        if port.combo:
            port.chip = ComboPort(port, port.combo)
            port.chip.start()
            port.line = port.chip.lines[port.combo]
        else:
            port.line = network.make_line(f"far-{port.name}", port.name)

    def line(self, name):
        """The cable at "eth3", or one medium of a combo port: "eth4/sfp"."""
        name, _, medium = name.partition("/")
        port = self.port(name)
        return port, port.chip.lines[medium] if medium else port.line

    def attach(self, name, behind, plugged=True):
        port, line = self.line(name)
        port.behind[name.partition("/")[2]] = behind
        behind.attach(line, port.number, self.clock)
        self.sniffer.listen(line, name)
        if plugged:
            line.plug()

    def read_console(self, descriptor):
        rest = b""
        while chunk := os.read(descriptor, 4096):
            *complete, rest = (rest + chunk).split(b"\n")
            self.console += [line.decode("utf-8", "replace").rstrip("\r") for line in complete]

    # --- what happens -------------------------------------------------------------------------------------------------

    def take_log_line(self, line):
        self.screen.log_line(line)
        for told in self.waits.take(line):
            self.screen.event(line.at, told, "wait")
        event = self.timeline.take(line)
        if event:
            self.screen.event(event.at, event.text, event.kind)

    def say(self, text):
        self.screen.event(self.clock.now(), text, "lab")

    def plug(self, name):
        self.line(name)[1].plug()
        self.say(f"the cable of {name} is plugged in")

    def unplug(self, name):
        self.line(name)[1].unplug()
        self.say(f"the cable of {name} is pulled out")

    def show_panel(self):
        state = self.bus.state() if self.daemon.running() else {}
        told = {port["name"]: port for port in state.get("ports", [])}
        wan = state["wan"] if "wan" in state else config.wan_port_name()
        self.screen.panel([port.socket(wan, told.get(port.name, {})) for port in self.ports])

    # --- what can be seen ---------------------------------------------------------------------------------------------

    def wan_port(self):
        """Interface name of the WAN port, as the configuration tool tells it."""
        return uci("get", f"switch.{uci('get', 'switch.wan.switch_port')}.ifname")

    def fake_wan(self):
        return uci("get", "network.auto_wan_detect.fake_wan_port")

    def probes(self, port=None, kinds=("discover", "padi")):
        return [probe for probe in self.sniffer.probes if probe.kind in kinds and port in (None, probe.port)]

    def cycle_over(self, seconds, after=0):
        """Index of the next end of a cycle in the log, waiting for it; None when none comes."""
        return self.daemon.wait_for("uloop_wan_detect_end", "Wan Detection over!", seconds, after)


def content(path):
    """Text of a result file, None when there is none."""
    try:
        return Path(path).read_text()
    except FileNotFoundError:
        return None
