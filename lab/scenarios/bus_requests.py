# SPDX-License-Identifier: MIT
"""Requests over the bus: one-shot protocol detection, a new cycle, and the bus itself going away."""
from lab.router import PROTOCOL_RESULT, WAN_RESULT, content
from lab.scenarios.base import FIRST_CYCLE_S, SECOND_CYCLE_S, START_PAUSE_S, Scenario
from lab.upstream import DhcpServer, PppoeServer, Silent

REQUEST_S = 20
BACK_ON_BUS_REAL_S = 2.0


class ProtoDetect(Scenario):
    name = "proto-detect"
    rank = 12
    summary = "one-shot protocol requests on every kind of port, while busy, and with odd arguments"
    story = """
        Automatic detection is off. Requests over the bus ask which protocol is spoken behind one port or behind all of
        them; each leaves its answer in a small file.
    """
    cables = {"eth0": Silent(), "eth1": DhcpServer(), "eth2": PppoeServer(), "eth3": Silent()}
    # name of the request: arguments, content of the file
    requests = {
        "a DHCP port": ({"device": "eth1"}, "dhcp"),
        "a PPPoE port": ({"device": "eth2"}, "pppoe"),
        "a silent port": ({"device": "eth3"}, "static"),
        "a port without a cable": ({"device": "eth4"}, "static"),
        "a PPPoE port asked for DHCP only": ({"device": "eth2", "protocol": "dhcp"}, "static"),
        "a DHCP port asked for PPPoE only": ({"device": "eth1", "protocol": "pppoe"}, "static"),
        "all ports": ({}, "dhcp"),
        "all ports for PPPoE": ({"protocol": "pppoe"}, "pppoe"),
        "an unknown port, so all of them": ({"device": "eth77"}, "dhcp"),
        "an unknown protocol, so both": ({"device": "eth2", "protocol": "static"}, "pppoe"),
        "a time-out out of range": ({"device": "eth3", "timeout": 4001}, "static"),
        "the longest time-out": ({"device": "eth3", "timeout": 4000}, "static"),
    }

    def configure(self, config):
        config.network["auto_wan_detect"]["enable"] = "off"

    def play(self, stage):
        self.start(stage)
        stage.router.daemon.wait_for("main", "Wan detect start uloop", START_PAUSE_S + FIRST_CYCLE_S)
        stage.note("answers", {name: self.ask(stage.router, name, arguments)
                               for name, (arguments, _) in self.requests.items()})
        stage.note("busy", self.ask_while_busy(stage.router))

    def ask(self, router, name, arguments):
        start, probes = router.daemon.position(), len(router.probes())
        reply = router.bus.call("wan_detect", "proto_detect", **arguments)
        started = router.clock.now()
        over = router.daemon.wait_for("uloop_proto_detect_end", "Detection over!", REQUEST_S, start)
        found = content(PROTOCOL_RESULT)
        router.say(f"asked for {name}: {found}")
        return {"reply": reply, "file": found, "over": over is not None, "lines": [start, router.daemon.position()],
                "seconds": round(router.clock.now() - started, 1),
                "probes": [[probe.port, probe.kind] for probe in router.probes()[probes:]]}

    @staticmethod
    def ask_while_busy(router):
        start = router.daemon.position()
        first = router.bus.call("wan_detect", "proto_detect", device="eth3", timeout=4000)
        second = router.bus.call("wan_detect", "proto_detect", device="eth1")
        router.daemon.wait_for("uloop_proto_detect_end", "Detection over!", REQUEST_S, start)
        return {"first": first, "second": second, "file": content(PROTOCOL_RESULT)}

    def judge(self, stage):
        super().judge(stage)
        for name, (_, wanted) in self.requests.items():
            answer = stage.facts["answers"][name]
            stage.check(f"{name}: {wanted}", answer["reply"] == {"err_code": 0} and answer["file"] == wanted, answer)
        busy = stage.facts["busy"]
        stage.check("a request while one runs is refused", busy["second"] == {"err_code": -85}, busy)
        stage.check("and the running one ends undisturbed", busy["file"] == "static", busy)

    def verdict(self, stage):
        return "every request was answered rightly" if stage.passed() else "a request was answered wrongly"


class Restart(Scenario):
    name = "restart"
    rank = 13
    summary = "a new cycle is asked for while one runs: the running one gives up, the new one follows"
    story = """
        Nothing answers behind eth3, so the cycle goes on and on. Over the bus a new cycle is asked for: the running one
        gives up at its next pass, and half a second after its end the new one starts. Then the DHCP line is plugged in.
    """
    cables = {"eth0": Silent(), "eth3": Silent()}
    winner = "eth2"

    def play(self, stage):
        router = stage.router
        router.attach("eth2", DhcpServer(), plugged=False)
        self.start(stage)
        router.daemon.wait_for("uloop_wan_detect_using_proto_detect", "No device using", START_PAUSE_S + FIRST_CYCLE_S)
        asked = stage.note("asked", router.daemon.position())
        stage.note("reply", router.bus.call("wan_detect", "wan_detect"))
        given_up = stage.note("given_up", router.cycle_over(FIRST_CYCLE_S, asked))
        stage.note("result_after_first", content(WAN_RESULT))
        if given_up is None:
            return
        stage.note("reopened", router.daemon.wait_for("uloop_start_wan_detect", "Start to detect in", REQUEST_S,
                                                      given_up))
        router.plug("eth2")
        found = stage.note("found", router.cycle_over(FIRST_CYCLE_S, given_up + 1))
        stage.note("second_end", None if found is None else router.cycle_over(SECOND_CYCLE_S, found + 1))
        router.show_panel()

    def judge(self, stage):
        stage.check("the request is accepted", stage.facts["reply"] == {"err_code": 0}, stage.facts["reply"])
        stage.check("the running cycle gives up without a result", stage.facts["given_up"] is not None and
                    stage.facts["result_after_first"] is None)
        stage.check("a new cycle follows", stage.facts.get("reopened") is not None)
        super().judge(stage)


class BusRestart(Scenario):
    name = "bus-restart"
    rank = 40
    summary = "the message bus is killed and restarted: the daemon's object comes back within two seconds"
    story = "After the swap the bus is killed and started anew. The daemon must publish its object again by itself."
    cables = {"eth0": Silent(), "eth2": DhcpServer()}
    winner = "eth2"

    def play(self, stage):
        super().play(stage)
        router = stage.router
        router.bus.kill_broker()
        router.say("the bus is killed")
        router.bus.start_broker()
        router.say("the bus runs again")
        stage.note("back_after_real_s", router.bus.wait_for_object("wan_detect", BACK_ON_BUS_REAL_S))
        position = router.daemon.position()
        stage.note("reply", router.bus.call("wan_detect", "wan_detect"))
        stage.note("third_end", router.cycle_over(SECOND_CYCLE_S, position))

    def judge(self, stage):
        super().judge(stage)
        stage.check("the object is back within 2 s", stage.facts["back_after_real_s"] is not None)
        stage.check("it answers", stage.facts["reply"] == {"err_code": 0}, stage.facts["reply"])
        stage.check("and a cycle asked for runs to its end", stage.facts["third_end"] is not None)
