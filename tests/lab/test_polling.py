# SPDX-License-Identifier: MIT
"""A cycle with nobody left, or one that ended without a result, looks again."""
import re

from marks import scenario


def tells_of(line, seconds):
    return line["level"] == "Info" and re.search(rf"\b{seconds}( ?s\b| seconds\b|000 ?ms\b)", line["body"])


# holds: live-look-again-pauses
@scenario("looks-again", long=True)
def test_all_ports_are_listed_anew_after_30_s_then_60_s_then_120_s(seen):
    """The checks of the scenario say so."""


# holds: live-look-again-pauses
@scenario("looks-again", long=True)
def test_an_info_line_tells_of_each_pause(seen):
    windows = seen.facts["windows"]
    assert len(windows) == 3 and all(windows)
    for (begun, over), pause in zip(windows, (30, 60, 120)):
        assert any(tells_of(line, pause) for line in seen.lines if begun < line["at"] < over), f"of {pause} s"


# holds: live-retry-interval
@scenario("looks-again-10")
def test_the_first_pause_is_that_of_the_configuration(seen):
    """The checks of the scenario say so."""


# holds: live-retry-interval
@scenario("looks-again-9")
def test_a_first_pause_out_of_range_means_30_s(seen):
    """The checks of the scenario say so."""


# holds: live-retry-interval
@scenario("looks-again-soon")
def test_a_first_pause_that_is_no_number_means_30_s(seen):
    """The checks of the scenario say so."""


# holds: live-retry-interval
@scenario("never-again", long=True)
def test_a_first_pause_of_0_means_that_nobody_is_asked_again_in_ten_minutes(seen):
    """The checks of the scenario say so."""


# holds: live-pause-begins-anew
@scenario("looks-again-sooner", long=True)
def test_a_link_change_a_ban_a_request_and_a_moved_role_start_the_pauses_at_30_s_again(seen):
    """The checks of the scenario say so."""


# holds: ban-ran-out
@scenario("ban-runs-out")
def test_an_open_cycle_with_nobody_left_lists_a_port_whose_ban_ran_out(seen):
    """The checks of the scenario say so."""


# holds: live-look-again-after-end
@scenario("no-result")
def test_a_cycle_that_ended_without_a_result_is_followed_by_another_30_s_later(seen):
    """The checks of the scenario say so."""
