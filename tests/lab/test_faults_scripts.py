# SPDX-License-Identifier: MIT
"""The router's own commands fail, talk nonsense, leave children behind, or hang."""
import pytest

# Nothing but waiting happens while a command hangs.
SPEED = 20
FAST = ("--speed", str(SPEED))
bad_scripts = pytest.mark.scenario("bad-scripts", "--speed", "20", long=True)


def hanging(name):
    return pytest.mark.scenario(name, *FAST, long=True)


def checked(seen):
    return {check["what"] for check in seen.report["checks"] if check["passed"]}


@bad_scripts
def test_whatever_a_script_does_no_link_changes_and_nothing_stops(seen):
    """The checks of the scenario say so."""


@bad_scripts
@pytest.mark.parametrize("what", ["fails", "dies of a signal", "prints nothing", "prints a megabyte", "is no program",
                                  "prints bytes of any value", "has an interpreter that is missing"])
def test_a_script_without_an_answer_is_told_and_changes_nothing(seen, what):
    assert {f"a script {what}: Execute command:/etc/wan_detect/get_all_port_state.sh error!",
            f"a script {what}: no link changes"} <= checked(seen)


@bad_scripts
def test_children_that_hold_a_pipe_are_killed(seen):
    assert "children that hold the pipe: none is left" in checked(seen)


@hanging("hanging-scripts")
def test_a_hanging_script_makes_a_cycle_late_and_no_more(seen):
    """The checks of the scenario say so."""


@hanging("hanging-scripts")
def test_a_hanging_query_is_killed_after_10_s(seen):
    asked = next(line["at"] for line in seen.lines if "Will begin to detect all device after 0ms" in line["body"])
    killed = seen.find("capture_command", "get_all_port_state.sh does not end, killed")[0]["at"]
    # The scan may have asked a second before, and 0.8 real seconds are what a busy machine needs.
    assert 8.5 <= killed - asked <= 10.5 + 0.8 * SPEED


@hanging("hanging-scripts")
def test_a_hanging_swap_is_killed_after_60_s_and_the_next_cycle_swaps(seen):
    killed = seen.one("run_command", "network_lanwan_swap set port5 phy does not end, killed")["at"]
    swaps = [line["at"] for line in seen.find("switch_wan_to_dev", "Switching wan dev to eth4")]
    assert 59.5 <= killed - max(at for at in swaps if at < killed) <= 60.5 + 0.8 * SPEED
    assert 20.5 <= min(at for at in swaps if at > killed) - killed


@hanging("hanging-reload")
def test_a_hanging_reload_is_killed_and_the_swap_follows(seen):
    killed = seen.one("run_command", "/sbin/wanlan_port_reload does not end, killed")["at"]
    swapped = seen.one("switch_wan_to_dev", "success switching wan dev to eth2")["at"]
    assert 0 <= swapped - killed


@hanging("hanging-online-test")
def test_a_hanging_online_test_is_tried_twice_and_the_cycle_ends_when_it_works(seen):
    assert seen.find("check_online", "online-test failed, try again!!")
