# SPDX-License-Identifier: MIT
"""Disks that are full or read-only, and files that are gone."""
import os
from contextlib import ExitStack
from pathlib import Path

from lab.config import FOLDER
from lab.daemon import LOG
from lab.disk import Reader, full, read_only
from lab.life import wait_until
from lab.router import PROTOCOL_RESULT, WAN_RESULT, content
from lab.scenarios.trouble import FOUND_S, Trouble
from lab.upstream import DhcpServer, Silent

TMP = Path("/tmp")
REQUEST_S = 20
CONSOLE_REAL_S = 5
RESULTS = {None, "eth0", "eth2"}
PROTOCOLS = {None, "dhcp", "static"}


class BadDisk(Trouble):
    name = "bad-disk"
    rank = 73
    summary = "/tmp or the configuration is full or read-only, the log is gone: nothing is half-written, and it passes"
    story = """
        Cycles come to a verdict while /tmp has no room, or may not be written, and while the configuration cannot be
        committed. The files that others read must never hold half of something, and the next cycle after the trouble
        must put everything right.
    """
    cables = {"eth0": Silent(), "eth2": DhcpServer()}

    def configure(self, config):
        config.network["auto_wan_detect"]["fake_wan_port"] = "4"

    def play(self, stage):
        readers = {WAN_RESULT: Reader(WAN_RESULT), PROTOCOL_RESULT: Reader(PROTOCOL_RESULT)}
        for reader in readers.values():
            reader.start()
        super().play(stage)
        for path, reader in readers.items():
            reader.over = True
            stage.note(path.name, sorted(map(str, reader.seen)))
            allowed = RESULTS if path == WAN_RESULT else PROTOCOLS
            stage.check(f"{path.name} was never seen half-written", reader.seen <= allowed, reader.seen)

    # --- words --------------------------------------------------------------------------------------------------------

    def verdict_without_room(self, stage, title, trouble, lines):
        """A cycle comes to its verdict while the trouble lasts; these lines must be said."""
        router = stage.router
        self.misplace(router)
        start = router.daemon.position()
        with trouble:
            router.bus.call("wan_detect", "wan_detect")
            ended = router.cycle_over(FOUND_S, start)
            stage.check(f"{title}: the cycle ends", ended is not None)
            for function, text in lines:
                stage.check(f"{title}: {text}", router.daemon.wait_for(function, text, FOUND_S, start) is not None)

    # --- troubles -----------------------------------------------------------------------------------------------------

    def trouble_a_full_tmp(self, stage, title):
        self.verdict_without_room(stage, title, full(TMP, keep=False), [
            ("uloop_wan_detect_using_proto_detect", "Only one device:eth2 using protocol dhcp"),
            ("write_wan_detect_result_file", f"File:{WAN_RESULT} Open Failed !")])
        self.finds_again(stage, title)

    def trouble_a_full_tmp_for_a_request(self, stage, title):
        router = stage.router
        start = router.daemon.position()
        with full(TMP, keep=False):
            reply = router.bus.call("wan_detect", "proto_detect", device="eth2")
            told = router.daemon.wait_for("write_proto_detect_result_file", f"File:{PROTOCOL_RESULT} Open Failed !",
                                          REQUEST_S, start)
            held = content(PROTOCOL_RESULT)
        stage.check(f"{title}: it is told, and no file is left", (reply, held) == ({"err_code": 0}, None)
                    and told is not None, (reply, held))
        router.bus.call("wan_detect", "proto_detect", device="eth2")
        router.clock.wait_until(lambda: content(PROTOCOL_RESULT) == "dhcp", REQUEST_S)
        stage.check(f"{title}: the next request leaves its answer", content(PROTOCOL_RESULT) == "dhcp")

    def trouble_a_read_only_tmp(self, stage, title):
        self.verdict_without_room(stage, title, read_only(TMP), [
            ("delete_file", f"file:{WAN_RESULT} delete failed!"),
            ("write_wan_detect_result_file", f"File:{WAN_RESULT} Open Failed !")])
        self.finds_again(stage, title)

    def trouble_a_full_configuration(self, stage, title):
        before = {path.name: path.read_bytes() for path in FOLDER.iterdir() if path.name != "switch"}
        with ExitStack() as stack:
            stack.callback(self.configuration_is_whole, stage, title, before)
            self.verdict_without_room(stage, title, full(FOLDER), [
                ("uloop_wan_detect_using_proto_detect", "Only one device:eth2 using protocol dhcp")])
        self.finds_again(stage, title)

    def trouble_a_read_only_configuration(self, stage, title):
        before = {path.name: path.read_bytes() for path in FOLDER.iterdir() if path.name != "switch"}
        self.verdict_without_room(stage, title, read_only(FOLDER), [
            ("uloop_wan_detect_using_proto_detect", "Only one device:eth2 using protocol dhcp")])
        self.configuration_is_whole(stage, title, before)
        self.finds_again(stage, title)

    @staticmethod
    def configuration_is_whole(stage, title, before):
        changed = [name for name, held in before.items() if (FOLDER / name).read_bytes() != held]
        stage.check(f"{title}: no file is cut or changed", not changed, changed)
        strange = sorted({path.name for path in FOLDER.iterdir()} - {*before, "switch"})
        stage.check(f"{title}: no draft is left behind", not strange, strange)

    def trouble_a_log_that_is_deleted(self, stage, title):
        """It is written on, for nobody. Switched off and on again it goes to the console, and later to a new file."""
        router = stage.router
        LOG.rename("/tmp/rotated.log")
        self.loop_turns_during(stage, title, 2)
        console = len(router.console)
        router.bus.call("wan_detect", "log", level=-1)
        router.bus.call("wan_detect", "log", level=7)
        shown = wait_until(lambda: any("Cyclic scanning" in line for line in router.console[console:]), CONSOLE_REAL_S)
        stage.check(f"{title}: the console gets the log", shown)
        router.bus.call("wan_detect", "log", level=-1)
        os.rename("/tmp/rotated.log", LOG)
        os.truncate(LOG, 0)
        start = router.daemon.position()
        router.bus.call("wan_detect", "log", level=7)
        written = router.daemon.wait_for("update_eth_link_status_trigger", "Success Cyclic", FOUND_S, start)
        stage.check(f"{title}: a new file gets it again", written is not None)

    def trouble_a_bus_socket_that_is_deleted(self, stage, title):
        """The connection that exists goes on; a bus that starts elsewhere later is found at its place."""
        router = stage.router
        router.bus.kill_broker()
        os.unlink("/var/run/ubus.sock")
        self.loop_turns_during(stage, title, 3)
        start = router.daemon.position()
        router.bus.start_broker()
        back = router.daemon.wait_for("restore_connection", "ubus connection restored", FOUND_S, start)
        stage.check(f"{title}: the daemon finds it", back is not None)
        router.bus.wait_for_object("network.interface", CONSOLE_REAL_S)


class DiskFullAtTheFirstVerdict(Trouble):
    name = "disk-full-at-first"
    rank = 73
    summary = "no room for the configuration when the first verdict wants to be committed: the next cycle heals it"
    story = """
        The fake WAN port is to be dropped and the WAN role to be given away, but nothing can be committed. 21 s later,
        with room again, the next cycle does both.
    """
    wan = "eth0"
    cables = {"eth0": Silent(), "eth2": DhcpServer()}

    def configure(self, config):
        config.network["auto_wan_detect"]["fake_wan_port"] = "4"

    def play(self, stage):
        router = stage.router
        before = (FOLDER / "network").read_bytes()
        with full(FOLDER):
            self.start(stage)
            stage.note("failed", router.daemon.wait_for("_uci_set_value_commit", "fail to commit network", 2 * FOUND_S))
            first = router.cycle_over(FOUND_S)
            stage.note("same", (FOLDER / "network").read_bytes() == before)
        second = None if first is None else router.cycle_over(2 * FOUND_S, first + 1)
        stage.note("third", None if second is None else router.cycle_over(2 * FOUND_S, second + 1))

    def judge(self, stage):
        stage.check("the commit failed, and was told", stage.facts["failed"] is not None)
        stage.check("the file is as it was", stage.facts["same"])
        super(Trouble, self).judge(stage)

    def figures(self, stage):
        return []
