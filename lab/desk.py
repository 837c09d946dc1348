# SPDX-License-Identifier: MIT
"""Plays scenarios for somebody who plays many: Python reads the lab once, and each scenario is played by a fork.

python3 -m lab.desk SOCKET listens there. A request is a line of JSON, the words of ./run.sh; what the scenario prints
goes back over the connection, then a line with its status."""
import json
import os
import signal
import socketserver
import sys

from lab import front
from lab.namespaces import libc
from lab.scenarios import load_scenarios

PR_SET_PDEATHSIG = 1


def status_of(arguments):
    try:
        return front.main(arguments)
    except SystemExit as end:
        if isinstance(end.code, str):
            print(end.code, file=sys.stderr)
        return end.code if isinstance(end.code, int) else 1


class Play(socketserver.StreamRequestHandler):
    def handle(self):
        libc.prctl(PR_SET_PDEATHSIG, signal.SIGTERM)    # without the desk nobody asks any more
        arguments = json.loads(self.rfile.readline())
        for descriptor in (1, 2):
            os.dup2(self.connection.fileno(), descriptor)
        status = status_of(arguments)
        sys.stdout.flush()
        self.wfile.write(f"\n{status}".encode())


class Desk(socketserver.ForkingMixIn, socketserver.UnixStreamServer):
    max_children = 1000    # whoever asks knows how many
    request_queue_size = 100


if __name__ == "__main__":
    load_scenarios()
    Desk(sys.argv[1], Play).serve_forever()
