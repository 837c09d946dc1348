# SPDX-License-Identifier: MIT
"""What a newcomer sees: the front panel, the timeline as it happens, the closing lines."""
import os
import sys
import textwrap
import threading
from dataclasses import dataclass

COLORS = {"begin": "1;36", "end": "36", "answer": "32", "verdict": "1;32", "swap": "1;33", "link": "35", "lab": "34",
          "log": "2", "wait": "2", "title": "1", "ok": "32", "failed": "1;31", "up": "32", "down": "2", "wan": "1;33"}
CELL = 14
MOST_IN_A_ROW = 5
TEXT_WIDTH = 96
EXIT_BROKEN_PIPE = 141


@dataclass
class Socket:
    """A port on the front panel."""
    name: str
    label: str
    is_wan: bool
    has_link: bool
    plugged: bool    # a cable
    behind: str      # what it leads to


class Screen:
    def __init__(self, color, show_log):
        self.color = color
        self.show_log = show_log
        self.lock = threading.Lock()
        self.last = None

    def paint(self, text, kind):
        return f"\033[{COLORS[kind]}m{text}\033[0m" if self.color and kind in COLORS else text

    def write(self, text=""):
        try:
            with self.lock:
                if not text and not self.last:
                    return
                self.last = text
                sys.stdout.write(text + "\n")
                sys.stdout.flush()
        except BrokenPipeError:    # the reader has seen enough; everything started here ends with this process
            os._exit(EXIT_BROKEN_PIPE)

    def title(self, scenario, speed):
        pace = "in real time" if speed == 1 else f"{speed:g} times faster than real"
        self.write(self.paint(f"{scenario.name}: {scenario.summary}", "title"))
        for paragraph in textwrap.dedent(scenario.story).strip().split("\n\n"):
            self.write(textwrap.fill(" ".join(paragraph.split()), TEXT_WIDTH, initial_indent="  ",
                                     subsequent_indent="  "))
        self.write(f"  Time runs {pace}; the seconds below are the daemon's own.")

    def event(self, at, text, kind):
        self.write(f"{at:7.1f} s  {self.paint(text, kind)}")

    def log_line(self, line):
        if self.show_log:
            where = f"{line.level:<8} {line.function}: " if line.function else ""
            self.write(self.paint(f"{line.at:7.1f} s  | {where}{line.body}", "log"))

    def panel(self, sockets):
        """Draws the front panel, in rows as `wan_detect --status` does, and the cables with what they lead to."""
        self.write()
        rows = -(-len(sockets) // MOST_IN_A_ROW)
        for row in range(rows):
            self.row_of_sockets(sockets[len(sockets) * row // rows:len(sockets) * (row + 1) // rows])
        self.write()

    def row_of_sockets(self, sockets):
        self.write("  ┌" + "┬".join("─" * CELL for _ in sockets) + "┐")
        self.row([(socket.name, "title") for socket in sockets])
        self.row([(socket.label, "down") for socket in sockets])
        self.row([("WAN", "wan") if socket.is_wan else ("LAN", None) for socket in sockets])
        self.row([("● link", "up") if socket.has_link else ("○ no link", "down") for socket in sockets])
        self.write("  └" + "┴".join(("┬" if socket.plugged else "─").center(CELL, "─") for socket in sockets) + "┘")
        self.row([("│" if socket.plugged else "", None) for socket in sockets], edge=" ")
        self.row([(socket.behind, None) for socket in sockets], edge=" ")

    def row(self, texts, edge="│"):
        painted = edge.join(self.paint(text.center(CELL), kind) for text, kind in texts)
        self.write(f"  {edge}{painted}{edge}".rstrip())

    def check(self, what, passed, detail):
        mark = self.paint("ok    ", "ok") if passed else self.paint("FAILED", "failed")
        self.write(f"  {mark} {what}" + (f"  ({detail})" if detail and not passed else ""))

    def closing(self, passed, verdict, figures):
        word = self.paint("PASSED", "verdict") if passed else self.paint("FAILED", "failed")
        self.write()
        for line in figures:
            self.write(f"  {line}")
        self.write(f"{word}: {verdict}")
