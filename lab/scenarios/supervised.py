# SPDX-License-Identifier: MIT
"""The daemon as a service manager runs it: in the foreground, served at once, whatever becomes of its output; and a board
whose ports have other names."""
import fcntl
import os
import signal
import subprocess
import time
from pathlib import Path

from lab import config
from lab.config import Section
from lab.daemon import LOG, PROGRAM
from lab.life import READY_REAL_S, Life, wait_until
from lab.mishaps import replace_file
from lab.router import WAN_RESULT, content
from lab.scenarios.base import Scenario
from lab.scenarios.life import (DEBUG, END_REAL_S, EXECUTABLE, RELOAD, SCRIPT, THREADS, LifeScenario,
                                replaced)
from lab.upstream import DhcpServer, Silent

LOOP = "Wan detect start uloop!!!!!!"
HANGUP = "SIGHUP is ignored"
SETTINGS = "[wan_detect_settings:"
FOREGROUND = ("--foreground", *DEBUG)
F_SETPIPE_SZ = 1031
SMALL_PIPE = 4096
PIPE_FILLS_REAL_S = 4.0
SURROUNDINGS = Path("/tmp/surroundings")
NOTING_SCRIPT = f"#!/bin/sh\ngrep ^Sig /proc/self/status >{SURROUNDINGS}.$$ && mv {SURROUNDINGS}.$$ {SURROUNDINGS}\necho '{{}}'\n"
CALLS = (("log", {"level": 7}), ("set", {"enable": True}), ("hotplug", {"name": "eth1", "status": True}),
         ("wan_detect", {"delay": 0}), ("proto_detect", {"device": "eth0"}))


class Foreground(Life):
    """A life whose first process is the daemon."""

    def start(self, command, **options):
        self.process = subprocess.Popen(command, **options)    # pylint: disable=attribute-defined-outside-init


class Supervised(LifeScenario):
    name = "supervised"
    rank = 63
    summary = "in the foreground, as a service manager runs it: statuses, calls at once, SIGHUP, a log nobody reads"
    story = """
        The daemon is started in the foreground again and again. A start that gives up has to say so by its status, and a
        second daemon must leave the first one alone. Who calls during the pauses of start-up has his reply at once, a
        SIGHUP ends nothing, and neither does a reader that does not read the log or goes away.
    """
    cables = {"eth0": Silent()}
    main_thread_hangs = ("told to end while the bus hangs",)

    def life_version(self, _):
        done = subprocess.run([PROGRAM, "--version"], capture_output=True, text=True, check=False)
        return {"status": done.returncode, "seconds": 0, "output": done.stdout}

    def life_up_to_the_loop(self, router):
        life = Foreground(*FOREGROUND, clock=router.clock)
        looped = life.said(LOOP)
        same = os.getsid(life.pid) == os.getsid(0), life.pid == life.process.pid
        life.signal()
        return life.end(END_REAL_S) | {"looped": looped, "same_session": same[0], "same_process": same[1]}

    def life_no_bus(self, router):
        router.bus.kill_broker()
        try:
            return Foreground(*FOREGROUND).end(END_REAL_S)
        finally:
            router.bus.start_broker()

    def life_no_network_package(self, _):
        path = config.FOLDER / "network"
        text = path.read_text()
        path.unlink()
        try:
            return Foreground(*FOREGROUND).end(END_REAL_S)
        finally:
            path.write_text(text)

    def life_no_thread(self, router):
        life = Foreground(*FOREGROUND, clock=router.clock, fault="pthread_create:1")
        life.said("pthread_create")
        return life.end(END_REAL_S)

    def life_told_to_end_while_the_bus_hangs(self, router):
        return self.end_while_the_bus_hangs(router, lambda: Foreground(*FOREGROUND))

    def life_beside_another(self, router):
        """The second one shall leave no trace in what the first one has."""
        life = Foreground("-f", "-d", "1", clock=router.clock)
        router.bus.wait_for_object("wan_detect", READY_REAL_S)
        called = Path("/tmp/reload_called")
        for path in (LOG, WAN_RESULT):
            path.write_text("the first one's")
        with replaced(RELOAD, f"#!/bin/sh\ntouch {called}\n"):
            seconds = {how: subprocess.run([PROGRAM, *how.split(), *DEBUG], capture_output=True, text=True, check=False,
                                           timeout=READY_REAL_S, env=life.environment(None, None, None))
                       for how in ("-f", "")}
            wait_until(lambda: len(life.processes()) <= 1)
        facts = {"second_status": seconds["-f"].returncode, "second_output": seconds["-f"].stdout,
                 "second_in_background": seconds[""].returncode, "log": LOG.read_text(), "result": content(WAN_RESULT),
                 "reload_called": called.exists(), "reply": router.bus.call("wan_detect", "set", enable=True)}
        life.signal()
        WAN_RESULT.unlink()
        return life.end(END_REAL_S) | facts

    def life_called_while_it_starts(self, router):
        router.unplug("eth0")
        life = Foreground(*FOREGROUND, clock=router.clock)
        life.said("No device has plugged in")
        replies = {method: router.bus.call("wan_detect", method, **message) for method, message in CALLS}
        router.bus.send("wan_detect_add_banned_dev", name="eth3", time=60)
        banned = life.said("dev:eth3 is banned")
        before = [body for _, _, body in life.lines()]
        router.plug("eth0")
        life.said("Entering function: uloop_start_wan_detect")
        life.signal()
        return life.end(END_REAL_S) | {"replies": replies, "banned": banned, "loop_came_first": LOOP in before}

    def life_hung_up(self, router):
        """In the pause, and in the loop; and by a starter that had the signal blocked."""
        with replaced(SCRIPT, NOTING_SCRIPT):
            life = Foreground(*FOREGROUND, clock=router.clock, blocked=(signal.SIGHUP,))
            life.said("Entering function: update_eth_link_status!")
            life.signal(signal.SIGHUP)
            told = life.said(HANGUP)
            in_the_pause = told and not any(body == LOOP for _, _, body in life.lines())
            life.said(LOOP)
            life.signal(signal.SIGHUP)
            twice = wait_until(lambda: sum(body == HANGUP for _, _, body in life.lines()) == 2)
            masks = dict(line.split(":") for line in SURROUNDINGS.read_text().splitlines())
        life.signal()
        bit = 1 << (signal.SIGHUP - 1)
        return life.end(END_REAL_S) | {
            "in_the_pause": in_the_pause, "in_the_loop": twice,
            "programs_keep_it": [name for name in ("SigBlk", "SigIgn") if int(masks[name], 16) & bit]}

    def life_hung_up_in_the_background(self, router):
        life = Life(*DEBUG, clock=router.clock)
        life.signal(signal.SIGHUP)
        told = life.said(HANGUP)
        life.signal()
        return life.end(END_REAL_S) | {"told": told}

    def life_with_a_log_that_nobody_reads(self, router):
        reader, writer = os.pipe()
        fcntl.fcntl(writer, F_SETPIPE_SZ, SMALL_PIPE)
        life = self.Piped("-f", clock=router.clock, writer=writer)
        os.close(writer)
        wait_until(lambda: life.threads() == THREADS)
        facts = {"log_reply": router.bus.call("wan_detect", "log", level=7)}
        time.sleep(PIPE_FILLS_REAL_S)
        facts["reply"] = router.bus.call("wan_detect", "set", enable=True)
        facts["read"] = os.read(reader, SMALL_PIPE).decode("utf-8", "replace")
        facts["reply_after_reading"], facts["read_on"] = self.ask_and_read(router, reader)
        os.close(reader)
        time.sleep(1)
        facts["reply_without_reader"] = router.bus.call("wan_detect", "set", enable=True)
        life.signal()
        return life.end(END_REAL_S) | facts

    @staticmethod
    def ask_and_read(router, reader):
        """The reply, and what is said about it; the small pipe may be full of other lines at that moment."""
        text, end = "", time.monotonic() + PIPE_FILLS_REAL_S
        while SETTINGS not in text and time.monotonic() < end:
            reply = router.bus.call("wan_detect", "set", enable=True)
            text += os.read(reader, SMALL_PIPE).decode("utf-8", "replace")
        return reply, text

    class Piped(Foreground):
        """Its standard output is a pipe of the lab's."""

        def __init__(self, *arguments, writer, **options):
            self.writer = writer
            super().__init__(*arguments, **options)

        def start(self, command, **options):
            super().start(command, **options | {"stdout": self.writer})

    def judge(self, stage):
        for title, life in stage.facts["lives"].items():
            wanted = 1 if title in ("no bus", "no network package", "no thread") else 0
            stage.check(f"{title}: status {wanted} within {END_REAL_S:g} s",
                        life["status"] == wanted and life["seconds"] <= END_REAL_S, life["status"])
        super().judge(stage)


PORT_STATES = """#!/bin/sh
json=
for dir in /sys/class/net/lan[0-9] /sys/class/net/wan; do
    carrier=0
    { read -r carrier <"$dir/carrier"; } 2>/dev/null
    [ "$carrier" = 1 ] && link=true || link=false
    json="$json${json:+,}\\"${dir##*/}\\":$link"
done
echo "{$json}"
"""


class OtherNames(Scenario):
    name = "port-names"
    rank = 64
    summary = "ports named wan, lan1, lan2 ... on a board with 20 device sections, bridges and VLANs among them"
    story = """
        The ports of this board are named wan and lan1 to lan4, and its network configuration has 15 more devices:
        bridges, and VLANs on the ports. The WAN role is with the port wan, the line in lan3.
    """
    port_names = ("wan", "lan1", "lan2", "lan3", "lan4")
    wan = "wan"
    cables = {"wan": Silent(), "lan3": DhcpServer()}
    winner = "lan3"

    def configure(self, config_):
        replace_file(SCRIPT, PORT_STATES, EXECUTABLE)
        config_.network["auto_wan_detect"]["port_prefix"] = "lan wan"
        others = ["br-lan", "br-guest", "wlan0"] + [f"lan{port}.{vlan}" for port in (1, 2, 3, 4) for vlan in (10, 20, 30)]
        others.append("wan")    # whose place among the sections the interface of that name has
        devices = {f"device {name}": Section("device", anonymous=True, name=name) for name in others}
        config_.network = devices | config_.network

    def judge(self, stage):
        super().judge(stage)
        left_out = [line for line in stage.router.daemon.lines if "that cannot be ports left out" in line.body]
        stage.note("left_out", [line.body for line in left_out])
        stage.check("what is left out is said once, as a warning", [line.level for line in left_out] == ["Warning"])
