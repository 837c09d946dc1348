# SPDX-License-Identifier: MIT
"""The unit grants what a whole life takes, and nothing that it does not: without any one right something breaks."""
import threading
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import pytest

import machine as machines
import router_life

pytest_plugins = ["debian_package"]
UNIT = Path(machines.ROOT / "packaging" / "systemd" / "wan_detect.service")
# What no longer holds without the right; the names of facts are those of router_life.
NEEDED_FOR = {
    ("CapabilityBoundingSet", "CAP_NET_ADMIN"): "ports",
    ("CapabilityBoundingSet", "CAP_NET_RAW"): "found",
    ("ReadWritePaths", "/etc/config"): "role",
    ("ReadWritePaths", "/tmp"): "found",
    ("SystemCallFilter", "capset"): "gateway answers",
    ("SystemCallFilter", "setuid"): "gateway answers",
    ("RestrictAddressFamilies", "AF_UNIX"): "serves",
    ("RestrictAddressFamilies", "AF_INET"): "found",
    ("RestrictAddressFamilies", "AF_PACKET"): "found",
    ("RestrictAddressFamilies", "AF_NETLINK"): "ports",
}
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
    return f"[Service]\n{setting}=\n" + (f"{setting}={rest}\n" if rest else "")


def live(folder, right, whole_is_over):
    """The facts of a life without the right; with all rights for none, when the others have half its time more."""
    started = time.monotonic()
    with machines.Machine(folder) as machine:
        router_life.build(machine)
        if right:
            machine.script(f"mkdir {DROP_IN.rpartition('/')[0]}; printf '{settings_without(right)}' >{DROP_IN}; systemctl daemon-reload")
            return router_life.play(machine, given_up=whole_is_over)
        facts = router_life.play(machine)
        threading.Timer((time.monotonic() - started) / 2, whole_is_over.set).start()
        return facts


@pytest.fixture(scope="module", name="lives")
def all_lives(installed):
    rights, whole_is_over = [None, *NEEDED_FOR], threading.Event()
    with ThreadPoolExecutor(len(rights)) as pool:
        lives = dict(zip(rights, pool.map(lambda right: live(installed, right, whole_is_over), rights)))
    assert lives[None] == router_life.WHOLE
    return lives


def test_no_right_is_granted_that_is_not_tried():
    assert sorted(granted()) == sorted(NEEDED_FOR)


@pytest.mark.parametrize("right", NEEDED_FOR, ids="=".join)
def test_a_life_is_whole_with_all_rights_and_not_without(lives, right):
    assert "started" in lives[right]
    assert NEEDED_FOR[right] not in lives[right]
