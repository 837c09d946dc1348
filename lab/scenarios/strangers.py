# SPDX-License-Identifier: MIT
"""Other users of the router, and a careless starter: what they put in the daemon's way leads it nowhere."""
import os
import stat
from contextlib import contextmanager
from pathlib import Path

from lab.daemon import LOG
from lab.life import wait_until
from lab.router import PROTOCOL_RESULT, WAN_RESULT, content
from lab.scenarios.trouble import FOUND_S, Trouble
from lab.upstream import DhcpServer, Silent

NOBODY = 65534
KEPT_LOG = Path("/tmp/kept.log")
PRECIOUS = Path("/tmp/precious")
CONSOLE_REAL_S = 5
REQUEST_S = 20
OWN_HABITS = {"Umask": "0022", "NoNewPrivs": "1"}


class Strangers(Trouble):
    name = "strangers"
    rank = 75
    summary = "anybody's links, pipes and folders where the daemon writes, and a starter without a umask"
    story = """
        Everybody may put things into /tmp: a link, a pipe or a folder where the log would be, folders where the results
        would be. No file of others is written to, nothing stops, and every result appears. The daemon was started by
        somebody who lets everybody write everything.
    """
    cables = {"eth0": Silent(), "eth2": DhcpServer()}
    needs_users = True

    def start(self, stage):
        former = os.umask(0)
        super().start(stage)
        os.umask(former)

    # --- words --------------------------------------------------------------------------------------------------------

    @contextmanager
    def instead_of_the_log(self, router):
        """The daemon opens its log anew while something else has the place of the file."""
        router.bus.call("wan_detect", "log", level=-1)
        LOG.rename(KEPT_LOG)
        yield
        router.bus.call("wan_detect", "log", level=-1)
        (LOG.rmdir if LOG.is_dir() and not LOG.is_symlink() else LOG.unlink)()
        KEPT_LOG.rename(LOG)
        os.truncate(LOG, 0)
        start = router.daemon.position()
        router.bus.call("wan_detect", "log", level=7)
        router.daemon.wait_for("update_eth_link_status_trigger", "Success Cyclic", FOUND_S, start)

    @staticmethod
    def goes_to_the_console(stage, title):
        router, said = stage.router, len(stage.router.console)
        os.lchown(LOG, NOBODY, NOBODY)
        router.bus.call("wan_detect", "log", level=7)
        shown = wait_until(lambda: any("Cyclic scanning" in line for line in router.console[said:]), CONSOLE_REAL_S)
        stage.check(f"{title}: the console gets the log", shown)

    def judge_file(self, stage, title, path):
        mode, owner = path.stat().st_mode, path.stat().st_uid
        stage.check(f"{title}: everybody may read {path.name}, and only the daemon's user may write it",
                    (stat.S_ISREG(mode), stat.S_IMODE(mode), owner) == (True, 0o644, os.geteuid()), f"{mode:o} {owner}")

    # --- troubles -----------------------------------------------------------------------------------------------------

    def trouble_a_careless_starter(self, stage, title):
        lines = Path(f"/proc/{stage.router.daemon.pid}/status").read_text(encoding="ascii").splitlines()
        status = dict(line.split(":\t", 1) for line in lines if ":\t" in line)
        habits = {name: status[name] for name in OWN_HABITS}
        stage.check(f"{title}: the daemon has habits of its own", habits == OWN_HABITS, habits)
        self.finds_again(stage, title)
        self.judge_file(stage, title, WAN_RESULT)

    def trouble_a_link_for_the_log(self, stage, title):
        PRECIOUS.write_text("precious", encoding="ascii")
        with self.instead_of_the_log(stage.router):
            LOG.symlink_to(PRECIOUS)
            self.goes_to_the_console(stage, title)
        stage.check(f"{title}: its target is untouched", content(PRECIOUS) == "precious", content(PRECIOUS))

    def trouble_a_pipe_for_the_log(self, stage, title):
        with self.instead_of_the_log(stage.router):
            os.mkfifo(LOG, 0o666)
            reader = os.open(LOG, os.O_RDONLY | os.O_NONBLOCK)
            self.goes_to_the_console(stage, title)
            stage.check(f"{title}: nothing comes out of it", os.read(reader, 1) == b"")
            os.close(reader)

    def trouble_a_folder_for_the_log(self, stage, title):
        with self.instead_of_the_log(stage.router):
            LOG.mkdir()
            self.goes_to_the_console(stage, title)

    def trouble_folders_for_the_results(self, stage, title):
        router = stage.router
        for path in (WAN_RESULT, PROTOCOL_RESULT):
            for folder in (path, path.with_name(f"{path.name}.new"), path.with_name(f"{path.name}.draft")):
                folder.unlink(missing_ok=True)
                folder.mkdir()
                os.chown(folder, NOBODY, NOBODY)
        self.finds_again(stage, title)
        self.judge_file(stage, title, WAN_RESULT)
        router.bus.call("wan_detect", "proto_detect", device="eth2")
        router.clock.wait_until(PROTOCOL_RESULT.is_file, REQUEST_S)
        stage.check(f"{title}: a request leaves its answer", PROTOCOL_RESULT.is_file() and content(PROTOCOL_RESULT) == "dhcp")
        self.judge_file(stage, title, PROTOCOL_RESULT)

    def judge(self, stage):
        super().judge(stage)
        drafts = [path.name for path in Path("/tmp").glob("*.draft.*")]
        stage.check("no draft is left behind", not drafts, drafts)
