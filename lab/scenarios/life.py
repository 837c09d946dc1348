# SPDX-License-Identifier: MIT
"""The daemon's start and end: command lines, what may fail on the way, and signals at every moment."""
import os
import signal
import time
from pathlib import Path

from lab import config, sanitizers
from lab.daemon import PROGRAM
from lab.life import Life, adopt_orphans, holds_signals_back, wait_until
from lab.mishaps import replace_file
from lab.scenarios.base import Scenario
from lab.upstream import DhcpServer, Silent

END_REAL_S = 5.0
HUNG_REAL_S = 8.0        # the daemon has to be gone long before that
SOON_REAL_S = 0.3
THREADS = 3              # of a daemon whose loop runs
SCRIPT = Path("/etc/wan_detect/get_all_port_state.sh")
SWAP = Path("/usr/sbin/network_lanwan_swap")
RELOAD = Path("/sbin/wanlan_port_reload")
HANGING = "#!/bin/sh\nexec sleep 600\n"
DEBUG = ("-d", "7")
EXECUTABLE = 0o755


class replaced:
    """A command of the router with another text, for the body. Nobody can write a script that is just being started."""

    def __init__(self, path, text):
        self.path, self.text, self.kept = path, text, None

    def __enter__(self):
        self.kept = self.path.read_text()
        replace_file(self.path, self.text, EXECUTABLE)

    def __exit__(self, *_):
        replace_file(self.path, self.kept, EXECUTABLE)


class LifeScenario(Scenario):
    """A number of lives, each by a method named after it."""
    main_thread_hangs = ()

    def play(self, stage):
        adopt_orphans()
        lives = stage.note("lives", {})
        skipped = self.main_thread_hangs if holds_signals_back(PROGRAM) else ()
        for title, live in self.lives().items():
            if title in skipped:
                stage.router.say(f"{title}: left out, the thread sanitizer holds signals back there")
                continue
            lives[title] = live(stage.router)
            stage.router.say(f"{title}: status {lives[title]['status']} after {lives[title]['seconds']} s")

    def lives(self):
        """What is to be called with the router, by title."""
        return {name.removeprefix("life_").replace("_", " "): getattr(self, name)
                for name in vars(type(self)) if name.startswith("life_")}

    @staticmethod
    def end_while_the_bus_hangs(router, start):
        os.kill(router.bus.broker.pid, signal.SIGSTOP)
        try:
            life = start()
            time.sleep(SOON_REAL_S)
            life.signal()
            return life.end(HUNG_REAL_S)
        finally:
            os.kill(router.bus.broker.pid, signal.SIGCONT)

    def judge(self, stage):
        if sanitizers.built_in(PROGRAM):
            found = stage.note("sanitizer_reports", sanitizers.reports("wan_detect"))
            stage.check("the sanitizers have nothing to report", not found, "\n".join(found))

    def verdict(self, stage):
        return "every life ended as it should" if stage.passed() else "a life did not end as it should"


class Shutdown(LifeScenario):
    name = "shutdown"
    rank = 61
    summary = "SIGTERM and SIGINT at every moment of the daemon's life"
    story = """
        The daemon is started again and again, and each time a signal asks it to end at another moment: in the start-up
        pauses, in the loop, while it probes, while a script or the bus hangs. It has to be gone within 5 s, with
        status 0.
    """
    cables = {"eth1": Silent()}
    main_thread_hangs = ("while the bus daemon hangs",)

    def judge(self, stage):
        for title, life in stage.facts["lives"].items():
            stage.check(f"{title}: status 0 within {END_REAL_S:g} s",
                        life["status"] == 0 and life["seconds"] <= END_REAL_S, life["status"])
        super().judge(stage)

    def life_as_it_forks(self, router):
        return Life(*DEBUG, fault="term-at-fork").end(HUNG_REAL_S)

    def life_while_it_waits_for_a_link(self, router):
        life = Life(*DEBUG)
        life.said("No device has plugged in")
        life.signal()
        return life.end(HUNG_REAL_S)

    def life_by_sigint(self, router):
        life = Life(*DEBUG)
        life.said("No device has plugged in")
        life.signal(signal.SIGINT)
        return life.end(HUNG_REAL_S)

    def life_started_with_the_signals_blocked(self, router):
        life = Life(*DEBUG, blocked=(signal.SIGTERM, signal.SIGINT))
        life.said("No device has plugged in")
        life.signal()
        return life.end(HUNG_REAL_S)

    def life_in_the_pause_before_the_first_cycle(self, router):
        router.plug("eth0")
        life = Life(*DEBUG)
        life.said("Device eth0 link status change to up!")
        time.sleep(SOON_REAL_S)
        life.signal()
        router.unplug("eth0")
        return life.end(HUNG_REAL_S)

    def life_in_a_hanging_script_at_the_start(self, router):
        with replaced(SCRIPT, HANGING):
            life = Life(*DEBUG)
            wait_until(lambda: len(life.processes()) > 1)
            life.signal()
            return life.end(HUNG_REAL_S)

    def life_by_signals_that_keep_coming(self, router):
        with replaced(SCRIPT, HANGING):
            life = Life(*DEBUG)
            wait_until(lambda: len(life.processes()) > 1)
            life.signal()
            return life.end(HUNG_REAL_S, every=SOON_REAL_S)

    def life_while_the_bus_daemon_hangs(self, router):
        return self.end_while_the_bus_hangs(router, lambda: Life(*DEBUG))

    def life_in_the_loop(self, router):
        router.plug("eth0")
        life = Life(*DEBUG, clock=router.clock)
        life.said("Success Cyclic scanning")
        life.signal()
        return life.end(HUNG_REAL_S)

    def life_in_the_loop_by_sigint(self, router):
        life = Life(*DEBUG, clock=router.clock)
        life.said("Success Cyclic scanning")
        life.signal(signal.SIGINT)
        return life.end(HUNG_REAL_S)

    def life_while_it_probes(self, router):
        life = Life(*DEBUG, clock=router.clock)
        life.said("using protocol detect")
        life.signal()
        return life.end(HUNG_REAL_S)

    def life_while_a_port_settles(self, router):
        life = Life(*DEBUG, clock=router.clock)
        life.said("Success Cyclic scanning")
        router.unplug("eth0")
        life.said("Wan down")
        router.unplug("eth1")
        life.said("Device eth1 link status change to down!")
        router.plug("eth1")
        life.said("turned up during")
        life.signal()
        return life.end(HUNG_REAL_S)

    def life_in_a_hanging_swap(self, router):
        # The main thread sits in the command and holds the locks that both background threads want.
        router.plug("eth0")
        router.attach("eth2", DhcpServer())
        with replaced(SWAP, HANGING):
            life = Life(*DEBUG, clock=router.clock)
            life.said("Switching wan dev to eth2 execute")
            wait_until(lambda: "sleep" in life.names())
            life.signal()
            router.unplug("eth2")
            return life.end(HUNG_REAL_S)

    def life_while_the_link_scan_hangs(self, router):
        # With a good line no cycle opens, so only the background thread runs the script.
        router.attach("eth0", DhcpServer())
        wait_until(lambda: router.health.state == "connected")
        life = Life(*DEBUG, clock=router.clock)
        life.said("Success Cyclic scanning")
        with replaced(SCRIPT, HANGING):
            wait_until(lambda: "sleep" in life.names())
            life.signal()
            return life.end(HUNG_REAL_S)


class StartUp(LifeScenario):
    name = "start-up"
    rank = 60
    summary = "command lines, and everything that may fail while the daemon starts"
    story = """
        The daemon is started again and again, each time with other options or with something missing: the message bus,
        a configuration package, a thread, the fork itself. The exit statuses are those that its parents collect.
    """
    cables = {"eth0": Silent()}

    def judge(self, stage):
        lives = stage.facts["lives"]
        for title in ("help", "an unknown option", "a missing level", "no fork"):
            stage.check(f"{title}: status 1 and no daemon",
                        lives[title]["first_status"] == 1 and not lives[title]["forked"], lives[title]["first_status"])
        for title, life in lives.items():
            if life["forked"]:
                wanted = 1 if title == "no bus and no signal" else 0
                stage.check(f"{title}: status {wanted}", (life["first_status"], life["status"]) == (0, wanted),
                            life["status"])
        super().judge(stage)

    def life_help(self, router):
        return self.of_one_command_line(router, "-h")

    def life_an_unknown_option(self, router):
        return self.of_one_command_line(router, "-x")

    def life_a_missing_level(self, router):
        return self.of_one_command_line(router, "-d")

    def life_no_fork(self, router):
        return self.of_one_command_line(router, fault="fork")

    @staticmethod
    def of_one_command_line(router, *arguments, fault=None):
        start = len(router.console)
        life = Life(*arguments, fault=fault).end(END_REAL_S)
        wait_until(lambda: len(router.console) > start, SOON_REAL_S)
        return life | {"console": router.console[start:]}

    def life_no_options(self, router):
        return self.up_to_the_loop(router)

    def life_level_0(self, router):
        return self.up_to_the_loop(router, "-d", "0")

    def life_level_8(self, router):
        return self.up_to_the_loop(router, "--debug=8")

    def life_no_standard_descriptors(self, router):
        return self.up_to_the_loop(router, closed=(0, 1, 2), level=7)

    def life_the_bus_restarts_meanwhile(self, router):
        def restart(life):
            life.said("init over")    # one that loses the bus while it comes onto it gives up
            router.bus.kill_broker()
            router.bus.start_broker()
        return self.up_to_the_loop(router, *DEBUG, before=restart)

    @staticmethod
    def up_to_the_loop(router, *arguments, closed=(), level=None, before=None):
        """The loop is reached soon after both threads were started."""
        start = len(router.console)
        life = Life(*arguments, clock=router.clock, closed=closed)
        router.bus.wait_for_object("wan_detect", END_REAL_S)
        if before:
            before(life)
        wait_until(lambda: life.threads() == THREADS)
        answered = wait_until(lambda: router.bus.call("wan_detect", "set", enable=True) == {"err_code": 0})
        if level:
            answered = answered and router.bus.call("wan_detect", "log", level=level) == {"err_code": 0}
            life.said("Success Cyclic scanning")
        life.signal()
        return life.end(END_REAL_S) | {"answered": answered, "console": router.console[start:]}

    def life_no_bus(self, router):
        return self.without_bus(router)

    def life_no_bus_and_no_signal(self, router):
        return self.without_bus(router, fault="raise")

    @staticmethod
    def without_bus(router, fault=None):
        router.bus.kill_broker()
        try:
            return Life(*DEBUG, fault=fault).end(END_REAL_S)
        finally:
            router.bus.start_broker()

    def life_no_protocol_package(self, router):
        return self.without_package("protocol")

    def life_no_network_package(self, router):
        return self.without_package("network")

    @staticmethod
    def without_package(package):
        path = config.FOLDER / package
        text = path.read_text()
        path.unlink()
        try:
            return Life(*DEBUG).end(END_REAL_S)
        finally:
            path.write_text(text)

    def life_no_descriptors(self, router):
        return Life(*DEBUG, fault="eventfd").end(END_REAL_S)

    def life_no_first_thread(self, router):
        return self.without_thread(router, 1)

    def life_no_second_thread(self, router):
        return self.without_thread(router, 2)

    @staticmethod
    def without_thread(router, number):
        life = Life(*DEBUG, clock=router.clock, fault=f"pthread_create:{number}")
        life.said("pthread_create")
        return life.end(END_REAL_S)

    def life_an_access_point_with_a_fake_wan(self, router):
        router.config.network["auto_wan_detect"]["fake_wan_port"] = "4"
        router.config.sysmode["sysmode"]["mode"] = "ap"
        router.config.write()
        called = Path("/tmp/reload_called")
        with replaced(RELOAD, f"#!/bin/sh\ntouch {called}\n"):
            life = Life(*DEBUG, clock=router.clock)
            life.said("Wan detect start uloop")
            life.signal()
            return life.end(END_REAL_S) | {"fake_wan": router.fake_wan(), "reload_called": called.exists()}
