# SPDX-License-Identifier: MIT
"""What other users put into /tmp, and what the daemon was started with, leads it nowhere."""
import pytest

pytestmark = pytest.mark.scenario("strangers", long=True)


def passed(seen):
    return {check["what"] for check in seen.report["checks"] if check["passed"]}


def test_nothing_that_strangers_do_stops_the_daemon(seen):
    """The checks of the scenario say so."""


# holds: log-file-plain
def test_a_link_for_the_log_is_not_followed(seen):
    assert {"a link for the log: its target is untouched", "a link for the log: the console gets the log"} <= passed(seen)


# holds: log-file-plain
@pytest.mark.parametrize("kind", ["link", "pipe", "folder"])
def test_what_is_no_log_file_of_our_own_leaves_the_log_to_the_console(seen, kind):
    assert f"a {kind} for the log: the console gets the log" in passed(seen)


# holds: result-place-taken
def test_folders_in_the_way_of_results_are_moved_aside(seen):
    assert "folders for the results: a request leaves its answer" in passed(seen)
    assert "folders for the results: the next cycle finds eth2" in passed(seen)


# holds: own-habits, result-file-safe
def test_a_careless_starter_leaves_no_result_that_anybody_may_write(seen):
    assert {"a careless starter: the daemon has habits of its own",
            "a careless starter: everybody may read wan_detect_result, and only the daemon's user may write it"} <= passed(seen)
