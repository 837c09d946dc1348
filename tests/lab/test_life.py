# SPDX-License-Identifier: MIT
"""The daemon's exit statuses, what it says before it gives up, and that signals end it at every moment."""
import pytest

from marks import scenario

FORKED_LIVES = ["no options", "level 0", "level 8"]


def said(life):
    """The lines of one life, as (level, function, body)."""
    return [tuple(line) for line in life["lines"]]


# holds: help
@scenario("start-up")
def test_help_prints_the_usage_and_exits_with_status_1_before_forking(seen):
    life = seen.facts["lives"]["help"]
    assert (life["first_status"], life["forked"]) == (1, False)
    assert life["console"] == [
        "Usage: /usr/sbin/wan_detect -d/--debug [0(emergy)~7(debug)] to specify the debug level!"]


# holds: wrong-options
@scenario("start-up")
@pytest.mark.parametrize("line", ["an unknown option", "a missing level"])
def test_a_wrong_command_line_points_to_help_and_exits_with_status_1(seen, line):
    life = seen.facts["lives"][line]
    assert (life["first_status"], life["forked"]) == (1, False)
    assert life["console"] == ["Try: /usr/sbin/wan_detect --help for more information!"]


# holds: failed-fork
@scenario("start-up")
def test_a_failed_fork_is_told_on_the_console_and_gives_status_1(seen):
    life = seen.facts["lives"]["no fork"]
    assert (life["first_status"], life["forked"]) == (1, False)
    assert life["console"] == ["[wan_detect][Error] error fork!!!"]


# holds: no-options, log-level-2
@scenario("start-up")
def test_without_options_the_level_is_critical_and_start_up_goes_on(seen):
    life = seen.facts["lives"]["no options"]
    assert life["answered"] and life["console"] == []
    assert (life["output"], life["lines"]) == ("", [])


# holds: level-out-of-range
@scenario("start-up")
@pytest.mark.parametrize("level", ["0", "8"])
def test_a_level_of_0_or_8_is_refused_and_the_daemon_still_starts(seen, level):
    life = seen.facts["lives"][f"level {level}"]
    assert life["console"] == [f"Invalid option -d {level}, Run as default critical debug level!"]
    assert life["answered"]
    assert (life["output"], life["lines"]) == ("", [])


# holds: first-process-ends
@scenario("start-up")
@pytest.mark.parametrize("life", FORKED_LIVES)
def test_the_first_process_ends_with_status_0_as_soon_as_it_has_forked(seen, life):
    assert seen.facts["lives"][life]["first_status"] == 0
    assert seen.facts["lives"][life]["status"] == 0


@scenario("start-up")
def test_a_daemon_without_standard_descriptors_logs_when_asked_and_ends_with_status_0(seen):
    life = seen.facts["lives"]["no standard descriptors"]
    assert life["answered"]
    assert any(body.startswith("Success Cyclic scanning") for _, _, body in said(life))
    assert (life["first_status"], life["status"]) == (0, 0)


@scenario("start-up")
def test_a_bus_that_restarts_during_start_up_finds_the_daemon(seen):
    life = seen.facts["lives"]["the bus restarts meanwhile"]
    assert life["answered"]
    assert ("Notice", "restore_connection", "ubus connection restored") in said(life)
    assert life["status"] == 0


# holds: start-up-fails
@scenario("start-up")
def test_without_a_bus_the_daemon_says_so_and_ends_with_status_0(seen):
    life = seen.facts["lives"]["no bus"]
    assert said(life)[:2] == [("Critical", "wan_detect_ubus_init", "ubus connect fail!"), ("Critical", "main", "ubus")]
    assert (life["first_status"], life["status"]) == (0, 0)


# holds: signal-cannot-be-raised
@scenario("start-up")
def test_a_fatal_error_that_cannot_even_raise_its_signal_gives_status_1(seen):
    assert seen.facts["lives"]["no bus and no signal"]["status"] == 1


# holds: start-up-fails
@scenario("start-up")
@pytest.mark.parametrize("package, line", [("protocol", "init_all_protocols failed!"),
                                           ("network", "init_all_eth_device failed!")])
def test_a_missing_package_is_fatal_and_ends_with_status_0(seen, package, line):
    life = seen.facts["lives"][f"no {package} package"]
    assert ("Critical", "main", line) in said(life)
    assert not any(body.startswith("No device has plugged in") for _, _, body in said(life))
    assert life["status"] == 0


# holds: start-up-fails
@scenario("start-up")
def test_without_descriptors_for_the_loop_the_daemon_says_so_and_ends_with_status_0(seen):
    life = seen.facts["lives"]["no descriptors"]
    assert said(life) == [("Critical", "prepare_process", "no descriptors for the event loop")]
    assert life["status"] == 0


# holds: start-up-fails
@scenario("start-up")
@pytest.mark.parametrize("life, line", [
    ("no first thread", "pthread_create wan_combo_auto_switch failed...11"),
    ("no second thread", "pthread_create update_eth_link_status_trigger failed...11")])
def test_a_thread_that_cannot_be_created_is_fatal_and_ends_with_status_0(seen, life, line):
    found = seen.facts["lives"][life]
    assert ("Critical", "main", line) in said(found)
    assert not any(body.startswith("Wan detect start uloop") for _, _, body in said(found))
    assert found["status"] == 0


# holds: no-router-at-start
@scenario("start-up")
def test_outside_router_mode_no_cycle_starts_and_the_fake_wan_stays(seen):
    life = seen.facts["lives"]["an access point with a fake wan"]
    assert ("Debug", "main", "Wan detect start uloop!!!!!!") in said(life)
    assert ("Debug", "init_fake_wan_device", "Success get fake_wan :eth3") in said(life)
    assert (life["fake_wan"], life["reload_called"]) == ("4", False)
    assert not any(function == "uloop_init_wan_detect_all" for _, function, _ in said(life))


# holds: shutdown-releases
@scenario("start-up")
def test_no_life_leaves_a_process_behind(seen):
    assert {name: life["left"] for name, life in seen.facts["lives"].items() if life["left"]} == {}


QUIET_MOMENTS = ["as it forks", "while it waits for a link", "by sigint", "started with the signals blocked",
                 "in the pause before the first cycle", "while the bus daemon hangs", "in the loop",
                 "in the loop by sigint", "while it probes", "while a port settles"]
HANGING_MOMENTS = ["in a hanging script at the start", "by signals that keep coming", "in a hanging swap",
                   "while the link scan hangs"]


# holds: signal-ends
@scenario("shutdown")
@pytest.mark.parametrize("moment", QUIET_MOMENTS + HANGING_MOMENTS)
def test_a_signal_ends_the_daemon_with_status_0_within_5_s(seen, moment):
    life = seen.facts["lives"][moment]
    assert (life["first_status"], life["status"]) == (0, 0)
    assert life["seconds"] <= 5


# holds: shutdown-releases
@scenario("shutdown")
@pytest.mark.parametrize("moment", QUIET_MOMENTS + HANGING_MOMENTS)
def test_a_signal_leaves_no_process_behind(seen, moment):
    assert seen.facts["lives"][moment]["left"] == []


# holds: hanging-at-shutdown
@scenario("shutdown")
@pytest.mark.parametrize("moment, function", [
    ("in a hanging script at the start", "capture_command"), ("by signals that keep coming", "capture_command"),
    ("in a hanging swap", "run_command"), ("while the link scan hangs", "capture_command")])
def test_a_script_that_hangs_is_ended_with_the_daemon_and_everything_is_released(seen, moment, function):
    messages = said(seen.facts["lives"][moment])
    assert [name for level, name, body in messages if level == "Warning" and body.endswith("does not end, killed")] == [
        function]
    assert ("Debug", "wan_detect_ubus_done", "wan_detect_ubus closed") in messages


# holds: signal-ends
@scenario("shutdown")
def test_every_moment_is_looked_at(seen):
    assert sorted(seen.facts["lives"]) == sorted(QUIET_MOMENTS + HANGING_MOMENTS)
    waited = {moment: said(seen.facts["lives"][moment]) for moment in QUIET_MOMENTS}
    assert any("using protocol detect" in body for _, _, body in waited["while it probes"])
    assert any("turned up during" in body for _, _, body in waited["while a port settles"])
    assert not any("uloop_start_wan_detect" == function
                   for _, function, _ in waited["in the pause before the first cycle"])
