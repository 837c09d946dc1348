# SPDX-License-Identifier: MIT
"""The router's own commands fail, talk nonsense, or never end."""
import os
import shutil
from pathlib import Path

from lab.scenarios.life import RELOAD, SCRIPT, SWAP
from lab.scenarios.base import FIRST_CYCLE_S, START_PAUSE_S, Scenario
from lab.scenarios.static import GATEWAY, NETWORK
from lab.scenarios.trouble import FOUND_S, Trouble
from lab.upstream import DhcpServer, Gateway, Silent

COMBO = Path("/etc/wan_detect/get_combo_state.sh")
ONLINE = Path("/usr/sbin/online-test")
LOOK_S = 3                     # long enough for the scan and for the combo switch to come by
QUERY_LIMIT_S, ACTION_LIMIT_S = 10, 60
REDETECT_S = 21
# After a swap the threads that ask pause.
LATEST_LOOK_S = 20 + 3 * QUERY_LIMIT_S
HANGING = "#!/bin/sh\nsleep 1000\n"
GOOD_RELOAD = Path("/sbin/good_reload")
HANGING_ONCE = f"#!/bin/sh\n[ -e /tmp/hung ] && exec {GOOD_RELOAD}\n: >/tmp/hung\nsleep 1000\n"
EXECUTABLE = 0o755

# What a script may do instead of answering. None of these tells anything about a port.
SILLY = {
    "fails": "#!/bin/sh\nexit 1\n",
    "dies of a signal": "#!/bin/sh\nkill -SEGV $$\n",
    "prints nothing": "#!/bin/sh\n:\n",
    "prints a megabyte": "#!/bin/sh\nhead -c 1000000 /dev/zero | tr '\\0' 'x'\n",
    "prints a megabyte of JSON": "#!/bin/sh\nprintf '{\"eth0\":'\nhead -c 1000000 /dev/zero | tr '\\0' '['\n",
    "prints bytes of any value": "#!/bin/sh\nhead -c 4000 /dev/urandom\n",
    "prints half of its answer": "#!/bin/sh\nprintf '{\"eth0\":tru'\n",
    "prints an array": "#!/bin/sh\necho '[true,false]'\n",
    "knows nobody": "#!/bin/sh\necho '{}'\n",
    "knows only strangers": "#!/bin/sh\necho '{\"eth77\":true,\"\":false}'\n",
    "answers null": "#!/bin/sh\necho '{\"eth0\":null,\"phy\":null,\"sfp\":null,\"serdes\":null}'\n",
    "is no program": "\x7fELF nonsense\n",
    "has an interpreter that is missing": "#!/no/such/shell\n",
}
KNOW_NOTHING = {"prints an array", "knows nobody", "knows only strangers", "answers null"}
SILENT = SILLY["prints nothing"]
UNREADABLE = (f"Execute command:{SCRIPT} error!", f"Execute command:{COMBO} port5 error!")
UNKNOWN = ("Invalid device state for:eth", "Invalid phy state!")


class with_script:
    """A command of the router with another text, with another mode, or, without a text, missing."""

    def __init__(self, path, text, mode=EXECUTABLE):
        self.path, self.text, self.mode = path, text, mode
        self.kept = None

    def put(self, text, mode):
        """In one step: the daemon may start it at any moment."""
        draft = self.path.with_suffix(".draft")
        draft.write_bytes(text)
        draft.chmod(mode)
        os.replace(draft, self.path)

    def __enter__(self):
        self.kept = self.path.read_bytes()
        if self.text is None:
            self.path.unlink()
        else:
            self.put(self.text.encode("latin-1"), self.mode)

    def __exit__(self, *_):
        self.put(self.kept, EXECUTABLE)


class BadScripts(Trouble):
    name = "bad-scripts"
    rank = 71
    summary = "the router's commands fail, crash, talk nonsense, are missing, leave children behind"
    story = """
        The scripts that tell the links of the ports and the state of the combo port fail in every way that a script
        can. No port may change its link for that, and nothing may stop; as soon as they work again, so does everything
        else.
    """
    wan = "eth4"
    winner = "eth4"
    combo = {"eth4": "phy"}
    cables = {"eth0": Silent(), "eth4/phy": DhcpServer()}

    def changes(self, router, start):
        return [line.body for line in router.daemon.lines[start:]
                if line.function in ("wan_detect_process_link_change", "toggle_combo_state")]

    def goes_wrong(self, stage, title, complaints):
        """With both scripts as they are now: complaints, no change, and a loop that turns."""
        router = stage.router
        start = router.daemon.position()
        self.loop_turns_during(stage, title, LOOK_S)
        for complaint in complaints:
            told = router.daemon.wait_for(None, complaint, LOOK_S * 5, start)
            stage.check(f"{title}: {complaint}", told is not None)
        stage.check(f"{title}: no link changes", not self.changes(router, start), self.changes(router, start))

    def trouble_of_silly_answers(self, stage, _title):
        for what, text in SILLY.items():
            with with_script(SCRIPT, text), with_script(COMBO, text):
                self.goes_wrong(stage, f"a script {what}", UNKNOWN if what in KNOW_NOTHING else UNREADABLE)

    def trouble_of_missing_scripts(self, stage, _title):
        with with_script(SCRIPT, None), with_script(COMBO, None):
            self.goes_wrong(stage, "scripts are missing", UNREADABLE)
        with with_script(SCRIPT, SILENT, 0o644), with_script(COMBO, SILENT, 0o644):
            self.goes_wrong(stage, "scripts are not executable", UNREADABLE)

    def trouble_of_failing_actions(self, stage, _title):
        """A swap that fails is tried again by the cycle that follows it."""
        router = stage.router
        for what in ("dies of a signal", "prints a megabyte"):
            title = f"the swap {what}"
            self.misplace(router)
            start = router.daemon.position()
            with with_script(SWAP, SILLY[what]):
                router.bus.call("wan_detect", "wan_detect")
                tried = router.daemon.wait_for("switch_wan_to_dev", "success switching", FOUND_S, start)
                stage.check(f"{title}: it was tried", tried is not None and router.wan_port() == "eth0")
                router.cycle_over(FOUND_S, start)
            self.finds_again(stage, title)

    def trouble_of_children_left_behind(self, stage, _title):
        """They hold the pipe of their parent, which is gone: the limit of a query ends them."""
        router = stage.router
        start = router.daemon.position()
        with with_script(SCRIPT, "#!/bin/sh\nfor i in 1 2 3 4 5; do sleep 1000 & done\necho '{}'\n"):
            killed = router.daemon.wait_for("capture_command", "does not end, killed", LATEST_LOOK_S, start)
            stage.check("children that hold the pipe: the limit ends the wait", killed is not None)
            self.loop_turns_during(stage, "children that hold the pipe", LOOK_S)
        router.clock.wait_until(lambda: not sleepers(), QUERY_LIMIT_S * 3)
        stage.check("children that hold the pipe: none is left", not sleepers(), sleepers())
        self.finds_again(stage, "children that hold the pipe")

    def trouble_of_closed_output(self, stage, _title):
        """Nothing more can come from such a script, but it goes on."""
        router = stage.router
        start = router.daemon.position()
        with with_script(COMBO, "#!/bin/sh\nexec 1>&-\nsleep 1000\n"):
            killed = router.daemon.wait_for("capture_command", "does not end, killed", LATEST_LOOK_S, start)
            stage.check("a script that closes its output and goes on: the limit ends it", killed is not None)
            self.loop_turns_during(stage, "a script that closes its output", LOOK_S)
        router.clock.wait_until(lambda: not sleepers(), QUERY_LIMIT_S * 3)
        self.finds_again(stage, "a script that closes its output")


def sleepers():
    """Numbers of the sleeping programs that hanging scripts started."""
    found = []
    for path in Path("/proc").glob("[0-9]*/cmdline"):
        try:
            if path.read_bytes() == b"sleep\x001000\x00":
                found.append(int(path.parent.name))
        except OSError:
            continue
    return found


class HangingScripts(Trouble):
    name = "hanging-scripts"
    rank = 72
    summary = "each of the router's commands hangs once: work is late, and goes on"
    story = """
        The scripts that are asked something may take 10 s, the programs that do something 60 s; after that they are
        killed. The daemon waits for them, and then goes on as if they had failed.
    """
    wan = "eth4"
    winner = "eth4"
    combo = {"eth4": "phy"}
    cables = {"eth0": Silent(), "eth4/phy": DhcpServer()}

    def hangs(self, stage, title, path, limit, act):
        """The command hangs while `act` runs; it has to be killed when its limit is over."""
        router = stage.router
        start = router.daemon.position()
        with with_script(path, HANGING):
            act()
            killed = router.daemon.wait_for(None, "does not end, killed", 3 * limit + FOUND_S, start)
        stage.check(f"{title}: it is killed", killed is not None)
        if killed is not None:
            stage.facts.setdefault("killed_at", {})[title] = router.daemon.lines[killed].at
        return start

    def trouble_port_states(self, stage, title):
        """The scan and both looks of the cycle take ten seconds each, then it goes on."""
        router = stage.router
        began = router.clock.now()
        self.misplace(router)
        start = self.hangs(stage, title, SCRIPT, QUERY_LIMIT_S, lambda: router.bus.call("wan_detect", "wan_detect"))
        found = router.daemon.wait_for("switch_wan_to_dev", "success switching wan dev to eth4", 3 * FOUND_S, start)
        stage.check(f"{title}: the cycle goes on and finds eth4", found is not None)
        stage.note("late_by_port_states_s", router.clock.now() - began)

    def trouble_combo_state(self, stage, title):
        router = stage.router
        with with_script(COMBO, HANGING):
            took = self.finds_again(stage, title)
        stage.note("late_by_combo_state_s", took)

    def trouble_swap(self, stage, title):
        router = stage.router
        self.misplace(router)
        began = router.clock.now()
        start = self.hangs(stage, title, SWAP, ACTION_LIMIT_S, lambda: router.bus.call("wan_detect", "wan_detect"))
        again = router.daemon.wait_for("switch_wan_to_dev", "success switching wan dev to eth4", ACTION_LIMIT_S, start)
        second = again is not None and router.daemon.wait_for("switch_wan_to_dev", "success switching wan dev to eth4",
                                                              ACTION_LIMIT_S + REDETECT_S + FOUND_S, again + 1)
        stage.check(f"{title}: the next cycle swaps", bool(second) and router.wan_port() == "eth4", router.wan_port())
        stage.note("late_by_swap_s", router.clock.now() - began)
        router.cycle_over(FOUND_S, second or start)

    def figures(self, stage):
        facts = stage.facts
        return super().figures(stage) + [
            f"From the WAN role's loss to its return: {facts['late_by_port_states_s']:.0f} s with hanging port states, "
            f"{facts['late_by_combo_state_s']:.0f} s with a hanging combo state, {facts['late_by_swap_s']:.0f} s with "
            f"a swap that hangs once"]


class HangingReload(Scenario):
    name = "hanging-reload"
    rank = 72
    summary = "the reload of the ports hangs when the fake WAN port is dropped: the swap comes a minute later"
    story = """
        The first cycle finds the line. It drops the fake WAN port, which needs a reload of the ports; that one hangs
        and is killed. The swap follows as ever.
    """
    cables = {"eth0": Silent(), "eth2": DhcpServer()}
    winner = "eth2"

    def configure(self, config):
        config.network["auto_wan_detect"]["fake_wan_port"] = "4"

    def play(self, stage):
        shutil.copy(RELOAD, GOOD_RELOAD)
        with with_script(RELOAD, HANGING_ONCE):
            super().play(stage)

    def wait_for_swap_and_confirmation(self, stage):
        router = stage.router
        stage.note("killed", router.daemon.wait_for("run_command", f"{RELOAD} does not end, killed",
                                                    START_PAUSE_S + FIRST_CYCLE_S + ACTION_LIMIT_S))
        super().wait_for_swap_and_confirmation(stage)

    def judge(self, stage):
        stage.check("the reload was killed", stage.facts["killed"] is not None)
        stage.check("the fake WAN port is gone", stage.router.fake_wan() == "-1", stage.router.fake_wan())
        super().judge(stage)


class HangingOnlineTest(Trouble):
    name = "hanging-online-test"
    rank = 72
    summary = "the online test hangs: a look at the WAN port takes two minutes; the cycle ends when it works again"
    story = """
        The connection has a static address, so each look at the WAN port asks the online test, which hangs. It is
        killed and asked once more, and the WAN port counts as poor; the cycle stays open. Then the test works again.
    """
    wan = "eth3"
    winner = "eth3"
    cables = {"eth0": Silent(), "eth3": Gateway(GATEWAY)}

    def configure(self, config):
        config.set_wan_type("static")
        config.protocol["static"].update(NETWORK)

    def trouble_of_the_online_test(self, stage, title):
        router = stage.router
        start, began = router.daemon.position(), router.clock.now()
        with with_script(ONLINE, HANGING):
            router.bus.call("wan_detect", "wan_detect")
            poor = router.daemon.wait_for("get_network_status", "poor connected", 3 * ACTION_LIMIT_S, start)
        stage.check("the WAN port counts as poor", poor is not None)
        stage.note("look_s", router.clock.now() - began)
        ended = router.cycle_over(3 * ACTION_LIMIT_S + FOUND_S, start)
        stage.check("with a test that works the cycle ends", ended is not None)
        tries = [line for line in router.daemon.lines[start:] if line.matches("run_command", "does not end, killed")]
        stage.check("it was killed, tried again and killed again", 2 <= len(tries) <= 4, len(tries))

    def figures(self, stage):
        return super().figures(stage) + [f"One look at the WAN port took {stage.facts['look_s']:.0f} s"]
