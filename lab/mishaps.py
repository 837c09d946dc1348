# SPDX-License-Identifier: MIT
"""What goes wrong around a daemon in the long run: its scripts, the servers upstream, the bus, the configuration."""
import os
import signal
import subprocess
import threading
from pathlib import Path

from lab import network
from lab.bus import uci
from lab.config import FOLDER
from lab.mounts import COMMANDS
from lab.storm import Actor, BusCalls, Cables

BACK_ON_BUS_REAL_S = 5.0
HUNG_BUS_REAL_S = (0.05, 0.4)
BROKEN_TEXTS = {
    "prints nothing": "exit 0\n",
    "fails": "exit 1\n",
    "prints a half": "printf '{\"eth0\":tr'\n",
    "prints something else": "echo '[1,2,3]'\n",
    "prints odd values": "echo '{\"eth0\":\"yes\",\"eth1\":[1],\"eth2\":null,\"phy\":7,\"sfp\":{},\"serdes\":false}'\n",
    "prints bytes": "head -c 700 /dev/urandom\n",
    "prints without end": "while :; do printf '{\"eth0\":true,'; done\n",
    "is killed": "kill -9 $$\n",
    "is slow": "sleep 4\nexit 0\n",
    "hangs": "exec sleep 100000\n",
}
# A program that acts may take a minute before it is killed; nothing else goes on meanwhile.
ACTING = {"network_lanwan_swap", "wanlan_port_reload", "online-test"}
TOO_LONG_FOR_ACTING = {"hangs", "prints without end"}


def replace_file(path, text, mode):
    """No reader ever sees a half."""
    draft = path.with_name(f".{path.name}.new")
    draft.write_text(text)
    draft.chmod(mode)
    os.replace(draft, path)


def rebuild_ports():
    """As far as the command works just now."""
    subprocess.run(["/bin/sh", "-c", "/sbin/wanlan_port_reload"], check=False, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)


class Commands(Actor):
    """Breaks the router's commands and the configuration, one at a time, and mends what was broken."""

    def __init__(self, router, seconds, seed):
        super().__init__(router, seconds, seed, (2, 15))
        self.done = {}

    def act(self):
        actions = {self.break_command: 6, self.take_command: 2, self.break_package: 2, self.take_package: 1, self.edit: 5}
        self.dice.choices(*zip(*actions.items()))[0]()

    def told(self, kind, what):
        self.done[kind] = self.done.get(kind, 0) + 1
        self.router.say(what)

    def wait(self):
        self.router.clock.sleep(self.dice.uniform(1, 12))

    def break_command(self):
        name, path = self.dice.choice(list(COMMANDS.items()))
        ways = [way for way in BROKEN_TEXTS if name not in ACTING or way not in TOO_LONG_FOR_ACTING]
        way, path = self.dice.choice(ways), Path(path)
        kept = path.read_text()
        self.told("broken commands", f"{name} {way}")
        replace_file(path, f"#!/bin/sh\n{BROKEN_TEXTS[way]}", 0o755)
        self.wait()
        replace_file(path, kept, 0o755)

    def take_command(self):
        name, path = self.dice.choice(list(COMMANDS.items()))
        path, gone = Path(path), self.dice.random() < 0.5
        kept = path.read_text()
        self.told("missing commands", f"{name} is {'missing' if gone else 'no program'}")
        if gone:
            path.unlink()
        else:
            path.chmod(0o644)
        self.wait()
        replace_file(path, kept, 0o755)

    def break_package(self):
        self.change_package("broken packages", "is no configuration",
                            lambda path: replace_file(path, "config 'x\n\0\xff option", 0o644))

    def take_package(self):
        self.change_package("missing packages", "is missing", lambda path: path.unlink())

    def change_package(self, kind, what, change):
        path = FOLDER / self.dice.choice(["network", "switch", "protocol", "sysmode"])
        kept = path.read_text()
        self.told(kind, f"the package {path.name} {what}")
        change(path)
        self.wait()
        replace_file(path, kept, 0o644)

    def edit(self):
        """What a person does with the configuration by hand."""
        port = self.dice.randint(1, len(self.router.ports))
        package, path, value = self.dice.choice([
            ("switch", "switch.gaming.switch_port", f"port{port}"), ("switch", "switch.gaming.switch_port", "nowhere"),
            ("switch", "switch.lan_agg.enable_agg", "1"), ("switch", "switch.lan_agg.lacpports", "2 3 99 x"),
            ("switch", "switch.wan.switch_port", f"port{port}"), ("network", "network.wan.wan_type", "pppoeshare"),
            ("network", "network.wan.wan_type", "x" * 200),
            ("network", "network.auto_wan_detect.fake_wan_port", str(port)),
            ("protocol", "protocol.static.gateway", "nowhere"), ("sysmode", "sysmode.sysmode.mode", "ap")])
        if path == "switch.gaming.switch_port":
            uci("set", "switch.gaming=gaming")
        before = uci("get", path)
        self.told("edits by hand", f"{path} becomes {value[:20]}")
        uci("set", f"{path}={value}")
        uci("commit", package)
        self.wait()
        if path == "switch.wan.switch_port":    # the role stays where a person put it
            return
        uci(*(("set", f"{path}={before}") if before is not None else ("delete", path)))
        uci("commit", package)


class FaultyLines(Cables):
    """Cables as in the storm; besides, servers die or stand still, and a port's interface goes and comes back."""

    def __init__(self, router, seconds, seed, lines):
        super().__init__(router, seconds, seed, lines)
        self.done = {}
        # The interface of a port with a LAN host or a chip behind it is not given back as it was.
        self.may_go = [name for name in lines if "/" not in name and not self.has_host(name)]

    def has_host(self, name):
        port, _ = self.router.line(name)
        return any(hasattr(member, "talk") for member in getattr(port.behind[""], "members", ()))

    def act(self):
        actions = {super().act: 12, self.kill_server: 1, self.stop_server: 1, self.take_interface: 1}
        self.dice.choices(*zip(*actions.items()))[0]()

    def told(self, what):
        self.done[what] = self.done.get(what, 0) + 1

    def any_server(self):
        return self.dice.choice([line for name in self.lines if (line := self.router.line(name)[1]).processes])

    def kill_server(self):
        line = self.any_server()
        self.router.say(f"the server behind {line.namespace} is killed")
        commands = [process.args for process in line.processes]
        end_processes(line)
        self.router.clock.sleep(self.dice.uniform(0.5, 12))
        for command in commands:
            line.processes.append(subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                                   stderr=subprocess.DEVNULL))
        self.told("servers killed")

    def stop_server(self):
        line = self.any_server()
        self.router.say(f"the server behind {line.namespace} stands still")
        signal_processes(line, signal.SIGSTOP)
        self.router.clock.sleep(self.dice.uniform(0.5, 12))
        signal_processes(line, signal.SIGCONT)
        self.told("servers stopped")

    def take_interface(self):
        name = self.dice.choice(self.may_go)
        port, line = self.router.line(name)
        self.router.say(f"the interface {name} is deleted")
        network.run("ip", "link", "del", name)
        end_processes(line)
        self.router.clock.sleep(self.dice.uniform(0.5, 12))
        network.ip_batch(f"link add {name} type veth peer name {network.FAR_END} netns {line.namespace}")
        network.run("ip", "link", "set", name, "up")
        rebuild_ports()
        port.behind[""].attach(line, port.number, self.router.clock)
        self.router.sniffer.listen(line, name)
        (line.plug if line.plugged else line.unplug)()
        self.told("interfaces deleted")


def signal_processes(line, number):
    for process in line.processes:
        process.send_signal(number)


def end_processes(line):
    for process in line.processes:
        process.kill()
        process.wait()
    line.processes.clear()


class FaultyBus(BusCalls):
    """Calls as in the storm, on a bus that is restarted or stands still now and then."""

    def __init__(self, router, seconds, seed, types):
        super().__init__(router, seconds, seed, types)
        self.done = {}
        self.absent = []    # when the daemon's object did not come back
        self.pause = (0.02, 2)
        self.weights = {self.log: 2, self.proto_detect: 5, self.set: 1, self.hotplug: 3, self.wan_detect: 9,
                        self.ban: 4, self.configure: 1, self.restart_bus: 0.4, self.stop_bus: 0.4}
        self.untried = self.dice.sample(list(self.weights), len(self.weights))

    def told(self, kind, what):
        self.done[kind] = self.done.get(kind, 0) + 1
        self.router.say(what)

    def log(self):
        """The level stays: what is counted is read from the log."""
        level = self.dice.choice([7, 8, -2, 1 << 30, "loud", None])
        self.call("log", [0 if level == 7 else -1], {} if level is None else {"level": level})

    def restart_bus(self):
        bus = self.router.bus
        self.told("bus restarts", "the bus is killed")
        bus.kill_broker()
        self.router.clock.sleep(self.dice.choice([0, 0.5, 3, 15]))
        bus.start_broker()
        if bus.wait_for_object("wan_detect", BACK_ON_BUS_REAL_S) is None:
            self.absent.append(round(self.router.clock.now(), 1))
        bus.wait_for_object("network.interface", BACK_ON_BUS_REAL_S)

    def stop_bus(self):
        pid = self.router.bus.broker.pid
        self.told("bus standstills", "the bus stands still")
        os.kill(pid, signal.SIGSTOP)
        threading.Event().wait(self.dice.uniform(*HUNG_BUS_REAL_S))
        os.kill(pid, signal.SIGCONT)
