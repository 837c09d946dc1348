# SPDX-License-Identifier: MIT
"""Configuration files that are cut, empty, nonsense, huge, or not files at all."""
from lab.bus import uci
from lab.life import Life, adopt_orphans, wait_until
from lab.router import WAN_RESULT, content
from lab.scenarios.life import END_REAL_S, LifeScenario
from lab.scenarios.trouble import FOUND_S, Trouble, cycle_open
from lab.spoilt import PACKAGES, SPOILS, locked, spoilt, spoilt_deltas
from lab.upstream import DhcpServer, PppoeServer, Silent

LOOK_S = 1
SLOW = {"ten megabytes", "one line of ten megabytes"}
READ_REAL_S = 10
# What is said at the latest when the configuration was read.
SETTLED = ("init_all_eth_device failed", "init_all_protocols failed", "No device has plugged in",
           "Successful get wan device", "Wan detect start uloop")


class BadConfig(Trouble):
    name = "bad-config"
    rank = 74
    summary = "the configuration is cut, garbage, huge, locked or gone while cycles run: what it said last holds"
    story = """
        All packages, or one of them, are spoilt while the daemon runs and a cycle is asked for. Then they are right
        again, and so is all the daemon does.
    """
    cables = {"eth0": Silent(), "eth2": DhcpServer(), "eth3": PppoeServer()}
    growth_kb = 8 << 10    # four files of a megabyte each are read, and the C library keeps a while what it once had

    def spoil(self, stage, title, trouble):
        """A cycle and a request while the files are spoilt; the loop has to turn, however slowly it reads."""
        router = stage.router
        with trouble:
            for method in ("proto_detect", "wan_detect"):
                reply = router.bus.call("wan_detect", method)
                stage.check(f"{title}: {method} is answered", "err_code" in reply, reply)
            self.loop_turns_during(stage, title, LOOK_S)

    def trouble_all_packages(self, stage, _title):
        for how in SPOILS:
            if how not in SLOW:
                self.spoil(stage, f"all files: {how}", spoilt(how))
        self.finds_again(stage, "all files")

    def trouble_one_package(self, stage, _title):
        for package in PACKAGES:
            for how in ("cut in the middle", "missing"):
                self.spoil(stage, f"{package}: {how}", spoilt(how, [package]))
        self.finds_again(stage, "one file")

    def trouble_no_network_package(self, stage, title):
        """The connection type cannot be read: the one that was known counts, and the cycle comes to its end."""
        router = stage.router
        router.clock.wait_until(lambda: not cycle_open(router), FOUND_S)
        self.misplace(router)
        start = router.daemon.position()
        with spoilt("missing", ["network"]):
            router.bus.call("wan_detect", "wan_detect")
            told = router.daemon.wait_for("update_wan_ipv4_protocol", "get_ipv4_conntype failed!", FOUND_S, start)
            ended = router.cycle_over(FOUND_S, start)
        stage.check(f"{title}: it is told", told is not None)
        stage.check(f"{title}: the old connection is found", ended is not None and content(WAN_RESULT) == self.winner)

    def trouble_waiting_changes(self, stage, _title):
        for what in spoilt_deltas.texts:
            self.spoil(stage, f"waiting changes: {what}", spoilt_deltas(what))
        self.finds_again(stage, "waiting changes")

    def trouble_locked_files(self, stage, _title):
        self.spoil(stage, "locked files", locked())
        self.finds_again(stage, "locked files")

    def trouble_a_change_in_the_middle_of_a_cycle(self, stage, title):
        """The pass that runs ends as it began; the cycle after it looks for the other connection."""
        router = stage.router
        self.misplace(router)
        start = router.daemon.position()
        router.bus.call("wan_detect", "wan_detect")
        router.daemon.wait_for("uloop_start_wan_detect", "using protocol detect", FOUND_S, start)
        self.connection_is("pppoe")
        first = router.cycle_over(FOUND_S, start)
        stage.check(f"{title}: the old connection is found", content(WAN_RESULT) == "eth2", content(WAN_RESULT))
        router.cycle_over(FOUND_S, first + 1)
        stage.check(f"{title}: then the new one", (content(WAN_RESULT), router.wan_port()) == ("eth3", "eth3"))
        self.connection_is("dhcp")
        self.finds_again(stage, title)

    @staticmethod
    def connection_is(kind):
        for option in ("proto", "wan_type"):
            uci("set", f"network.wan.{option}={kind}")
        uci("commit", "network")


class HugeConfig(Trouble):
    name = "huge-config"
    rank = 75
    summary = "ten megabytes in every package: slow, and nothing else (best with --speed 1)"
    story = "All packages are blown up to ten megabytes each. Reading them takes long; everything else is as ever."
    cables = {"eth0": Silent(), "eth2": DhcpServer()}
    growth_kb = 80 << 10    # the C library keeps a while what it once had

    def trouble_of_size(self, stage, _title):
        router = stage.router
        for how in sorted(SLOW):
            with spoilt(how):
                began = router.clock.now()
                reply = router.bus.call("wan_detect", "proto_detect")
                stage.check(f"{how}: the call is answered", "err_code" in reply, reply)
                took = router.clock.real(router.clock.now() - began)
                stage.facts.setdefault("call_real_s", {})[how] = took
                stage.check(f"{how}: within {READ_REAL_S} real seconds", took <= READ_REAL_S, f"{took:.1f} s")
            self.finds_again(stage, how)

    def figures(self, stage):
        return super().figures(stage) + [f"{how}: a call took {took:.2f} real seconds"
                                         for how, took in stage.facts["call_real_s"].items()]


class BadConfigAtTheStart(LifeScenario):
    name = "bad-config-start"
    rank = 74
    summary = "the configuration is spoilt before the daemon starts: it runs, or says why not"
    story = """
        The daemon is started with spoilt configuration packages. Without ports or protocols it ends by itself;
        whatever else is missing has its default.
    """
    cables = {"eth0": Silent()}

    def play(self, stage):
        adopt_orphans()
        lives = stage.note("lives", {})
        for how in SPOILS:
            lives[how] = self.live(stage.router, spoilt(how))
            stage.router.say(f"{how}: status {lives[how]['status']} after {lives[how]['seconds']} s")
        for package in PACKAGES:
            lives[f"{package} cut"] = self.live(stage.router, spoilt("cut in the middle", [package]))

    @staticmethod
    def live(router, trouble):
        with trouble:
            life = Life("-d", "7", clock=router.clock)
            settled = wait_until(lambda: any(text in body for _, _, body in life.lines() for text in SETTLED))
            life.signal()
            return life.end(END_REAL_S) | {"settled": bool(settled)}

    def judge(self, stage):
        for how, life in stage.facts["lives"].items():
            fatal = [body for level, _, body in life["lines"] if level == "Critical"]
            stage.note(f"fatal: {how}", fatal)
            stage.check(f"{how}: it starts, or says why not", life["settled"], life["lines"][-3:])
            stage.check(f"{how}: status 0 within {END_REAL_S:g} s",
                        life["status"] == 0 and life["seconds"] <= END_REAL_S, (life["status"], life["seconds"]))
        super().judge(stage)
