# SPDX-License-Identifier: MIT
"""The daemon in the foreground of a service manager, and on a board whose ports have other names."""
import re
from pathlib import Path

import pytest

from marks import scenario

PROJECT = Path(__file__).parents[2] / "CMakeLists.txt"
DONE = {"err_code": 0}


def said(life):
    return [tuple(line) for line in life["lines"]]


# holds: version
@scenario("supervised")
def test_the_version_is_that_of_the_project(seen):
    version = re.search(r"project\(wan_detect VERSION ([0-9.]+)", PROJECT.read_text()).group(1)
    life = seen.facts["lives"]["version"]
    assert (life["status"], life["output"]) == (0, f"wan_detect {version}\n")


# holds: foreground
@scenario("supervised")
def test_in_the_foreground_the_process_that_was_started_is_the_daemon_in_its_session(seen):
    life = seen.facts["lives"]["up to the loop"]
    assert life["looped"] and life["same_process"] and life["same_session"]
    assert (life["status"], life["left"]) == (0, [])


# holds: foreground-gives-up
@scenario("supervised")
@pytest.mark.parametrize("title, line", [("no bus", "ubus"), ("no network package", "init_all_eth_device failed!"),
                                         ("no thread", "pthread_create wan_combo_auto_switch failed...11")])
def test_in_the_foreground_a_start_that_gives_up_gives_status_1(seen, title, line):
    life = seen.facts["lives"][title]
    assert ("Critical", "main", line) in said(life)
    assert (life["status"], life["left"]) == (1, [])


# holds: foreground-gives-up
@scenario("supervised")
def test_in_the_foreground_a_wish_to_end_gives_status_0(seen):
    life = seen.facts["lives"]["told to end while the bus hangs"]
    assert (life["status"], life["left"]) == (0, [])


# holds: second-instance
@scenario("supervised")
def test_a_second_daemon_takes_nothing_from_the_first(seen):
    life = seen.facts["lives"]["beside another"]
    assert (life["log"], life["result"], life["reload_called"]) == ("the first one's", "the first one's", False)
    assert life["reply"] == DONE
    assert life["status"] == 0


# holds: second-instance, foreground-gives-up
@scenario("supervised")
def test_a_second_daemon_says_so_where_it_was_started_and_gives_status_1_in_the_foreground(seen):
    life = seen.facts["lives"]["beside another"]
    assert "[wan_detect_ubus_init:" in life["second_output"]
    assert "]: ubus_add_object: Invalid argument\n" in life["second_output"]
    assert (life["second_status"], life["second_in_background"]) == (1, 0)


# holds: served-at-start
@scenario("supervised")
def test_during_the_pauses_of_start_up_callers_have_their_replies_and_the_loop_does_the_rest(seen):
    life = seen.facts["lives"]["called while it starts"]
    assert life["replies"] == {method: DONE for method in ("log", "set", "hotplug", "wan_detect", "proto_detect")}
    assert life["banned"] and not life["loop_came_first"]
    functions = [function for _, function, _ in said(life)]
    bodies = [body for _, _, body in said(life)]
    steps = [at for at, function in enumerate(functions) if function.startswith("uloop_")]
    assert steps and min(steps) > bodies.index("Wan detect start uloop!!!!!!")
    assert bodies.index("Device eth1 link status change to up!") < bodies.index("Wan detect start uloop!!!!!!")


# holds: hangup-ignored
@scenario("supervised")
def test_a_hangup_is_told_of_and_ends_nothing_in_the_pauses_and_in_the_loop(seen):
    life = seen.facts["lives"]["hung up"]
    assert life["in_the_pause"] and life["in_the_loop"]
    assert life["status"] == 0
    assert ("Debug", "wan_detect_ubus_done", "wan_detect_ubus closed") in said(life)
    assert seen.facts["lives"]["hung up in the background"]["told"]


# holds: hangup-ignored
@scenario("supervised")
def test_programs_have_the_default_reaction_to_a_hangup(seen):
    assert seen.facts["lives"]["hung up"]["programs_keep_it"] == []


# holds: foreground-log, log-reader-deaf
@scenario("supervised")
def test_a_log_that_nobody_reads_holds_nobody_up_and_goes_on_when_somebody_reads(seen):
    life = seen.facts["lives"]["with a log that nobody reads"]
    assert life["log_reply"] == life["reply"] == life["reply_after_reading"] == DONE
    assert "set debug level:7." in life["read"]
    assert "[wan_detect_settings:" in life["read_on"]


# holds: log-reader-deaf
@scenario("supervised")
def test_a_reader_of_the_log_that_goes_away_ends_nothing(seen):
    life = seen.facts["lives"]["with a log that nobody reads"]
    assert life["reply_without_reader"] == DONE
    assert life["status"] == 0


# holds: port-prefix
@scenario("port-names")
def test_ports_of_other_names_are_found_and_get_the_wan_role(seen):
    assert seen.facts["result"] == "lan3"
    assert {probe["port"] for probe in seen.probes()} <= {"wan", "lan1", "lan2", "lan3", "lan4"}


# holds: device-16
@scenario("port-names")
def test_bridges_and_vlans_do_not_count_against_the_limit(seen):
    assert len(seen.facts["left_out"]) == 1
    assert "15 device(s)" in seen.facts["left_out"][0]
    assert not any("device number more than" in line["body"] for line in seen.lines)
