# SPDX-License-Identifier: MIT
"""A client that asks all the time during a WAN loss."""
import pytest

SLOWER = ("--speed", "4")    # its questions take real time


def scenario(name):
    return pytest.mark.scenario(name, *SLOWER)


# holds: greedy-client
@scenario("busy-client")
def test_a_client_that_asks_at_once_again_delays_each_stage_by_one_request_at_most(seen):
    assert seen.failed_checks() == []


# holds: greedy-client
@scenario("busy-client-pause")
def test_a_client_that_asks_again_after_300_ms_delays_each_stage_by_one_request_at_most(seen):
    assert seen.failed_checks() == []


# holds: greedy-client
@scenario("busy-client-static")
def test_an_arp_stage_waits_for_one_request_and_does_not_run_amid_it(seen):
    assert seen.failed_checks() == []
