# SPDX-License-Identifier: MIT
"""Troubles that last: for minutes, to be played by hand (--minutes N, --seed N)."""
import os
import random
import signal

from lab.bad_link import BadLink, Quality
from lab.life import Life, adopt_orphans
from lab.scenarios.life import LifeScenario
from lab.scenarios.trouble import FOUND_S, Trouble, cycle_open
from lab.upstream import DhcpServer, Silent
from lab.vitals import loop_turns

SECONDS_PER_MINUTE = 60
LOOK_S = 10
BACK_S = 5
START_LIMIT_REAL_S = 30
CALL_LIMIT_REAL_S = 3    # the fast clock does not reach it
AFTER_LIMIT_REAL_S = 10


class LongHangingBus(Trouble):
    name = "bus-hangs-long"
    rank = 79
    summary = "the bus daemon hangs for minutes while a cycle keeps asking over it (--minutes N, from 12)"
    story = """
        Nothing answers behind the ports, so the cycle goes on and on, and asks the bus at every turn. The bus daemon
        hangs; after some hundred questions not even the socket takes more. That must end with a limit.
    """
    wan = "eth2"
    winner = "eth2"
    cables = {"eth0": Silent(), "eth2": BadLink(DhcpServer())}

    def trouble_of_a_hanging_bus(self, stage, title):
        router = stage.router
        self.cables["eth2"].quality = Quality(lost=1.0)
        router.clock.wait_until(lambda: router.health.state != "connected", FOUND_S)
        router.bus.call("wan_detect", "wan_detect")
        router.clock.wait_until(lambda: cycle_open(router), FOUND_S)
        start = router.daemon.position()
        os.kill(router.bus.broker.pid, signal.SIGSTOP)
        still = 0
        for _ in range(int(stage.settings["minutes"] * SECONDS_PER_MINUTE / LOOK_S)):
            before = loop_turns(router.daemon.pid)
            router.clock.sleep(LOOK_S)
            still += loop_turns(router.daemon.pid) == before
        most = CALL_LIMIT_REAL_S * router.clock.speed / LOOK_S + 1
        stage.note("still_s", still * LOOK_S)
        stage.check(f"{title}: the event loop goes on, but for {CALL_LIMIT_REAL_S} real seconds", still <= most,
                    f"it stood still for {still * LOOK_S} s")
        asked = sum(line.matches("ubus_call_method", "Can't find network.interface")
                    for line in router.daemon.lines[start:])
        stage.note("asked", asked)
        lost = router.daemon.wait_for("connection_lost", "ubus connection lost", 0, start)
        stage.note("given_up_after_s", lost and round(router.daemon.lines[lost].at - router.daemon.lines[start].at))
        os.kill(router.bus.broker.pid, signal.SIGCONT)
        self.cables["eth2"].quality = Quality()
        stage.check(f"{title}: the object is there again",
                    router.clock.wait_until(lambda: "wan_detect" in router.bus.objects(), 10 * BACK_S))
        self.finds_again(stage, title)

    def figures(self, stage):
        facts = stage.facts
        return super().figures(stage) + [
            f"{facts['asked']} questions to a hanging bus; the connection was given up after "
            f"{facts['given_up_after_s']} s, the loop stood still for {facts['still_s']} s of {stage.settings['minutes']:g} min"]


class LongBadLinks(Trouble):
    name = "bad-links-long"
    rank = 79
    summary = "minutes of cycles over two lines that get worse and better all the time (--minutes N, --seed N)"
    story = """
        The quality of two DHCP lines changes all the time, with dice, while one cycle follows the other. Nothing is
        expected of them but that each comes to an end; afterwards, with good lines, everything has to be as ever.
    """
    cables = {"eth0": Silent(), "eth2": BadLink(DhcpServer(dns=False), 2), "eth3": BadLink(DhcpServer(dns=False), 3)}

    def trouble_of_lines(self, stage, title):
        router, dice = stage.router, random.Random(f"long {stage.settings['seed']}")
        end, cycles = router.clock.now() + stage.settings["minutes"] * SECONDS_PER_MINUTE, 0
        while router.clock.now() < end:
            for port in ("eth2", "eth3"):
                self.cables[port].quality = Quality(
                    delay_ms=dice.choice([0, 20, 500, 2400, 5000]), jitter_ms=dice.choice([0, 300, 3000]),
                    lost=dice.choice([0, 0.1, 0.5, 0.9]), copies=dice.choice([1, 1, 2, 5]),
                    both_ways=dice.random() < 0.5)
            self.misplace(router)
            router.bus.call("wan_detect", "wan_detect")
            router.clock.sleep(dice.uniform(1, 20))
            cycles += 1
        stage.note("cycles", cycles)
        for port in ("eth2", "eth3"):
            self.cables[port].quality = Quality()
        router.bus.call("wan_detect", "wan_detect")
        router.clock.wait_until(lambda: not cycle_open(router), FOUND_S)
        self.finds_again(stage, title)

    def figures(self, stage):
        lines = [self.cables[port] for port in ("eth2", "eth3")]
        lost, passed = sum(line.lost for line in lines), sum(line.passed for line in lines)
        return super().figures(stage) + [f"{stage.facts['cycles']} cycles; {lost} frames lost, {passed} passed"]


class HangingBusAtTheStart(LifeScenario):
    name = "bus-hangs-start"
    rank = 79
    summary = "the bus daemon hangs when the daemon starts: it waits, half a minute at most"
    story = """
        The bus daemon is stopped before the daemon starts, once for a second and once for good. The daemon waits for
        it; for good that is 30 real seconds, and then it ends as without a bus.
    """
    cables = {"eth0": Silent()}
    main_thread_hangs = ()

    def life_for_a_second(self, router):
        os.kill(router.bus.broker.pid, signal.SIGSTOP)
        life = Life("-d", "7", clock=router.clock)
        router.clock.sleep(router.clock.speed)
        os.kill(router.bus.broker.pid, signal.SIGCONT)
        started = life.said("init over")
        life.signal()
        return life.end(AFTER_LIMIT_REAL_S) | {"started": started}

    def life_for_good(self, router):
        os.kill(router.bus.broker.pid, signal.SIGSTOP)
        life = Life("-d", "7", clock=router.clock)
        ended = life.end(START_LIMIT_REAL_S + AFTER_LIMIT_REAL_S)
        os.kill(router.bus.broker.pid, signal.SIGCONT)
        return ended | {"started": False}

    def play(self, stage):
        adopt_orphans()
        super().play(stage)

    def judge(self, stage):
        lives = stage.facts["lives"]
        stage.check("a second of it is waited for", lives["for a second"]["started"])
        said = [body for _, _, body in lives["for good"]["lines"]]
        stage.check("for good it is told as no bus", "ubus connect fail!" in said, said[-3:])
        stage.check(f"after {START_LIMIT_REAL_S} real seconds",
                    START_LIMIT_REAL_S - 1 <= lives["for good"]["seconds"] <= START_LIMIT_REAL_S + AFTER_LIMIT_REAL_S,
                    lives["for good"]["seconds"])
        for title, life in lives.items():
            stage.check(f"{title}: status 0", life["status"] == 0, life["status"])
        super().judge(stage)
