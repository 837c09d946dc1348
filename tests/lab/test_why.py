# SPDX-License-Identifier: MIT
"""What the object "wan_detect.state" tells of the reasons, as the scenarios read it: they ask it, and read no log."""
from marks import scenario

LONG_LIFE = ("--speed", "60")


# holds: why-port-left-out
@scenario("why-not")
def test_each_port_is_told_with_the_reason_why_it_fell_out(seen):
    """The checks of the scenario say so."""


# holds: why-static
@scenario("why-gateway")
def test_the_gateway_and_the_name_server_are_told_as_what_decided(seen):
    """The checks of the scenario say so."""


# holds: why-loss
@scenario("why-loss")
def test_a_loss_is_told_to_who_asks_and_to_who_subscribed(seen):
    """The checks of the scenario say so."""


# holds: why-swaps
@scenario("why-swaps")
def test_swaps_that_do_not_help_are_told_with_the_pause_behind_them(seen):
    """The checks of the scenario say so."""


# holds: why-hints
@scenario("why-hints")
def test_hints_come_with_the_answers_that_show_a_wrong_setting_and_go_with_it(seen):
    """The checks of the scenario say so."""


# holds: questions-bound
@scenario("why-silence", *LONG_LIFE, long=True)
def test_a_port_that_stays_silent_is_asked_less_and_less(seen):
    """The checks of the scenario say so."""


# holds: questions-bound, why-swaps
@scenario("why-swaps-fail", *LONG_LIFE, long=True)
def test_a_port_is_asked_less_and_less_while_its_swaps_fail(seen):
    """The checks of the scenario say so."""


# holds: why-polled
@scenario("why-polled")
def test_a_client_that_asks_for_the_status_all_the_time_delays_no_cycle(seen):
    assert seen.facts["measured"]["ms_per_call"] <= 1
