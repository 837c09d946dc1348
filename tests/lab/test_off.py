# SPDX-License-Identifier: MIT
"""Detection switched off in every stage of a cycle."""
from marks import scenario

SLOWER = ("--speed", "4")    # the call has to come in the middle of a stage


def turned_off_between(seen, begun, over):
    """Whether the answer was given between two lines, each of them named by its function and text."""
    off = seen.facts["off"]
    return seen.find(*begun, 0, off) and not seen.find(*over, 0, off) and seen.find(*over, off)


# holds: off-in-any-stage
@scenario("off-waiting")
def test_off_while_the_cycle_waits_for_its_10_s(seen):
    """The checks of the scenario say so."""


# holds: off-in-any-stage
@scenario("off-pass", *SLOWER)
def test_off_in_a_pass_moves_no_role(seen):
    assert turned_off_between(seen, ("uloop_start_wan_detect", "Start to detect in"), ("uloop_wan_detect_end", "over!"))


# holds: off-in-any-stage
@scenario("off-probes", *SLOWER)
def test_off_in_the_probe_stage_moves_no_role(seen):
    assert turned_off_between(seen, ("uloop_proto_detect_start", "Entering"), ("uloop_wan_detect_end", "Entering"))
    assert seen.find("uloop_proto_detect_end", "Detection over!", 0, seen.facts["off"]) == []


# holds: off-in-any-stage
@scenario("off-arp", *SLOWER)
def test_off_in_the_arp_stage_moves_no_role(seen):
    assert turned_off_between(seen, ("uloop_start_wan_detect", "using arp"), ("uloop_wan_detect_end", "Entering"))


# holds: off-in-any-stage
@scenario("off-dns", *SLOWER)
def test_off_in_the_dns_stage_with_the_verdict_pending_moves_no_role(seen):
    assert turned_off_between(seen, ("uloop_wan_detect_using_dns", "device:eth1 as wan!"),
                              ("uloop_wan_detect_end", "Entering"))


# holds: off-in-any-stage
@scenario("off-open")
def test_off_while_the_cycle_waits_for_something_new_ends_it_for_good(seen):
    """The checks of the scenario say so."""
