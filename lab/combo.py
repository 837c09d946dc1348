# SPDX-License-Identifier: MIT
"""Hardware of a combo port: two far ends, of which the SerDes choice joins one to the port.

The port's own far end lies in a namespace that plays the chip inside: a bridge there joins it to the chosen medium, and
it is up only while that medium has a link, so that the port's carrier follows the medium. Software sees and sets the
chip through three small files, as a driver would offer them.
"""
import threading
import time
from pathlib import Path

from lab.network import FAR_END, make_line, run

DRIVER = Path("/var/run/combo")
MEDIA = ("phy", "sfp")
JOINT = "joint"
POLL_REAL_S = 0.01


class ComboPort(threading.Thread):
    def __init__(self, port, medium):
        super().__init__(daemon=True, name=f"combo-{port.name}")
        self.chip = make_line(f"chip-{port.name}", port.name)
        self.chip.ip("link", "add", JOINT, "type", "bridge")
        self.chip.ip("link", "set", JOINT, "up")
        self.chip.ip("link", "set", FAR_END, "master", JOINT)
        self.lines = {name: make_line(f"{port.name}-{name}", name, self.chip.namespace) for name in MEDIA}
        self.files = DRIVER / f"port{port.number}"
        self.files.mkdir(parents=True)
        (self.files / "serdes").write_text(medium)
        self.joined = None
        self.port_up = False
        self.follow()

    def run(self):
        while True:
            self.follow()
            time.sleep(POLL_REAL_S)

    def follow(self):
        """One look of the chip: links to the driver's files, the driver's choice to the wires."""
        for name, line in self.lines.items():
            write_if_changed(self.files / name, "1" if line.plugged else "0")
        wanted = (self.files / "serdes").read_text().strip()
        if wanted in MEDIA and wanted != self.joined:
            self.join(wanted)
        self.set_port_link(self.lines[self.joined].plugged)

    def join(self, medium):
        if self.joined:
            self.set_port_link(False)
            run("ip", "-n", self.chip.namespace, "link", "set", self.joined, "nomaster")
        run("ip", "-n", self.chip.namespace, "link", "set", medium, "master", JOINT)
        self.joined = medium

    def set_port_link(self, up):
        if up == self.port_up:
            return
        (self.chip.plug if up else self.chip.unplug)()
        self.port_up = up


def write_if_changed(path, text):
    if not path.exists() or path.read_text() != text:
        path.write_text(text)
