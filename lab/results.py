# SPDX-License-Identifier: MIT
"""Reads the daemon's result files all the time, as whoever waits for a result does: none may ever hold a half."""
import threading
import time

from lab.router import PROTOCOL_RESULT, WAN_RESULT, content

PAUSE_REAL_S = 0.001
PROTOCOLS = ("dhcp", "pppoe", "static")


class ResultReader(threading.Thread):
    def __init__(self, ports):
        super().__init__(daemon=True, name="results")
        self.allowed = {WAN_RESULT: set(ports), PROTOCOL_RESULT: set(PROTOCOLS)}
        self.reads = 0
        self.wrong = []

    def run(self):
        while True:
            for path, allowed in self.allowed.items():
                text = content(path)
                self.reads += text is not None
                if text is not None and text not in allowed:
                    self.wrong.append(f"{path} held {text!r}")
            time.sleep(PAUSE_REAL_S)
