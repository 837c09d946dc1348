# SPDX-License-Identifier: MIT
"""A client that asks all the time during a WAN loss."""
from marks import scenario

SLOWER = ("--speed", "4")    # its questions take real time


# holds: greedy-client
@scenario("busy-client", *SLOWER)
def test_a_client_that_asks_at_once_again_delays_each_stage_by_one_request_at_most(seen):
    """The checks of the scenario say so."""


# holds: greedy-client
@scenario("busy-client-pause", *SLOWER)
def test_a_client_that_asks_again_after_300_ms_delays_each_stage_by_one_request_at_most(seen):
    """The checks of the scenario say so."""


# holds: greedy-client
@scenario("busy-client-static", *SLOWER)
def test_an_arp_stage_waits_for_one_request_and_does_not_run_amid_it(seen):
    """The checks of the scenario say so."""
