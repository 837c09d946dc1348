# SPDX-License-Identifier: MIT
"""Nobody is left to ask: the ports are listed anew after growing pauses, or never when the configuration says so."""
import subprocess

from lab.network import BRIDGE, BRIDGE_ADDRESS
from lab.roles import move_role, swapped_to
from lab.scenarios.bans import Ban
from lab.scenarios.base import FIRST_CYCLE_S, SECOND_CYCLE_S, START_PAUSE_S, Scenario, late_s
from lab.scenarios.cables import LINK_SEEN_S, WanLoss
from lab.scenarios.modems import LISTING_S, SILENT_STAGES
from lab.scenarios.static import GATEWAY, NETWORK
from lab.upstream import DhcpServer, Gateway, Silent

PAUSES_S = (30, 60, 120)
EARLY_S = 0.5
# A pause begins when a round is over: the last stage and the poll after it.
LAST_STAGE_S = 3.5
SCAN_S = 1.0
TEN_MINUTES_S = 600
BAN_S = 20    # shorter than the first pause, both begin with the loop
LONG_BAN_S = 600
NOBODY = ("uloop_start_wan_detect", "Zero device need to detect")


def asks(router, port="eth2"):
    """When a cycle asked the port, which is silent: three times in each round."""
    return [probe.at for probe in router.probes(port, ("discover",))]


def round_asked(router, number, seconds):
    """Waits for the first question of that round, from 0 on; None when it does not come."""
    wanted = number * SILENT_STAGES + 1
    router.clock.wait_until(lambda: len(asks(router)) >= wanted, seconds)
    return asks(router)[wanted - 1] if len(asks(router)) >= wanted else None


class LooksAgain(Scenario):
    """Base: nobody answers anywhere, and the WAN port eth0 has a link."""
    cables = {"eth0": Silent(), "eth2": Silent()}
    pauses_s = ()
    interval = None    # option of the configuration, None for none

    def configure(self, config):
        config.network["auto_wan_detect"]["retry_interval"] = self.interval

    def play(self, stage):
        router = stage.router
        self.start(stage)
        self.wait_for_loop(stage)
        round_asked(router, 0, FIRST_CYCLE_S)
        for number, pause in enumerate(self.pauses_s, 1):
            if round_asked(router, number, pause + FIRST_CYCLE_S) is None:
                break
        stage.note("asks", asks(router))

    def judge(self, stage):
        super().judge(stage)
        times = stage.facts["asks"]
        for number, pause in enumerate(self.pauses_s, 1):
            place = number * SILENT_STAGES
            waited = times[place] - times[place - 1] if len(times) > place else None
            latest = pause + LAST_STAGE_S + LISTING_S + late_s(stage)
            stage.check(f"round {number + 1} follows the one before after {pause} s",
                        waited and pause - EARLY_S <= waited <= latest, f"{waited} s between the questions, from {times}")
            stage.facts.setdefault("windows", []).append([times[place - 1], times[place]] if waited else None)
        stage.check("the WAN role stays with eth0", stage.note("wan_port", stage.router.wan_port()) == "eth0")

    def verdict(self, stage):
        return "the ports are asked again as often as they ought to be" if stage.passed() else "a check failed"


class GrowingPauses(LooksAgain):
    name = "looks-again"
    rank = 21
    summary = "nobody answers: all ports are listed anew after 30 s, then after 60 s, then after 120 s"
    story = """
        The WAN port eth0 has a link and no service, eth2 is silent. After three stages nobody is left. The cycle stays
        open, and 30 s later it lists every port anew; the pauses double.
    """
    pauses_s = PAUSES_S


class ShorterPause(LooksAgain):
    name = "looks-again-10"
    rank = 21
    summary = "retry_interval 10: the ports are listed anew after 10 s already"
    story = "As before, but the configuration asks for a first pause of 10 s."
    interval = "10"
    pauses_s = (10,)


class PauseTooShort(LooksAgain):
    name = "looks-again-9"
    rank = 21
    summary = "retry_interval 9 is out of range: the first pause is one of 30 s"
    story = "The configuration asks for 9 s, which is too short to be meant."
    interval = "9"
    pauses_s = (30,)


class PauseWithoutNumber(LooksAgain):
    name = "looks-again-soon"
    rank = 21
    summary = "retry_interval is no number: the first pause is one of 30 s"
    story = "The configuration asks for a pause of \"soon\"."
    interval = "soon"
    pauses_s = (30,)


class NeverAgain(LooksAgain):
    name = "never-again"
    rank = 21
    summary = "retry_interval 0: nobody is asked again in ten minutes, until a cable brings the line"
    story = """
        The configuration switches the looking again off. Ten minutes long nothing is asked; then the line is plugged into
        eth3, and joins the cycle, which is still open.
    """
    interval = "0"
    winner = "eth3"

    def play(self, stage):
        router = stage.router
        router.attach("eth3", DhcpServer(), plugged=False)
        super().play(stage)
        router.daemon.wait_for(*NOBODY, FIRST_CYCLE_S)
        stage.note("asks", asks(router))
        router.clock.sleep(TEN_MINUTES_S)
        stage.note("asks_later", asks(router))
        router.plug("eth3")
        first = router.cycle_over(SECOND_CYCLE_S)
        stage.note("second_end", None if first is None else router.cycle_over(SECOND_CYCLE_S, first + 1))

    def judge(self, stage):
        Scenario.judge(self, stage)
        facts = stage.facts
        stage.check("the silent port was asked three times", len(facts["asks"]) == SILENT_STAGES, facts["asks"])
        stage.check("and not again in ten minutes", facts["asks_later"] == facts["asks"], facts["asks_later"])


class SoonerAgain(Scenario):
    name = "looks-again-sooner"
    rank = 21
    summary = "a link change, a ban, a request, a change of the role: the pauses begin at 30 s again"
    story = """
        Nobody answers, and the pause of 60 s has begun. Then the cable of eth4 is pulled: the ports are listed anew 30 s
        later. The next pause of 60 s is cut by a ban, the next by a request over the bus, the last by somebody who moves the
        WAN role.
    """
    cables = {"eth0": Silent(), "eth2": Silent(), "eth3": Silent(), "eth4": Silent()}

    def play(self, stage):
        router = stage.router
        self.start(stage)
        self.wait_for_loop(stage)
        round_asked(router, 1, FIRST_CYCLE_S + 2 * PAUSES_S[0])
        stage.note("cuts", {what: self.cut(router, act) for what, act in self.reasons(router).items()})

    @staticmethod
    def reasons(router):
        return {
            "a link change": lambda: router.unplug("eth4"),
            "a ban": lambda: router.bus.send("wan_detect_add_banned_dev", name="eth4", time=LONG_BAN_S),
            "a request": lambda: router.bus.call("wan_detect", "proto_detect", device="eth1"),
            "a change of the role": lambda: move_role(router, "eth3"),
        }

    @staticmethod
    def cut(router, act):
        """When the act began, when it was over, and when the silent port was asked again, or None. The act comes right after
        a round is over, and the daemon may see it before it is over."""
        asked = len(asks(router))
        over = -(-asked // SILENT_STAGES) * SILENT_STAGES
        router.clock.wait_until(lambda: len(asks(router)) >= over, FIRST_CYCLE_S)
        router.daemon.wait_for(*NOBODY, FIRST_CYCLE_S, router.daemon.position())
        begun = router.clock.now()
        act()
        acted = router.clock.now()
        router.clock.wait_until(lambda: len(asks(router)) > over, PAUSES_S[0] + LISTING_S + LINK_SEEN_S)
        return (begun, acted, asks(router)[over]) if len(asks(router)) > over else None

    def judge(self, stage):
        super().judge(stage)
        latest = PAUSES_S[0] + SCAN_S + LISTING_S + late_s(stage)
        for what, seen in stage.facts["cuts"].items():
            stage.check(f"{what}: asked again after {PAUSES_S[0]} s",
                        seen and seen[2] - seen[0] >= PAUSES_S[0] - EARLY_S and seen[2] - seen[1] <= latest,
                        f"begun, over, asked again: {seen}")

    def verdict(self, stage):
        return "each of them makes the daemon look again sooner" if stage.passed() else "a check failed"


class BanRunsOut(Ban):
    name = "ban-runs-out"
    rank = 32
    summary = "the only line is banned for 20 s while a cycle is open: afterwards it is listed and wins, nobody asks for it"
    story = """
        The line is in eth2, but eth2 is banned for 20 s when the first cycle lists its ports. Nobody is left, and the cycle
        stays open. When the ports are listed anew the ban has run out.
    """
    cables = {"eth0": Silent(), "eth2": DhcpServer()}
    winner = "eth2"
    seconds = BAN_S

    def wait_for_swap_and_confirmation(self, stage):
        router = stage.router
        swap = swapped_to(router, "eth2", START_PAUSE_S + FIRST_CYCLE_S + PAUSES_S[1])
        stage.note("found_at", swap and swap.at)
        first = router.cycle_over(SECOND_CYCLE_S)
        stage.note("second_end", None if first is None else router.cycle_over(SECOND_CYCLE_S, first + 1))

    def judge(self, stage):
        super().judge(stage)
        over_at = stage.router.daemon.lines[stage.facts["banned"]].at + BAN_S
        found, latest = stage.facts["found_at"], PAUSES_S[0] + LISTING_S + late_s(stage)
        stage.check(f"it is found within {latest:g} s after its ban", found and 0 <= found - over_at <= latest,
                    f"the ban is over at {over_at}, found at {found}")


class EndedWithoutResult(WanLoss):
    name = "no-result"
    rank = 22
    summary = "a cycle ends without a result while the WAN port has no link: 30 s later there is another one"
    story = """
        The connection has a static address. The cable of the WAN port eth0 is moved to eth3 just when the LAN bridge has no
        address, as while the LAN is set up anew: nobody can be asked by ARP, and the cycle ends. A moment later the
        address is back. Nothing else happens, but half a minute later the daemon looks again, and finds the line.
    """
    cables = {"eth0": Gateway(GATEWAY)}
    winner = "eth3"

    def configure(self, config):
        config.set_wan_type("static")
        config.protocol["static"].update(NETWORK)

    def play(self, stage):
        router = stage.router
        router.attach("eth3", Gateway(GATEWAY), plugged=False)
        self.start_connected(stage)
        self.pull(stage)
        router.plug("eth3")
        subprocess.run(["ip", "address", "del", BRIDGE_ADDRESS, "dev", BRIDGE], check=True)
        router.say("the LAN bridge has no address")
        failed = stage.note("failed", router.daemon.wait_for("uloop_wan_detect_using_arp", "return null!", FIRST_CYCLE_S))
        ended = None if failed is None else router.cycle_over(FIRST_CYCLE_S, failed)
        subprocess.run(["ip", "address", "add", BRIDGE_ADDRESS, "dev", BRIDGE], check=True)
        router.say("the LAN bridge has its address again")
        stage.note("ended_at", None if ended is None else router.daemon.lines[ended].at)
        swap = swapped_to(router, "eth3", FIRST_CYCLE_S)
        stage.note("found_at", swap and swap.at)
        first = None if ended is None else router.cycle_over(SECOND_CYCLE_S, ended + 1)
        stage.note("second_end", None if first is None else router.cycle_over(SECOND_CYCLE_S, first + 1))
        router.show_panel()

    def judge(self, stage):
        super().judge(stage)
        ended, found = stage.facts["ended_at"], stage.facts["found_at"]
        stage.check("the first cycle ended without a result", stage.facts["failed"] is not None and ended is not None)
        latest = PAUSES_S[0] + LISTING_S + late_s(stage)
        stage.check(f"{PAUSES_S[0]} s later the line is found", ended and found and
                    PAUSES_S[0] - EARLY_S <= found - ended <= latest, f"ended at {ended}, found at {found}")
