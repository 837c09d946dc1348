# SPDX-License-Identifier: MIT
"""The message bus and the network manager at their worst."""
import os
import signal
import subprocess
import threading

from lab.bus import SOCKET
from lab.life import wait_until
from lab.odd_bus import HANGING, MANNERS, OddBus
from lab.scenarios.life import SCRIPT, replaced
from lab.scenarios.trouble import Trouble
from lab.upstream import DhcpServer, Silent

BACK_S = 2.0
# An attempt to get back may hang that long; the fast clock does not reach the timer behind this limit.
LIMIT_REAL_S = 1.0
ODD_S = 3
DETECT_S = 60
KILLS = 50
# An attempt to get back a second, with two connections each, and the first ones.
MOST_CONNECTIONS = 2 * ODD_S + 6
SLOW_SCRIPT = "#!/bin/sh\nsleep 1\necho '{}'\n"
ENDED_REAL_S = 10


class BadBus(Trouble):
    name = "bad-bus"
    rank = 70
    summary = "the bus daemon dies, hangs, talks nonsense; the network manager never answers"
    story = """
        The bus daemon is killed at rest, in the middle of calls in both directions, and many times in a row. It hangs,
        and others that hang or talk nonsense take its place. Each time the daemon's object and its event have to be
        back soon after the bus itself, and without the bus detection goes on.
    """
    cables = {"eth0": Silent(), "eth2": DhcpServer()}

    # --- words --------------------------------------------------------------------------------------------------------

    def comes_back(self, stage, title, limit=BACK_S, start=None):
        """A new bus daemon starts: object and event have to be there again within the limit."""
        router = stage.router
        start = router.daemon.position() if start is None else start
        began = router.clock.now()
        router.bus.start_broker()
        found = router.daemon.wait_for("restore_connection", "ubus connection restored", 20 * limit, start)
        seconds = None if found is None else max(0.0, router.daemon.lines[found].at - began)
        self.in_time(stage, f"{title}: back on the bus within {limit:g} s", seconds, limit)
        stage.facts.setdefault("back_s", {})[title] = seconds
        self.is_offered(stage, title)

    def is_offered(self, stage, title):
        router = stage.router
        reply = router.bus.call("wan_detect", "set", enable=True)
        stage.check(f"{title}: the object answers", reply == {"err_code": 0}, reply)
        start = router.daemon.position()
        router.bus.send("wan_detect_add_banned_dev", name="eth4", time=1)
        heard = router.daemon.wait_for("add_unique_banned_device_to_list", "dev:eth4", BACK_S * 10, start)
        stage.check(f"{title}: the event is heard", heard is not None)

    # --- troubles -----------------------------------------------------------------------------------------------------

    def trouble_killed_at_rest(self, stage, title):
        start = stage.router.daemon.position()
        stage.router.bus.kill_broker()
        self.comes_back(stage, title, start=start)

    def trouble_killed_while_it_calls_the_daemon(self, stage, title):
        router = stage.router
        start = router.daemon.position()
        with replaced(SCRIPT, SLOW_SCRIPT):
            caller = subprocess.Popen(["ubus", "-s", SOCKET, "-t", "2", "call", "wan_detect", "proto_detect", "{}"],
                                      stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            router.daemon.wait_for("update_eth_link_status", "Entering", DETECT_S, start)
            router.bus.kill_broker()
        stage.check(f"{title}: the caller is told", wait_until(lambda: caller.poll() is not None, ENDED_REAL_S)
                    and caller.returncode != 0, caller.returncode)
        self.comes_back(stage, title, start=start)
        router.daemon.wait_for("uloop_proto_detect_end", "Detection over!", DETECT_S, start)

    def trouble_killed_while_the_daemon_calls(self, stage, title):
        router = stage.router
        os.kill(router.bus.manager.pid, signal.SIGSTOP)
        start = router.daemon.position()
        router.bus.call("wan_detect", "wan_detect")
        router.daemon.wait_for("uloop_start_wan_detect", "Start to detect in", DETECT_S, start)
        router.clock.sleep(0.5)
        router.bus.kill_broker()
        os.kill(router.bus.manager.pid, signal.SIGCONT)
        told = router.daemon.wait_for("get_network_status", "Failed to run ubus call", DETECT_S, start)
        stage.check(f"{title}: the call fails", told is not None)
        self.comes_back(stage, title, start=start)
        stage.check(f"{title}: the cycle ends", router.cycle_over(DETECT_S, start) is not None)

    def trouble_killed_many_times_in_a_row(self, stage, title):
        router = stage.router
        start = router.daemon.position()
        for _ in range(KILLS):
            router.bus.kill_broker()
            router.bus.start_broker()
        router.bus.kill_broker()
        self.comes_back(stage, title, start=router.daemon.position())
        lost = [line for line in router.daemon.lines[start:] if line.matches("connection_lost", "ubus connection lost")]
        stage.note("losses", len(lost))

    def trouble_a_manager_that_never_answers(self, stage, title):
        """Every question costs its second, and the WAN port counts as lost; the cycle goes on."""
        router = stage.router
        os.kill(router.bus.manager.pid, signal.SIGSTOP)
        took = self.finds_again(stage, title)
        stage.note("silent_manager_s", took)
        os.kill(router.bus.manager.pid, signal.SIGCONT)

    def trouble_no_manager(self, stage, title):
        router = stage.router
        router.bus.kill_manager()
        self.finds_again(stage, title)
        router.bus.start_manager()

    def trouble_a_hanging_bus(self, stage, title):
        """The WAN role goes astray, and the link of the port that got it is lost: nobody can be asked, all the same the
        line is found."""
        router = stage.router
        self.misplace(router)
        start = router.daemon.position()
        router.bus.call("wan_detect", "wan_detect", delay=1)
        os.kill(router.bus.broker.pid, signal.SIGSTOP)
        found = router.daemon.wait_for("switch_wan_to_dev", "success switching wan dev to eth2", DETECT_S, start)
        stage.check(f"{title}: the line is found", found is not None)
        self.loop_turns_during(stage, title, ODD_S)
        os.kill(router.bus.broker.pid, signal.SIGCONT)
        self.is_offered(stage, title)

    def trouble_others_in_its_place(self, stage, _title):
        router = stage.router
        stage.router.bus.kill_broker()
        for manner in MANNERS:
            title = f"a bus that {manner}"
            odd = OddBus(manner)
            hung = LIMIT_REAL_S * router.clock.speed if manner in HANGING else 0
            self.loop_turns_during(stage, title, ODD_S)
            came = odd.connections_of(router.daemon.pid)
            stage.check(f"{title}: it is asked now and then", 1 <= came <= MOST_CONNECTIONS, f"{came} times")
            odd.close()
            stage.check(f"{title}: the daemon lives", router.daemon.running())
            self.comes_back(stage, title, BACK_S + hung)
            odd.hang_up()
            router.bus.kill_broker()
        self.comes_back(stage, "the real bus at last")

    def trouble_at_the_end(self, stage, title):
        router = stage.router
        router.bus.wait_for_object("network.interface", ENDED_REAL_S)
        self.finds_again(stage, title)

    def figures(self, stage):
        back = {title: seconds for title, seconds in stage.facts["back_s"].items() if seconds is not None}
        slowest = max(back, key=back.get)
        return super().figures(stage) + [
            f"Back on the bus after {min(back.values()):.2f} to {back[slowest]:.2f} s of the daemon's ({slowest}), "
            f"at rest {back['killed at rest']:.2f} s; {stage.facts['losses']} losses told of {KILLS + 1} kills"]
