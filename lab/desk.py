# SPDX-License-Identifier: MIT
"""Plays scenarios for somebody who plays many: Python reads the lab once, and each scenario is played by a fork.

python3 -m lab.desk SOCKET listens there. A request is a line of JSON, the words of ./run.sh; what the scenario prints
goes back over the connection, then a line with its status."""
import json
import os
import socketserver
import sys

from lab import front
from lab.scenarios import load_scenarios


class Play(socketserver.StreamRequestHandler):
    def handle(self):
        arguments = json.loads(self.rfile.readline())
        for descriptor in (1, 2):
            os.dup2(self.connection.fileno(), descriptor)
        try:
            status = front.main(arguments)
        except SystemExit as end:
            status = end.code if isinstance(end.code, int) else 1
        sys.stdout.flush()
        self.wfile.write(f"\n{status}".encode())


class Desk(socketserver.ForkingMixIn, socketserver.UnixStreamServer):
    max_children = 1000    # whoever asks knows how many
    request_queue_size = 100


if __name__ == "__main__":
    load_scenarios()
    Desk(sys.argv[1], Play).serve_forever()
