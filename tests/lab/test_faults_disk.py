# SPDX-License-Identifier: MIT
"""Disks without room, read-only disks, and files that are gone."""
import pytest

bad_disk = pytest.mark.scenario("bad-disk", "--speed", "20", long=True)


@bad_disk
def test_whatever_the_disk_does_the_daemon_goes_on(seen):
    """The checks of the scenario say so."""


@bad_disk
@pytest.mark.parametrize("name", ["wan_detect_result", "protocol_detect_result"])
def test_a_result_file_is_never_seen_half_written(seen, name):
    passed = {check["what"] for check in seen.report["checks"] if check["passed"]}
    assert f"{name} was never seen half-written" in passed
    assert len(seen.facts[name]) >= 2    # it was seen with and without a result


@bad_disk
def test_a_full_disk_leaves_no_empty_result_file(seen):
    assert "" not in seen.facts["wan_detect_result"] + seen.facts["protocol_detect_result"]


@bad_disk
def test_a_deleted_log_goes_to_the_console_when_it_is_opened_again(seen):
    assert any("Success Cyclic scanning" in line for line in seen.console)


# holds: commit-without-room
@pytest.mark.scenario("disk-full-at-first", "--speed", "20")
def test_a_commit_that_fails_leaves_the_file_and_the_next_cycle_commits(seen):
    assert seen.find("_uci_set_value_commit", "fail to commit network.auto_wan_detect.fake_wan_port")
    swaps = seen.find("switch_wan_to_dev", "success switching wan dev to eth2")
    assert len(swaps) == 2
