# SPDX-License-Identifier: MIT
"""The message bus of the router: ubusd, the network manager's object, and calls through the command line client."""
import json
import os
import signal
import socket
import subprocess
import time

from lab.health import STATE_FILE
from lab.mounts import STATE

SOCKET = "/var/run/ubus.sock"
READY_REAL_S = 5.0
POLL_REAL_S = 0.01
STATE_REAL_S = 1


def listens(path):
    """A socket is there a moment before somebody listens at it."""
    try:
        with socket.socket(socket.AF_UNIX) as probe:
            probe.connect(path)
        return True
    except OSError:
        return False


class Bus:
    def __init__(self, stock_manager=False):
        self.stock_manager = stock_manager
        self.broker = None
        self.manager = None

    def start(self):
        self.start_broker()
        self.start_manager()

    def start_manager(self):
        command = ["lab_network_interface", SOCKET, str(STATE_FILE)] + (["stock"] if self.stock_manager else [])
        with open(STATE / "network_interface.log", "ab") as output:
            self.manager = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=output, stderr=output)
        if not self.wait_for_object("network.interface", READY_REAL_S):
            raise RuntimeError("the object network.interface did not appear on the bus")

    def start_broker(self):
        with open(STATE / "ubusd.log", "ab") as output:
            self.broker = subprocess.Popen(["ubusd", "-s", SOCKET], stdin=subprocess.DEVNULL, stdout=output,
                                           stderr=output)
        end = time.monotonic() + READY_REAL_S
        while not listens(SOCKET):
            if self.broker.poll() is not None or time.monotonic() > end:
                raise RuntimeError("ubusd did not come up")
            time.sleep(POLL_REAL_S)

    def kill_broker(self):
        os.kill(self.broker.pid, signal.SIGKILL)
        self.broker.wait()

    def kill_manager(self):
        os.kill(self.manager.pid, signal.SIGKILL)
        self.manager.wait()

    def objects(self):
        done = subprocess.run(["ubus", "-s", SOCKET, "list"], capture_output=True, text=True, check=False)
        return done.stdout.split() if done.returncode == 0 else []

    def wait_for_object(self, name, real_seconds):
        """Real seconds until the object was there, None when it did not come in time."""
        start = time.monotonic()
        while time.monotonic() < start + real_seconds:
            if name in self.objects():
                return time.monotonic() - start
            time.sleep(POLL_REAL_S)
        return None

    def call(self, name, method, /, **message):
        """The reply as a dictionary; {"status": text} when the call failed."""
        done = subprocess.run(["ubus", "-s", SOCKET, "-S", "call", name, method, json.dumps(message)],
                              capture_output=True, text=True, check=False)
        if done.returncode != 0:
            return {"status": done.stderr.strip() or f"exit status {done.returncode}"}
        return json.loads(done.stdout) if done.stdout.strip() else {}

    def state(self):
        """What the daemon tells of itself; empty while it is not there, or busy."""
        done = subprocess.run(["ubus", "-s", SOCKET, "-t", str(STATE_REAL_S), "-S", "call", "wan_detect.state", "status"],
                              capture_output=True, text=True, check=False)
        return json.loads(done.stdout) if done.returncode == 0 and done.stdout.strip() else {}

    def send(self, event, /, **message):
        subprocess.run(["ubus", "-s", SOCKET, "send", event, json.dumps(message)], check=True)


def uci(*arguments):
    """Output of the configuration tool, None when it failed."""
    done = subprocess.run(["uci", "-q", *arguments], capture_output=True, text=True, check=False)
    return done.stdout.rstrip("\n") if done.returncode == 0 else None
