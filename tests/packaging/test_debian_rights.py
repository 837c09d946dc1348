# SPDX-License-Identifier: MIT
"""The unit grants what a whole life takes, and nothing that it does not: without any one right something breaks."""
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import pytest

import machine as machines
import router_life

pytest_plugins = ["debian_package"]
UNIT = Path(machines.ROOT / "packaging" / "systemd" / "wan_detect.service")
BEGINS = {"started", "serves", "commit"}
# What goes on without the right, and what no longer holds; the names of facts are those of router_life.
NEEDED_FOR = {
    ("CapabilityBoundingSet", "CAP_NET_ADMIN"): (BEGINS | {"asked", "found", "role"}, "ports"),
    ("CapabilityBoundingSet", "CAP_NET_RAW"): (BEGINS, "asked"),
    ("ReadWritePaths", "/etc/config"): ({"started", "serves", "asked"}, "role"),
    ("ReadWritePaths", "/tmp"): (BEGINS | {"asked"}, "found"),
    ("ReadWritePaths", "/run"): (BEGINS | {"asked"}, "combo"),
    ("SystemCallFilter", "capset"): (router_life.FACTS.keys(), "gateway answers"),
    ("SystemCallFilter", "setuid"): (router_life.FACTS.keys(), "gateway answers"),
    ("RestrictAddressFamilies", "AF_UNIX"): ({"started"}, "serves"),
    ("RestrictAddressFamilies", "AF_INET"): (BEGINS, "found"),
    ("RestrictAddressFamilies", "AF_PACKET"): (BEGINS, "asked"),
    ("RestrictAddressFamilies", "AF_NETLINK"): (BEGINS | {"asked", "found", "role"}, "ports"),
}
# Beside these, some versions of systemd leave /run open, though ProtectSystem=strict shuts it.
SHUT_RUN = "ProtectProc=default\nProtectControlGroups=no\nProtectKernelTunables=no\n"
AT_ONCE = 6
DROP_IN = "/etc/systemd/system/wan_detect.service.d/without.conf"


def granted():
    """The rights that the unit names one by one, as (setting, word)."""
    settings = {setting for setting, _ in NEEDED_FOR}
    lines = (line.partition("=") for line in UNIT.read_text().splitlines())
    return [(setting, word) for setting, _, words in lines if setting in settings for word in words.split()
            if word[0] not in "@~"]


def settings_without(right):
    setting, word = right
    if setting == "SystemCallFilter":
        return f"[Service]\n{setting}=~{word}\n"
    rest = " ".join(other for name, other in granted() if name == setting and other != word)
    return f"[Service]\n{setting}=\n" + (f"{setting}={rest}\n" if rest else "") + (SHUT_RUN if word == "/run" else "")


def longer_than_whole(goes_on, whole_s):
    """Whether what goes on has done so for as long as a whole life took: what did not hold by then is not merely slow."""
    since = []

    def is_enough(facts):
        if goes_on <= facts and not since:
            since.append(time.monotonic())
        return since and whole_s and time.monotonic() - since[0] > whole_s[0]
    return is_enough


def live(folder, right, whole_s):
    """The facts of a life without the right; with all rights for none, whose seconds are then in the list."""
    with machines.Machine(folder) as machine:
        router_life.build(machine)
        if right:
            machine.script(f"mkdir {DROP_IN.rpartition('/')[0]}; printf '{settings_without(right)}' >{DROP_IN}; systemctl daemon-reload")
            return router_life.play(machine, longer_than_whole(NEEDED_FOR[right][0], whole_s))
        started = time.monotonic()
        facts = router_life.play(machine)
        whole_s.append(time.monotonic() - started)
        return facts


@pytest.fixture(scope="module", name="lives")
def all_lives(installed):
    rights, whole_s = [None, *NEEDED_FOR], []
    with ThreadPoolExecutor(AT_ONCE) as pool:
        lives = dict(zip(rights, pool.map(lambda right: live(installed, right, whole_s), rights)))
    assert lives[None] == router_life.WHOLE
    return lives


def test_no_right_is_granted_that_is_not_tried():
    assert sorted(granted()) == sorted(NEEDED_FOR)


@pytest.mark.parametrize("right", NEEDED_FOR, ids="=".join)
def test_a_life_is_whole_with_all_rights_and_not_without(lives, right):
    goes_on, breaks = NEEDED_FOR[right]
    assert goes_on - lives[right] == set()
    assert breaks not in lives[right]
